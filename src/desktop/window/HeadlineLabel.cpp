// The headline's ellipsis, its line breaks and its tool tip.
#include "desktop/window/HeadlineLabel.h"

#include "desktop/window/DisplayText.h"

namespace {

/// UTF-16 code units of the longest headline that is shown whole: some four lines.
constexpr qsizetype kMaxUnits = 200;
/// UTF-16 code units at the end of a longer one that stay in view: what happened, and what is asked of the user. The
/// part before, the name, is what may be long.
constexpr qsizetype kTailUnits = 110;

} // namespace

HeadlineLabel::HeadlineLabel(QWidget *parent)
    : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    QFont bold;
    bold.setBold(true);
    setFont(bold);
    // A label without any text has no height that depends on its width, which the window's layout asks for.
    setHeadline({});
}

void HeadlineLabel::setHeadline(const QString &text)
{
    const QString whole = displayText(text);
    const QString shown = withEllipsis(whole, kMaxUnits, kTailUnits);
    setText(leftToRight(breakable(shown)));
    setAccessibleName(whole);
    // Where there is none, the toolkit takes the tool tip, with its markup.
    setAccessibleDescription(whole);
    setToolTip(shown == whole ? QString() : toolTipText(whole));
}

#include "moc_HeadlineLabel.cpp"
