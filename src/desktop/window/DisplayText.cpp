// Which characters of a text are not shown.
#include "desktop/window/DisplayText.h"

#include <algorithm>

namespace {

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
