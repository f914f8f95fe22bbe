// Which characters of a text are not shown.
#include "desktop/window/DisplayText.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

/// UTF-16 code units of the longest word that stays in one piece.
constexpr int kMaxWordUnits = 20;
constexpr qsizetype kMaxToolTipUnits = 2000;

bool setsDirection(QChar character)
{
    const char16_t unit = character.unicode();
    return unit == 0x061C || unit == 0x200E || unit == 0x200F || (unit >= 0x202A && unit <= 0x202E)
        || (unit >= 0x2066 && unit <= 0x2069);
}

bool isShownAsSpace(QChar character)
{
    const QChar::Category category = character.category();
    return category == QChar::Other_Control || category == QChar::Separator_Line
        || category == QChar::Separator_Paragraph || setsDirection(character);
}

} // namespace

QString displayText(QString text)
{
    std::replace_if(text.begin(), text.end(), isShownAsSpace, u' ');
    return text;
}

QString withEllipsis(const QString &text, qsizetype maxUnits, qsizetype tailUnits)
{
    if (text.size() <= maxUnits) {
        return text;
    }
    QStringView head = QStringView(text).left(maxUnits - tailUnits);
    QStringView tail = QStringView(text).right(tailUnits);
    if (head.back().isHighSurrogate()) {
        head.chop(1);
    }
    if (tail.front().isLowSurrogate()) {
        tail = tail.mid(1);
    }
    return head.toString() + u'…' + tail.toString();
}

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

QString leftToRight(const QString &text)
{
    constexpr QChar kLeftToRightMark(0x200E);
    return kLeftToRightMark + text;
}

QString toolTipText(const QString &text)
{
    return u"<qt>"_s + breakable(QStringView(text).left(kMaxToolTipUnits)).toHtmlEscaped() + u"</qt>"_s;
}
