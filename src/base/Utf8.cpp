// Strict conversions between text and bytes.
#include "base/Utf8.h"

#include <QStringDecoder>

#include <algorithm>

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
