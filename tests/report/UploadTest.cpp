// The upload operations: the request, the three callbacks, cancel and the answer's text.
#include "support/RecordingPlatform.h"
#include "support/ValuesWithoutText.h"

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
        recording.controller.init();
        recording.logText.text = u"the report"_s;
    }

    /// Submits the form and forgets the messages up to here.
    std::shared_ptr<platform::UrlConnection> submitted()
    {
        recording.controller.submitReport(nullptr);
        recording.calls.taken();
        return recording.controller.connection;
    }

    void expectSendingState() const
    {
        EXPECT_TRUE(recording.spinner.turning);
        EXPECT_FALSE(recording.submitBtn.enabled);
        EXPECT_EQ(recording.submitBtn.title, u"Sending..."_s);
        EXPECT_FALSE(recording.emailText.enabled);
        EXPECT_FALSE(recording.infoText.editable);
    }

    void expectSubmitButtonBackAndFormLocked() const
    {
        EXPECT_FALSE(recording.spinner.turning);
        EXPECT_TRUE(recording.submitBtn.enabled);
        EXPECT_EQ(recording.submitBtn.title, u"Report Crash"_s);
        EXPECT_FALSE(recording.emailText.enabled);
        EXPECT_FALSE(recording.infoText.editable);
    }

    RecordingPlatform recording;
};

} // namespace

TEST_F(Upload, RequestCarriesMethodAddressTypeAndBody)
{
    recording.controller.postDictionary({{u"crashlog"_s, u"abc"_s}});

    ASSERT_EQ(recording.urlLoader.requests.size(), 1U);
    const platform::UrlRequest &request = recording.urlLoader.requests.front();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url.toString(QUrl::FullyEncoded), u"https://crash.example.org/appdata/plovrin/reportcrash.php"_s);
    EXPECT_EQ(request.url.port(), -1);
    EXPECT_FALSE(request.url.hasQuery());
    const QList<std::pair<QByteArray, QByteArray>> headers = {
        {"Content-Type", "multipart/form-data; boundary=unique-1"}};
    EXPECT_EQ(request.headers, headers);
    EXPECT_EQ(request.body, "--unique-1\r\nContent-Disposition: form-data; name=\"crashlog\"\r\n\r\nabc\r\n");
    EXPECT_EQ(recording.urlLoader.delegates.front(), &recording.controller);
    EXPECT_EQ(recording.calls.taken(), (Calls::List{kPost}));
    EXPECT_NE(recording.controller.connection, nullptr);
}

TEST_F(Upload, EachUploadHasABoundaryOfItsOwn)
{
    recording.controller.postDictionary({{u"crashlog"_s, u"abc"_s}});
    recording.controller.postDictionary({{u"crashlog"_s, u"abc"_s}});

    EXPECT_TRUE(recording.urlLoader.requests.at(0).body->startsWith("--unique-1\r\n"));
    EXPECT_TRUE(recording.urlLoader.requests.at(1).body->startsWith("--unique-2\r\n"));
}

TEST_F(Upload, AnswerWithoutBytesEndsTheApplicationWithoutAMessage)
{
    const auto transfer = submitted();

    recording.controller.connectionDidFinishLoading(*transfer);

    EXPECT_EQ(recording.calls.taken(), resetControlsAnd({"application terminate"}));
    EXPECT_EQ(recording.application.lastSender, &recording.controller);
    EXPECT_EQ(recording.spinner.lastSender, &recording.controller);
}

TEST_F(Upload, FinishedTransferStaysReferredTo)
{
    const auto transfer = submitted();

    recording.controller.connectionDidFinishLoading(*transfer);

    EXPECT_NE(transfer, nullptr);
    EXPECT_EQ(recording.controller.connection, transfer);
}

TEST_F(Upload, AnswerWithBytesIsRefusedAndLogged)
{
    const auto transfer = submitted();

    recording.controller.connectionDidReceiveData(*transfer, "OK");

    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"transfer 1 cancel", "spinner stopAnimation", "submitBtn setTitle Report Crash",
                           "submitBtn setEnabled yes", kRefused, "log Returned data: OK"}));
    expectSubmitButtonBackAndFormLocked();
    EXPECT_EQ(recording.controller.connection, transfer) << "the cancelled transfer stays referred to";
    EXPECT_EQ(recording.controller.responseData, "OK");
    EXPECT_EQ(recording.controller.response(), u"OK"_s);
}

TEST_F(Upload, AnswerIsKeptAndLoggedOnlyAfterTheAlertWasDismissed)
{
    const auto transfer = submitted();
    QByteArray keptDuringAlert = "never asked";
    recording.calls.on(kRefused, [&] { keptDuringAlert = recording.controller.responseData; });

    recording.controller.connectionDidReceiveData(*transfer, "OK");

    EXPECT_EQ(keptDuringAlert, QByteArray());
}

TEST_F(Upload, AnswerThatIsNotAsciiIsLoggedAsAMarkerAndKept)
{
    const auto transfer = submitted();

    recording.controller.connectionDidReceiveData(*transfer, "caf\xC3\xA9");

    EXPECT_EQ(recording.calls.taken().back(), "log Returned data: (null)");
    EXPECT_EQ(recording.controller.response(), u"caf\u00E9"_s);
}

TEST_F(Upload, AnswerThatIsNotUtf8HasNoText)
{
    const auto transfer = submitted();

    recording.controller.connectionDidReceiveData(*transfer, "caf\xE9");

    EXPECT_EQ(recording.controller.response(), std::nullopt);
    EXPECT_EQ(recording.controller.responseData, "caf\xE9");
}

TEST_F(Upload, AnswersOfTwoTransfersThatRunTogetherAreKeptOneBehindTheOther)
{
    const auto first = submitted();
    const auto second = submitted();

    recording.controller.connectionDidReceiveData(*first, "of the first, ");
    recording.controller.connectionDidReceiveData(*second, "of the second");

    EXPECT_EQ(recording.controller.response(), u"of the first, of the second"_s);
}

TEST_F(Upload, WithoutAnAnswerTheTextIsEmpty)
{
    EXPECT_EQ(recording.controller.response(), QString());
}

TEST_F(Upload, FailureShowsConnectionFailedAndGivesTheSubmitButtonBack)
{
    const auto transfer = submitted();

    recording.controller.connectionDidFailWithError(*transfer, {});

    EXPECT_EQ(recording.calls.taken(), resetControlsAnd({kFailed}));
    expectSubmitButtonBackAndFormLocked();
    EXPECT_EQ(recording.controller.connection, transfer);
}

TEST_F(Upload, SecondAttemptAfterARefusalStartsWithNoAnswer)
{
    recording.controller.connectionDidReceiveData(*submitted(), "first answer");
    ASSERT_EQ(recording.controller.responseData, "first answer");

    const auto second = submitted();

    EXPECT_EQ(recording.controller.responseData, QByteArray());
    recording.controller.connectionDidReceiveData(*second, "second");
    EXPECT_EQ(recording.controller.response(), u"second"_s);
}

TEST_F(Upload, ReplacedTransferIsNotCancelledAndLeaksNothing)
{
    recording.controller.connectionDidReceiveData(*submitted(), "no");
    recording.calls.taken();

    recording.controller.submitReport(nullptr);

    const Calls::List calls = recording.calls.taken();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "transfer 1 cancel"), 0);
    EXPECT_TRUE(recording.urlLoader.created.at(0).expired());
    EXPECT_FALSE(recording.urlLoader.created.at(1).expired());
}

TEST_F(Upload, CancelWithNoUploadResetsTheControlsAndNothingElse)
{
    recording.controller.cancel();

    EXPECT_EQ(recording.calls.taken(), resetControlsAnd({"emailText setEnabled yes", "infoText setEditable yes"}));
    EXPECT_EQ(recording.controller.connection, nullptr);
}

TEST_F(Upload, CancelStopsTheUploadAndUnlocksTheForm)
{
    auto transfer = submitted();
    expectSendingState();
    transfer.reset();

    recording.controller.cancel();

    EXPECT_EQ(recording.calls.taken(),
              resetControlsAnd({"emailText setEnabled yes", "infoText setEditable yes", "transfer 1 cancel"}));
    EXPECT_TRUE(recording.emailText.enabled);
    EXPECT_TRUE(recording.infoText.editable);
    EXPECT_EQ(recording.controller.connection, nullptr);
    EXPECT_TRUE(recording.urlLoader.created.front().expired());
}

TEST_F(Upload, CancelAfterARefusalOrAFailureUnlocksTheForm)
{
    recording.controller.connectionDidReceiveData(*submitted(), "no");
    recording.controller.cancel();
    EXPECT_TRUE(recording.emailText.enabled);
    EXPECT_EQ(recording.controller.connection, nullptr);

    recording.controller.connectionDidFailWithError(*submitted(), {});
    recording.controller.cancel();
    EXPECT_TRUE(recording.infoText.editable);
    EXPECT_EQ(recording.controller.connection, nullptr);
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

        EXPECT_EQ(stalled.calls.taken(), (Calls::List{kPost, kNotCreated}));
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
    recording.controller.postDictionary({{u"crashlog"_s, valueWithoutText()}});

    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"log Exception in generateFormData:forBoundary. TestFailure - no textual form", kPost}));
    EXPECT_EQ(recording.urlLoader.requests.front().body, std::nullopt);
    EXPECT_EQ(recording.urlLoader.requests.front().headers.size(), 1);
    recording.controller.connectionDidFinishLoading(*recording.controller.connection);
    EXPECT_EQ(recording.calls.taken(), resetControlsAnd({"application terminate"}));
}

TEST_F(Upload, SilentOutputShowsNoAlertsButResetsTheControls)
{
    recording.controller.silentOutput = true;

    recording.controller.connectionDidReceiveData(*submitted(), "no");
    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"transfer 1 cancel", "spinner stopAnimation", "submitBtn setTitle Report Crash",
                           "submitBtn setEnabled yes", "log Returned data: no"}));

    recording.controller.connectionDidFailWithError(*submitted(), {});
    EXPECT_EQ(recording.calls.taken(), kResetControls);
}

TEST_F(Upload, SilentSecondUploadReplacesTheFirstWhoseCallbacksStillArrive)
{
    recording.controller.silentOutput = true;
    const auto first = submitted();
    recording.controller.responseData = "of the first";

    const auto second = submitted();

    EXPECT_NE(first, second);
    EXPECT_EQ(recording.controller.connection, second);
    EXPECT_EQ(recording.controller.responseData, QByteArray());
    recording.controller.connectionDidReceiveData(*first, "late");
    EXPECT_EQ(recording.calls.taken().front(), "transfer 1 cancel") << "the transfer that reports is cancelled";
    EXPECT_EQ(recording.controller.connection, second);
    EXPECT_EQ(recording.controller.responseData, "late");
    recording.controller.cancel();
    EXPECT_EQ(recording.calls.taken().back(), "transfer 2 cancel");
}

TEST_F(Upload, ExceptionInPostingIsLogged)
{
    recording.calls.failAt(kPost);

    recording.controller.postDictionary({});

    EXPECT_EQ(recording.calls.taken().back(), "log Exception in postDictionary. TestFailure - as asked");
}

TEST_F(Upload, ExceptionInTheDataCallbackIsLoggedAndTheBytesAreNotKept)
{
    const auto transfer = submitted();
    recording.calls.failAt("submitBtn setEnabled yes");

    recording.controller.connectionDidReceiveData(*transfer, "no");

    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"transfer 1 cancel", "spinner stopAnimation", "submitBtn setTitle Report Crash",
                           "submitBtn setEnabled yes",
                           "log Exception in connection:didReceiveData. TestFailure - as asked"}));
    EXPECT_EQ(recording.controller.responseData, QByteArray());
}

TEST_F(Upload, ExceptionInTheFailureCallbackIsLogged)
{
    const auto transfer = submitted();
    recording.calls.failAt("spinner stopAnimation");

    recording.controller.connectionDidFailWithError(*transfer, {});

    EXPECT_EQ(
        recording.calls.taken(),
        (Calls::List{"spinner stopAnimation", "log Exception in connection:didFailWithError. TestFailure - as asked"}));
}

TEST_F(Upload, ExceptionInTheFinishCallbackIsLoggedAndTheApplicationGoesOn)
{
    const auto transfer = submitted();
    recording.calls.failAt("spinner stopAnimation");

    recording.controller.connectionDidFinishLoading(*transfer);

    EXPECT_EQ(
        recording.calls.taken(),
        (Calls::List{"spinner stopAnimation", "log Exception in connectionDidFinishLoading. TestFailure - as asked"}));
    EXPECT_EQ(recording.application.lastSender, nullptr);
}

TEST_F(Upload, ExceptionInCancelIsLoggedAndTheTransferStaysReferredTo)
{
    const auto transfer = submitted();
    recording.calls.failAt("transfer 1 cancel");

    recording.controller.cancel();

    EXPECT_EQ(recording.calls.taken().back(), "log Exception in cancel:. TestFailure - as asked");
    EXPECT_EQ(recording.controller.connection, transfer);
    EXPECT_TRUE(recording.emailText.enabled);
}

TEST_F(Upload, ExceptionsOfAnotherKindPassOn)
{
    const auto transfer = submitted();
    recording.calls.failOtherwiseAt("spinner stopAnimation");

    EXPECT_THROW(recording.controller.connectionDidFailWithError(*transfer, {}), std::runtime_error);
    EXPECT_THROW(recording.controller.connectionDidFinishLoading(*transfer), std::runtime_error);
    EXPECT_THROW(recording.controller.connectionDidReceiveData(*transfer, "x"), std::runtime_error);
    EXPECT_THROW(recording.controller.cancel(), std::runtime_error);
    recording.calls.failOtherwiseAt(kPost);
    EXPECT_THROW(recording.controller.postDictionary({}), std::runtime_error);
}
