// A host with several addresses: each is tried, and only as long as no byte of the request was sent.
#include "support/LogLines.h"
#include "support/TransferSupport.h"

#include <QElapsedTimer>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using After = Answer::After;
using Then = Answer::Then;

namespace {

constexpr std::chrono::milliseconds kShortConnectLimit = 400ms;

/// An address of loopback that answers no attempt to connect: Linux drops them while the queue of a listening socket is
/// full (listen(2)).
class DeadAddress
{
public:
    explicit DeadAddress(int family, quint16 port = 0)
        : listener(::socket(family, SOCK_STREAM | SOCK_NONBLOCK, 0))
    {
        sockaddr_in6 ipv6 = {};
        ipv6.sin6_family = AF_INET6;
        ipv6.sin6_addr = IN6ADDR_LOOPBACK_INIT;
        ipv6.sin6_port = htons(port);
        sockaddr_in ipv4 = {};
        ipv4.sin_family = AF_INET;
        ipv4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ipv4.sin_port = htons(port);
        // What is sent to it once it is alive waits in the sender's system.
        const int small = 16 * 1024;
        ::setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        void *const address = family == AF_INET6 ? static_cast<void *>(&ipv6) : &ipv4;
        socklen_t size = family == AF_INET6 ? sizeof ipv6 : sizeof ipv4;
        if (::bind(listener, static_cast<sockaddr *>(address), size) != 0 || ::listen(listener, 0) != 0
            || ::getsockname(listener, static_cast<sockaddr *>(address), &size) != 0) {
            qFatal("No address on loopback");
        }
        boundPort = ntohs(family == AF_INET6 ? ipv6.sin6_port : ipv4.sin_port);
        for (int &client : clients) {
            client = ::socket(family, SOCK_STREAM | SOCK_NONBLOCK, 0);
            ::connect(client, static_cast<sockaddr *>(address), size);
        }
    }
    DeadAddress(const DeadAddress &) = delete;
    DeadAddress &operator=(const DeadAddress &) = delete;
    ~DeadAddress()
    {
        hangUp();
        ::close(listener);
    }

    quint16 port() const { return boundPort; }

    /// Takes the connections that are waiting to be made, and waits for the first one.
    void comeAlive()
    {
        hangUp();
        while (::close(::accept(listener, nullptr, nullptr)) == 0) {}
        ::listen(listener, 16);
        pollfd ready = {.fd = listener, .events = POLLIN, .revents = 0};
        EXPECT_EQ(::poll(&ready, 1, 10'000), 1);
    }

    /// Answers the request of that connection with nothing as soon as it begins, and reads little of it.
    void answerEarly()
    {
        auto *const socket = new QSslSocket(&server);
        socket->setSslConfiguration(ThrowawayAuthority::shared().serverConfiguration(u"localhost"_s));
        socket->setReadBufferSize(16 * 1024);
        socket->setSocketDescriptor(::accept(listener, nullptr, nullptr));
        QObject::connect(socket, &QSslSocket::readyRead, socket, [socket, isFirst = true]() mutable {
            if (std::exchange(isFirst, false)) {
                socket->write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
            }
        });
        socket->startServerEncryption();
    }

private:
    void hangUp()
    {
        for (int &client : clients) {
            ::close(std::exchange(client, -1));
        }
    }

    QObject server;
    int listener;
    int clients[4] = {};
    quint16 boundPort = 0;
};

/// Does the same with each connection, before any TLS.
class PlainServer
{
public:
    PlainServer(const QHostAddress &address, quint16 port, std::function<void(QTcpSocket &)> act)
    {
        if (!server.listen(address, port)) {
            qFatal("The port is taken: %s", qPrintable(server.errorString()));
        }
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this, act] {
            ++accepted;
            act(*server.nextPendingConnection());
        });
    }

    quint16 port() const { return server.serverPort(); }

    int accepted = 0;

private:
    QTcpServer server;
};

/// To a name of two addresses, 127.0.0.1 and ::1, which libcurl knows without asking anybody.
platform::UrlRequest aPostToBoth(quint16 port, const QByteArray &body = "the report")
{
    QUrl url = withPort(port);
    url.setHost(u"localhost"_s);
    return aPost(url, body);
}

/// With a good server at one of the two addresses of "localhost", libcurl choosing which it tries first.
class Addresses : public UrlLoaderTest, public testing::WithParamInterface<QHostAddress::SpecialAddress>
{
protected:
    platform::UrlRequest aPostToBoth() const { return ::aPostToBoth(good.port()); }

    QHostAddress otherAddress() const
    {
        return GetParam() == QHostAddress::LocalHost ? QHostAddress::LocalHostIPv6 : QHostAddress::LocalHost;
    }

    TlsServer good{u"localhost"_s, GetParam(), aFreePort()};
};

} // namespace

TEST_P(Addresses, TheSecondIsTakenWhenTheFirstRefuses)
{
    EXPECT_EQ(heardAfter(aPostToBoth()), kFinished);
    EXPECT_EQ(good.posts(), 1);
}

TEST_P(Addresses, TheSecondIsTakenWhenTheFirstIsDead)
{
    const DeadAddress dead(GetParam() == QHostAddress::LocalHost ? AF_INET6 : AF_INET, good.port());

    EXPECT_EQ(heardAfter(aPostToBoth()), kFinished);
    EXPECT_EQ(good.posts(), 1);
}

TEST_P(Addresses, TheSecondIsTakenWhenTheFirstHangsUp)
{
    const PlainServer closing(otherAddress(), good.port(), [](QTcpSocket &socket) { socket.disconnectFromHost(); });

    EXPECT_EQ(heardAfter(aPostToBoth()), kFinished);
    EXPECT_LE(closing.accepted, 1);
    EXPECT_EQ(good.posts(), 1);
}

TEST_P(Addresses, TheSecondIsTakenWhenTheFirstResets)
{
    const PlainServer resetting(otherAddress(), good.port(), [](QTcpSocket &socket) { socket.abort(); });

    EXPECT_EQ(heardAfter(aPostToBoth()), kFinished);
    EXPECT_LE(resetting.accepted, 1);
    EXPECT_EQ(good.posts(), 1);
}

TEST_P(Addresses, TheSecondIsTakenWhenTheFirstSpeaksNoTls)
{
    const PlainServer talking(otherAddress(), good.port(),
                              [](QTcpSocket &socket) { socket.write("HTTP/1.1 400 Bad Request\r\n\r\n"); });

    EXPECT_EQ(heardAfter(aPostToBoth()), kFinished);
    EXPECT_EQ(good.posts(), 1);
}

TEST_P(Addresses, TheSecondIsTakenWhenTheFirstCannotBeTrusted)
{
    const TlsServer stranger(u"stranger"_s, otherAddress(), good.port());

    EXPECT_EQ(heardAfter(aPostToBoth()), kFinished);
    EXPECT_EQ(stranger.requests().size(), 0);
    EXPECT_EQ(good.posts(), 1);
}

TEST_P(Addresses, NoneIsTriedAgainOnceTheRequestWasBegun)
{
    TlsServer other(u"localhost"_s, otherAddress(), good.port());
    for (TlsServer *one : {&good, &other}) {
        one->willAnswer({{"", Then::HangUp, After::Head}});
    }

    EXPECT_EQ(heardAfter(aPostToBoth()), kFailed);
    EXPECT_EQ(good.posts() + other.posts(), 1);
    EXPECT_EQ(good.connections() + other.connections(), 1);
}

// Either order, for libcurl chooses which one is first.
INSTANTIATE_TEST_SUITE_P(, Addresses, testing::Values(QHostAddress::LocalHost, QHostAddress::LocalHostIPv6),
                         [](const auto &one) { return one.param == QHostAddress::LocalHost ? "Ipv4" : "Ipv6"; });

namespace {

class LostAddresses : public UrlLoaderTest
{
protected:
    QStringList heardOfImpatientLoader(const platform::UrlRequest &request)
    {
        TransferSettings settings = testSettings();
        settings.connectLimit = kShortConnectLimit;
        CurlUrlLoader impatient(operations, settings);
        clock.start();
        impatient.connectionWithRequestDelegate(request, delegate);
        eventually([this] { return delegate.hasEnded(); });
        return delegate.heard;
    }

    std::chrono::milliseconds passed() const { return std::chrono::milliseconds(clock.elapsed()); }

    QElapsedTimer clock;
};

} // namespace

TEST_F(LostAddresses, EachIsTriedOnceWhenAllHangUp)
{
    const auto hangUp = [](QTcpSocket &socket) { socket.disconnectFromHost(); };
    const quint16 port = aFreePort();
    const PlainServer first(QHostAddress::LocalHostIPv6, port, hangUp);
    const PlainServer second(QHostAddress::LocalHost, port, hangUp);

    EXPECT_EQ(heardAfter(aPostToBoth(port)), kFailed);
    EXPECT_EQ(first.accepted, 1);
    EXPECT_EQ(second.accepted, 1);
    EXPECT_GE(::fcntl(STDIN_FILENO, F_GETFD), 0) << "nothing else was closed";
}

TEST_F(LostAddresses, ConnectingHasALimitOfItsOwn)
{
    const DeadAddress dead(AF_INET);

    EXPECT_EQ(heardOfImpatientLoader(aPost(withPort(dead.port()))), kFailed);
    EXPECT_GE(passed(), kShortConnectLimit);
    EXPECT_LT(passed(), 10 * kShortConnectLimit);
}

TEST_F(LostAddresses, AreNamedToWhoAsks)
{
    const LogLines log(u"korvale.transfer=true"_s);
    const DeadAddress dead(AF_INET);
    EXPECT_EQ(heardOfImpatientLoader(aPost(withPort(dead.port()))), kFailed);
    ASSERT_EQ(LogLines::all().size(), 6) << LogLines::text().toStdString();
    EXPECT_EQ(LogLines::all().value(3), u"korvale.transfer: this address does not answer"_s);
    EXPECT_EQ(LogLines::all().value(4), u"korvale.transfer: connecting"_s);
    EXPECT_FALSE(LogLines::all().value(5).contains(u'(')) << LogLines::text().toStdString();

    LogLines::all().clear();
    delegate.heard.clear();
    const PlainServer closing(QHostAddress::LocalHost, 0, [](QTcpSocket &socket) { socket.disconnectFromHost(); });
    EXPECT_EQ(heardOfImpatientLoader(aPost(withPort(closing.port()))), kFailed);
    ASSERT_EQ(LogLines::all().size(), 6) << LogLines::text().toStdString();
    EXPECT_TRUE(LogLines::all().value(3).startsWith(u"korvale.transfer: this address is of no use: "_s));
    EXPECT_EQ(LogLines::all().value(4), u"korvale.transfer: connecting"_s);
}

TEST_F(LostAddresses, ADeadOneIsLeftBehindWhenTheOtherHangsUp)
{
    const DeadAddress dead(AF_INET6, aFreePort());
    const PlainServer closing(QHostAddress::LocalHost, dead.port(),
                              [](QTcpSocket &socket) { socket.disconnectFromHost(); });

    EXPECT_EQ(heardOfImpatientLoader(aPostToBoth(dead.port())), kFailed);
    EXPECT_EQ(closing.accepted, 1);
    EXPECT_LT(passed(), 10 * kShortConnectLimit);
}

class RevivedAddresses : public UrlLoaderTest, public testing::WithParamInterface<bool>
{
};

TEST_P(RevivedAddresses, AreWatchedWhicheverConnectsFirst)
{
    const quint16 port = aFreePort();
    DeadAddress ipv6(AF_INET6, port);
    DeadAddress ipv4(AF_INET, port);
    DeadAddress &first = GetParam() ? ipv4 : ipv6;
    DeadAddress &second = GetParam() ? ipv6 : ipv4;
    bool areAlive = false;
    const auto transfer = start(aPostToBoth(port, QByteArray(512 * 1024, 'x')));
    // One is connected at a look at the connections, and the other at the next turn of the transfer: it is looked at
    // every tenth of a second, and all of these timers run in one turn.
    QObject context;
    QTimer::singleShot(700ms, Qt::PreciseTimer, &context, [&] {
        QTimer::singleShot(1ms, Qt::PreciseTimer, &context, [&] { first.comeAlive(); });
        QTimer::singleShot(115ms, Qt::PreciseTimer, &context, [&] {
            second.comeAlive();
            areAlive = true;
        });
        std::this_thread::sleep_for(140ms);
    });
    ASSERT_TRUE(eventually([&areAlive] { return areAlive; }));
    first.answerEarly();
    second.answerEarly();

    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
    EXPECT_EQ(delegate.heard, kFailed) << "the system still holds most of the report";
}

INSTANTIATE_TEST_SUITE_P(, RevivedAddresses, testing::Bool(),
                         [](const auto &one) { return one.param ? "Ipv4First" : "Ipv6First"; });

TEST_F(LostAddresses, LimitsAreThirtySecondsUnlessSaidOtherwise)
{
    EXPECT_EQ(TransferSettings().connectLimit, 30s);
    EXPECT_EQ(TransferSettings().lookupLimit, 30s);
}

TEST_F(LostAddresses, CancelWhileConnectingReportsNothing)
{
    const DeadAddress dead(AF_INET);
    const auto transfer = start(aPost(withPort(dead.port())));
    eventually([] { return false; }, 50ms);

    clock.start();
    transfer->cancel();

    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_EQ(heardUntilALaterEnd(loader), QStringList{});
}
