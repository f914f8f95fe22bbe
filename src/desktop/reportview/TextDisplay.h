// The view over a text of any size: what is in view is laid out, selected, copied and read aloud, and nothing else.
#pragma once

#include "desktop/reportview/RowLayout.h"
#include "desktop/reportview/TextSegments.h"

#include <QAbstractScrollArea>
#include <QBasicTimer>
#include <QList>
#include <QPoint>
#include <QString>

#include <map>
#include <optional>
#include <vector>

class QMenu;

namespace reportview {

/// A part of the text that has a name, such as an appended log.
struct Section {
    QString title;
    qsizetype offset = 0; ///< UTF-16 code units before it.

    bool operator==(const Section &) const = default;
};

/// Shows a text read-only, row below row, without wrapping and with marks for what would be invisible.
///
/// Beside the text, which it shares with its owner, it holds nothing that grows with it: rows are found around the
/// place that is looked at, and laid out while they are in view. The vertical scroll bar counts code units, so its
/// range is known without looking at the text.
class TextDisplay : public QAbstractScrollArea
{
    Q_OBJECT

public:
    explicit TextDisplay(QWidget *parent = nullptr);
    ~TextDisplay() override;

    const QString &text() const { return shown; }
    /// Shows the text from its start, with the caret there and no sections.
    void setText(const QString &text);
    /// The text's sections in their order. Offsets beyond the text count as its end.
    void setSections(const QList<Section> &named);

    /// Offsets are UTF-16 code units of the text. They are always between characters as a reader sees them.
    qsizetype caret() const { return caretOffset; }
    qsizetype anchor() const { return anchorOffset; }
    Range selection() const;
    /// Selects the characters that have a part between anchor and caret and brings the caret into view. Offsets outside
    /// the text count as its begin and its end.
    void select(qsizetype anchor, qsizetype caret);
    void selectAll();
    /// Offers the selection to the clipboard; does nothing without one.
    void copy();

    /// Brings the next or the previous section's first row to the top, and the caret to its start.
    void goToNextSection();
    void goToPreviousSection();

    /// The rows in view, the last one perhaps in part.
    std::vector<Row> visibleRows() const;
    /// The place of the character in the viewport; nothing for one that is in no row in view.
    std::optional<QRect> characterRect(qsizetype offset) const;
    /// The character shown at the place in the viewport.
    qsizetype characterAt(QPoint place) const;
    /// Offsets outside the text count as its begin and its end.
    void bringIntoView(qsizetype offset);
    /// Asked of any row, so its layout is not kept.
    bool runsFromRightToLeft(const Row &row) const { return RowLayout(view(), row, style()).isRightToLeft(); }

Q_SIGNALS:
    void findRequested();
    /// The context menu is about to be shown, with its own entries in it.
    void menuShown(QMenu *menu);

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void changeEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void timerEvent(QTimerEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    enum class Motion;
    struct Key;
    static const std::vector<Key> &keys();

    QStringView view() const { return shown; }
    const TextStyle &style() const;
    void forgetLayouts();
    RowLayout &layoutOf(const Row &row) const;
    qreal leftOf(RowLayout &layout) const;
    int rowsInView() const;
    int rowsOfPage() const;
    Row rowBelow(Row row, qsizetype count) const;
    struct RowInView {
        Row row;
        int y = 0; ///< Of its upper end.
    };
    std::optional<RowInView> rowInViewAt(qsizetype offset) const;
    bool isShownSectionAt(const Row &row) const;

    void updateScrollBars();
    void showStart();
    void widenTo(const std::vector<Row> &rows);
    qsizetype findLastTop() const;
    void setTop(qsizetype offset);
    void scrollRows(qsizetype count);
    void scrollByAction(int action);

    qsizetype caretAt(QPoint place) const;
    std::optional<QRect> caretRect() const;
    void moveCaret(Motion motion, bool keepsAnchor);
    qsizetype target(Motion motion);
    qsizetype targetRow(qsizetype rows);
    qsizetype placeInRow(const Row &row, qreal x) const;
    void setSelection(qsizetype anchor, qsizetype caret);
    void selectTo(QPoint place);
    void offerPrimarySelection() const;
    void restartBlinking();
    void goTo(const Section &section);
    void addSectionsTo(QMenu &menu);

    QString shown;
    QList<Section> sections;
    mutable std::optional<TextStyle> measured;
    mutable qreal measuredScale = 0;
    mutable std::map<qsizetype, RowLayout> layouts; ///< Of the rows in view, by their begin.
    qsizetype lastTop = 0; ///< Where it begins when the last row of the text is the last in view.
    qsizetype top = 0;     ///< The begin of the first row in view.
    qreal widest = 0;      ///< Of the rows that have been in view.
    qsizetype anchorOffset = 0;
    qsizetype caretOffset = 0;
    std::optional<qreal> wantedX; ///< Where the caret stays on its way up and down.

    Segment dragSegment = Segment::Character;
    Range dragOrigin;
    bool isDragging = false;
    QPoint dragPlace;
    QPoint lastClick;
    QBasicTimer tripleClick;
    QBasicTimer autoScroll;
    QBasicTimer blinking;
    bool caretIsOn = false;
    int wheelRemainder = 0;
};

} // namespace reportview
