// What an answer's framing says that the HTTP library does not.
#include "desktop/transfer/AnswerHead.h"

#include <QList>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

/// Bytes of the longest line of a chunk's size, extensions included; more than any server sends.
constexpr qsizetype kMaxChunkSizeLine = 4096;

bool isInterim(long status)
{
    return status >= 100 && status < 200;
}

bool leadsElsewhere(long status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool isDigit(char one)
{
    return one >= '0' && one <= '9';
}

/// A status line of HTTP/1.x (RFC 9112 section 4), whose reason may be missing with the space before it. libcurl also
/// takes others, such as one of "200%OK".
bool isStatusLine(QByteArrayView line)
{
    constexpr qsizetype kVersionSize = 9;
    constexpr qsizetype kStatusSize = 3;
    if (!line.startsWith("HTTP/1.0 ") && !line.startsWith("HTTP/1.1 ")) {
        return false;
    }
    const QByteArrayView status = line.sliced(kVersionSize);
    const QByteArrayView digits = status.first(std::min(kStatusSize, status.size()));
    return digits.size() == kStatusSize && std::ranges::all_of(digits, isDigit)
        && (status.size() == kStatusSize || QByteArrayView(" \r\n").contains(status.at(kStatusSize)));
}

/// A number of digits alone that is not too large to count with.
std::optional<qint64> numberFrom(const QByteArray &text)
{
    const bool isDigits = std::ranges::all_of(text, isDigit);
    bool isNumber = false;
    const qint64 number = text.toLongLong(&isNumber);
    return isDigits && isNumber ? std::optional(number) : std::nullopt;
}

/// The size of a chunk, which extensions may follow, and its line end.
bool isChunkSize(QByteArrayView line)
{
    static const QRegularExpression size(u"^[0-9A-Fa-f]+[ \\t]*(;.*)?\\r?\\n$"_s);
    return size.match(QString::fromLatin1(line)).hasMatch();
}

} // namespace

void AnswerHead::take(QByteArrayView line, long status)
{
    if (ended) {
        // A trailer of the body.
        return;
    }
    if (atStatusLine) {
        takeStatusLine(line);
        return;
    }
    // libcurl looks at the first byte alone, and what it takes for the end of a head has to be one here.
    if (line.startsWith('\r') || line.startsWith('\n')) {
        isHttp = isHttp && (line == "\r\n" || line == "\n");
        ended = !isInterim(status);
        redirect = ended && hasLocation && leadsElsewhere(status);
        atStatusLine = true;
        return;
    }
    if (line.startsWith(' ') || line.startsWith('\t')) {
        // The rest of the value before (RFC 9112 section 5.2), which not everybody takes for that.
        clear = clear && !atFraming;
        return;
    }
    const qsizetype colon = line.indexOf(':');
    if (colon < 0) {
        return;
    }
    takeField(line.first(colon), line.sliced(colon + 1).trimmed());
}

void AnswerHead::takeBody(QByteArrayView bytes)
{
    if (!bytes.isEmpty()) {
        lastByte = bytes.back();
    }
    if (!chunked || !clear || chunkSize.endsWith('\n')) {
        return;
    }
    const qsizetype lineEnd = bytes.indexOf('\n');
    chunkSize.append(bytes.first(lineEnd < 0 ? bytes.size() : lineEnd + 1));
    clear = chunkSize.size() <= kMaxChunkSizeLine && (lineEnd < 0 || isChunkSize(chunkSize));
}

void AnswerHead::takeStatusLine(QByteArrayView line)
{
    // What an interim answer says of a body is without meaning (RFC 9112 section 6.3). What is none of HTTP before the
    // answer leaves it open where that begins.
    const bool wasHttp = isHttp;
    *this = AnswerHead();
    atStatusLine = false;
    isHttp = wasHttp && isStatusLine(line);
    isOfVersion10 = line.startsWith("HTTP/1.0");
}

void AnswerHead::takeField(QByteArrayView nameAsWritten, QByteArrayView value)
{
    const QByteArrayView name = nameAsWritten.trimmed();
    atFraming = false;
    if (name.compare("Location", Qt::CaseInsensitive) == 0) {
        hasLocation = true;
    } else if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
        atFraming = true;
        takeLength(value);
    } else if (name.compare("Transfer-Encoding", Qt::CaseInsensitive) == 0) {
        atFraming = true;
        takeCoding(value);
    }
    // A space before the colon (RFC 9112 section 5.1): libcurl does not know such a field, and others do.
    clear = clear && !(atFraming && name.size() != nameAsWritten.size());
}

void AnswerHead::takeLength(QByteArrayView value)
{
    // A list of one number again and again is that number.
    const QList<QByteArray> numbers = value.toByteArray().split(',');
    for (const QByteArray &text : numbers) {
        const std::optional<qint64> number = numberFrom(text.trimmed());
        clear = clear && number && number == length.value_or(*number);
        length = number;
    }
}

void AnswerHead::takeCoding(QByteArrayView value)
{
    chunked = value.compare("chunked", Qt::CaseInsensitive) == 0;
    // libcurl undoes compression that nobody has asked for, and takes its first bytes for none of the body's.
    const bool isNone = value.compare("identity", Qt::CaseInsensitive) == 0;
    clear = clear && (chunked || isNone) && !hasCoding && !isOfVersion10;
    hasCoding = true;
}
