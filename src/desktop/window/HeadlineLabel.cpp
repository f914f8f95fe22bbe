// The headline's ellipsis, its line breaks and its tool tip.
#include "desktop/window/HeadlineLabel.h"

#include "desktop/window/DisplayText.h"

using namespace Qt::StringLiterals;

namespace {

/// UTF-16 code units of the longest headline that is shown whole: some four lines.
constexpr qsizetype kMaxUnits = 200;
/// UTF-16 code units at the end of a longer one that stay in view: what happened, and what is asked of the user. The
/// part before, the name, is what may be long.
constexpr qsizetype kTailUnits = 110;
/// UTF-16 code units of the longest tool tip; a longer one covers the screen.
constexpr qsizetype kMaxToolTipUnits = 2000;
/// UTF-16 code units of the longest word that stays in one piece; a label breaks its lines between words only.
constexpr int kMaxWordUnits = 20;

QString withEllipsis(const QString &text)
{
    if (text.size() <= kMaxUnits) {
        return text;
    }
    QStringView head = QStringView(text).left(kMaxUnits - kTailUnits);
    QStringView tail = QStringView(text).right(kTailUnits);
    if (head.back().isHighSurrogate()) {
        head.chop(1);
    }
    if (tail.front().isLowSurrogate()) {
        tail = tail.mid(1);
    }
    return head.toString() + u'…' + tail.toString();
}

/// The text with places to break a line inside its long words.
QString breakable(QStringView text)
{
    constexpr QChar kZeroWidthSpace(0x200B);
    QString broken;
    int wordUnits = 0;
    for (const QChar character : text) {
        wordUnits = character.isSpace() ? 0 : wordUnits + 1;
        if (wordUnits > kMaxWordUnits && !character.isLowSurrogate()) {
            broken += kZeroWidthSpace;
            wordUnits = 1;
        }
        broken += character;
    }
    return broken;
}

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
    // The sentence runs from left to right, whatever the name in it is written in.
    constexpr QChar kLeftToRightMark(0x200E);
    const QString whole = displayText(text);
    const QString shown = withEllipsis(whole);
    setText(kLeftToRightMark + breakable(shown));
    setAccessibleName(whole);
    // A tool tip takes what looks like markup for markup, and wraps markup only.
    const QString toolTip = breakable(QStringView(whole).left(kMaxToolTipUnits)).toHtmlEscaped();
    setToolTip(shown == whole ? QString() : u"<qt>"_s + toolTip + u"</qt>"_s);
}
