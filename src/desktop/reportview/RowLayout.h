// One row laid out: in pieces, of which only those that are looked at are laid out by the toolkit.
#pragma once

#include "desktop/reportview/Marks.h"
#include "desktop/reportview/TextRows.h"

#include <QColor>
#include <QFont>
#include <QTextLayout>

#include <memory>
#include <vector>

class QPainter;

namespace reportview {

/// What all rows share: the fonts of the text and of the marks, and their measures in device independent pixels.
struct TextStyle {
    /// Measures the font; asks the font system for it.
    explicit TextStyle(const QFont &textFont);

    qreal markWidth(const QString &name) const;

    QFont font;
    QFont markFont;
    qreal cell = 0;        ///< The advance of a digit: of every character in a monospaced font.
    qreal markCell = 0;    ///< The same for a mark's name.
    qreal markPadding = 0; ///< Left and right of a mark's name.
    qreal ascent = 0;
    int rowHeight = 0;
    bool isMonospaced = false;
};

/// The colours of one row.
struct RowColors {
    QColor text;
    QColor dim; ///< Of marks.
    QColor selectedText;
    QColor selectedDim;
    QColor selection; ///< Behind what is selected.
};

/// A row's characters in their places. Offsets count code units from the row's begin, x counts pixels from the left
/// end of the row. Characters that marksOf() names take the room of their marks.
class RowLayout
{
public:
    /// A row of the text, which has to stay as long as the layout.
    RowLayout(QStringView text, const Row &row, const TextStyle &rowStyle);

    bool isRightToLeft() const { return rightToLeft; }
    /// With the mark of its line end. Exact where the row's last piece has been looked at, and for plain text in a
    /// monospaced font; else the rest is taken to be of usual width.
    qreal width() const;
    /// Makes the width exact for what begins before the x.
    void measureTo(qreal x) { makePiecesUpToX(x); }
    /// Where the caret stands before the character at the offset, or behind the last one.
    qreal xOf(qsizetype offset);
    /// The place between two characters that is nearest to the x.
    qsizetype offsetAt(qreal x);
    /// The character whose room the x lies in, the last one behind the row.
    qsizetype characterAt(qreal x);
    /// The x ranges that the characters take, from left to right within each piece.
    struct Span {
        qreal left = 0;
        qreal right = 0;
    };
    std::vector<Span> spansOf(Range characters);
    /// Draws what lies between the two x values with the row's upper left corner at the place. What is selected counts
    /// from the row's begin, too, and may go on behind its line end.
    void draw(QPainter &painter, QPointF place, Span visible, Range selected, const RowColors &colors);

private:
    struct Piece {
        Range range;
        qreal x = 0; ///< From the row's first end, which is the right one where it runs from right to left.
        qreal width = 0;
        QList<Mark> marks;
        std::unique_ptr<QTextLayout> layout; ///< None yet where the width was known without.
        bool plain = false;
        bool mixed = false; ///< Has characters that run from right to left; known when there is a layout.
    };

    Piece makePiece(qsizetype begin) const;
    void layOut(Piece &piece) const;
    void makePiecesUpTo(qsizetype offset);
    void makePiecesUpToX(qreal x);
    Piece &pieceAt(qsizetype offset);
    Piece &pieceAtX(qreal x);
    /// A character with the room that it takes, or several that are drawn as one.
    struct Place {
        Range characters;
        Span room;
        bool rightToLeft = false;
    };
    std::vector<Place> placesOf(Piece &piece) const;
    Place placeAt(Piece &piece, qreal x) const;
    qreal leftOf(const Piece &piece) const;
    QTextLine lineOf(Piece &piece) const;
    qreal contentWidth() const;
    void addSpans(Piece &piece, Range characters, std::vector<Span> &spans) const;
    void drawMark(QPainter &painter, const Mark &mark, QRectF room, const QColor &color) const;
    void drawLineEnd(QPainter &painter, QPointF place, bool selected, const RowColors &colors) const;

    QStringView content;
    QList<Mark> lineEndMarks;
    const TextStyle &style;
    std::vector<Piece> pieces;
    bool rightToLeft = false;
    bool continued = false;
};

} // namespace reportview
