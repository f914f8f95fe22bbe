// Conversions between text and bytes. Reading is strict; writing loses nothing but halves of characters.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

/// The text of UTF-8 bytes (RFC 3629), a byte-order mark and NUL characters included. std::nullopt when the bytes are
/// not valid: overlong forms, surrogates, values beyond U+10FFFF, a sequence cut at the end.
std::optional<QString> textFromUtf8(QByteArrayView bytes);

/// The text of 7-bit ASCII bytes; std::nullopt when a byte is above 0x7F.
std::optional<QString> textFromAscii(QByteArrayView bytes);

/// The text as UTF-8 without a byte-order mark of its own; std::nullopt when it holds an unpaired surrogate. For names,
/// where another character would be another name.
std::optional<QByteArray> utf8FromText(QStringView text);

/// The bytes that appendUtf8() writes for the text.
qsizetype utf8Length(QStringView text);

/// Appends the text as UTF-8, without a byte-order mark of its own; an unpaired surrogate becomes U+FFFD (EF BF BD), as
/// in every conversion that must not fail (Unicode Standard, section 3.9). Needs no memory beside that of the bytes.
/// Throws std::bad_alloc, with the bytes as they were, when there is no memory for them.
void appendUtf8(QByteArray &bytes, QStringView text);
