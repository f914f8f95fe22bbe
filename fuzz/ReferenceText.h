// UTF-8 and UTF-16 read and written once more, one character after the other, on the standard library alone: what the
// fuzzers hold the product's conversions against.
#pragma once

#include <QByteArray>
#include <QString>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace reference {

inline bool isHigh(char16_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

inline bool isLow(char16_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

inline void appendUnits(std::u16string &text, std::uint32_t character)
{
    if (character < 0x10000) {
        text.push_back(static_cast<char16_t>(character));
    } else {
        text.push_back(static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10)));
        text.push_back(static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF)));
    }
}

inline void appendBytes(std::string &bytes, std::uint32_t character)
{
    const auto put = [&bytes](std::uint32_t byte) { bytes.push_back(static_cast<char>(byte)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | character >> 6);
        put(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        put(0xE0 | character >> 12);
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    } else {
        put(0xF0 | character >> 18);
        put(0x80 | (character >> 12 & 0x3F));
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

/// The text of UTF-8 bytes, by the bits of RFC 3629 section 3; nothing when they are not valid.
inline std::optional<std::u16string> decoded(std::string_view bytes)
{
    constexpr std::array<std::uint32_t, 4> kSmallest = {0, 0x80, 0x800, 0x10000};
    std::u16string text;
    text.reserve(bytes.size());
    std::size_t at = 0;
    while (at < bytes.size()) {
        const auto first = static_cast<std::uint8_t>(bytes[at++]);
        const std::size_t more = first < 0x80 ? 0 : first >> 5 == 0b110 ? 1 : first >> 4 == 0b1110 ? 2 : 3;
        if ((more == 3 && first >> 3 != 0b11110) || more > bytes.size() - at) {
            return std::nullopt;
        }
        std::uint32_t character = more == 0 ? first : first & (0x3Fu >> more);
        for (std::size_t i = 0; i < more; ++i) {
            const auto next = static_cast<std::uint8_t>(bytes[at++]);
            if (next >> 6 != 0b10) {
                return std::nullopt;
            }
            character = character << 6 | (next & 0x3Fu);
        }
        if (character < kSmallest.at(more) || character > 0x10FFFF || (character >= 0xD800 && character <= 0xDFFF)) {
            return std::nullopt;
        }
        appendUnits(text, character);
    }
    return text;
}

inline bool isPair(std::u16string_view text, std::size_t at)
{
    return at + 1 < text.size() && isHigh(text[at]) && isLow(text[at + 1]);
}

/// The bytes of a text; half a pair is written as U+FFFD.
inline std::string encoded(std::u16string_view text)
{
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (isPair(text, at)) {
            appendBytes(bytes, 0x10000 + ((text[at] - 0xD800u) << 10) + (text[at + 1] - 0xDC00u));
            ++at;
        } else {
            appendBytes(bytes, isHigh(text[at]) || isLow(text[at]) ? 0xFFFD : text[at]);
        }
    }
    return bytes;
}

inline bool hasHalfAPair(std::u16string_view text)
{
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (isPair(text, at)) {
            ++at;
        } else if (isHigh(text[at]) || isLow(text[at])) {
            return true;
        }
    }
    return false;
}

inline std::u16string units(const QString &text)
{
    return text.toStdU16String();
}

inline std::optional<std::u16string> units(const std::optional<QString> &text)
{
    return text ? std::optional(text->toStdU16String()) : std::nullopt;
}

inline QString text(std::u16string_view units)
{
    return QString(reinterpret_cast<const QChar *>(units.data()), static_cast<qsizetype>(units.size()));
}

/// Any code units at all, from two bytes each.
inline std::u16string unitsFrom(std::string_view bytes)
{
    std::u16string units;
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        const auto high = static_cast<std::uint8_t>(bytes[at]);
        const auto low = static_cast<std::uint8_t>(bytes[at + 1]);
        units.push_back(static_cast<char16_t>(high << 8 | low));
    }
    return units;
}

} // namespace reference
