// What a transfer tells beside its callbacks: how much of the body has gone, who sends it, and why it failed.
#include "support/ScopedVariable.h"
#include "support/TransferSupport.h"

#include <QLoggingCategory>
#include <QSignalSpy>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using After = Answer::After;
using Then = Answer::Then;

namespace {

/// Keeps what is logged as long as it lives.
class LogLines
{
public:
    explicit LogLines(const QString &rules)
    {
        lines().clear();
        QLoggingCategory::setFilterRules(rules);
        before = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &context, const QString &text) {
            lines() << QString::fromLatin1(context.category) + u": "_s + text;
        });
    }
    LogLines(const LogLines &) = delete;
    LogLines &operator=(const LogLines &) = delete;
    ~LogLines()
    {
        qInstallMessageHandler(before);
        QLoggingCategory::setFilterRules({});
    }

    static QString all() { return lines().join(u'\n'); }

private:
    static QStringList &lines()
    {
        static QStringList kept;
        return kept;
    }

    QtMessageHandler before;
};

class Progress : public UrlLoaderTest
{
};

class Diagnostics : public UrlLoaderTest
{
protected:
    QString loggedAfter(const platform::UrlRequest &request)
    {
        const LogLines log(u"korvale.transfer=true"_s);
        EXPECT_EQ(heardAfter(request), kFailed);
        return LogLines::all();
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
    // All of the report is in the system's queue when it is cancelled.
    server.limitReceiveBuffer(16 * 1024);
    server.readSlowly(16 * 1024, 20ms);
    QSignalSpy progress(&loader, &CurlUrlLoader::uploadProgress);
    const auto transfer = start(aPost(server.url(), QByteArray(kMebibyte, 'x')));
    ASSERT_TRUE(eventually([&] { return progress.size() > 2; }));

    transfer->cancel();

    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    EXPECT_LT(server.requests().first().body.size(), kMebibyte);
}

TEST_F(Diagnostics, AreSilentUnlessAskedFor)
{
    const LogLines log({});

    heardAfter(aPost(withPort(aClosedPort())));

    EXPECT_EQ(LogLines::all(), QString());
}

TEST_F(Diagnostics, NameTheReasonOfAFailure)
{
    EXPECT_TRUE(loggedAfter(aPost(withPort(aClosedPort()))).contains(u"Connection refused"_s));

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
    EXPECT_TRUE(loggedAfter(aPost(server.url())).contains(u"Connection reset"_s)) << LogLines::all().toStdString();
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
    EXPECT_TRUE(LogLines::all().contains(u"Timeout was reached"_s)) << LogLines::all().toStdString();
}

TEST_F(Diagnostics, SayNothingOfWhatIsSentOrAnswered)
{
    const LogLines log(u"korvale.transfer=true"_s);
    server.willAnswer({answered("200 Reason", "answer")});

    heardAfter(aPost(server.url(u"/path"_s), "the description by jo@example.org"));

    EXPECT_TRUE(LogLines::all().contains(u"refused"_s)) << LogLines::all().toStdString();
    for (const QString &secret : {u"description"_s, u"jo@"_s, u"answer"_s, u"path"_s, u"text/plain"_s}) {
        EXPECT_FALSE(LogLines::all().contains(secret)) << LogLines::all().toStdString();
    }
}

TEST_F(Diagnostics, TheRequestNamesTheProgramAndAsksForNothingMore)
{
    EXPECT_EQ(heardAfter(aPost(server.url())), kFinished);

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
