// What the tests of the transport share: their settings, their requests, and a server with a loader that trusts it.
#pragma once

#include "desktop/transfer/CurlUrlLoader.h"
#include "support/EventLoop.h"
#include "support/PrintQt.h"
#include "support/RecordingDelegate.h"
#include "support/ThrowawayAuthority.h"
#include "support/TlsServer.h"

#include <QRandomGenerator>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

inline constexpr qint64 kMebibyte = 1024 * 1024;
inline const QStringList kFinished = {QStringLiteral("finished")};
inline const QStringList kFailed = {QStringLiteral("failed")};

/// The throwaway authority is trusted alone, and no desktop is asked for a proxy.
inline TransferSettings testSettings()
{
    TransferSettings settings;
    settings.authorities = ThrowawayAuthority::shared().trustedFolder();
    settings.proxyCommand = QStringLiteral("/nonexistent/proxy");
    return settings;
}

inline platform::UrlRequest aPost(const QUrl &url, const std::optional<QByteArray> &body = "the report")
{
    return {url, "POST", {{"Content-Type", "text/plain"}}, body};
}

/// Nobody listens there at either address of loopback, and it is none of those that the system chooses by itself for
/// somebody else meanwhile (ip(7), ip_local_port_range). 0 where there is none.
inline quint16 aFreePort()
{
    for (int tries = 0; tries < 1000; ++tries) {
        const auto port = static_cast<quint16>(QRandomGenerator::system()->bounded(10'000, 30'000));
        QTcpServer ipv4;
        QTcpServer ipv6;
        if (ipv4.listen(QHostAddress::LocalHost, port) && ipv6.listen(QHostAddress::LocalHostIPv6, port)) {
            return port;
        }
    }
    return 0;
}

inline QUrl withPort(quint16 port)
{
    QUrl url(QStringLiteral("https://127.0.0.1/"));
    url.setPort(port);
    return url;
}

/// The bytes that have come over the TCP connection, read or not (tcp(7), TCP_INFO).
inline qint64 receivedBytes(const QSslSocket &socket)
{
    tcp_info known = {};
    socklen_t size = sizeof known;
    ::getsockopt(static_cast<int>(socket.socketDescriptor()), IPPROTO_TCP, TCP_INFO, &known, &size);
    return static_cast<qint64>(known.tcpi_bytes_received);
}

/// A server, and a loader whose callbacks are heard.
class UrlLoaderTest : public testing::Test
{
protected:
    std::shared_ptr<platform::UrlConnection> start(const platform::UrlRequest &request)
    {
        return loader.connectionWithRequestDelegate(request, delegate);
    }

    /// Posts and returns what the delegate heard up to the end.
    QStringList heardAfter(const platform::UrlRequest &request)
    {
        const auto transfer = start(request);
        if (!transfer) {
            return {QStringLiteral("no transfer")};
        }
        if (!eventually([this] { return delegate.hasEnded(); })) {
            delegate.heard << QStringLiteral("no end");
        }
        return delegate.heard;
    }

    QStringList heardAfterAnswer(const Answer &answer)
    {
        server.willAnswer({answer});
        return heardAfter(aPost(server.url()));
    }

    /// What the delegate has heard when a later transfer has ended: whatever was on its way has come by then.
    QStringList heardUntilALaterEnd(CurlUrlLoader &sender)
    {
        RecordingDelegate later;
        sender.connectionWithRequestDelegate(aPost(server.url()), later);
        EXPECT_TRUE(eventually([&later] { return later.hasEnded(); }));
        return delegate.heard;
    }

    TlsServer server;
    OperationQueue operations;
    RecordingDelegate delegate;
    CurlUrlLoader loader{operations, testSettings()};
};
