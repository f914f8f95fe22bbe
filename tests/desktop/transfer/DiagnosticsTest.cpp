// What a transfer tells beside its callbacks: how much of the body has gone, who sends it, and why it failed.
#include "desktop/transfer/ConnectionBytes.h"
#include "support/LogLines.h"
#include "support/ScopedVariable.h"
#include "support/TransferSupport.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using After = Answer::After;
using Then = Answer::Then;

namespace {

class Progress : public UrlLoaderTest
{
protected:
    /// Has little patience with the one that it posts to.
    qsizetype progressOfAFailure(const platform::UrlRequest &request)
    {
        TransferSettings settings = testSettings();
        settings.idleLimit = 100ms;
        CurlUrlLoader impatient(operations, settings);
        const QSignalSpy progress(&impatient, &CurlUrlLoader::uploadProgress);
        impatient.connectionWithRequestDelegate(request, delegate);
        EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
        EXPECT_EQ(delegate.heard, kFailed);
        return progress.size();
    }
};

class Diagnostics : public UrlLoaderTest
{
protected:
    QString loggedAfter(const platform::UrlRequest &request)
    {
        const LogLines log(u"korvale.transfer=true"_s);
        EXPECT_EQ(heardAfter(request), kFailed);
        return LogLines::text();
    }

    /// The lines of a transfer, without their category.
    QStringList stepsOf(const platform::UrlRequest &request, const QStringList &heard)
    {
        const LogLines log(u"korvale.transfer=true"_s);
        EXPECT_EQ(heardAfter(request), heard);
        return LogLines::all().replaceInStrings(u"korvale.transfer: "_s, QString());
    }
};

} // namespace

TEST_F(Progress, IsWhatTheServerHasTakenAndNotWhatTheSystemHolds)
{
    server.limitReceiveBuffer(16 * 1024);
    server.readSlowly(64 * 1024, 20ms);
    QSignalSpy progress(&loader, &CurlUrlLoader::uploadProgress);
    qint64 ahead = 0;
    QObject::connect(&loader, &CurlUrlLoader::uploadProgress, &loader, [&](qint64 sent) {
        const qint64 taken = server.requests().isEmpty() ? 0 : server.requests().first().body.size();
        ahead = std::max(ahead, sent - taken);
    });

    EXPECT_EQ(heardAfter(aPost(server.url(), QByteArray(4 * kMebibyte, 'x'))), kFinished);

    ASSERT_GT(progress.size(), 4);
    qint64 last = 0;
    for (const QList<QVariant> &arguments : progress) {
        EXPECT_GT(arguments.value(0).toLongLong(), last);
        EXPECT_EQ(arguments.value(1).toLongLong(), 4 * kMebibyte);
        last = arguments.value(0).toLongLong();
    }
    EXPECT_LE(last, 4 * kMebibyte);
    EXPECT_GT(last, 3 * kMebibyte);
    // The server's own side holds some, too.
    EXPECT_LT(ahead, kMebibyte);
}

TEST_F(Progress, IsNotReportedAfterCancel)
{
    server.limitReceiveBuffer(16 * 1024);
    server.readSlowly(64 * 1024, 20ms);
    QSignalSpy progress(&loader, &CurlUrlLoader::uploadProgress);
    const auto transfer = start(aPost(server.url(), QByteArray(4 * kMebibyte, 'x')));
    ASSERT_TRUE(eventually([&] { return !progress.isEmpty(); }));

    transfer->cancel();
    progress.clear();

    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    EXPECT_EQ(progress.size(), 0);
}

TEST_F(Progress, CancelTakesBackWhatTheSystemHolds)
{
    // All of the report is in the system's queue when it is cancelled, and nothing has come that was not read: closing
    // the connection would take it back then, too.
    server.speakTls12();
    server.limitReceiveBuffer(16 * 1024);
    server.readSlowly(16 * 1024, 20ms);
    QSignalSpy progress(&loader, &CurlUrlLoader::uploadProgress);
    const auto transfer = start(aPost(server.url(), QByteArray(kMebibyte, 'x')));
    ASSERT_TRUE(eventually([&] { return progress.size() > 2; }));

    transfer->cancel();

    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    EXPECT_LT(server.requests().first().body.size(), kMebibyte / 2);
}

TEST(ConnectionBytes, AreCountedBothWays)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QTcpSocket here;
    here.connectToHost(server.serverAddress(), server.serverPort());
    ASSERT_TRUE(eventually([&] { return server.hasPendingConnections(); }));
    const std::unique_ptr<QTcpSocket> there(server.nextPendingConnection());
    const auto socket = static_cast<int>(here.socketDescriptor());
    const qint64 before = movedBytes(socket);

    const QByteArray word(100, 'x');
    here.write(word);
    there->write(word);

    EXPECT_TRUE(eventually([&] { return movedBytes(socket) >= before + 2 * word.size(); }));
}

TEST(ConnectionBytes, AreNoneWhereThereIsNoConnection)
{
    EXPECT_EQ(unsentBytes(-1), 0);
    EXPECT_EQ(acknowledgedBytes(-1), 0);
    EXPECT_EQ(movedBytes(-1), 0);
}

TEST_F(Progress, CountsNothingBeforeTheRequest)
{
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));

    EXPECT_EQ(progressOfAFailure(aPost(withPort(silent.serverPort()))), 0);
}

TEST_F(Progress, IsNothingWithoutABody)
{
    server.willAnswer({{"", Then::StayConnected}});

    EXPECT_EQ(progressOfAFailure(aPost(server.url(), std::nullopt)), 0);
}

TEST_F(Progress, DoesNotCountTheHandshake)
{
    // Nothing of the body is read, so what has come waits in the system of the server.
    const auto come = std::make_shared<qint64>(0);
    server.limitReceiveBuffer(16 * 1024);
    server.willAnswer({{"", Then::StopReading, After::Head, [come](QSslSocket &socket) {
                            auto *const timer = new QTimer(&socket);
                            QObject::connect(timer, &QTimer::timeout, &socket,
                                             [come, &socket] { *come = receivedBytes(socket); });
                            timer->start(1ms);
                        }}});
    qint64 counted = 0;
    TransferSettings settings = testSettings();
    settings.idleLimit = 200ms;
    CurlUrlLoader impatient(operations, settings);
    QObject::connect(&impatient, &CurlUrlLoader::uploadProgress, &impatient, [&](qint64 sent) { counted = sent; });
    impatient.connectionWithRequestDelegate(aPost(server.url(), QByteArray(32 * kMebibyte, 'x')), delegate);

    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));

    EXPECT_GT(counted, 0);
    EXPECT_LT(counted, *come);
}

TEST_F(Diagnostics, AreSilentUnlessAskedFor)
{
    const LogLines log({});

    heardAfter(aPost(withPort(aFreePort())));

    EXPECT_EQ(LogLines::text(), QString());
}

TEST_F(Diagnostics, TellTheStepsOfATransfer)
{
    EXPECT_EQ(stepsOf(aPost(server.url()), kFinished),
              (QStringList{u"asking the desktop for a proxy"_s, u"the desktop names no proxy"_s, u"connecting"_s,
                           u"accepted: No error, 10 of 10 bytes sent"_s}));

    delegate.heard.clear();
    const ScopedVariable direct("https_proxy", "http://127.0.0.1:1");
    const ScopedVariable exception("no_proxy", "127.0.0.1");
    EXPECT_EQ(stepsOf(aPost(server.url(), std::nullopt), kFinished),
              (QStringList{u"connecting"_s, u"accepted: No error, 0 of 0 bytes sent"_s}));
}

TEST_F(Diagnostics, TellThatATransferWasCancelled)
{
    const LogLines log(u"korvale.transfer=true"_s);
    const auto transfer = start(aPost(server.url()));

    transfer->cancel();

    EXPECT_EQ(LogLines::all().last(), u"korvale.transfer: cancelled"_s);
}

TEST_F(Diagnostics, TellWhyThereIsNoTransfer)
{
    const LogLines log(u"korvale.transfer=true"_s);
    TransferSettings settings = testSettings();
    settings.library = u"korvale-no-such-library"_s;
    CurlUrlLoader powerless(operations, settings);

    EXPECT_EQ(start(aPost(QUrl(u"http://localhost/"_s))), nullptr);
    EXPECT_EQ(powerless.connectionWithRequestDelegate(aPost(server.url()), delegate), nullptr);

    EXPECT_EQ(LogLines::all(),
              (QStringList{u"korvale.transfer: this is no POST to an HTTPS address"_s,
                           u"korvale.transfer: libcurl cannot be loaded, or is too old"_s}));
}

TEST_F(Diagnostics, TellOfOneAddressThatRefusesOnce)
{
    const QUrl url = withPort(aFreePort());

    const QStringList steps = stepsOf(aPost(url), kFailed);

    ASSERT_EQ(steps.size(), 4) << LogLines::text().toStdString();
    EXPECT_EQ(steps.value(2), u"connecting"_s);
    EXPECT_TRUE(steps.value(3).startsWith(u"failed: "_s)) << steps.value(3).toStdString();
    EXPECT_TRUE(steps.value(3).endsWith(u" (Connection refused), 0 of 10 bytes sent"_s))
        << steps.value(3).toStdString();
}

TEST_F(Diagnostics, NameTheReasonOfAFailure)
{
    EXPECT_TRUE(loggedAfter(aPost(withPort(aFreePort()))).contains(u"Connection refused"_s));

    delegate.heard.clear();
    QUrl nameless = server.url();
    nameless.setHost(u"label."_s.repeated(50) + u"invalid"_s);
    EXPECT_TRUE(loggedAfter(aPost(nameless)).contains(u"Could not resolve host"_s));

    delegate.heard.clear();
    TlsServer stranger(u"stranger"_s);
    EXPECT_TRUE(loggedAfter(aPost(stranger.url())).contains(u"local issuer certificate"_s));

    delegate.heard.clear();
    server.willAnswer({{"", Then::HangUp}});
    EXPECT_TRUE(loggedAfter(aPost(server.url())).contains(u"Empty reply from server"_s));

    delegate.heard.clear();
    server.willAnswer({{"", Then::Reset}});
    EXPECT_TRUE(loggedAfter(aPost(server.url())).contains(u"Connection reset"_s)) << LogLines::text().toStdString();
}

TEST_F(Diagnostics, NameATimeThatHasRunOut)
{
    TransferSettings settings = testSettings();
    settings.idleLimit = 400ms;
    CurlUrlLoader impatient(operations, settings);
    server.willAnswer({{"", Then::StayConnected}});
    const LogLines log(u"korvale.transfer=true"_s);

    impatient.connectionWithRequestDelegate(aPost(server.url()), delegate);

    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
    EXPECT_TRUE(LogLines::text().contains(u"failed: Timeout was reached, 10 of 10 bytes sent"_s))
        << LogLines::text().toStdString();
}

TEST_F(Diagnostics, SayNothingOfWhatIsSentOrAnswered)
{
    const LogLines log(u"korvale.transfer=true"_s);
    server.willAnswer({answered("200 Reason", "answer")});

    heardAfter(aPost(server.url(u"/path"_s), "the description by jo@example.org"));

    EXPECT_TRUE(LogLines::text().contains(u"refused"_s)) << LogLines::text().toStdString();
    for (const QString &secret : {u"description"_s, u"jo@"_s, u"answer"_s, u"path"_s, u"text/plain"_s}) {
        EXPECT_FALSE(LogLines::text().contains(secret)) << LogLines::text().toStdString();
    }
}

TEST_F(Diagnostics, TheRequestNamesTheProgramAndAsksForNothingMore)
{
    // Of a large body libcurl would ask first whether it is wanted.
    EXPECT_EQ(heardAfter(aPost(server.url(), QByteArray(2 * kMebibyte, 'x'))), kFinished);

    const ReceivedRequest &request = server.requests().first();
    EXPECT_EQ(request.values("User-Agent"), QList<QByteArray>{"KorvaleCrashReporter/" PROJECT_VERSION});
    for (const char *field : {"Expect", "Accept-Encoding", "Accept-Language", "Authorization", "Cookie"}) {
        EXPECT_EQ(request.values(field), QList<QByteArray>{}) << field;
    }
}

TEST_F(Diagnostics, TheKeysOfATransferAreWrittenNowhere)
{
    const QTemporaryDir folder;
    const QString file = folder.filePath(u"keys"_s);
    // libcurl looks at the variable when it is loaded, so this needs a process in which it was not.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            qputenv("SSLKEYLOGFILE", file.toUtf8());
            _exit(heardAfter(aPost(server.url())) == kFinished && !QFile::exists(file) ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
