// An HTTPS server on a free loopback port that does with each connection what a test tells it.
#include "support/TlsServer.h"

#include "support/ThrowawayAuthority.h"

#include <QTimer>

#include <sys/socket.h>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

qsizetype announcedLength(const ReceivedRequest &request)
{
    return request.values("content-length").value(0).toLongLong();
}

void end(QSslSocket &socket, Answer::Then how)
{
    switch (how) {
    case Answer::Then::HangUp:
        socket.disconnectFromHost();
        break;
    case Answer::Then::Cut:
        // The write is buffered, and lost where the connection has ended already.
        socket.flush();
        ::shutdown(static_cast<int>(socket.socketDescriptor()), SHUT_WR);
        break;
    case Answer::Then::Reset: {
        // socket(7), SO_LINGER: with a time of zero the connection is reset.
        const linger none = {.l_onoff = 1, .l_linger = 0};
        ::setsockopt(static_cast<int>(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &none, sizeof none);
        socket.abort();
        break;
    }
    case Answer::Then::StayConnected:
        break;
    case Answer::Then::StopReading:
        QObject::disconnect(&socket, &QSslSocket::readyRead, nullptr, nullptr);
        socket.setReadBufferSize(1);
        break;
    }
}

} // namespace

QByteArray ReceivedRequest::method() const
{
    return head.split(' ').value(0);
}

QByteArray ReceivedRequest::target() const
{
    return head.split(' ').value(1);
}

QList<QByteArray> ReceivedRequest::values(const QByteArray &field) const
{
    QList<QByteArray> found;
    for (const QByteArray &line : head.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.first(colon).compare(field, Qt::CaseInsensitive) == 0) {
            found << line.sliced(colon + 1).trimmed();
        }
    }
    return found;
}

Answer answered(const QByteArray &statusAndReason, const QByteArray &body, const QByteArray &moreHeaders)
{
    return {"HTTP/1.1 " + statusAndReason + "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n"
            + moreHeaders + "\r\n" + body};
}

TlsServer::TlsServer(const QString &certificateName, const QHostAddress &address, quint16 port)
    : answers{answered("200 OK")}
{
    server.setSslConfiguration(ThrowawayAuthority::shared().serverConfiguration(certificateName));
    connect(&server, &QSslServer::startedEncryptionHandshake, this, &TlsServer::onAccept);
    connect(&server, &QSslServer::pendingConnectionAvailable, this,
            [this] { converse(qobject_cast<QSslSocket *>(server.nextPendingConnection())); });
    if (!server.listen(address, port)) {
        qFatal("No port on loopback: %s", qPrintable(server.errorString()));
    }
}

quint16 TlsServer::port() const
{
    return server.serverPort();
}

QUrl TlsServer::url(const QString &path) const
{
    QUrl url(u"https://127.0.0.1"_s);
    url.setPort(port());
    url.setPath(path);
    return url;
}

void TlsServer::willAnswer(const QList<Answer> &newAnswers)
{
    answers = newAnswers;
}

void TlsServer::readSlowly(qint64 bytesAtOnce, std::chrono::milliseconds betweenReads)
{
    readAtOnce = bytesAtOnce;
    tick = betweenReads;
}

void TlsServer::limitReceiveBuffer(int bytes)
{
    // socket(7): what a listening socket has, its connections inherit.
    ::setsockopt(static_cast<int>(server.socketDescriptor()), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

void TlsServer::speakTls12()
{
    QSslConfiguration configuration = server.sslConfiguration();
    configuration.setProtocol(QSsl::TlsV1_2);
    server.setSslConfiguration(configuration);
}

void TlsServer::offerHttp2()
{
    QSslConfiguration configuration = server.sslConfiguration();
    configuration.setAllowedNextProtocols({QSslConfiguration::ALPNProtocolHTTP2, "http/1.1"});
    server.setSslConfiguration(configuration);
}

qsizetype TlsServer::posts() const
{
    return std::ranges::count(received, "POST"_ba, &ReceivedRequest::method);
}

void TlsServer::onAccept(QSslSocket *socket)
{
    const Answer &answer = answers.at(std::min<qsizetype>(accepted, answers.size() - 1));
    ++accepted;
    connect(socket, &QSslSocket::disconnected, this, [this] { ++closed; });
    if (answer.after == Answer::After::Accept) {
        end(*socket, answer.then);
    }
    socket->setProperty("answer", QVariant::fromValue(accepted - 1));
}

void TlsServer::converse(QSslSocket *socket)
{
    const auto conversation = std::make_shared<Conversation>();
    const auto number = socket->property("answer").toLongLong();
    conversation->answer = answers.at(std::min<qsizetype>(number, answers.size() - 1));
    protocol = socket->sslConfiguration().nextNegotiatedProtocol();
    connect(socket, &QSslSocket::disconnected, socket, &QObject::deleteLater);
    listenTo(*socket, [this, socket, conversation] { read(*socket, *conversation); });
    read(*socket, *conversation);
}

void TlsServer::listenTo(QSslSocket &socket, const std::function<void()> &onBytes)
{
    if (readAtOnce == 0) {
        connect(&socket, &QSslSocket::readyRead, this, onBytes);
        return;
    }
    socket.setReadBufferSize(readAtOnce);
    auto *const timer = new QTimer(&socket);
    connect(timer, &QTimer::timeout, this, onBytes);
    timer->start(tick);
}

void TlsServer::read(QSslSocket &socket, Conversation &conversation)
{
    conversation.unread += readAtOnce == 0 ? socket.readAll() : socket.read(readAtOnce);
    if (conversation.request < 0) {
        const qsizetype end = conversation.unread.indexOf("\r\n\r\n");
        if (end < 0) {
            return;
        }
        received.append({conversation.unread.first(end + 4), {}});
        conversation.unread.remove(0, end + 4);
        conversation.request = received.size() - 1;
    }
    ReceivedRequest &request = received[conversation.request];
    const qsizetype missing = announcedLength(request) - request.body.size();
    request.body += conversation.unread.first(std::min(missing, conversation.unread.size()));
    conversation.unread.remove(0, std::min(missing, conversation.unread.size()));
    if (isDue(conversation)) {
        give(socket, conversation);
    }
}

bool TlsServer::isDue(const Conversation &conversation) const
{
    const ReceivedRequest &request = received[conversation.request];
    switch (conversation.answer.after) {
    case Answer::After::Accept:
        return false;
    case Answer::After::Head:
        return true;
    case Answer::After::SomeOfTheBody:
        return !request.body.isEmpty();
    case Answer::After::Request:
        return request.body.size() == announcedLength(request);
    }
    return false;
}

void TlsServer::give(QSslSocket &socket, Conversation &conversation)
{
    // A further request on the same connection is read anew.
    conversation.request = -1;
    socket.write(conversation.answer.bytes);
    if (conversation.answer.act) {
        conversation.answer.act(socket);
    }
    end(socket, conversation.answer.then);
}

#include "moc_TlsServer.cpp"
