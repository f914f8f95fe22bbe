// The upload operations: the request, the three callbacks, cancel and the answer's text.
#include "support/RecordingPlatform.h"
#include "support/UnspeakableValue.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const std::string kRefused = "alert Crash log upload failed. / Please try again later.";
const std::string kFailed = "alert Connection failed. / Please try again later.";
const std::string kNotCreated =
    "alert Unable to submit crash report - failed to establish a connection. / Please try again later.";
const std::string kPost = "loader POST https://crash.example.org/appdata/plovrin/reportcrash.php";

const Calls::List kResetControls = {
    "spinner stopAnimation",
    "submitBtn setTitle Report Crash",
    "submitBtn setEnabled yes",
};

Calls::List resetControlsAnd(const Calls::List &more)
{
    return joined({kResetControls, more});
}

class Upload : public testing::Test
{
protected:
    Upload()
    {
        world.controller.init();
        world.logText.text = u"the report"_s;
    }

    /// Submits the form and forgets the messages up to here.
    std::shared_ptr<platform::UrlConnection> submitted()
    {
        world.controller.submitReport(nullptr);
        world.calls.taken();
        return world.controller.connection;
    }

    void expectSendingState() const
    {
        EXPECT_TRUE(world.spinner.turning);
        EXPECT_FALSE(world.submitBtn.enabled);
        EXPECT_EQ(world.submitBtn.title, u"Sending..."_s);
        EXPECT_FALSE(world.emailText.enabled);
        EXPECT_FALSE(world.infoText.editable);
    }

    void expectSubmitButtonBackAndFormLocked() const
    {
        EXPECT_FALSE(world.spinner.turning);
        EXPECT_TRUE(world.submitBtn.enabled);
        EXPECT_EQ(world.submitBtn.title, u"Report Crash"_s);
        EXPECT_FALSE(world.emailText.enabled);
        EXPECT_FALSE(world.infoText.editable);
    }

    RecordingPlatform world;
};

} // namespace

TEST_F(Upload, RequestCarriesMethodAddressTypeAndBody)
{
    world.controller.postDictionary({{u"crashlog"_s, u"abc"_s}});

    ASSERT_EQ(world.urlLoader.requests.size(), 1U);
    const platform::UrlRequest &request = world.urlLoader.requests.front();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url.toString(QUrl::FullyEncoded), u"https://crash.example.org/appdata/plovrin/reportcrash.php"_s);
    EXPECT_EQ(request.url.port(), -1);
    EXPECT_FALSE(request.url.hasQuery());
    const QList<std::pair<QByteArray, QByteArray>> headers = {
        {"Content-Type", "multipart/form-data; boundary=unique-1"}};
    EXPECT_EQ(request.headers, headers);
    EXPECT_EQ(request.body, "--unique-1\r\nContent-Disposition: form-data; name=\"crashlog\"\r\n\r\nabc\r\n");
    EXPECT_EQ(world.urlLoader.delegates.front(), &world.controller);
    EXPECT_EQ(world.calls.taken(), (Calls::List{"process globallyUniqueString", kPost}));
    EXPECT_NE(world.controller.connection, nullptr);
}

TEST_F(Upload, EachUploadHasABoundaryOfItsOwn)
{
    world.controller.postDictionary({{u"crashlog"_s, u"abc"_s}});
    world.controller.postDictionary({{u"crashlog"_s, u"abc"_s}});

    EXPECT_TRUE(world.urlLoader.requests.at(0).body->startsWith("--unique-1\r\n"));
    EXPECT_TRUE(world.urlLoader.requests.at(1).body->startsWith("--unique-2\r\n"));
}

TEST_F(Upload, AnswerWithoutBytesEndsTheApplicationWithoutAMessage)
{
    const auto transfer = submitted();

    world.controller.connectionDidFinishLoading(*transfer);

    EXPECT_EQ(world.calls.taken(), resetControlsAnd({"application terminate"}));
    EXPECT_EQ(world.application.lastSender, &world.controller);
    EXPECT_EQ(world.spinner.lastSender, &world.controller);
}

TEST_F(Upload, FinishedTransferStaysReferredTo)
{
    const auto transfer = submitted();

    world.controller.connectionDidFinishLoading(*transfer);

    EXPECT_NE(transfer, nullptr);
    EXPECT_EQ(world.controller.connection, transfer);
}

TEST_F(Upload, AnswerWithBytesIsRefusedAndLogged)
{
    const auto transfer = submitted();

    world.controller.connectionDidReceiveData(*transfer, "OK");

    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"transfer 1 cancel", "spinner stopAnimation", "submitBtn setTitle Report Crash",
                           "submitBtn setEnabled yes", kRefused, "log Returned data: OK"}));
    expectSubmitButtonBackAndFormLocked();
    EXPECT_EQ(world.controller.connection, transfer) << "the cancelled transfer stays referred to";
    EXPECT_EQ(world.controller.responseData, "OK");
    EXPECT_EQ(world.controller.response(), u"OK"_s);
}

TEST_F(Upload, AnswerIsKeptAndLoggedOnlyAfterTheAlertWasDismissed)
{
    const auto transfer = submitted();
    QByteArray keptDuringAlert = "never asked";
    world.calls.on(kRefused, [&] { keptDuringAlert = world.controller.responseData; });

    world.controller.connectionDidReceiveData(*transfer, "OK");

    EXPECT_EQ(keptDuringAlert, QByteArray());
}

TEST_F(Upload, AnswerThatIsNotAsciiIsLoggedAsAMarkerAndKept)
{
    const auto transfer = submitted();

    world.controller.connectionDidReceiveData(*transfer, "caf\xC3\xA9");

    EXPECT_EQ(world.calls.taken().back(), "log Returned data: (null)");
    EXPECT_EQ(world.controller.response(), u"caf\u00E9"_s);
}

TEST_F(Upload, AnswerThatIsNotUtf8HasNoText)
{
    const auto transfer = submitted();

    world.controller.connectionDidReceiveData(*transfer, "caf\xE9");

    EXPECT_EQ(world.controller.response(), std::nullopt);
    EXPECT_EQ(world.controller.responseData, "caf\xE9");
}

TEST_F(Upload, WithoutAnAnswerTheTextIsEmpty)
{
    EXPECT_EQ(world.controller.response(), QString());
}

TEST_F(Upload, FailureShowsConnectionFailedAndGivesTheSubmitButtonBack)
{
    const auto transfer = submitted();

    world.controller.connectionDidFailWithError(*transfer, {});

    EXPECT_EQ(world.calls.taken(), resetControlsAnd({kFailed}));
    expectSubmitButtonBackAndFormLocked();
    EXPECT_EQ(world.controller.connection, transfer);
}

TEST_F(Upload, SecondAttemptAfterARefusalStartsWithNoAnswer)
{
    world.controller.connectionDidReceiveData(*submitted(), "first answer");
    ASSERT_EQ(world.controller.responseData, "first answer");

    const auto second = submitted();

    EXPECT_EQ(world.controller.responseData, QByteArray());
    world.controller.connectionDidReceiveData(*second, "second");
    EXPECT_EQ(world.controller.response(), u"second"_s);
}

TEST_F(Upload, ReplacedTransferIsNotCancelledAndLeaksNothing)
{
    world.controller.connectionDidReceiveData(*submitted(), "no");
    world.calls.taken();

    world.controller.submitReport(nullptr);

    const Calls::List calls = world.calls.taken();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "transfer 1 cancel"), 0);
    EXPECT_TRUE(world.urlLoader.created.at(0).expired());
    EXPECT_FALSE(world.urlLoader.created.at(1).expired());
}

TEST_F(Upload, CancelWithNoUploadResetsTheControlsAndNothingElse)
{
    world.controller.cancel();

    EXPECT_EQ(world.calls.taken(), resetControlsAnd({"emailText setEnabled yes", "infoText setEditable yes"}));
    EXPECT_EQ(world.controller.connection, nullptr);
}

TEST_F(Upload, CancelStopsTheUploadAndUnlocksTheForm)
{
    auto transfer = submitted();
    expectSendingState();
    transfer.reset();

    world.controller.cancel();

    EXPECT_EQ(world.calls.taken(),
              resetControlsAnd({"emailText setEnabled yes", "infoText setEditable yes", "transfer 1 cancel"}));
    EXPECT_TRUE(world.emailText.enabled);
    EXPECT_TRUE(world.infoText.editable);
    EXPECT_EQ(world.controller.connection, nullptr);
    EXPECT_TRUE(world.urlLoader.created.front().expired());
}

TEST_F(Upload, CancelAfterARefusalOrAFailureUnlocksTheForm)
{
    world.controller.connectionDidReceiveData(*submitted(), "no");
    world.controller.cancel();
    EXPECT_TRUE(world.emailText.enabled);
    EXPECT_EQ(world.controller.connection, nullptr);

    world.controller.connectionDidFailWithError(*submitted(), {});
    world.controller.cancel();
    EXPECT_TRUE(world.infoText.editable);
    EXPECT_EQ(world.controller.connection, nullptr);
}

TEST_F(Upload, TransferThatCannotBeCreatedShowsItsAlertAndKeepsTheSendingStateUntilCancel)
{
    for (const bool silent : {false, true}) {
        RecordingPlatform stalled;
        stalled.logText.text = u"the report"_s;
        stalled.urlLoader.canCreate = false;
        stalled.controller.submitReport(nullptr);
        stalled.calls.taken();
        stalled.controller.silentOutput = silent;

        stalled.controller.postDictionary({});

        EXPECT_EQ(stalled.calls.taken(), (Calls::List{"process globallyUniqueString", kPost, kNotCreated}));
        EXPECT_EQ(stalled.controller.connection, nullptr);
        EXPECT_TRUE(stalled.spinner.turning);
        EXPECT_FALSE(stalled.submitBtn.enabled);
        EXPECT_EQ(stalled.submitBtn.title, u"Sending..."_s);
        EXPECT_FALSE(stalled.emailText.enabled);
        EXPECT_FALSE(stalled.infoText.editable);

        stalled.controller.cancel();

        EXPECT_FALSE(stalled.spinner.turning);
        EXPECT_TRUE(stalled.submitBtn.enabled);
        EXPECT_TRUE(stalled.emailText.enabled);
        EXPECT_TRUE(stalled.infoText.editable);
    }
}

TEST_F(Upload, FormThatCannotBeEncodedIsPostedWithoutABodyAndTheAnswerJudgedAsUsual)
{
    world.controller.postDictionary({{u"crashlog"_s, unspeakableValue()}});

    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"process globallyUniqueString",
                           "log Exception in generateFormData:forBoundary. TestFailure - no textual form", kPost}));
    EXPECT_EQ(world.urlLoader.requests.front().body, std::nullopt);
    EXPECT_EQ(world.urlLoader.requests.front().headers.size(), 1);
    world.controller.connectionDidFinishLoading(*world.controller.connection);
    EXPECT_EQ(world.calls.taken(), resetControlsAnd({"application terminate"}));
}

TEST_F(Upload, SilentOutputShowsNoAlertsButResetsTheControls)
{
    world.controller.silentOutput = true;

    world.controller.connectionDidReceiveData(*submitted(), "no");
    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"transfer 1 cancel", "spinner stopAnimation", "submitBtn setTitle Report Crash",
                           "submitBtn setEnabled yes", "log Returned data: no"}));

    world.controller.connectionDidFailWithError(*submitted(), {});
    EXPECT_EQ(world.calls.taken(), kResetControls);
}

TEST_F(Upload, SilentSecondUploadReplacesTheFirstWhoseCallbacksStillArrive)
{
    world.controller.silentOutput = true;
    const auto first = submitted();
    world.controller.responseData = "of the first";

    const auto second = submitted();

    EXPECT_NE(first, second);
    EXPECT_EQ(world.controller.connection, second);
    EXPECT_EQ(world.controller.responseData, QByteArray());
    world.controller.connectionDidReceiveData(*first, "late");
    EXPECT_EQ(world.calls.taken().front(), "transfer 1 cancel") << "the transfer that reports is cancelled";
    EXPECT_EQ(world.controller.connection, second);
    EXPECT_EQ(world.controller.responseData, "late");
    world.controller.cancel();
    EXPECT_EQ(world.calls.taken().back(), "transfer 2 cancel");
}

TEST_F(Upload, ExceptionInPostingIsLogged)
{
    world.calls.failAt(kPost);

    world.controller.postDictionary({});

    EXPECT_EQ(world.calls.taken().back(), "log Exception in postDictionary. TestFailure - as asked");
}

TEST_F(Upload, ExceptionInTheDataCallbackIsLoggedAndTheBytesAreNotKept)
{
    const auto transfer = submitted();
    world.calls.failAt("submitBtn setEnabled yes");

    world.controller.connectionDidReceiveData(*transfer, "no");

    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"transfer 1 cancel", "spinner stopAnimation", "submitBtn setTitle Report Crash",
                           "submitBtn setEnabled yes",
                           "log Exception in connection:didReceiveData. TestFailure - as asked"}));
    EXPECT_EQ(world.controller.responseData, QByteArray());
}

TEST_F(Upload, ExceptionInTheFailureCallbackIsLogged)
{
    const auto transfer = submitted();
    world.calls.failAt("spinner stopAnimation");

    world.controller.connectionDidFailWithError(*transfer, {});

    EXPECT_EQ(
        world.calls.taken(),
        (Calls::List{"spinner stopAnimation", "log Exception in connection:didFailWithError. TestFailure - as asked"}));
}

TEST_F(Upload, ExceptionInTheFinishCallbackIsLoggedAndTheApplicationGoesOn)
{
    const auto transfer = submitted();
    world.calls.failAt("spinner stopAnimation");

    world.controller.connectionDidFinishLoading(*transfer);

    EXPECT_EQ(
        world.calls.taken(),
        (Calls::List{"spinner stopAnimation", "log Exception in connectionDidFinishLoading. TestFailure - as asked"}));
    EXPECT_EQ(world.application.lastSender, nullptr);
}

TEST_F(Upload, ExceptionInCancelIsLoggedAndTheTransferStaysReferredTo)
{
    const auto transfer = submitted();
    world.calls.failAt("transfer 1 cancel");

    world.controller.cancel();

    EXPECT_EQ(world.calls.taken().back(), "log Exception in cancel:. TestFailure - as asked");
    EXPECT_EQ(world.controller.connection, transfer);
    EXPECT_TRUE(world.emailText.enabled);
}

TEST_F(Upload, ExceptionsOfAnotherKindPassOn)
{
    const auto transfer = submitted();
    world.calls.failOtherwiseAt("spinner stopAnimation");

    EXPECT_THROW(world.controller.connectionDidFailWithError(*transfer, {}), std::runtime_error);
    EXPECT_THROW(world.controller.connectionDidFinishLoading(*transfer), std::runtime_error);
    EXPECT_THROW(world.controller.connectionDidReceiveData(*transfer, "x"), std::runtime_error);
    EXPECT_THROW(world.controller.cancel(), std::runtime_error);
    world.calls.failOtherwiseAt(kPost);
    EXPECT_THROW(world.controller.postDictionary({}), std::runtime_error);
}
