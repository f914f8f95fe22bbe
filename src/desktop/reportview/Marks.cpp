// The table of invisible characters.
#include "desktop/reportview/Marks.h"

#include <algorithm>
#include <array>
#include <optional>

using namespace Qt::StringLiterals;

namespace reportview {

namespace {

struct Named {
    char32_t character = 0;
    QStringView name;
};

/// The abbreviations of the control characters up to the space, in their order (Unicode's NameAliases.txt).
constexpr std::array<QStringView, 32> kControls = {u"NUL", u"SOH", u"STX", u"ETX", u"EOT", u"ENQ", u"ACK", u"BEL",
                                                   u"BS",  u"HT",  u"LF",  u"VT",  u"FF",  u"CR",  u"SO",  u"SI",
                                                   u"DLE", u"DC1", u"DC2", u"DC3", u"DC4", u"NAK", u"SYN", u"ETB",
                                                   u"CAN", u"EM",  u"SUB", u"ESC", u"FS",  u"GS",  u"RS",  u"US"};

/// Other invisible characters that have an abbreviation (the same file, and the code charts).
constexpr std::array kAbbreviations = {
    Named{0x7F, u"DEL"},   Named{0x85, u"NEL"},   Named{0xAD, u"SHY"},    Named{0x34F, u"CGJ"},
    Named{0x61C, u"ALM"},  Named{0x180E, u"MVS"}, Named{0x200B, u"ZWSP"}, Named{0x200C, u"ZWNJ"},
    Named{0x200D, u"ZWJ"}, Named{0x200E, u"LRM"}, Named{0x200F, u"RLM"},  Named{0x2028, u"LS"},
    Named{0x2029, u"PS"},  Named{0x202A, u"LRE"}, Named{0x202B, u"RLE"},  Named{0x202C, u"PDF"},
    Named{0x202D, u"LRO"}, Named{0x202E, u"RLO"}, Named{0x2060, u"WJ"},   Named{0x2066, u"LRI"},
    Named{0x2067, u"RLI"}, Named{0x2068, u"FSI"}, Named{0x2069, u"PDI"},  Named{0xFEFF, u"BOM"},
    Named{0xFFFC, u"OBJ"}};

struct Stretch {
    char32_t first = 0;
    char32_t last = 0;
};

/// What Unicode calls default ignorable (DerivedCoreProperties.txt, Default_Ignorable_Code_Point), code points that are
/// kept for such characters among them: a font shows nothing for any of these.
constexpr std::array kDefaultIgnorable = {
    Stretch{0xAD, 0xAD},       Stretch{0x34F, 0x34F},   Stretch{0x61C, 0x61C},     Stretch{0x115F, 0x1160},
    Stretch{0x17B4, 0x17B5},   Stretch{0x180B, 0x180F}, Stretch{0x200B, 0x200F},   Stretch{0x202A, 0x202E},
    Stretch{0x2060, 0x206F},   Stretch{0x3164, 0x3164}, Stretch{0xFE00, 0xFE0F},   Stretch{0xFEFF, 0xFEFF},
    Stretch{0xFFA0, 0xFFA0},   Stretch{0xFFF0, 0xFFF8}, Stretch{0x1BCA0, 0x1BCA3}, Stretch{0x1D173, 0x1D17A},
    Stretch{0xE0000, 0xE0FFF},
};

/// Scripts below this are written without joiners and variation selectors.
constexpr char32_t kFirstJoined = 0x600;

bool isJoiner(char32_t character)
{
    return character == 0x200C || character == 0x200D;
}

bool isVariationSelector(char32_t character)
{
    return (character >= 0xFE00 && character <= 0xFE0F) || (character >= 0xE0100 && character <= 0xE01EF)
        || (character >= 0x180B && character <= 0x180D) || character == 0x180F;
}

bool isDefaultIgnorable(char32_t character)
{
    return std::any_of(kDefaultIgnorable.begin(), kDefaultIgnorable.end(), [character](const Stretch &stretch) {
        return character >= stretch.first && character <= stretch.last;
    });
}

bool isInvisible(char32_t character)
{
    switch (QChar::category(character)) {
    case QChar::Other_Control:
        return character != u'\n';
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        break;
    }
    return QChar::isNonCharacter(character) || isDefaultIgnorable(character)
        || character == QChar::ObjectReplacementCharacter;
}

QString nameOf(char32_t character)
{
    if (character < kControls.size()) {
        return kControls.at(character).toString();
    }
    const auto *named = std::find_if(kAbbreviations.begin(), kAbbreviations.end(),
                                     [character](const Named &entry) { return entry.character == character; });
    if (named != kAbbreviations.end()) {
        return named->name.toString();
    }
    return u"%1"_s.arg(static_cast<uint>(character), 4, 16, '0'_L1).toUpper();
}

/// What may give a character its shape.
enum class Shaper { None, Joiner, SelectorOrJoiner };

/// What may give a shape behind the character, which is no mark.
Shaper shaperBehind(char32_t character)
{
    if (isVariationSelector(character)) {
        return Shaper::Joiner;
    }
    const bool isShapeable = character >= kFirstJoined
        && (QChar::isLetter(character) || QChar::isMark(character) || QChar::isSymbol(character));
    return isShapeable ? Shaper::SelectorOrJoiner : Shaper::None;
}

/// Whether the character gives its shape to the one before it.
bool givesShape(char32_t character, Shaper expected)
{
    return isJoiner(character) ? expected != Shaper::None
                               : isVariationSelector(character) && expected == Shaper::SelectorOrJoiner;
}

/// Most text has none of what a mark is for.
bool isPlain(char16_t unit)
{
    return (unit >= u' ' && unit < 0x7F) || unit == u'\n';
}

} // namespace

QList<Mark> marksOf(QStringView text)
{
    QList<Mark> marks;
    Shaper expected = Shaper::None;
    for (qsizetype offset = 0; offset < text.size(); ++offset) {
        char32_t character = text[offset].unicode();
        if (isPlain(text[offset].unicode())) {
            expected = Shaper::None;
            continue;
        }
        const bool isPair =
            text[offset].isHighSurrogate() && offset + 1 < text.size() && text[offset + 1].isLowSurrogate();
        if (isPair) {
            character = QChar::surrogateToUcs4(text[offset], text[offset + 1]);
        }
        const bool isMark = isInvisible(character) && !givesShape(character, expected);
        if (isMark) {
            marks.append({offset, isPair ? 2 : 1, nameOf(character)});
        }
        // What stands behind a mark has nothing to give a shape to.
        expected = isMark ? Shaper::None : shaperBehind(character);
        offset += isPair ? 1 : 0;
    }
    return marks;
}

} // namespace reportview
