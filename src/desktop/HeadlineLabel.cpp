// The headline's line breaking, its ellipsis and its tool tip.
#include "desktop/HeadlineLabel.h"

#include <QEvent>
#include <QPainter>
#include <QTextOption>

#include <algorithm>

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

QString shownText(const QString &text)
{
    QString shown = text;
    std::replace_if(shown.begin(), shown.end(), isShownAsBlank, u' ');
    return shown;
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
    setText(shownText(text));
    fit();
    updateGeometry();
    update();
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

void HeadlineLabel::fit()
{
    const int lineLimit = std::clamp(height() / fontMetrics().lineSpacing(), 1, kMostLines);
    const QString whole = text();
    lines = layOut(whole, width(), lineLimit);
    setToolTip({});
    if (lines->lineCount() == 0) {
        return;
    }
    const QTextLine last = lines->lineAt(lines->lineCount() - 1);
    if (last.textStart() + last.textLength() >= whole.size()) {
        return;
    }
    // More than fits in one line is enough to elide, and eliding a long text whole takes long.
    const QString rest = whole.mid(last.textStart(), 2 * last.textLength() + 1);
    const QString elided = fontMetrics().elidedText(rest, Qt::ElideRight, width());
    lines = layOut(whole.left(last.textStart()) + elided, width(), lineLimit);
    setToolTip(toolTipText(whole));
}
