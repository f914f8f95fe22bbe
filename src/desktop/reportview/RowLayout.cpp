// Where a row's characters stand, and how they and their marks are drawn.
#include "desktop/reportview/RowLayout.h"

#include <QFontInfo>
#include <QFontMetricsF>
#include <QGlyphRun>
#include <QPainter>
#include <QPainterPath>
#include <QRawFont>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace reportview {

namespace {

/// Code units that are laid out in one piece: about as many as a wide window shows.
constexpr qsizetype kPieceUnits = 256;
/// The same for plain text in a monospaced font, whose places are known without: no more than is in view.
constexpr qsizetype kPlainPieceUnits = 64;
/// Stands for a character that is shown as a mark: it takes room, draws nothing and moves nothing.
constexpr QChar kPlaceholder = QChar::Nbsp;
/// Stands for the second half of a surrogate pair that is shown as a mark.
constexpr QChar kNoRoom(0x200D);
constexpr int kTabCells = 8;
constexpr qreal kMarkScale = 0.72; ///< Of the text's size.
/// Wider than any piece: its characters stand on one line.
constexpr qreal kEndlessWidth = 1e7;

/// Whether every character of the text takes one cell of a monospaced font.
bool isPlain(QStringView text)
{
    return std::all_of(text.begin(), text.end(), [](QChar unit) { return unit >= u' ' && unit <= u'~'; });
}

bool runsFromRightToLeft(char32_t character)
{
    const QChar::Direction direction = QChar::direction(character);
    return direction == QChar::DirR || direction == QChar::DirAL || direction == QChar::DirAN;
}

bool hasRightToLeft(QStringView text)
{
    const QList<uint> characters = text.toUcs4();
    return std::any_of(characters.begin(), characters.end(), runsFromRightToLeft);
}

bool isTab(const Mark &mark)
{
    return mark.name == "HT"_L1;
}

/// The text with room for its marks in place of the characters.
QString withPlaceholders(QStringView text, const QList<Mark> &marks)
{
    QString shown = text.toString();
    for (const Mark &mark : marks) {
        if (isTab(mark)) {
            continue; // takes its room by itself
        }
        shown[mark.offset] = kPlaceholder;
        if (mark.units == 2) {
            shown[mark.offset + 1] = kNoRoom;
        }
    }
    return shown;
}

/// Whether the character runs from right to left; one without a direction of its own runs as it was laid out.
bool isRightToLeftAt(QStringView text, qsizetype offset, const QTextLine &line)
{
    switch (QChar::direction(text.mid(offset, 2).toUcs4().constFirst())) {
    case QChar::DirL:
    case QChar::DirEN:
    case QChar::DirAN:
        return false;
    case QChar::DirR:
    case QChar::DirAL:
        return true;
    default:
        return line.cursorToX(static_cast<int>(offset)) > line.cursorToX(static_cast<int>(offset) + 1);
    }
}

/// The room of the character in its line.
RowLayout::Span extentOf(const QTextLayout &layout, int index)
{
    const QTextLine line = layout.lineAt(0);
    const qreal leading = line.cursorToX(index);
    const qreal trailing = line.cursorToX(index, QTextLine::Trailing);
    if (leading != trailing) {
        return {std::min(leading, trailing), std::max(leading, trailing)};
    }
    // Where the direction changes the toolkit names the place that the caret has, which is at the other direction's
    // end. The glyph is where the character is; a tab has none.
    const QList<QGlyphRun> runs = layout.glyphRuns(index, 1);
    if (runs.isEmpty() || runs.first().positions().isEmpty()) {
        const qreal next = line.cursorToX(index + 1);
        return {std::min(leading, next), std::max(leading, next)};
    }
    const QList<QPointF> advances = runs.first().rawFont().advancesForGlyphIndexes(runs.first().glyphIndexes());
    const qreal left = runs.first().positions().first().x();
    return {left, left + advances.first().x()};
}

} // namespace

TextStyle::TextStyle(const QFont &textFont)
    : font(textFont)
    , markFont(textFont)
{
    if (font.pixelSize() > 0) {
        markFont.setPixelSize(std::max(1, static_cast<int>(font.pixelSize() * kMarkScale)));
    } else {
        markFont.setPointSizeF(font.pointSizeF() * kMarkScale);
    }
    const QFontMetricsF metrics(font);
    cell = metrics.horizontalAdvance(u'0');
    markCell = QFontMetricsF(markFont).horizontalAdvance(u'0');
    markPadding = markCell / 2;
    ascent = metrics.ascent();
    rowHeight = static_cast<int>(std::ceil(metrics.lineSpacing())) + 1;
    isMonospaced = QFontInfo(font).fixedPitch() && metrics.horizontalAdvance(u'i') == metrics.horizontalAdvance(u'W');
}

qreal TextStyle::markWidth(const QString &name) const
{
    return static_cast<qreal>(name.size()) * markCell + 2 * markPadding;
}

RowLayout::RowLayout(QStringView text, const Row &row, const TextStyle &rowStyle)
    : content(text.mid(row.begin, row.end - row.begin))
    , lineEndMarks(marksOf(text.mid(row.end, row.next - row.end)))
    , style(rowStyle)
    , continued(row.isContinued(text))
{
    const QStringView first = content.left(kPieceUnits);
    rightToLeft = !isPlain(first) && withPlaceholders(first, marksOf(first)).isRightToLeft();
    if (rightToLeft) {
        // Where its pieces stand is known only when all their widths are.
        makePiecesUpTo(content.size());
    }
}

qreal RowLayout::width() const
{
    qreal lineEnd = continued ? style.cell : 0;
    for (const Mark &mark : lineEndMarks) {
        lineEnd += style.markWidth(mark.name);
    }
    return contentWidth() + lineEnd;
}

qreal RowLayout::contentWidth() const
{
    const qreal known = pieces.empty() ? 0 : pieces.back().x + pieces.back().width;
    const qsizetype laidOut = pieces.empty() ? 0 : pieces.back().range.end;
    return known + static_cast<qreal>(content.size() - laidOut) * style.cell;
}

RowLayout::Piece RowLayout::makePiece(qsizetype begin) const
{
    Piece piece;
    piece.x = pieces.empty() ? 0 : pieces.back().x + pieces.back().width;
    // One more than the piece has: what follows may belong to its last character.
    piece.plain = style.isMonospaced && !rightToLeft && isPlain(content.mid(begin, kPlainPieceUnits + 1));
    if (piece.plain) {
        piece.range = {begin, std::min(begin + kPlainPieceUnits, content.size())};
        piece.width = static_cast<qreal>(piece.range.size()) * style.cell;
    } else {
        piece.range = {begin, divisionBefore(content, std::min(begin + kPieceUnits, content.size()))};
        piece.marks = marksOf(content.mid(begin, piece.range.size()));
        layOut(piece);
        piece.width = piece.layout->lineAt(0).naturalTextWidth();
    }
    return piece;
}

void RowLayout::layOut(Piece &piece) const
{
    const QStringView text = content.mid(piece.range.begin, piece.range.size());
    piece.layout = std::make_unique<QTextLayout>(withPlaceholders(text, piece.marks), style.font);
    QTextOption option(Qt::AlignLeft | Qt::AlignAbsolute);
    option.setWrapMode(QTextOption::NoWrap);
    option.setTextDirection(rightToLeft ? Qt::RightToLeft : Qt::LeftToRight);
    option.setTabStopDistance(kTabCells * style.cell);
    option.setFlags(QTextOption::IncludeTrailingSpaces);
    piece.layout->setTextOption(option);
    piece.layout->setCacheEnabled(true);
    piece.mixed = rightToLeft || hasRightToLeft(piece.layout->text());

    const qreal placeholderWidth = QFontMetricsF(style.font).horizontalAdvance(kPlaceholder);
    QList<QTextLayout::FormatRange> formats;
    for (const Mark &mark : std::as_const(piece.marks)) {
        if (isTab(mark)) {
            continue;
        }
        QFont font = style.font;
        font.setLetterSpacing(QFont::AbsoluteSpacing, style.markWidth(mark.name) - placeholderWidth);
        QTextCharFormat format;
        format.setFont(font);
        if (!formats.isEmpty() && formats.last().start + formats.last().length == mark.offset
            && formats.last().format == format) {
            ++formats.last().length;
            continue;
        }
        // The second half of a pair would get the space once more.
        formats.append({static_cast<int>(mark.offset), 1, format});
    }
    piece.layout->setFormats(formats);
    piece.layout->beginLayout();
    piece.layout->createLine().setLineWidth(kEndlessWidth);
    piece.layout->endLayout();
}

void RowLayout::makePiecesUpTo(qsizetype offset)
{
    while ((pieces.empty() || pieces.back().range.end <= offset)
           && (pieces.empty() || pieces.back().range.end < content.size())) {
        pieces.push_back(makePiece(pieces.empty() ? 0 : pieces.back().range.end));
    }
}

void RowLayout::makePiecesUpToX(qreal x)
{
    makePiecesUpTo(0);
    while (pieces.back().x + pieces.back().width <= x && pieces.back().range.end < content.size()) {
        pieces.push_back(makePiece(pieces.back().range.end));
    }
}

RowLayout::Piece &RowLayout::pieceAt(qsizetype offset)
{
    makePiecesUpTo(offset);
    const auto after =
        std::find_if(pieces.begin(), pieces.end(), [offset](const Piece &piece) { return offset < piece.range.end; });
    return after == pieces.end() ? pieces.back() : *after;
}

RowLayout::Piece &RowLayout::pieceAtX(qreal x)
{
    makePiecesUpToX(x);
    const auto found = std::find_if(pieces.begin(), pieces.end(), [this, x](const Piece &piece) {
        return rightToLeft ? leftOf(piece) <= x : x < piece.x + piece.width;
    });
    return found == pieces.end() ? pieces.back() : *found;
}

qreal RowLayout::leftOf(const Piece &piece) const
{
    return rightToLeft ? width() - piece.x - piece.width : piece.x;
}

QTextLine RowLayout::lineOf(Piece &piece) const
{
    if (!piece.layout) {
        layOut(piece);
    }
    return piece.layout->lineAt(0);
}

qreal RowLayout::xOf(qsizetype offset)
{
    Piece &piece = pieceAt(offset);
    const qsizetype inside = offset - piece.range.begin;
    if (piece.plain) {
        return piece.x + static_cast<qreal>(inside) * style.cell;
    }
    return leftOf(piece) + lineOf(piece).cursorToX(static_cast<int>(inside));
}

qsizetype RowLayout::offsetAt(qreal x)
{
    Piece &piece = pieceAtX(x);
    if (piece.plain) {
        const auto cells = static_cast<qsizetype>(std::lround(std::max(0.0, x - piece.x) / style.cell));
        return piece.range.begin + std::min(cells, piece.range.size());
    }
    const Place place = placeAt(piece, x);
    const bool isFirstHalf = x < (place.room.left + place.room.right) / 2;
    return isFirstHalf != place.rightToLeft ? place.characters.begin : place.characters.end;
}

qsizetype RowLayout::characterAt(qreal x)
{
    if (content.isEmpty()) {
        return 0;
    }
    Piece &piece = pieceAtX(x);
    if (piece.plain) {
        const auto cells = static_cast<qsizetype>(std::max(0.0, x - piece.x) / style.cell);
        return piece.range.begin + std::min(cells, piece.range.size() - 1);
    }
    return placeAt(piece, x).characters.begin;
}

std::vector<RowLayout::Place> RowLayout::placesOf(Piece &piece) const
{
    const QTextLine line = lineOf(piece);
    const QString text = piece.layout->text();
    const qreal left = leftOf(piece);
    std::vector<Place> places;
    QTextBoundaryFinder boundaries(QTextBoundaryFinder::Grapheme, text);
    qsizetype begin = 0;
    for (qsizetype end = boundaries.toNextBoundary(); end > 0; end = boundaries.toNextBoundary()) {
        const Span room = piece.mixed
            ? extentOf(*piece.layout, static_cast<int>(begin))
            : Span{line.cursorToX(static_cast<int>(begin)), line.cursorToX(static_cast<int>(end))};
        places.push_back({{piece.range.begin + begin, piece.range.begin + end},
                          {left + room.left, left + room.right},
                          piece.mixed && isRightToLeftAt(text, begin, line)});
        begin = end;
    }
    return places;
}

// The toolkit's own answer is the line's end for many a character that several glyphs or fonts make up.
RowLayout::Place RowLayout::placeAt(Piece &piece, qreal x) const
{
    const auto distance = [x](const Place &place) {
        return std::max({place.room.left - x, x - place.room.right, 0.0});
    };
    const std::vector<Place> places = placesOf(piece);
    const auto nearest = std::min_element(places.begin(), places.end(), [&](const Place &one, const Place &other) {
        return distance(one) < distance(other);
    });
    return nearest == places.end() ? Place() : *nearest;
}

std::vector<RowLayout::Span> RowLayout::spansOf(Range characters)
{
    std::vector<Span> spans;
    makePiecesUpTo(characters.end);
    for (Piece &piece : pieces) {
        const Range inside = {std::max(characters.begin, piece.range.begin), std::min(characters.end, piece.range.end)};
        if (inside.begin < inside.end) {
            addSpans(piece, inside, spans);
        }
    }
    return spans;
}

void RowLayout::addSpans(Piece &piece, Range characters, std::vector<Span> &spans) const
{
    const qreal left = leftOf(piece);
    const auto begin = static_cast<int>(characters.begin - piece.range.begin);
    const auto end = static_cast<int>(characters.end - piece.range.begin);
    if (piece.plain) {
        spans.push_back({left + begin * style.cell, left + end * style.cell});
        return;
    }
    const QTextLine line = lineOf(piece);
    if (!piece.mixed) {
        spans.push_back({left + line.cursorToX(begin), left + line.cursorToX(end)});
        return;
    }
    // What is selected in one stretch may stand in several where directions mix.
    std::vector<Span> places;
    for (const Place &place : placesOf(piece)) {
        if (place.characters.end > characters.begin && place.characters.begin < characters.end) {
            places.push_back(place.room);
        }
    }
    std::sort(places.begin(), places.end(), [](const Span &one, const Span &other) { return one.left < other.left; });
    const auto firstOfPiece = static_cast<std::ptrdiff_t>(spans.size());
    for (const Span &place : places) {
        if (static_cast<std::ptrdiff_t>(spans.size()) > firstOfPiece && place.left <= spans.back().right) {
            spans.back().right = std::max(spans.back().right, place.right);
        } else {
            spans.push_back(place);
        }
    }
}

void RowLayout::draw(QPainter &painter, QPointF place, Span visible, Range selected, const RowColors &colors)
{
    makePiecesUpToX(visible.right);
    for (Piece &piece : pieces) {
        const qreal left = leftOf(piece);
        if (left >= visible.right || left + piece.width <= visible.left) {
            continue;
        }
        const Range inside = {std::max(selected.begin, piece.range.begin), std::min(selected.end, piece.range.end)};
        QList<QTextLayout::FormatRange> selections;
        if (inside.begin < inside.end) {
            std::vector<Span> spans;
            addSpans(piece, inside, spans);
            for (const Span &span : spans) {
                painter.fillRect(QRectF(place.x() + span.left, place.y(), span.right - span.left, style.rowHeight),
                                 colors.selection);
            }
            QTextCharFormat format;
            format.setForeground(colors.selectedText);
            selections.append(
                {static_cast<int>(inside.begin - piece.range.begin), static_cast<int>(inside.size()), format});
        }
        const QTextLine line = lineOf(piece);
        painter.setPen(colors.text);
        piece.layout->draw(&painter, place + QPointF(left, style.ascent - line.ascent()), selections);
        for (const Mark &mark : std::as_const(piece.marks)) {
            const Span extent = extentOf(*piece.layout, static_cast<int>(mark.offset));
            const QRectF room(place.x() + left + extent.left, place.y(), extent.right - extent.left, style.rowHeight);
            if (room.right() < place.x() + visible.left || room.left() > place.x() + visible.right) {
                continue;
            }
            const qsizetype offset = piece.range.begin + mark.offset;
            const bool isSelected = offset >= inside.begin && offset < inside.end;
            drawMark(painter, mark, room, isSelected ? colors.selectedDim : colors.dim);
        }
    }
    drawLineEnd(painter, place, selected.end > content.size() && selected.begin <= content.size(), colors);
}

void RowLayout::drawMark(QPainter &painter, const Mark &mark, QRectF room, const QColor &color) const
{
    QColor outline = color;
    outline.setAlphaF(color.alphaF() * 0.6F);
    painter.setPen(QPen(outline, 1));
    if (isTab(mark)) {
        const qreal middle = std::floor(room.center().y()) + 0.5;
        const qreal head = style.cell / 3;
        const qreal tip = rightToLeft ? room.left() + head : room.right() - head;
        const qreal tail = rightToLeft ? room.right() - head : room.left() + head;
        const qreal back = rightToLeft ? tip + head : tip - head;
        QPainterPath arrow(QPointF(tail, middle));
        arrow.lineTo(tip, middle);
        arrow.moveTo(back, middle - head);
        arrow.lineTo(tip, middle);
        arrow.lineTo(back, middle + head);
        painter.drawPath(arrow);
        return;
    }
    const QRectF box = room.adjusted(1, 2, -1, -2);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.drawRoundedRect(box.adjusted(0.5, 0.5, -0.5, -0.5), 2.5, 2.5);
    painter.restore();
    painter.setFont(style.markFont);
    painter.setPen(color);
    painter.drawText(box, Qt::AlignCenter, mark.name);
}

void RowLayout::drawLineEnd(QPainter &painter, QPointF place, bool selected, const RowColors &colors) const
{
    const QColor &color = selected ? colors.selectedDim : colors.dim;
    const qreal left = place.x() + (rightToLeft ? 0 : contentWidth());
    if (selected) {
        const qreal room = std::max(width() - contentWidth(), style.cell / 2);
        const qreal from = rightToLeft ? place.x() + width() - contentWidth() - room : left;
        painter.fillRect(QRectF(from, place.y(), room, style.rowHeight), colors.selection);
    }
    for (const Mark &mark : lineEndMarks) {
        const qreal markWidth = style.markWidth(mark.name);
        drawMark(painter, mark, QRectF(left, place.y(), markWidth, style.rowHeight), color);
    }
    if (continued) {
        painter.setFont(style.font);
        painter.setPen(color);
        painter.drawText(QPointF(left, place.y() + style.ascent), u"…"_s);
    }
}

} // namespace reportview
