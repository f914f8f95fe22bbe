// An HTTPS server on a free loopback port that does with each connection what a test tells it.
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QSslServer>
#include <QSslSocket>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>

/// One request as it came over the wire.
struct ReceivedRequest {
    QByteArray head; ///< The request line and the header lines, with the blank line that ends them.
    QByteArray body; ///< As much as was read.

    /// Such as "POST".
    QByteArray method() const;
    /// Such as "/a/b?c".
    QByteArray target() const;
    /// The values of the header field, in the order of its lines; names are compared without regard to case.
    QList<QByteArray> values(const QByteArray &field) const;
};

/// What the server does with one connection.
struct Answer {
    /// What has to have come before the server acts.
    enum class After { Accept, Head, SomeOfTheBody, Request };
    /// What it does once its bytes are written. HangUp ends the connection in order; Cut ends it without TLS's own end;
    /// Reset resets it.
    enum class Then { HangUp, Cut, Reset, StayConnected, StopReading };
    using Act = std::function<void(QSslSocket &)>;

    QByteArray bytes;
    Then then = Then::HangUp;
    After after = After::Request;
    /// Done after the bytes are written and before `then`.
    Act act = {};
};

/// A complete answer with a Content-Length.
Answer answered(const QByteArray &statusAndReason, const QByteArray &body = {}, const QByteArray &moreHeaders = {});

class TlsServer : public QObject
{
    Q_OBJECT

public:
    /// Shows the named certificate of the throwaway authority. Port 0 stands for any that is free.
    explicit TlsServer(const QString &certificateName = QStringLiteral("localhost"),
                       const QHostAddress &address = QHostAddress::LocalHost, quint16 port = 0);

    quint16 port() const;
    /// https://127.0.0.1:PORT and the path: an address, because not every machine knows the name of loopback.
    QUrl url(const QString &path = QStringLiteral("/")) const;

    /// The first connection gets the first answer and so on; the last answer is given again and again.
    void willAnswer(const QList<Answer> &answers);

    /// Reads that many bytes at each tick, instead of all at once.
    void readSlowly(qint64 bytesAtOnce, std::chrono::milliseconds betweenReads);
    /// Has the system take about that many bytes that were not read yet, of each connection.
    void limitReceiveBuffer(int bytes);
    /// Speaks TLS 1.2, of which, unlike 1.3, nothing comes between the handshake and the answer.
    void speakTls12();
    /// Agrees to HTTP/2 when it is offered.
    void offerHttp2();
    /// What the last connection agreed on; empty when the client offered nothing.
    const QByteArray &negotiatedProtocol() const { return protocol; }

    /// The requests whose heads have come, in their order.
    const QList<ReceivedRequest> &requests() const { return received; }
    /// How many of them were POSTs.
    qsizetype posts() const;
    /// How many connections were made, whether or not they came as far as a request.
    int connections() const { return accepted; }
    /// How many of them have ended.
    int closedConnections() const { return closed; }

private:
    struct Conversation {
        Answer answer;
        QByteArray unread;
        qsizetype request = -1; ///< The index of the request that is being read; -1 before its head has come.
    };

    void onAccept(QSslSocket *socket);
    void converse(QSslSocket *socket);
    void listenTo(QSslSocket &socket, const std::function<void()> &onBytes);
    void read(QSslSocket &socket, Conversation &conversation);
    bool isDue(const Conversation &conversation) const;
    void give(QSslSocket &socket, Conversation &conversation);

    QSslServer server;
    QList<Answer> answers;
    QList<ReceivedRequest> received;
    qint64 readAtOnce = 0; ///< 0 for as much as there is.
    std::chrono::milliseconds tick = {};
    QByteArray protocol;
    int accepted = 0;
    int closed = 0;
};
