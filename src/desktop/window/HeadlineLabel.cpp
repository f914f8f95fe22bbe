// The headline's line breaking, its ellipsis and its tool tip.
#include "desktop/window/HeadlineLabel.h"

#include <QEvent>
#include <QPainter>
#include <QTextOption>

#include <algorithm>
#include <numeric>

using namespace Qt::StringLiterals;

namespace {

/// More lines than this would push the fields out of a small window.
constexpr int kMostLines = 4;
/// The least width, in average characters, at which the headline still reads as a sentence.
constexpr int kLeastCharacters = 30;
/// Longer tool tips cover the screen; a headline of the program's own with a host name is far below.
constexpr int kMostToolTipUnits = 2000;
/// A tool tip breaks at blanks only, so longer words get a place to break.
constexpr int kMostToolTipWordUnits = 60;

/// UTF-16 code units at the end of a headline that are kept in view: what happened, and what is asked of the user. The
/// part before, the name, is what may be long.
constexpr qsizetype kKeptEnd = 110;

bool reordersText(QChar character)
{
    const char16_t unit = character.unicode();
    return (unit >= 0x202A && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
}

bool isShownAsBlank(QChar character)
{
    const QChar::Category category = character.category();
    return category == QChar::Other_Control || category == QChar::Separator_Line
        || category == QChar::Separator_Paragraph || reordersText(character);
}

QString withoutControls(const QString &text)
{
    QString shown = text;
    std::replace_if(shown.begin(), shown.end(), isShownAsBlank, u' ');
    return shown;
}

/// That many units of the text's beginning and end with an ellipsis between. The end has up to kKeptEnd units, but
/// never more than three quarters, so that something of the beginning is left in little room.
QString shortened(const QString &text, qsizetype units)
{
    const qsizetype kept = std::min(kKeptEnd, units * 3 / 4);
    QStringView beginning = QStringView(text).left(units - kept);
    QStringView end = QStringView(text).right(kept);
    if (!beginning.isEmpty() && beginning.back().isHighSurrogate()) {
        beginning.chop(1);
    }
    if (!end.isEmpty() && end.front().isLowSurrogate()) {
        end = end.mid(1);
    }
    return beginning.toString() + u'…' + end.toString();
}

/// Rich text that shows the text as it is: a tool tip takes a text that looks like markup for markup, and wraps only
/// rich text.
QString toolTipText(const QString &text)
{
    constexpr QChar kBreakOpportunity(0x200B);
    QString broken;
    int wordUnits = 0;
    for (const QChar character : QStringView(text).left(kMostToolTipUnits)) {
        wordUnits = character.isSpace() ? 0 : wordUnits + 1;
        if (wordUnits > kMostToolTipWordUnits && !character.isLowSurrogate()) {
            broken += kBreakOpportunity;
            wordUnits = 1;
        }
        broken += character;
    }
    if (text.size() > kMostToolTipUnits) {
        broken += u'…';
    }
    return u"<qt>"_s + broken.toHtmlEscaped() + u"</qt>"_s;
}

/// UTF-16 code units of the text that the lines hold.
qsizetype endOf(const QTextLayout &lines)
{
    if (lines.lineCount() == 0) {
        return 0;
    }
    const QTextLine last = lines.lineAt(lines.lineCount() - 1);
    return last.textStart() + last.textLength();
}

} // namespace

HeadlineLabel::HeadlineLabel(QWidget *parent)
    : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    QFont bold = font();
    bold.setBold(true);
    setFont(bold);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
}

void HeadlineLabel::setHeadline(const QString &text)
{
    setText(withoutControls(text));
    fit();
    updateGeometry();
    update();
}

QString HeadlineLabel::shownText() const
{
    return lines ? lines->text() : QString();
}

QSize HeadlineLabel::sizeHint() const
{
    const int width = minimumSizeHint().width() * 2;
    return {width, heightForWidth(width)};
}

QSize HeadlineLabel::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * kLeastCharacters, fontMetrics().lineSpacing()};
}

int HeadlineLabel::heightForWidth(int width) const
{
    return std::max(1, layOut(text(), width, kMostLines)->lineCount()) * fontMetrics().lineSpacing();
}

void HeadlineLabel::paintEvent(QPaintEvent * /*event*/)
{
    if (!lines) {
        return;
    }
    QPainter painter(this);
    painter.setPen(palette().color(foregroundRole()));
    const qreal textHeight = lines->lineCount() * fontMetrics().lineSpacing();
    lines->draw(&painter, QPointF(0, std::max(0.0, (height() - textHeight) / 2)));
}

void HeadlineLabel::resizeEvent(QResizeEvent *event)
{
    QLabel::resizeEvent(event);
    fit();
}

void HeadlineLabel::changeEvent(QEvent *event)
{
    QLabel::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) {
        fit();
    }
}

std::unique_ptr<QTextLayout> HeadlineLabel::layOut(const QString &text, int width, int lineLimit) const
{
    auto layout = std::make_unique<QTextLayout>(text, font());
    QTextOption option(Qt::AlignLeading);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout->setTextOption(option);
    layout->beginLayout();
    for (int number = 0; number < lineLimit; ++number) {
        QTextLine line = layout->createLine();
        if (!line.isValid()) {
            break;
        }
        line.setLineWidth(width);
        line.setPosition(QPointF(0, number * fontMetrics().lineSpacing()));
    }
    layout->endLayout();
    return layout;
}

bool HeadlineLabel::fits(const QString &text, int lineLimit) const
{
    return endOf(*layOut(text, width(), lineLimit)) >= text.size();
}

void HeadlineLabel::fit()
{
    const int lineLimit = std::clamp(height() / fontMetrics().lineSpacing(), 1, kMostLines);
    const QString whole = text();
    lines = layOut(whole, width(), lineLimit);
    setToolTip({});
    const qsizetype room = endOf(*lines);
    if (lines->lineCount() == 0 || room >= whole.size()) {
        return;
    }
    // About as much as fits from the beginning; where the end has narrower letters, a little room is left over.
    qsizetype fitting = 0;
    qsizetype tooMuch = room + 1;
    while (tooMuch - fitting > 1) {
        const qsizetype middle = std::midpoint(fitting, tooMuch);
        (fits(shortened(whole, middle), lineLimit) ? fitting : tooMuch) = middle;
    }
    lines = layOut(shortened(whole, fitting), width(), lineLimit);
    setToolTip(toolTipText(whole));
}
