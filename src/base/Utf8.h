// Strict conversions between text and bytes: a conversion that would lose something gives nothing instead.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

/// The text of UTF-8 bytes (RFC 3629), a byte-order mark and NUL characters included. Nothing when the bytes are not
/// valid: overlong forms, surrogates, values beyond U+10FFFF, a sequence cut at the end.
std::optional<QString> textFromUtf8(QByteArrayView bytes);

/// The text of 7-bit ASCII bytes; nothing when a byte is above 0x7F.
std::optional<QString> textFromAscii(QByteArrayView bytes);

/// The text as UTF-8 without a byte-order mark of its own; nothing when it holds an unpaired surrogate.
std::optional<QByteArray> utf8FromText(QStringView text);
