// Scrolling, selecting and painting of a text that is only looked at where somebody looks.
#include "desktop/reportview/TextDisplay.h"

#include "desktop/reportview/FieldFrame.h"
#include "desktop/reportview/SelectedText.h"
#include "desktop/reportview/TextDisplayAccessible.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QMenu>
#include <QPaintEvent>
#include <QPainter>
#include <QScrollBar>
#include <QStyle>
#include <QStyleHints>
#include <QTimerEvent>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace reportview {

namespace {

/// Pixels between the frame and the text, left and right, and above and below.
constexpr int kSideMargin = 5;
constexpr int kTopMargin = 3;
/// How often the view scrolls on while the mouse is held outside it.
constexpr auto kAutoScrollInterval = 40ms;
/// The angle of one notch of a wheel, in eighths of a degree.
constexpr int kWheelNotch = 120;

QColor mixed(const QColor &one, const QColor &other, qreal share)
{
    const auto mix = [share](int first, int second) { return static_cast<int>(first + (second - first) * share); };
    return {mix(one.red(), other.red()), mix(one.green(), other.green()), mix(one.blue(), other.blue())};
}

RowColors colorsOf(const QPalette &palette, QPalette::ColorGroup group)
{
    const QColor text = palette.color(group, QPalette::Text);
    const QColor selectedText = palette.color(group, QPalette::HighlightedText);
    const QColor selection = palette.color(group, QPalette::Highlight);
    return {text, mixed(text, palette.color(group, QPalette::Base), 0.45), selectedText,
            mixed(selectedText, selection, 0.3), selection};
}

/// Code units that one step of the vertical scroll bar stands for: more than one where they are more than it can count.
qsizetype unitsOfStep(qsizetype size)
{
    return size / std::numeric_limits<int>::max() + 1;
}

int scrollValue(qsizetype offset, qsizetype size)
{
    return static_cast<int>(offset / unitsOfStep(size));
}

bool isLineEnd(QChar unit)
{
    return unit == u'\n' || unit == u'\r';
}

} // namespace

enum class TextDisplay::Motion {
    Left,
    Right,
    WordLeft,
    WordRight,
    Up,
    Down,
    PageUp,
    PageDown,
    RowStart,
    RowEnd,
    TextStart,
    TextEnd
};

/// A key of the platform's and what it does to the caret.
struct TextDisplay::Key {
    QKeySequence::StandardKey key;
    Motion motion;
    bool selects;
};

const std::vector<TextDisplay::Key> &TextDisplay::keys()
{
    static const std::vector<Key> table = {
        {QKeySequence::MoveToNextChar, Motion::Right, false},
        {QKeySequence::MoveToPreviousChar, Motion::Left, false},
        {QKeySequence::MoveToNextWord, Motion::WordRight, false},
        {QKeySequence::MoveToPreviousWord, Motion::WordLeft, false},
        {QKeySequence::MoveToNextLine, Motion::Down, false},
        {QKeySequence::MoveToPreviousLine, Motion::Up, false},
        {QKeySequence::MoveToNextPage, Motion::PageDown, false},
        {QKeySequence::MoveToPreviousPage, Motion::PageUp, false},
        {QKeySequence::MoveToStartOfLine, Motion::RowStart, false},
        {QKeySequence::MoveToEndOfLine, Motion::RowEnd, false},
        {QKeySequence::MoveToStartOfDocument, Motion::TextStart, false},
        {QKeySequence::MoveToEndOfDocument, Motion::TextEnd, false},
        {QKeySequence::SelectNextChar, Motion::Right, true},
        {QKeySequence::SelectPreviousChar, Motion::Left, true},
        {QKeySequence::SelectNextWord, Motion::WordRight, true},
        {QKeySequence::SelectPreviousWord, Motion::WordLeft, true},
        {QKeySequence::SelectNextLine, Motion::Down, true},
        {QKeySequence::SelectPreviousLine, Motion::Up, true},
        {QKeySequence::SelectNextPage, Motion::PageDown, true},
        {QKeySequence::SelectPreviousPage, Motion::PageUp, true},
        {QKeySequence::SelectStartOfLine, Motion::RowStart, true},
        {QKeySequence::SelectEndOfLine, Motion::RowEnd, true},
        {QKeySequence::SelectStartOfDocument, Motion::TextStart, true},
        {QKeySequence::SelectEndOfDocument, Motion::TextEnd, true},
    };
    return table;
}

TextDisplay::TextDisplay(QWidget *parent)
    : QAbstractScrollArea(parent)
{
    makeTextDisplaysAccessible();
    viewport()->setCursor(Qt::IBeamCursor);
    verticalScrollBar()->installEventFilter(this);
    connect(verticalScrollBar(), &QScrollBar::actionTriggered, this, &TextDisplay::scrollByAction);
}

TextDisplay::~TextDisplay() = default;

void TextDisplay::setText(const QString &text)
{
    const QString before = std::exchange(shown, text);
    forgetLayouts();
    sections.clear();
    anchorOffset = caretOffset = top = 0;
    widest = 0;
    wantedX.reset();
    isDragging = false;
    autoScroll.stop();
    if (isVisible()) {
        tellOfNewText(*this, before);
    }
    updateScrollBars();
    showStart();
    viewport()->update();
}

void TextDisplay::setSections(const QList<Section> &named)
{
    sections = named;
    for (Section &section : sections) {
        section.offset = std::min(section.offset, shown.size());
        while (section.offset < shown.size() && isLineEnd(shown[section.offset])) {
            ++section.offset;
        }
    }
    viewport()->update();
}

// What is in view

const TextStyle &TextDisplay::style() const
{
    // The toolkit lays text out for a screen's scale.
    if (measured && measuredScale != devicePixelRatioF()) {
        layouts.clear();
        measured.reset();
    }
    if (!measured) {
        measured.emplace(font());
        measuredScale = devicePixelRatioF();
    }
    return *measured;
}

void TextDisplay::forgetLayouts()
{
    layouts.clear();
    measured.reset();
}

RowLayout &TextDisplay::layoutOf(const Row &row) const
{
    const TextStyle &current = style();
    return layouts.try_emplace(row.begin, view(), row, current).first->second;
}

qreal TextDisplay::leftOf(RowLayout &layout) const
{
    const qreal shift = kSideMargin - horizontalScrollBar()->value();
    if (!layout.isRightToLeft()) {
        return shift;
    }
    return shift + std::max(0.0, viewport()->width() - 2 * kSideMargin - layout.width());
}

/// Rows that are in view from top to bottom.
int TextDisplay::rowsInView() const
{
    return (viewport()->height() - kTopMargin) / style().rowHeight;
}

/// Rows that a page moves by: one stays in view.
int TextDisplay::rowsOfPage() const
{
    return std::max(1, rowsInView() - 1);
}

/// The row so many rows below, or above; the last or the first one where there are fewer.
Row TextDisplay::rowBelow(Row row, qsizetype count) const
{
    for (qsizetype step = 0; step < count && !row.isLast(view()); ++step) {
        row = nextRow(view(), row);
    }
    for (qsizetype step = 0; step > count && row.begin > 0; --step) {
        row = previousRow(view(), row);
    }
    return row;
}

std::vector<Row> TextDisplay::visibleRows() const
{
    std::vector<Row> rows = {rowAt(view(), top)};
    const int count = (viewport()->height() - kTopMargin + style().rowHeight - 1) / style().rowHeight;
    while (static_cast<int>(rows.size()) < count && !rows.back().isLast(view())) {
        rows.push_back(nextRow(view(), rows.back()));
    }
    return rows;
}

/// The row in view that the offset belongs to; the end of the text belongs to the last one.
std::optional<TextDisplay::RowInView> TextDisplay::rowInViewAt(qsizetype offset) const
{
    int y = kTopMargin;
    for (const Row &row : visibleRows()) {
        if (offset >= row.begin && (offset < row.next || (offset == row.next && row.isLast(view())))) {
            return RowInView{row, y};
        }
        y += style().rowHeight;
    }
    return std::nullopt;
}

std::optional<QRect> TextDisplay::characterRect(qsizetype offset) const
{
    const std::optional<RowInView> place = rowInViewAt(offset);
    if (!place) {
        return std::nullopt;
    }
    const Row &row = place->row;
    RowLayout &layout = layoutOf(row);
    const qsizetype begin = std::min(offset, row.end) - row.begin;
    const qsizetype end = std::min(segmentAt(view(), offset, Segment::Character).end, row.end) - row.begin;
    const std::vector<RowLayout::Span> spans = layout.spansOf({begin, end});
    const qreal caretX = layout.xOf(begin);
    const qreal left = spans.empty() ? caretX : spans.front().left;
    const qreal right = spans.empty() ? caretX : spans.back().right;
    const qreal x = leftOf(layout) + left;
    return QRect(static_cast<int>(std::floor(x)), place->y, static_cast<int>(std::ceil(right - left)),
                 style().rowHeight);
}

qsizetype TextDisplay::characterAt(QPoint place) const
{
    const std::vector<Row> rows = visibleRows();
    const int index = std::clamp((place.y() - kTopMargin) / style().rowHeight, 0, static_cast<int>(rows.size()) - 1);
    const Row &row = rows[static_cast<size_t>(index)];
    RowLayout &layout = layoutOf(row);
    return row.begin + layout.characterAt(place.x() - leftOf(layout));
}

// Scrolling

qsizetype TextDisplay::findLastTop() const
{
    return rowBelow(rowAt(view(), shown.size()), 1 - rowsInView()).begin;
}

void TextDisplay::updateScrollBars()
{
    if (!isVisible()) {
        return;
    }
    const qsizetype size = shown.size();
    lastTop = findLastTop();
    const qsizetype wantedTop = std::min(top, lastTop);
    // A range that the old value lies outside of would scroll.
    verticalScrollBar()->setRange(0, scrollValue(lastTop, size));
    verticalScrollBar()->setPageStep(scrollValue(size - lastTop, size));
    top = wantedTop;
    verticalScrollBar()->setValue(scrollValue(top, size));
    horizontalScrollBar()->setSingleStep(static_cast<int>(style().cell * 4));
    widenTo(visibleRows());
}

/// Makes the horizontal range as wide as the widest row that has been in view.
void TextDisplay::widenTo(const std::vector<Row> &rows)
{
    const int width = viewport()->width() - 2 * kSideMargin;
    for (const Row &row : rows) {
        RowLayout &layout = layoutOf(row);
        layout.measureTo(horizontalScrollBar()->value() + width);
        widest = std::max(widest, layout.width());
    }
    horizontalScrollBar()->setRange(0, std::max(0, static_cast<int>(std::ceil(widest + style().cell)) - width));
    horizontalScrollBar()->setPageStep(width);
}

void TextDisplay::setTop(qsizetype offset)
{
    const qsizetype before = std::exchange(top, std::min(rowAt(view(), offset).begin, lastTop));
    const int value = scrollValue(top, shown.size());
    if (value != verticalScrollBar()->value()) {
        verticalScrollBar()->setValue(value);
    } else if (top != before) {
        scrollContentsBy(0, 0);
    }
}

void TextDisplay::scrollRows(qsizetype count)
{
    setTop(rowBelow(rowAt(view(), top), count).begin);
}

void TextDisplay::scrollByAction(int action)
{
    switch (action) {
    case QAbstractSlider::SliderSingleStepAdd:
        scrollRows(1);
        break;
    case QAbstractSlider::SliderSingleStepSub:
        scrollRows(-1);
        break;
    case QAbstractSlider::SliderPageStepAdd:
        scrollRows(rowsOfPage());
        break;
    case QAbstractSlider::SliderPageStepSub:
        scrollRows(-rowsOfPage());
        break;
    default:
        return;
    }
    // The bar takes its own idea of a step otherwise.
    verticalScrollBar()->setSliderPosition(scrollValue(top, shown.size()));
}

void TextDisplay::scrollContentsBy(int /*dx*/, int /*dy*/)
{
    const int value = verticalScrollBar()->value();
    if (value != scrollValue(top, shown.size())) {
        top = rowAt(view(), value * unitsOfStep(shown.size())).begin;
    }
    if (isVisible()) {
        widenTo(visibleRows());
    }
    viewport()->update();
}

void TextDisplay::wheelEvent(QWheelEvent *event)
{
    const QPoint angle = event->angleDelta();
    if (std::abs(angle.x()) > std::abs(angle.y())) {
        QCoreApplication::sendEvent(horizontalScrollBar(), event);
        return;
    }
    wheelRemainder += angle.y() * QApplication::wheelScrollLines();
    const int rows = wheelRemainder / kWheelNotch;
    wheelRemainder %= kWheelNotch;
    scrollRows(-rows);
}

bool TextDisplay::eventFilter(QObject *watched, QEvent *event)
{
    // A notch over the bar is as many rows as one over the text.
    if (watched == verticalScrollBar() && event->type() == QEvent::Wheel) {
        wheelEvent(static_cast<QWheelEvent *>(event));
        return true;
    }
    return QAbstractScrollArea::eventFilter(watched, event);
}

void TextDisplay::bringIntoView(qsizetype offset)
{
    const Row row = rowAt(view(), offset);
    // At the upper end of the view, or at the lower one.
    setTop(std::min(std::max(top, rowBelow(row, 1 - rowsInView()).begin), row.begin));
    RowLayout &layout = layoutOf(row);
    const qreal x = layout.xOf(std::clamp(offset, row.begin, row.end) - row.begin);
    widenTo({row});
    const qreal inView = leftOf(layout) + x;
    const int right = viewport()->width() - kSideMargin;
    QScrollBar &bar = *horizontalScrollBar();
    if (inView < kSideMargin) {
        // With some of what stands before it.
        bar.setValue(bar.value() + static_cast<int>(std::floor(inView - kSideMargin - viewport()->width() / 4.0)));
    } else if (inView > right) {
        bar.setValue(bar.value() + static_cast<int>(std::ceil(inView - right + viewport()->width() / 4.0)));
    }
}

void TextDisplay::showEvent(QShowEvent *event)
{
    QAbstractScrollArea::showEvent(event);
    updateScrollBars();
    showStart();
}

/// A row that runs from right to left and is wider than the view starts at the far end of it.
void TextDisplay::showStart()
{
    if (isVisible() && caretOffset == 0 && top == 0) {
        bringIntoView(caretOffset);
    }
}

void TextDisplay::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    updateScrollBars();
}

void TextDisplay::changeEvent(QEvent *event)
{
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) {
        forgetLayouts();
        widest = 0;
        updateScrollBars();
        viewport()->update();
    }
}

// Painting

bool TextDisplay::isShownSectionAt(const Row &row) const
{
    return std::any_of(sections.begin(), sections.end(), [&row](const Section &section) {
        return section.offset >= row.begin && section.offset < row.next;
    });
}

void TextDisplay::paintEvent(QPaintEvent *event)
{
    QPainter painter(viewport());
    const QPalette::ColorGroup group = hasFocus() ? QPalette::Active : QPalette::Inactive;
    const RowColors colors = colorsOf(palette(), group);
    const std::vector<Row> rows = visibleRows();
    std::map<qsizetype, RowLayout> inView;
    const Range selected = selection();
    const int width = viewport()->width();
    int y = kTopMargin;
    for (const Row &row : rows) {
        RowLayout &layout = layoutOf(row);
        if (event->rect().intersects(QRect(0, y, width, style().rowHeight))) {
            if (isShownSectionAt(row)) {
                painter.fillRect(0, y, width, style().rowHeight, palette().brush(QPalette::AlternateBase));
                painter.fillRect(0, y, width, 1, mixed(colors.text, palette().color(QPalette::Base), 0.7));
            }
            const qreal left = leftOf(layout);
            layout.draw(painter, QPointF(left, y), {-left, width - left},
                        {std::max<qsizetype>(selected.begin - row.begin, 0),
                         std::clamp<qsizetype>(selected.end - row.begin, 0, row.next - row.begin)},
                        colors);
        }
        y += style().rowHeight;
        inView.insert(layouts.extract(row.begin));
    }
    layouts = std::move(inView);
    if (caretIsOn) {
        if (const auto caretPlace = caretRect()) {
            painter.fillRect(*caretPlace, colors.text);
        }
    }
}

std::optional<QRect> TextDisplay::caretRect() const
{
    const std::optional<RowInView> place = rowInViewAt(caretOffset);
    if (!place) {
        return std::nullopt;
    }
    RowLayout &layout = layoutOf(place->row);
    const qreal x = leftOf(layout) + layout.xOf(caretOffset - place->row.begin);
    const int caretWidth = QWidget::style()->pixelMetric(QStyle::PM_TextCursorWidth, nullptr, this);
    return QRect(static_cast<int>(std::lround(x)), place->y, caretWidth, style().rowHeight);
}

void TextDisplay::restartBlinking()
{
    caretIsOn = hasFocus();
    blinking.stop();
    const int flashTime = QGuiApplication::styleHints()->cursorFlashTime();
    if (hasFocus() && flashTime > 1) {
        blinking.start(flashTime / 2, this);
    }
    viewport()->update();
}

void TextDisplay::focusInEvent(QFocusEvent *event)
{
    QAbstractScrollArea::focusInEvent(event);
    restartBlinking();
}

void TextDisplay::focusOutEvent(QFocusEvent *event)
{
    QAbstractScrollArea::focusOutEvent(event);
    restartBlinking();
}

void TextDisplay::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == blinking.timerId()) {
        caretIsOn = !caretIsOn;
        viewport()->update(caretRect().value_or(QRect()));
    } else if (event->timerId() == autoScroll.timerId()) {
        selectTo(dragPlace);
    } else if (event->timerId() == tripleClick.timerId()) {
        tripleClick.stop();
    } else {
        QAbstractScrollArea::timerEvent(event);
    }
}

// Selecting

Range TextDisplay::selection() const
{
    return {std::min(anchorOffset, caretOffset), std::max(anchorOffset, caretOffset)};
}

void TextDisplay::setSelection(qsizetype anchor, qsizetype caret)
{
    const Range before = selection();
    const qsizetype caretBefore = caretOffset;
    const Range whole = wholeCharacters(view(), {std::min(anchor, caret), std::max(anchor, caret)});
    anchorOffset = anchor < caret ? whole.begin : whole.end;
    caretOffset = anchor < caret ? whole.end : whole.begin;
    restartBlinking();
    if (caretOffset != caretBefore) {
        tellOfCaret(*this);
    }
    if (selection() != before && !(selection().isEmpty() && before.isEmpty())) {
        tellOfSelection(*this);
    }
}

void TextDisplay::select(qsizetype anchor, qsizetype caret)
{
    wantedX.reset();
    setSelection(anchor, caret);
    bringIntoView(caretOffset);
}

void TextDisplay::selectAll()
{
    wantedX.reset();
    setSelection(0, shown.size());
    offerPrimarySelection();
}

void TextDisplay::copy()
{
    if (!selection().isEmpty()) {
        QGuiApplication::clipboard()->setMimeData(new SelectedText(shown, selection()));
    }
}

void TextDisplay::offerPrimarySelection() const
{
    QClipboard &clipboard = *QGuiApplication::clipboard();
    if (clipboard.supportsSelection() && !selection().isEmpty()) {
        clipboard.setMimeData(new SelectedText(shown, selection()), QClipboard::Selection);
    }
}

// The keyboard

bool TextDisplay::event(QEvent *event)
{
    if (event->type() == QEvent::Paint) {
        paintFieldFrame(*this);
        return true;
    }
    if (event->type() == QEvent::ShortcutOverride) {
        // The caret's keys are not for the window's shortcuts while the caret has the keyboard.
        auto &key = static_cast<QKeyEvent &>(*event);
        const bool isCaretKey =
            std::any_of(keys().begin(), keys().end(), [&key](const Key &entry) { return key.matches(entry.key); });
        if (isCaretKey || key.matches(QKeySequence::Copy) || key.matches(QKeySequence::SelectAll)) {
            event->accept();
        }
    }
    return QAbstractScrollArea::event(event);
}

void TextDisplay::keyPressEvent(QKeyEvent *event)
{
    for (const Key &entry : keys()) {
        if (event->matches(entry.key)) {
            moveCaret(entry.motion, entry.selects);
            return;
        }
    }
    if (event->matches(QKeySequence::Copy)) {
        copy();
    } else if (event->matches(QKeySequence::SelectAll)) {
        selectAll();
    } else {
        // Not the scroll area's own keys: the caret's are all there are. The others are left to the window.
        event->ignore();
    }
}

void TextDisplay::moveCaret(Motion motion, bool keepsAnchor)
{
    const qsizetype caret = target(motion);
    const bool isVertical =
        motion == Motion::Up || motion == Motion::Down || motion == Motion::PageUp || motion == Motion::PageDown;
    if (!isVertical) {
        wantedX.reset();
    }
    if (motion == Motion::PageUp || motion == Motion::PageDown) {
        scrollRows(motion == Motion::PageDown ? rowsOfPage() : -rowsOfPage());
    }
    setSelection(keepsAnchor ? anchorOffset : caret, caret);
    bringIntoView(caretOffset);
    if (keepsAnchor) {
        offerPrimarySelection();
    }
}

qsizetype TextDisplay::target(Motion motion)
{
    const Row row = rowAt(view(), caretOffset);
    const bool mirrored = layoutOf(row).isRightToLeft();
    switch (motion) {
    case Motion::Left:
        return mirrored ? nextCharacter(view(), caretOffset) : previousCharacter(view(), caretOffset);
    case Motion::Right:
        return mirrored ? previousCharacter(view(), caretOffset) : nextCharacter(view(), caretOffset);
    case Motion::WordLeft:
        return mirrored ? nextWord(view(), caretOffset) : previousWord(view(), caretOffset);
    case Motion::WordRight:
        return mirrored ? previousWord(view(), caretOffset) : nextWord(view(), caretOffset);
    case Motion::Up:
        return targetRow(-1);
    case Motion::Down:
        return targetRow(1);
    case Motion::PageUp:
        return targetRow(-rowsOfPage());
    case Motion::PageDown:
        return targetRow(rowsOfPage());
    case Motion::RowStart:
        return row.begin;
    case Motion::RowEnd:
        return row.isContinued(view()) ? previousCharacter(view(), row.end) : row.end;
    case Motion::TextStart:
        return 0;
    case Motion::TextEnd:
        break;
    }
    return shown.size();
}

/// The place that many rows below the caret, or above it, at the same x.
qsizetype TextDisplay::targetRow(qsizetype rows)
{
    const Row start = rowAt(view(), caretOffset);
    RowLayout &from = layoutOf(start);
    const qreal shift = horizontalScrollBar()->value();
    if (!wantedX) {
        wantedX = leftOf(from) + shift + from.xOf(caretOffset - start.begin);
    }
    const Row row = rowBelow(start, rows);
    if (row == start) {
        return rows > 0 ? shown.size() : 0;
    }
    return placeInRow(row, *wantedX - shift);
}

/// The place in the row that is nearest to the x in the viewport.
qsizetype TextDisplay::placeInRow(const Row &row, qreal x) const
{
    RowLayout &layout = layoutOf(row);
    const qsizetype offset = row.begin + layout.offsetAt(x - leftOf(layout));
    // Behind the last character of a line that goes on the caret would stand in the next row.
    return offset == row.end && row.isContinued(view()) ? previousCharacter(view(), offset) : offset;
}

// The mouse

qsizetype TextDisplay::caretAt(QPoint place) const
{
    const std::vector<Row> rows = visibleRows();
    const int index = (place.y() - kTopMargin) / style().rowHeight;
    const auto last = static_cast<int>(rows.size()) - 1;
    if (index > last && rows.back().isLast(view())) {
        return shown.size();
    }
    return placeInRow(rows[static_cast<size_t>(std::clamp(index, 0, last))], place.x());
}

void TextDisplay::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        return;
    }
    wantedX.reset();
    const QPoint place = event->position().toPoint();
    const qsizetype offset = caretAt(place);
    isDragging = true;
    dragPlace = place;
    const bool isTriple =
        tripleClick.isActive() && (place - lastClick).manhattanLength() < QApplication::startDragDistance();
    tripleClick.stop();
    if (isTriple) {
        dragSegment = Segment::Line;
        dragOrigin = segmentAt(view(), characterAt(place), Segment::Line);
        setSelection(dragOrigin.begin, dragOrigin.end);
        return;
    }
    dragSegment = Segment::Character;
    const bool extends = event->modifiers().testFlag(Qt::ShiftModifier);
    setSelection(extends ? anchorOffset : offset, offset);
}

void TextDisplay::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        return;
    }
    const QPoint place = event->position().toPoint();
    isDragging = true;
    dragPlace = lastClick = place;
    tripleClick.start(QApplication::doubleClickInterval(), this);
    dragSegment = Segment::Word;
    dragOrigin = segmentAt(view(), characterAt(place), Segment::Word);
    setSelection(dragOrigin.begin, dragOrigin.end);
}

void TextDisplay::mouseMoveEvent(QMouseEvent *event)
{
    if (!isDragging || !event->buttons().testFlag(Qt::LeftButton)) {
        return;
    }
    dragPlace = event->position().toPoint();
    if (viewport()->rect().contains(dragPlace)) {
        autoScroll.stop();
    } else if (!autoScroll.isActive()) {
        autoScroll.start(static_cast<int>(kAutoScrollInterval.count()), this);
    }
    selectTo(dragPlace);
}

void TextDisplay::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && isDragging) {
        isDragging = false;
        autoScroll.stop();
        offerPrimarySelection();
    }
}

void TextDisplay::selectTo(QPoint place)
{
    const QRect area = viewport()->rect();
    // The further outside, the faster.
    if (place.y() < area.top()) {
        scrollRows(-1 - (area.top() - place.y()) / style().rowHeight);
    } else if (place.y() > area.bottom()) {
        scrollRows(1 + (place.y() - area.bottom()) / style().rowHeight);
    }
    QScrollBar &bar = *horizontalScrollBar();
    bar.setValue(bar.value() + place.x() - std::clamp(place.x(), area.left(), area.right()));
    const QPoint inside(place.x(), std::clamp(place.y(), area.top(), area.bottom()));
    const qsizetype offset = caretAt(inside);
    if (dragSegment == Segment::Character) {
        setSelection(anchorOffset, offset);
        return;
    }
    const Range under = segmentAt(view(), characterAt(inside), dragSegment);
    if (under.begin < dragOrigin.begin) {
        setSelection(dragOrigin.end, under.begin);
    } else {
        setSelection(dragOrigin.begin, std::max(under.end, dragOrigin.end));
    }
}

// Commands

void TextDisplay::contextMenuEvent(QContextMenuEvent *event)
{
    QMenu menu(this);
    const auto shortcut = [](QKeySequence::StandardKey key) {
        return u'\t' + QKeySequence(key).toString(QKeySequence::NativeText);
    };
    menu.addAction(u"&Copy"_s + shortcut(QKeySequence::Copy), this, &TextDisplay::copy)
        ->setEnabled(!selection().isEmpty());
    menu.addAction(u"Select &All"_s + shortcut(QKeySequence::SelectAll), this, &TextDisplay::selectAll)
        ->setEnabled(!shown.isEmpty());
    menu.addSeparator();
    menu.addAction(u"&Find…"_s + shortcut(QKeySequence::Find), this, &TextDisplay::findRequested)
        ->setEnabled(!shown.isEmpty());
    if (!sections.isEmpty()) {
        addSectionsTo(menu);
    }
    Q_EMIT menuShown(&menu);
    QPoint place = event->globalPos();
    if (event->reason() == QContextMenuEvent::Keyboard) {
        place = viewport()->mapToGlobal(caretRect().value_or(QRect()).bottomLeft());
    }
    menu.exec(place);
}

void TextDisplay::addSectionsTo(QMenu &menu)
{
    menu.addSeparator();
    for (const Section &section : std::as_const(sections)) {
        // A title is shown as it is: no letter of it becomes a mnemonic.
        const QString title = QString(section.title).replace(u'&', "&&"_L1);
        menu.addAction(u"Go to %1"_s.arg(title), this, [this, section] { goTo(section); });
    }
}

void TextDisplay::goTo(const Section &section)
{
    wantedX.reset();
    setSelection(section.offset, section.offset);
    setTop(section.offset);
    bringIntoView(section.offset);
}

void TextDisplay::goToNextSection()
{
    const auto next = std::find_if(sections.begin(), sections.end(),
                                   [this](const Section &section) { return section.offset > caretOffset; });
    if (next != sections.end()) {
        goTo(*next);
    }
}

void TextDisplay::goToPreviousSection()
{
    const auto previous = std::find_if(sections.rbegin(), sections.rend(),
                                       [this](const Section &section) { return section.offset < caretOffset; });
    goTo(previous != sections.rend() ? *previous : Section());
}

} // namespace reportview

#include "moc_TextDisplay.cpp"
