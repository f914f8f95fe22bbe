// The states of an upload and every way from one to another: the controller itself, the real transport and a real TLS
// server; only the window is a recording one.
#include "desktop/transfer/CurlUrlLoader.h"
#include "support/EventLoop.h"
#include "support/PrintQt.h"
#include "support/RecordingPlatform.h"
#include "support/TlsServer.h"
#include "support/TransferSupport.h"

#include <QSslSocket>
#include <QTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

using namespace Qt::StringLiterals;

using After = Answer::After;
using Then = Answer::Then;

namespace {

/// Leads the requests, which name no port, to the port of the test's server.
class LoaderToPort : public platform::UrlLoader
{
public:
    LoaderToPort(platform::UrlLoader &next, quint16 portOfServer)
        : loader(next)
        , port(portOfServer)
    {
    }

    std::shared_ptr<platform::UrlConnection>
    connectionWithRequestDelegate(const platform::UrlRequest &request,
                                  platform::UrlConnectionDelegate &delegate) override
    {
        platform::UrlRequest led = request;
        led.url.setPort(port);
        if (losesTheHost) {
            led.url = QUrl();
        }
        return loader.connectionWithRequestDelegate(led, delegate);
    }

    /// Makes every URL one for which the transport creates no transfer.
    bool losesTheHost = false;

private:
    platform::UrlLoader &loader;
    quint16 port;
};

/// What a person sees of the upload.
struct WindowState {
    bool spinning;
    std::string buttonTitle;
    bool buttonEnabled;
    bool addressEnabled;
    bool descriptionEditable;

    bool operator==(const WindowState &) const = default;
    friend void PrintTo(const WindowState &state, std::ostream *out)
    {
        *out << (state.spinning ? "spinning" : "still") << ", \"" << state.buttonTitle << "\" "
             << (state.buttonEnabled ? "enabled" : "disabled") << ", address "
             << (state.addressEnabled ? "enabled" : "disabled") << ", description "
             << (state.descriptionEditable ? "editable" : "locked");
    }
};

const WindowState kIdle = {false, "Report Crash", true, true, true};
const WindowState kSending = {true, "Sending...", false, false, false};
const WindowState kUnlockedForRetry = {false, "Report Crash", true, false, false};

const std::string kRefusedAlert = "alert Crash log upload failed. / Please try again later.";
const std::string kFailedAlert = "alert Connection failed. / Please try again later.";
const std::string kStalledAlert =
    "alert Unable to submit crash report - failed to establish a connection. / Please try again later.";

class UploadStates : public testing::Test
{
protected:
    UploadStates()
    {
        controller.init();
        world.logText.text = u"the report"_s;
    }

    PlatformServices services()
    {
        return {.application = world.application,
                .alertPanel = world.alertPanel,
                .userDefaults = world.userDefaults,
                .urlLoader = loader,
                .processInfo = world.processInfo,
                .clock = world.clock,
                .diagnosticLog = world.diagnosticLog,
                .submissionHost = u"127.0.0.1"_s};
    }

    WindowState window() const
    {
        return {world.spinner.turning, world.submitBtn.title.toStdString(), world.submitBtn.enabled,
                world.emailText.enabled, world.infoText.editable};
    }

    /// The alerts, the log lines and the request to terminate, since they were last forgotten.
    const Calls::List &said()
    {
        for (const std::string &call : world.calls.taken()) {
            if (call.starts_with("alert ") || call.starts_with("log ") || call == "application terminate") {
                everythingSaid.push_back(call);
            }
        }
        return everythingSaid;
    }

    bool eventuallySaid(const std::string &what)
    {
        return eventually([&] { return std::ranges::count(said(), what) > 0; });
    }

    void submit()
    {
        operations.perform([this] { controller.submitReport(nullptr); });
    }

    void cancel()
    {
        operations.perform([this] { controller.cancel(); });
    }

    void enterIdle() {}

    void enterSending()
    {
        server.willAnswer({{"", Then::StayConnected}});
        submit();
        ASSERT_TRUE(eventually([this] { return server.posts() == 1; }));
    }

    void enterStalled()
    {
        loader.losesTheHost = true;
        submit();
        ASSERT_EQ(said(), Calls::List{kStalledAlert});
    }

    void enterRefused()
    {
        server.willAnswer({answered("200 OK", "no")});
        submit();
        ASSERT_TRUE(eventuallySaid("log Returned data: no"));
    }

    void enterFailed()
    {
        server.willAnswer({{""}});
        submit();
        ASSERT_TRUE(eventuallySaid(kFailedAlert));
    }

    TlsServer server;
    OperationQueue operations;
    CurlUrlLoader transport{operations, testSettings()};
    LoaderToPort loader{transport, server.port()};
    RecordingPlatform world;
    Calls::List everythingSaid;
    OpenController controller{world.controls(), services()};
};

/// Opens the ways into the states to the tables below.
class UploadStatesFrom : public UploadStates, public testing::WithParamInterface<const char *>
{
protected:
    void SetUp() override
    {
        const std::map<std::string, void (UploadStatesFrom::*)()> ways = {
            {"Idle", &UploadStatesFrom::enterIdle},       {"Sending", &UploadStatesFrom::enterSending},
            {"Stalled", &UploadStatesFrom::enterStalled}, {"Refused", &UploadStatesFrom::enterRefused},
            {"Failed", &UploadStatesFrom::enterFailed},
        };
        (this->*ways.at(GetParam()))();
        said();
        everythingSaid.clear();
        postsBefore = server.posts();
    }

    qsizetype postsBefore = 0;
};

class SubmitFrom : public UploadStatesFrom
{
};

class CancelFrom : public UploadStatesFrom
{
};

std::string stateName(const testing::TestParamInfo<const char *> &one)
{
    return one.param;
}

} // namespace

// From idle, refused and failed

TEST_P(SubmitFrom, LeadsToSending)
{
    server.willAnswer({{"", Then::StayConnected}});

    submit();

    ASSERT_TRUE(eventually([this] { return server.posts() == postsBefore + 1; }));
    EXPECT_EQ(window(), kSending);
    EXPECT_NE(controller.connection, nullptr);
    EXPECT_EQ(said(), Calls::List{});
}

TEST_P(SubmitFrom, LeadsToStalledWhenNoTransferCanBeCreated)
{
    loader.losesTheHost = true;

    submit();

    EXPECT_EQ(said(), Calls::List{kStalledAlert});
    EXPECT_EQ(window(), kSending);
    EXPECT_EQ(controller.connection, nullptr);
    EXPECT_EQ(server.posts(), postsBefore);
}

TEST_P(SubmitFrom, MayLeadToAnAcceptedReport)
{
    server.willAnswer({answered("200 OK")});

    submit();

    ASSERT_TRUE(eventuallySaid("application terminate"));
    EXPECT_EQ(server.posts(), postsBefore + 1);
}

INSTANTIATE_TEST_SUITE_P(, SubmitFrom, testing::Values("Idle", "Refused", "Failed"), stateName);

// From sending

TEST_F(UploadStates, SendingAndTheFirstChunkLeadToRefused)
{
    server.willAnswer({answered("200 OK", "OK")});

    submit();

    ASSERT_TRUE(eventuallySaid("log Returned data: OK"));
    EXPECT_EQ(said(), (Calls::List{kRefusedAlert, "log Returned data: OK"}));
    EXPECT_EQ(window(), kUnlockedForRetry);
    EXPECT_NE(controller.connection, nullptr);
    EXPECT_EQ(controller.response(), u"OK"_s);
    EXPECT_EQ(server.posts(), 1);
}

TEST_F(UploadStates, SendingAndATransportFailureLeadToFailed)
{
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n"}});

    submit();

    ASSERT_TRUE(eventuallySaid(kFailedAlert));
    EXPECT_EQ(said(), Calls::List{kFailedAlert});
    EXPECT_EQ(window(), kUnlockedForRetry);
    EXPECT_NE(controller.connection, nullptr);
    EXPECT_EQ(server.posts(), 1);
}

TEST_F(UploadStates, SendingAndAnEmptyAnswerLeadToFinished)
{
    server.willAnswer({answered("200 OK")});

    submit();

    ASSERT_TRUE(eventuallySaid("application terminate"));
    EXPECT_EQ(said(), Calls::List{"application terminate"});
    EXPECT_EQ(world.application.lastSender, &controller);
    EXPECT_EQ(window(), kUnlockedForRetry);
    EXPECT_EQ(server.posts(), 1);
}

TEST_F(UploadStates, AnErrorStatusWithoutABodyLeadsToFinished)
{
    server.willAnswer({answered("500 Internal Server Error")});

    submit();

    ASSERT_TRUE(eventuallySaid("application terminate"));
    EXPECT_EQ(said(), Calls::List{"application terminate"});
}

TEST_F(UploadStates, NothingListeningLeadsToFailed)
{
    quint16 closedPort = 0;
    {
        const TlsServer gone;
        closedPort = gone.port();
    }
    LoaderToPort nowhere(transport, closedPort);
    PlatformServices lost = {.application = world.application,
                             .alertPanel = world.alertPanel,
                             .userDefaults = world.userDefaults,
                             .urlLoader = nowhere,
                             .processInfo = world.processInfo,
                             .clock = world.clock,
                             .diagnosticLog = world.diagnosticLog,
                             .submissionHost = u"127.0.0.1"_s};
    OpenController other(world.controls(), lost);
    other.init();

    operations.perform([&other] { other.submitReport(nullptr); });

    ASSERT_TRUE(eventuallySaid(kFailedAlert));
    EXPECT_EQ(window(), kUnlockedForRetry);
}

// Cancel, from every state

TEST_P(CancelFrom, LeadsToIdle)
{
    cancel();

    EXPECT_EQ(window(), kIdle);
    EXPECT_EQ(controller.connection, nullptr);
    EXPECT_EQ(said(), Calls::List{});
}

TEST_P(CancelFrom, LeavesAFormThatCanBeSubmitted)
{
    cancel();
    loader.losesTheHost = false;
    server.willAnswer({answered("200 OK")});

    submit();

    ASSERT_TRUE(eventuallySaid("application terminate"));
    // Nothing of what was cancelled has been heard.
    EXPECT_EQ(said(), Calls::List{"application terminate"});
    EXPECT_EQ(server.posts(), postsBefore + 1);
}

INSTANTIATE_TEST_SUITE_P(, CancelFrom, testing::Values("Idle", "Sending", "Stalled", "Refused", "Failed"), stateName);

TEST_F(UploadStates, CancelWhileSendingEndsTheConnection)
{
    enterSending();

    cancel();

    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    EXPECT_EQ(server.posts(), 1);
}

// The answer

TEST_F(UploadStates, OnlyTheFirstOfSeveralChunksIsKeptAndLogged)
{
    // The second chunk is on its way as soon as the first has been taken.
    world.calls.on(kRefusedAlert, [this] { eventually([this] { return server.closedConnections() == 1; }); });
    server.willAnswer({{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n", Then::StayConnected,
                        After::Request, [](QSslSocket &socket) {
                            auto *const timer = new QTimer(&socket);
                            QObject::connect(timer, &QTimer::timeout, &socket,
                                             [&socket] { socket.write("6\r\nsecond\r\n"); });
                            timer->start(std::chrono::milliseconds(20));
                        }}});

    submit();

    ASSERT_TRUE(eventuallySaid("log Returned data: first"));
    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    EXPECT_EQ(said(), (Calls::List{kRefusedAlert, "log Returned data: first"}));
    EXPECT_EQ(controller.responseData, "first");
}

TEST_F(UploadStates, ARetryAfterARefusalStartsWithAnEmptyAnswer)
{
    enterRefused();
    ASSERT_EQ(controller.responseData, "no");
    server.willAnswer({{"", Then::StayConnected}});

    submit();

    EXPECT_EQ(controller.responseData, QByteArray());
}

TEST_F(UploadStates, ARefusedRetryKeepsOnlyItsOwnAnswer)
{
    enterRefused();
    server.willAnswer({answered("200 OK", "still no")});

    submit();

    ASSERT_TRUE(eventuallySaid("log Returned data: still no"));
    EXPECT_EQ(controller.responseData, "still no");
}

// Two uploads at once

TEST_F(UploadStates, ASilentSecondUploadRunsBesideTheFirstAndBothReport)
{
    controller.silentOutput = true;
    QSslSocket *firstSocket = nullptr;
    server.willAnswer({{"", Then::StayConnected, After::Request, [&](QSslSocket &socket) { firstSocket = &socket; }},
                       answered("200 OK", "second")});
    submit();
    ASSERT_TRUE(eventually([&] { return firstSocket != nullptr; }));
    const auto first = controller.connection;
    submit();
    ASSERT_TRUE(eventuallySaid("log Returned data: second"));
    EXPECT_NE(controller.connection, first);

    firstSocket->write(answered("200 OK", " and first").bytes);

    ASSERT_TRUE(eventuallySaid("log Returned data:  and first"));
    EXPECT_EQ(said(), (Calls::List{"log Returned data: second", "log Returned data:  and first"}));
    EXPECT_EQ(controller.responseData, "second and first");
    EXPECT_EQ(server.posts(), 2);
}

TEST_F(UploadStates, ASilentSecondUploadLeavesTheFirstToBeAccepted)
{
    controller.silentOutput = true;
    QSslSocket *firstSocket = nullptr;
    server.willAnswer({{"", Then::StayConnected, After::Request, [&](QSslSocket &socket) { firstSocket = &socket; }},
                       {"", Then::StayConnected}});
    submit();
    ASSERT_TRUE(eventually([&] { return firstSocket != nullptr; }));
    submit();
    ASSERT_TRUE(eventually([this] { return server.posts() == 2; }));

    firstSocket->write(answered("200 OK").bytes);

    EXPECT_TRUE(eventuallySaid("application terminate"));
}

TEST_F(UploadStates, SilentOutputStillSaysThatNoTransferCouldBeCreated)
{
    controller.silentOutput = true;

    enterStalled();

    EXPECT_EQ(controller.connection, nullptr);
}

// On the wire

TEST_F(UploadStates, TheReportOnTheWireIsExactlyTheForm)
{
    world.logText.text = u"line one\r\nline two\r\u00a0\u2028 end"_s;
    world.infoText.text = u"It \"crashed\" \U0001F600"_s;
    world.emailText.text = u"user@example.org"_s;
    server.willAnswer({answered("200 OK")});

    submit();
    ASSERT_TRUE(eventuallySaid("application terminate"));

    ASSERT_EQ(server.requests().size(), 1);
    const ReceivedRequest &request = server.requests().first();
    EXPECT_EQ(request.head.first(request.head.indexOf('\r')), "POST /appdata/plovrin/reportcrash.php HTTP/1.1");
    EXPECT_EQ(request.values("Content-Type"), QList<QByteArray>{"multipart/form-data; boundary=unique-1"});
    EXPECT_EQ(request.values("Content-Length"), QList<QByteArray>{QByteArray::number(request.body.size())});
    EXPECT_EQ(request.values("Transfer-Encoding"), QList<QByteArray>{});
    EXPECT_EQ(request.body,
              "--unique-1\r\n"
              "Content-Disposition: form-data; name=\"crashlog\"\r\n\r\n"
              "line one\r\nline two\r\xc2\xa0\xe2\x80\xa8 end\r\n"
              "--unique-1\r\n"
              "Content-Disposition: form-data; name=\"email\"\r\n\r\n"
              "user@example.org\r\n"
              "--unique-1\r\n"
              "Content-Disposition: form-data; name=\"info\"\r\n\r\n"
              "It \"crashed\" \xf0\x9f\x98\x80\r\n");
}

TEST_F(UploadStates, ARetryIsPostedUnderABoundaryOfItsOwn)
{
    enterRefused();
    server.willAnswer({answered("200 OK")});

    submit();
    ASSERT_TRUE(eventuallySaid("application terminate"));

    ASSERT_EQ(server.requests().size(), 2);
    EXPECT_EQ(server.requests().last().values("Content-Type"),
              QList<QByteArray>{"multipart/form-data; boundary=unique-2"});
    EXPECT_TRUE(server.requests().last().body.startsWith("--unique-2\r\n"));
}
