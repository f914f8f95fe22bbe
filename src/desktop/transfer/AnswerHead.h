// What an answer's framing says that the HTTP library does not.
#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

/// Reads the header lines of an answer as they come, interim answers and trailers included, and the line with which a
/// body in chunks begins.
class AnswerHead
{
public:
    /// Takes the next line with its line end, and the status code of the answer that it belongs to.
    void take(QByteArrayView line, long status);
    /// Takes the next bytes of the body as they came, chunk sizes included.
    void takeBody(QByteArrayView bytes);

    /// Whether the head of the final answer is complete. An interim answer (1xx) is not final (RFC 9110 section 15.2).
    bool hasEnded() const { return ended; }
    /// Whether the final answer leads elsewhere: 301, 302, 303, 307 or 308 with a Location (RFC 9110 section 15.4).
    bool isRedirect() const { return redirect; }
    /// Whether it and the interim ones before it are answers of HTTP/1.x (RFC 9112 section 4), and nobody can mistake
    /// its end: there is no Content-Length, or the same number in each (section 6.3); the only transfer coding is
    /// "chunked", since no other was asked for (section 7), and not in HTTP/1.0 (section 6.1); and the first chunk's
    /// size is a number (section 7.1).
    bool isClear() const { return isHttp && clear; }
    /// Whether the body says itself where it ends (RFC 9112 section 7.1).
    bool isChunked() const { return chunked; }
    /// Whether a body in chunks, as far as it has come, lacks the line feed of its last line (RFC 9112 section 7.1):
    /// libcurl (7.88) takes it for complete at the carriage return. One that bytes behind the end of the body end with
    /// counts, too.
    bool lacksLineFeed() const { return chunked && lastByte == '\r'; }

private:
    void takeStatusLine(QByteArrayView line);
    void takeField(QByteArrayView nameAsWritten, QByteArrayView value);
    void takeLength(QByteArrayView value);
    void takeCoding(QByteArrayView value);

    bool atStatusLine = true; ///< The next line begins an answer.
    bool atFraming = false;   ///< The last line was a field that says where the body ends.
    bool ended = false;
    bool redirect = false;
    bool hasLocation = false;
    bool isHttp = true; ///< Of this answer and of the interim ones before it: how each begins, and how its head ends.
    bool clear = true;  ///< What the head says of where the body ends.
    bool isOfVersion10 = false;
    bool hasCoding = false;
    bool chunked = false;
    std::optional<qint64> length;
    char lastByte = 0;    ///< Of the body as it came.
    QByteArray chunkSize; ///< The line of the first chunk's size, as far as it has come.
};
