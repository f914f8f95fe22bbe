// The report text's display: made late, filled in slices, with very long lines shown in pieces.
#include "desktop/window/ReportTextView.h"

#include <QFontDatabase>
#include <QMimeData>
#include <QScrollBar>
#include <QTextBlock>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

/// UTF-16 code units displayed in one turn of the event loop: some 10 milliseconds of work.
constexpr qsizetype kSliceUnits = qsizetype(256) * 1024;
/// UTF-16 code units of the longest line that is displayed in one piece. A line is laid out and painted as a whole
/// however little of it is in view, so that a long one would slow every movement down.
constexpr int kLongestLineUnits = 10'000;
/// Marks a line of the display that goes on with the line above it.
constexpr int kContinuesLine = 1;

constexpr int kUsualLines = 16;
constexpr int kLeastLines = 4;
constexpr int kUsualColumns = 80;
constexpr int kLeastColumns = 20;

/// What a text document takes for the end of a line.
bool endsLine(QChar character)
{
    switch (character.unicode()) {
    case u'\n':
    case u'\r':
    case 0x2029: // paragraph separator
    case 0xFDD0: // a text document's own marks for the beginning and the end of a frame
    case 0xFDD1:
        return true;
    default:
        return false;
    }
}

/// Whether a text that is displayed in two steps may be divided at the index: not inside a character, and not inside
/// CR LF, which would then count as two line ends.
bool mayDivide(const QString &text, qsizetype index)
{
    if (index <= 0 || index >= text.size()) {
        return true;
    }
    const QChar before = text[index - 1];
    const QChar after = text[index];
    return !(before.isHighSurrogate() && after.isLowSurrogate()) && !(before == u'\r' && after == u'\n');
}

/// The end of the slice that begins at the index: after a line feed where the slice has one, so that most lines are
/// laid out once.
qsizetype sliceEnd(const QString &text, qsizetype begin)
{
    const qsizetype limit = begin + kSliceUnits;
    if (limit >= text.size()) {
        return text.size();
    }
    const qsizetype lineFeed = QStringView(text).mid(begin, kSliceUnits).lastIndexOf(u'\n');
    if (lineFeed >= 0) {
        return begin + lineFeed + 1;
    }
    return mayDivide(text, limit) ? limit : limit + 1;
}

/// The display, which copies lines shown in pieces as the one line that they are, and no-break spaces as such.
class Display : public QPlainTextEdit
{
public:
    using QPlainTextEdit::QPlainTextEdit;

protected:
    QMimeData *createMimeDataFromSelection() const override
    {
        auto copied = std::make_unique<QMimeData>();
        copied->setText(selectedText());
        return copied.release();
    }

private:
    QString selectedText() const
    {
        const int begin = textCursor().selectionStart();
        const int end = textCursor().selectionEnd();
        QString selected;
        for (QTextBlock block = document()->findBlock(begin); block.isValid() && block.position() <= end;
             block = block.next()) {
            if (block.position() > begin && block.userState() != kContinuesLine) {
                selected += u'\n';
            }
            const int from = std::max(begin - block.position(), 0);
            selected += QStringView(block.text()).mid(from, end - block.position() - from);
        }
        return selected.replace(QChar::LineSeparator, u'\n');
    }
};

QFont monospaced()
{
    return QFontDatabase::systemFont(QFontDatabase::FixedFont);
}

/// Room for the text and, by half a line and a column at each side, for the frame and the margins around it.
QSize sizeForText(const QFontMetrics &metrics, int columns, int lines)
{
    return {metrics.horizontalAdvance(u'0') * (columns + 2), metrics.lineSpacing() * (lines + 1)};
}

} // namespace

ReportTextView::ReportTextView(QWidget *parent)
    : QWidget(parent)
    , label(new QLabel(tr("&Text that is sent with the report"), this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(label);
    nextSlice.setInterval(0);
    connect(&nextSlice, &QTimer::timeout, this, &ReportTextView::displayNextSlice);
}

void ReportTextView::setString(const QString &newText)
{
    text = newText;
    displayIsCurrent = false;
    if (isVisible()) {
        startDisplaying();
    }
}

QSize ReportTextView::sizeHint() const
{
    return sizeBelowLabel(kUsualColumns, kUsualLines);
}

QSize ReportTextView::minimumSizeHint() const
{
    return sizeBelowLabel(kLeastColumns, kLeastLines);
}

QSize ReportTextView::sizeBelowLabel(int columns, int lines) const
{
    const QSize labelSize = label->sizeHint();
    const QSize textSize = sizeForText(QFontMetrics(monospaced()), columns, lines);
    return {std::max(labelSize.width(), textSize.width()),
            labelSize.height() + layout()->spacing() + textSize.height()};
}

void ReportTextView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (!displayIsCurrent) {
        startDisplaying();
    }
}

void ReportTextView::makeDisplay()
{
    display = new Display(this);
    display->setAccessibleName(tr("Report"));
    display->setUndoRedoEnabled(false);
    display->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    display->setLineWrapMode(QPlainTextEdit::NoWrap);
    display->setWordWrapMode(QTextOption::NoWrap);
    display->setTabChangesFocus(true);
    display->setFont(monospaced());
    static_cast<QVBoxLayout *>(layout())->addWidget(display, 1);
    // At once: a layout shows what it is given later from the event loop, and until then nothing can focus it.
    display->show();
    label->setBuddy(display);
}

void ReportTextView::startDisplaying()
{
    if (!display) {
        makeDisplay();
    }
    display->clear();
    displayedUnits = 0;
    lineUnits = 0;
    displayIsCurrent = true;
    // The first slice at once: a text of usual size is there as soon as the pane is.
    displayNextSlice();
    // What is inserted takes the caret along; the keyboard reads from the start.
    display->moveCursor(QTextCursor::Start);
}

void ReportTextView::displayNextSlice()
{
    const qsizetype end = sliceEnd(text, displayedUnits);
    QTextCursor cursor(display->document());
    cursor.movePosition(QTextCursor::End);
    cursor.beginEditBlock();
    qsizetype pending = displayedUnits;
    for (qsizetype index = displayedUnits; index < end; ++index) {
        if (endsLine(text[index])) {
            lineUnits = 0;
            continue;
        }
        if (lineUnits >= kLongestLineUnits && mayDivide(text, index)) {
            cursor.insertText(text.mid(pending, index - pending));
            cursor.insertBlock();
            cursor.block().setUserState(kContinuesLine);
            pending = index;
            lineUnits = 0;
        }
        ++lineUnits;
    }
    cursor.insertText(text.mid(pending, end - pending));
    cursor.endEditBlock();
    displayedUnits = end;
    if (displayedUnits < text.size()) {
        nextSlice.start();
        return;
    }
    nextSlice.stop();
    Q_EMIT displayed();
}
