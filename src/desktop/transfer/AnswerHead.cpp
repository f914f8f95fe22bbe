// What the head of an answer says that the HTTP library does not.
#include "desktop/transfer/AnswerHead.h"

#include <QList>

#include <algorithm>

namespace {

bool isInterim(long status)
{
    return status >= 100 && status < 200;
}

bool leadsElsewhere(long status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

/// A number of digits alone that is not too large to count with.
std::optional<quint64> numberFrom(const QByteArray &text)
{
    const bool isDigits = std::ranges::all_of(text, [](char one) { return one >= '0' && one <= '9'; });
    bool isNumber = false;
    const quint64 number = text.toULongLong(&isNumber);
    return isDigits && isNumber ? std::optional(number) : std::nullopt;
}

} // namespace

void AnswerHead::take(QByteArrayView line, long status)
{
    if (ended) {
        // A trailer of the body.
        return;
    }
    if (line.startsWith("HTTP/")) {
        *this = AnswerHead();
        return;
    }
    if (line.trimmed().isEmpty()) {
        ended = !isInterim(status);
        redirect = ended && hasLocation && leadsElsewhere(status);
        return;
    }
    const qsizetype colon = line.indexOf(':');
    if (colon > 0) {
        takeField(line.first(colon).trimmed(), line.sliced(colon + 1).trimmed());
    }
}

void AnswerHead::takeField(QByteArrayView name, QByteArrayView value)
{
    if (name.compare("Location", Qt::CaseInsensitive) == 0) {
        hasLocation = true;
    } else if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
        takeLength(value);
    } else if (name.compare("Transfer-Encoding", Qt::CaseInsensitive) == 0) {
        chunked = value.toByteArray().toLower().endsWith("chunked");
    }
}

void AnswerHead::takeLength(QByteArrayView value)
{
    // A list of one number again and again is that number.
    const QList<QByteArray> numbers = value.toByteArray().split(',');
    for (const QByteArray &text : numbers) {
        const std::optional<quint64> number = numberFrom(text.trimmed());
        lengthClear = lengthClear && number && number == length.value_or(*number);
        length = number;
    }
}
