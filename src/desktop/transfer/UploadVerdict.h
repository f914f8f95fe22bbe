// What is an acceptance: the one decision that ends the program, as a function of what happened.
#pragma once

#include <QtGlobal>

/// What is known of a transfer when it has ended.
struct TransferEnd {
    bool completed = false;   ///< The HTTP library saw no error, neither in the connection nor in the answer's framing.
    bool headEnded = false;   ///< The blank line after the head of a final answer has come; no 1xx is final.
    bool isRedirect = false;  ///< That answer was a 301, 302, 303, 307 or 308 with a Location.
    bool headIsClear = true;  ///< It was of HTTP/1.x and had no Content-Length, or one number (RFC 9112 section 6.3).
    bool isUncut = true;      ///< It ended by its own framing, or with TLS's own end of the connection (close_notify).
    qint64 bytesToSend = 0;   ///< The size of the report.
    qint64 bytesSent = 0;     ///< As many of them had left this process when the last byte of the answer came.
    qint64 bytesReceived = 0; ///< Of the final answer's body.
};

enum class Verdict {
    Accepted,
    Refused,
    Failed,
};

/// Read from the top; the first line that holds decides.
///
/// | what happened                                              | verdict  | because                                |
/// |------------------------------------------------------------|----------|----------------------------------------|
/// | the answer is a redirect                                   | failed   | the report did not go along            |
/// | it is of another protocol, or its length is not one number | failed   | nobody knows where it ends             |
/// | a byte of its body came, whatever happened then            | refused  | the server's protocol                  |
/// | the transfer broke off: network, TLS, framing, time        | failed   | there is no complete answer            |
/// | no head ended, or only those of informational answers      | failed   | there is no answer                     |
/// | it ended with the connection, and that was cut             | failed   | its body may be missing (RFC 8446 6.1) |
/// | it came before the last byte of the report had left        | failed   | the report was not received whole      |
/// | anything else: an empty answer to a report that was sent   | accepted | the server's protocol                  |
///
/// No other status is looked at: it may come from something in front of the server.
Verdict verdictOn(const TransferEnd &end);
