// Through which proxy a request goes, and that what a proxy says is no answer.
#include "support/ScopedVariable.h"
#include "support/TransferSupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QUrl kUrl = QUrl(u"https://crash.example.org/reports"_s);

/// Gives every request the same answer, hangs up, and keeps what it was asked.
class Proxy
{
public:
    explicit Proxy(QByteArray answer)
    {
        server.listen(QHostAddress::LocalHost);
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this, answer] {
            ++accepted;
            QTcpSocket *const socket = server.nextPendingConnection();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, answer, socket] {
                asked += socket->readAll();
                if (asked.endsWith("\r\n\r\n")) {
                    socket->write(answer);
                    socket->disconnectFromHost();
                }
            });
        });
    }

    QByteArray address() const { return "http://127.0.0.1:" + QByteArray::number(server.serverPort()); }

    QByteArray asked;
    int accepted = 0;

private:
    QTcpServer server;
};

const QByteArray kRefusal = "HTTP/1.1 407 Proxy Authentication Required\r\nProxy-Authenticate: NTLM\r\n"
                            "Content-Length: 0\r\n\r\n";

qsizetype openPipes()
{
    const QDir folder(u"/proc/self/fd"_s);
    const QStringList names = folder.entryList(QDir::NoDotAndDotDot | QDir::Files | QDir::System);
    return std::ranges::count_if(names, [&folder](const QString &name) {
        return QFile::symLinkTarget(folder.filePath(name)).contains("/pipe:"_L1);
    });
}

class ProxyTest : public UrlLoaderTest
{
protected:
    /// A command that a desktop may have in the place of libproxy's.
    QString aCommand(const QByteArray &script) const
    {
        QFile file(folder.filePath(u"proxy"_s));
        if (!file.open(QFile::WriteOnly)) {
            qFatal("No file: %s", qPrintable(file.errorString()));
        }
        file.write("#!/bin/sh\n" + script + '\n');
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return file.fileName();
    }

    QByteArray written(const QString &name) const
    {
        QFile file(folder.filePath(name));
        return file.open(QFile::ReadOnly) ? file.readAll() : QByteArray();
    }

    QStringList heardWithCommand(const QByteArray &script, const platform::UrlRequest &request)
    {
        TransferSettings settings = testSettings();
        settings.proxyCommand = aCommand(script);
        settings.proxyLimit = 300ms;
        CurlUrlLoader asking(operations, settings);
        asking.connectionWithRequestDelegate(request, delegate);
        eventually([this] { return delegate.hasEnded(); });
        return delegate.heard;
    }

    QTemporaryDir folder;
};

class ProxyAnswer : public ProxyTest, public testing::WithParamInterface<const char *>
{
};

} // namespace

TEST_P(ProxyAnswer, ThatIsNoConnectionIsAFailureAtOnce)
{
    const Proxy proxy(GetParam());
    const ScopedVariable variable("https_proxy", proxy.address());

    EXPECT_EQ(heardAfter(aPost(kUrl)), kFailed);
    EXPECT_TRUE(proxy.asked.startsWith("CONNECT crash.example.org:443 HTTP/1.1\r\n")) << proxy.asked.toStdString();
    EXPECT_FALSE(proxy.asked.contains("the report"));
    EXPECT_EQ(proxy.accepted, 1);
}

INSTANTIATE_TEST_SUITE_P(
    , ProxyAnswer,
    testing::Values("", "HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n",
                    "HTTP/1.1 407 Proxy Authentication Required\r\nProxy-Authenticate: NTLM\r\n"
                    "Content-Length: 0\r\n\r\n",
                    "HTTP/1.1 302 Found\r\nLocation: https://127.0.0.1/\r\nContent-Length: 0\r\n\r\n",
                    "HTTP/1.1 502 Bad Gateway\r\nContent-Length: 2\r\n\r\nno", "HTTP/1.1 200 OK\r\n\r\n", "garbage"));

TEST_F(ProxyTest, AHostThatTheEnvironmentExceptsIsReachedDirectly)
{
    const Proxy proxy(kRefusal);
    const ScopedVariable variable("https_proxy", proxy.address());
    const ScopedVariable exception("no_proxy", "127.0.0.1");

    EXPECT_EQ(heardAfter(aPost(server.url())), kFinished);
    EXPECT_EQ(proxy.accepted, 0);
}

TEST_F(ProxyTest, OfTheDesktopIsAskedForByTheAddressWithoutItsPath)
{
    const Proxy proxy(kRefusal);

    EXPECT_EQ(heardWithCommand("echo \"$@\" >" + folder.path().toUtf8() + "/arguments; echo " + proxy.address()
                                   + " direct://",
                               aPost(kUrl)),
              kFailed);

    EXPECT_EQ(written(u"arguments"_s), "https://crash.example.org\n");
    EXPECT_TRUE(proxy.asked.startsWith("CONNECT crash.example.org:443 HTTP/1.1\r\n")) << proxy.asked.toStdString();
}

TEST_F(ProxyTest, OfTheEnvironmentGoesBeforeThatOfTheDesktop)
{
    const Proxy proxy(kRefusal);
    const ScopedVariable variable("https_proxy", proxy.address());

    EXPECT_EQ(heardWithCommand("touch " + folder.path().toUtf8() + "/asked; echo direct://", aPost(kUrl)), kFailed);

    EXPECT_EQ(proxy.accepted, 1);
    EXPECT_FALSE(QFile::exists(folder.filePath(u"asked"_s)));
}

TEST_F(ProxyTest, IsNoneWhereTheDesktopNamesNone)
{
    for (const char *script : {"echo direct://", "true", "echo garbage", "echo http://127.0.0.1:1; exit 1",
                               "echo http://127.0.0.1:1; kill $$"}) {
        delegate.heard.clear();
        EXPECT_EQ(heardWithCommand(script, aPost(server.url())), kFinished) << script;
    }
}

TEST_F(ProxyTest, IsNoneAndLeavesNothingOpenWhereTheDesktopHasNoCommandForIt)
{
    EXPECT_EQ(heardAfter(aPost(server.url())), kFinished);
    const qsizetype before = openPipes();

    delegate.heard.clear();
    EXPECT_EQ(heardAfter(aPost(server.url())), kFinished);

    EXPECT_EQ(openPipes(), before);
}

TEST_F(ProxyTest, IsNoneWhereTheDesktopTakesTooLong)
{
    const QByteArray started = folder.path().toUtf8() + "/started";

    EXPECT_EQ(heardWithCommand("echo $$ >" + started + "; exec sleep 60", aPost(server.url())), kFinished);

    const QByteArray process = written(u"started"_s).trimmed();
    ASSERT_FALSE(process.isEmpty());
    EXPECT_FALSE(QFile::exists(u"/proc/"_s + QString::fromLatin1(process)));
}

TEST_F(ProxyTest, CancelEndsTheQuestionForIt)
{
    TransferSettings settings = testSettings();
    settings.proxyCommand = aCommand("echo $$ >" + folder.path().toUtf8() + "/started; exec sleep 60");
    CurlUrlLoader asking(operations, settings);
    const auto transfer = asking.connectionWithRequestDelegate(aPost(server.url()), delegate);
    ASSERT_TRUE(eventually([this] { return written(u"started"_s).endsWith('\n'); }));
    const QByteArray process = written(u"started"_s).trimmed();
    QElapsedTimer clock;
    clock.start();

    transfer->cancel();

    EXPECT_LT(clock.elapsed(), 500);
    EXPECT_FALSE(QFile::exists(u"/proc/"_s + QString::fromLatin1(process)));
    EXPECT_EQ(delegate.heard, QStringList{});
    EXPECT_EQ(server.connections(), 0);
}
