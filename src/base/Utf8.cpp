// Strict conversions between text and bytes.
#include "base/Utf8.h"

#include <QStringDecoder>

#include <algorithm>
#include <array>

namespace {

/// UTF-16 code units encoded in one step, through a buffer that stays in the processor's cache.
constexpr qsizetype kSliceUnits = 4096;
/// Bytes that the largest slice takes: a unit takes three at most, half a pair that grew the slice included.
constexpr std::size_t kSliceBytes = 3 * (kSliceUnits + 1);
static_assert(kSliceBytes >= 3 * (kSliceUnits - 1) + 4, "the last unit may begin a pair, which takes four bytes");

/// The first units of the text, never ending between the two halves of a pair.
QStringView firstSlice(QStringView text)
{
    if (text.size() <= kSliceUnits) {
        return text;
    }
    const bool partsAPair = text[kSliceUnits - 1].isHighSurrogate() && text[kSliceUnits].isLowSurrogate();
    return text.first(kSliceUnits + (partsAPair ? 1 : 0));
}

/// UTF-16 code units that are looked at together: a compiler makes few instructions of a number that it knows.
constexpr qsizetype kBlockUnits = 64;

bool isAsciiBlock(const QChar *units)
{
    char16_t bits = 0;
    for (qsizetype index = 0; index < kBlockUnits; ++index) {
        bits |= units[index].unicode();
    }
    return bits < 0x80;
}

} // namespace

std::optional<QString> textFromUtf8(QByteArrayView bytes)
{
    // Stateless, because a decoder with a state waits for the rest of a sequence cut at the end instead of refusing it.
    // The byte-order mark is asked for, because a report is sent as the bytes it was read from.
    QStringDecoder decoder(QStringConverter::Utf8,
                           QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

std::optional<QString> textFromAscii(QByteArrayView bytes)
{
    const bool isAscii = std::ranges::all_of(bytes, [](char byte) { return static_cast<unsigned char>(byte) <= 0x7F; });
    if (!isAscii) {
        return std::nullopt;
    }
    return QString::fromLatin1(bytes);
}

std::optional<QByteArray> utf8FromText(QStringView text)
{
    // The toolkit's own conversion would write "?" for an unpaired surrogate.
    if (!text.isValidUtf16()) {
        return std::nullopt;
    }
    return text.toUtf8();
}

qsizetype utf8Length(QStringView text)
{
    qsizetype length = text.size();
    for (qsizetype begin = 0; begin < text.size(); begin += kBlockUnits) {
        const qsizetype end = std::min(begin + kBlockUnits, text.size());
        if (end - begin == kBlockUnits && isAsciiBlock(text.data() + begin)) {
            continue;
        }
        for (qsizetype index = begin; index < end; ++index) {
            const char16_t unit = text[index].unicode();
            // Three bytes for a unit from U+0800 on, but four for the two halves of a pair together.
            const bool endsAPair = index > 0 && QChar::isLowSurrogate(unit) && text[index - 1].isHighSurrogate();
            length += (unit >= 0x80 ? 1 : 0) + (unit >= 0x800 ? 1 : 0) - (endsAPair ? 2 : 0);
        }
    }
    return length;
}

void appendUtf8(QByteArray &bytes, QStringView text)
{
    bytes.reserve(std::max(bytes.capacity(), bytes.size() + utf8Length(text)));
    QStringEncoder encoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
    std::array<char, kSliceBytes> buffer = {};
    while (!text.isEmpty()) {
        const QStringView slice = firstSlice(text);
        const char *const end = encoder.appendToBuffer(buffer.data(), slice);
        bytes.append(buffer.data(), end - buffer.data());
        text = text.sliced(slice.size());
    }
}
