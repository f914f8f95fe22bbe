// What only the controller and the real transport can show together, against a TLS server; the window is a recording
// one.
#include "support/EventLoop.h"
#include "support/PrintQt.h"
#include "support/RecordingPlatform.h"
#include "support/ThrowawayAuthority.h"
#include "support/TlsServer.h"
#include "support/TransferSupport.h"

#include <QSslSocket>
#include <QTimer>

#include <gtest/gtest.h>

#include <algorithm>

using namespace Qt::StringLiterals;

using After = Answer::After;
using Then = Answer::Then;

namespace {

/// Sends the requests, whose URL names no port, to the port of the test's server.
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
        platform::UrlRequest toPort = request;
        toPort.url.setPort(port);
        return loader.connectionWithRequestDelegate(toPort, delegate);
    }

private:
    platform::UrlLoader &loader;
    quint16 port;
};

class UploadOverTls : public testing::Test
{
protected:
    UploadOverTls()
    {
        controller.init();
        fakes.logText.text = u"the report"_s;
    }

    PlatformServices services()
    {
        return {.application = fakes.application,
                .alertPanel = fakes.alertPanel,
                .userDefaults = fakes.userDefaults,
                .urlLoader = loader,
                .processInfo = fakes.processInfo,
                .clock = fakes.clock,
                .diagnosticLog = fakes.diagnosticLog,
                .submissionHost = u"127.0.0.1"_s};
    }

    void submit()
    {
        operations.perform([this] { controller.submitReport(nullptr); });
    }

    /// The outcomes so far: the alerts, the log lines and the end of the application.
    const Calls::List &outcomes()
    {
        std::ranges::copy_if(fakes.calls.taken(), std::back_inserter(allOutcomes), [](const std::string &call) {
            return call.starts_with("alert ") || call.starts_with("log ") || call == "application terminate";
        });
        return allOutcomes;
    }

    bool eventuallyHas(const std::string &outcome)
    {
        return eventually([&] { return std::ranges::count(outcomes(), outcome) > 0; });
    }

    TlsServer server;
    OperationQueue operations;
    CurlUrlLoader transport{operations, testSettings()};
    LoaderToPort loader{transport, server.port()};
    RecordingPlatform fakes;
    Calls::List allOutcomes;
    PublicController controller{fakes.controls(), services()};
};

} // namespace

TEST_F(UploadOverTls, TheReportOnTheWireIsExactlyTheForm)
{
    fakes.logText.text = u"line one\r\nline two\r\u00a0\u2028 end"_s;
    fakes.infoText.text = u"It \"crashed\" \U0001F600"_s;
    fakes.emailText.text = u"user@example.org"_s;
    server.willAnswer({answered("200 OK")});

    submit();
    ASSERT_TRUE(eventuallyHas("application terminate"));

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

TEST_F(UploadOverTls, ACancelledUploadEndsItsConnectionAndNothingOfItIsReported)
{
    server.willAnswer({{"", Then::StayConnected}, answered("200 OK")});
    submit();
    ASSERT_TRUE(eventually([this] { return server.posts() == 1; }));

    operations.perform([this] { controller.cancel(); });

    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    submit();
    ASSERT_TRUE(eventuallyHas("application terminate"));
    EXPECT_EQ(outcomes(), Calls::List{"application terminate"});
    EXPECT_EQ(server.posts(), 2);
}

TEST_F(UploadOverTls, OnlyTheFirstOfSeveralChunksIsKeptAndLogged)
{
    const std::string refused = "alert Crash log upload failed. / Please try again later.";
    // The second chunk is on its way as soon as the first has been read.
    fakes.calls.on(refused, [this] { eventually([this] { return server.closedConnections() == 1; }); });
    server.willAnswer({{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n", Then::StayConnected,
                        After::Request, [](QSslSocket &socket) {
                            auto *const timer = new QTimer(&socket);
                            QObject::connect(timer, &QTimer::timeout, &socket,
                                             [&socket] { socket.write("6\r\nsecond\r\n"); });
                            timer->start(std::chrono::milliseconds(20));
                        }}});

    submit();

    ASSERT_TRUE(eventuallyHas("log Returned data: first"));
    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    EXPECT_EQ(outcomes(), (Calls::List{refused, "log Returned data: first"}));
    EXPECT_EQ(controller.responseData, "first");
}

TEST_F(UploadOverTls, ASilentSecondUploadRunsBesideTheFirstAndBothReport)
{
    controller.silentOutput = true;
    QSslSocket *firstSocket = nullptr;
    server.willAnswer({{"", Then::StayConnected, After::Request, [&](QSslSocket &socket) { firstSocket = &socket; }},
                       answered("200 OK", "second")});
    submit();
    ASSERT_TRUE(eventually([&] { return firstSocket != nullptr; }));
    const auto first = controller.connection;
    submit();
    ASSERT_TRUE(eventuallyHas("log Returned data: second"));
    EXPECT_NE(controller.connection, first);

    firstSocket->write(answered("200 OK", " and first").bytes);

    ASSERT_TRUE(eventuallyHas("log Returned data:  and first"));
    EXPECT_EQ(outcomes(), (Calls::List{"log Returned data: second", "log Returned data:  and first"}));
    EXPECT_EQ(controller.responseData, "second and first");
    EXPECT_EQ(server.posts(), 2);
}

TEST_F(UploadOverTls, ASilentSecondUploadLeavesTheFirstToBeAccepted)
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

    EXPECT_TRUE(eventuallyHas("application terminate"));
}
