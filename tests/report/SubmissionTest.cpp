// The submit action: validation, throttle, the user's settings and the sending state.
#include "support/NamedCase.h"
#include "support/RecordingPlatform.h"

#include <gtest/gtest.h>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

const QString kCountKey = u"crashSubmissionCount"_s;
const QString kDateKey = u"lastCrashSubmissionDate"_s;
const std::string kAddressMessage = "Please enter an address in the form name@example.org";
const std::string kInvalidAddress = "alert Invalid email format. / " + kAddressMessage;
const std::string kAddressWanted = "alert You must enter your email address. / " + kAddressMessage;

const Calls::List kSendingState = {
    "spinner setUsesThreadedAnimation yes",
    "spinner startAnimation",
    "spinner setNeedsDisplay yes",
    "infoText setEditable no",
    "emailText setEnabled no",
    "submitBtn setEnabled no",
    "submitBtn setTitle Sending...",
};

const Calls::List kPosted = {
    "loader POST https://crash.example.org/appdata/plovrin/reportcrash.php",
};

class Submission : public testing::Test
{
protected:
    Submission()
    {
        recording.controller.init();
        recording.logText.text = u"the report"_s;
    }

    void submit() { recording.controller.submitReport(&recording.submitBtn); }

    void store(qint64 count) { recording.userDefaults.values[kCountKey] = count; }
    void storeDate(double secondsAgo)
    {
        recording.userDefaults.values[kDateKey] = recording.clock.now.addMSecs(-qRound64(secondsAgo * 1000));
    }

    size_t posts() const { return recording.urlLoader.requests.size(); }
    QByteArray body() const { return recording.urlLoader.requests.back().body.value_or(QByteArray()); }

    /// Checks that a submission was refused by this alert alone, and has changed nothing.
    void expectRefusal(const std::string &alert)
    {
        const QVariantMap settingsBefore = recording.userDefaults.values;
        submit();
        EXPECT_EQ(recording.calls.taken(), Calls::List{alert});
        EXPECT_EQ(recording.userDefaults.values, settingsBefore);
        EXPECT_EQ(posts(), 0U);
        EXPECT_TRUE(recording.emailText.enabled);
        EXPECT_TRUE(recording.infoText.editable);
        EXPECT_TRUE(recording.submitBtn.enabled);
        EXPECT_EQ(recording.submitBtn.title, u"Report Crash"_s);
        EXPECT_FALSE(recording.spinner.turning);
    }

    /// Checks that a submission was accepted and recorded.
    void expectAccepted(qint64 newCount)
    {
        submit();
        EXPECT_EQ(posts(), 1U);
        EXPECT_EQ(recording.userDefaults.values.value(kCountKey), QVariant(newCount));
        EXPECT_EQ(recording.userDefaults.values.value(kDateKey), QVariant(recording.clock.now));
    }

    RecordingPlatform recording;
};

struct Address : NamedCase {
    QString text;
};

class RefusedAddress : public Submission, public testing::WithParamInterface<Address>
{
};

class AcceptedAddress : public Submission, public testing::WithParamInterface<Address>
{
};

} // namespace

TEST_F(Submission, RunsItsStepsInTheirOrder)
{
    recording.emailText.text = u"anna@example.org"_s;
    recording.infoText.text = u"I pressed Save."_s;

    submit();

    EXPECT_EQ(recording.calls.taken(),
              joined({{"defaults setInteger 1 forKey crashSubmissionCount",
                       "defaults setObject forKey lastCrashSubmissionDate", "defaults synchronize"},
                      kSendingState,
                      kPosted}));
    EXPECT_EQ(recording.spinner.lastSender, &recording.controller);
}

TEST_F(Submission, EmptyReportShowsCriticalErrorAndEndsTheApplication)
{
    recording.logText.text.clear();
    store(3);

    submit();

    EXPECT_EQ(
        recording.calls.taken(),
        (Calls::List{"alert Critical error / Plovrin was unable to find a log to submit.", "application terminate"}));
    EXPECT_EQ(recording.application.lastSender, &recording.controller);
    EXPECT_EQ(recording.userDefaults.values, (QVariantMap{{kCountKey, qint64(3)}}));
    EXPECT_EQ(posts(), 0U);
}

TEST_F(Submission, ReportOfBlanksOrLineBreaksIsSubmitted)
{
    recording.logText.text = u" \r\n\t\n"_s;

    expectAccepted(1);

    EXPECT_TRUE(body().contains("\r\n\r\n \r\n\t\n\r\n"));
}

TEST_P(RefusedAddress, ShowsInvalidEmailFormatAndChangesNothing)
{
    recording.emailText.text = GetParam().text;

    expectRefusal(kInvalidAddress);
}

INSTANTIATE_TEST_SUITE_P(Addresses, RefusedAddress,
                         testing::Values(Address{{"OneBlank"}, u" "_s},
                                         Address{{"AtWithoutFullStop"}, u"anna@example"_s},
                                         Address{{"FullStopWithoutAt"}, u"anna.example.org"_s},
                                         Address{{"NeitherAtNorFullStop"}, u"anna"_s},
                                         Address{{"FullWidthSigns"}, u"anna\uFF20example\uFF0Eorg"_s}),
                         nameOfCase);

TEST_P(AcceptedAddress, IsSubmittedAsItIs)
{
    recording.emailText.text = GetParam().text;

    expectAccepted(1);

    EXPECT_TRUE(body().contains("name=\"email\"\r\n\r\n" + GetParam().text.toUtf8() + "\r\n"));
}

INSTANTIATE_TEST_SUITE_P(Addresses, AcceptedAddress,
                         testing::Values(Address{{"FullStopBeforeAt"}, u"an.na@example"_s},
                                         Address{{"JustTheTwo"}, u"@."_s}, Address{{"JustTheTwoTheOtherWay"}, u".@"_s},
                                         Address{{"SpacesAround"}, u" anna@example.org "_s}),
                         nameOfCase);

TEST_F(Submission, AddressSkipsTheThrottleWhateverCountAndDate)
{
    recording.emailText.text = u"anna@example.org"_s;
    store(1000);
    storeDate(1);

    expectAccepted(1001);
}

TEST_F(Submission, AnonymousWithCount10IsAcceptedAndTheNextWithin180SecondsRefused)
{
    store(10);
    storeDate(1);
    expectAccepted(11);

    recording.controller.cancel();
    recording.calls.taken();
    recording.urlLoader.requests.clear();
    recording.clock.now = recording.clock.now.addSecs(179);
    expectRefusal(kAddressWanted);
}

TEST_F(Submission, AnonymousExactly180SecondsAfterTheLastIsAccepted)
{
    store(11);
    storeDate(180);

    expectAccepted(12);
}

TEST_F(Submission, Anonymous179Point9SecondsAfterTheLastIsRefused)
{
    store(11);
    storeDate(179.9);

    expectRefusal(kAddressWanted);
}

TEST_F(Submission, AnonymousWithTheLastDateInTheFutureIsRefused)
{
    store(11);
    storeDate(-3600);

    expectRefusal(kAddressWanted);
}

TEST_F(Submission, AnonymousWithNoStoredDateIsAccepted)
{
    store(1000);

    expectAccepted(1001);
}

TEST_F(Submission, FirstElevenAnonymousSubmissionsInOneSecondAreAcceptedAndTheTwelfthRefused)
{
    for (qint64 count = 1; count <= 11; ++count) {
        submit();
        recording.controller.cancel();
        EXPECT_EQ(recording.userDefaults.values.value(kCountKey), QVariant(count));
    }
    recording.calls.taken();
    recording.urlLoader.requests.clear();

    expectRefusal(kAddressWanted);
}

TEST_F(Submission, FailedUploadLeavesCountAndDateSoAnAnonymousRetryIsRefused)
{
    store(10);
    submit();
    const std::shared_ptr<platform::UrlConnection> transfer = recording.controller.connection;
    recording.controller.connectionDidFailWithError(*transfer, {});
    recording.calls.taken();

    submit();

    EXPECT_EQ(recording.calls.taken(), Calls::List{kAddressWanted});
    EXPECT_EQ(recording.userDefaults.values.value(kCountKey), QVariant(qint64(11)));
    EXPECT_EQ(recording.userDefaults.values.value(kDateKey), QVariant(recording.clock.now));
    EXPECT_EQ(posts(), 1U);
}

TEST_F(Submission, SilentOutputPostsWithoutTouchingAControl)
{
    recording.controller.silentOutput = true;

    submit();

    EXPECT_EQ(recording.calls.taken(),
              joined({{"defaults setInteger 1 forKey crashSubmissionCount",
                       "defaults setObject forKey lastCrashSubmissionDate", "defaults synchronize"},
                      kPosted}));
}

TEST_F(Submission, SilentOutputStillShowsTheValidationAlerts)
{
    recording.controller.silentOutput = true;
    recording.emailText.text = u"anna"_s;
    submit();
    EXPECT_EQ(recording.calls.taken().back(), kInvalidAddress);

    recording.emailText.text.clear();
    store(11);
    storeDate(1);
    submit();
    EXPECT_EQ(recording.calls.taken().back(), kAddressWanted);

    recording.logText.text.clear();
    submit();
    EXPECT_EQ(
        recording.calls.taken(),
        (Calls::List{"alert Critical error / Plovrin was unable to find a log to submit.", "application terminate"}));
}

TEST_F(Submission, EmptyDescriptionAndAddressAddNoFields)
{
    submit();

    EXPECT_EQ(body(), "--unique-1\r\nContent-Disposition: form-data; name=\"crashlog\"\r\n\r\nthe report\r\n");
}

TEST_F(Submission, DescriptionAndAddressAreFieldsOfTheirOwnUntrimmed)
{
    recording.infoText.text = u" I pressed\u00A0Save.\n"_s;
    recording.emailText.text = u" anna@example.org"_s;

    submit();

    EXPECT_EQ(body(),
              "--unique-1\r\nContent-Disposition: form-data; name=\"crashlog\"\r\n\r\nthe report\r\n"
              "--unique-1\r\nContent-Disposition: form-data; name=\"email\"\r\n\r\n anna@example.org\r\n"
              "--unique-1\r\nContent-Disposition: form-data; name=\"info\"\r\n\r\n I pressed\u00A0Save.\n\r\n");
}

TEST_F(Submission, NegativeCountIsFree)
{
    store(-5);
    storeDate(1);

    expectAccepted(-4);
}

TEST_F(Submission, LargestCountStaysTheLargest)
{
    recording.emailText.text = u"anna@example.org"_s;
    store(std::numeric_limits<qint64>::max());

    expectAccepted(std::numeric_limits<qint64>::max());
}

TEST_F(Submission, StoredTextInPlaceOfADateIsLoggedAndNothingIsSent)
{
    store(11);
    recording.userDefaults.values[kDateKey] = u"yesterday"_s;

    submit();

    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"log Exception in submitReport. InvalidArgumentException - a value of type QString has no "
                           "interval since now"}));
    EXPECT_EQ(posts(), 0U);
    EXPECT_EQ(recording.userDefaults.values.value(kCountKey), QVariant(qint64(11)));
}

TEST_F(Submission, StoredTextInPlaceOfADateDoesNotMatterWhileTheThrottleIsNotAsked)
{
    store(10);
    recording.userDefaults.values[kDateKey] = u"yesterday"_s;

    expectAccepted(11);
}

TEST_F(Submission, IntervalThatDoesNotCompareCountsAsPassed)
{
    store(11);
    recording.userDefaults.values[kDateKey] = QDateTime();

    expectAccepted(12);
}

TEST_F(Submission, ExceptionAfterRecordingLeavesTheSettingsWritten)
{
    recording.calls.failAt("infoText setEditable no");

    submit();

    EXPECT_EQ(recording.calls.taken().back(), "log Exception in submitReport. TestFailure - as asked");
    EXPECT_EQ(recording.userDefaults.values.value(kCountKey), QVariant(qint64(1)));
    EXPECT_TRUE(recording.spinner.turning);
    EXPECT_EQ(posts(), 0U);
}

TEST_F(Submission, ExceptionOfAnotherKindPassesOn)
{
    recording.calls.failOtherwiseAt("logText string");

    EXPECT_THROW(submit(), std::runtime_error);
}
