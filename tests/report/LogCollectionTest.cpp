// The report text: the crash log, cut where it is a long hang report, and the application's own logs.
#include "paths/KVLocalPaths.h"
#include "report/ReportText.h"
#include "support/RecordingPlatform.h"
#include "support/SampleHome.h"

#include <gtest/gtest.h>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

using namespace Qt::StringLiterals;

namespace {

constexpr bool kSilent = true;

const std::string kIncompatible =
    "This software causes incompatibilities with Korvale products and we recommend disabling it.";

class LogCollection : public testing::Test
{
protected:
    LogCollection() { recording.controller.init(); }

    bool load(const QByteArray &crashLog, const QString &name = u"Harbour_2026-11-02.crash"_s, bool silent = kSilent)
    {
        return recording.controller.loadLogSilent(home.write(name, crashLog), silent);
    }

    QString report() const { return recording.logText.text; }

    SampleHome home;
    RecordingPlatform recording;
};

/// Notes which files of a folder are opened.
class OpenedFiles
{
public:
    explicit OpenedFiles(const QString &folder)
    {
        if (queue < 0 || ::inotify_add_watch(queue, folder.toUtf8().constData(), IN_OPEN) < 0) {
            throw std::runtime_error("cannot watch " + folder.toStdString());
        }
    }
    OpenedFiles(const OpenedFiles &) = delete;
    OpenedFiles &operator=(const OpenedFiles &) = delete;
    ~OpenedFiles() { ::close(queue); }

    /// The names of the files that were opened since the last call of this function, in their order.
    QStringList taken() const
    {
        QStringList names;
        std::array<char, 4096> bytes = {};
        for (ssize_t count = 0; (count = ::read(queue, bytes.data(), bytes.size())) > 0;) {
            for (size_t at = 0; at < static_cast<size_t>(count);) {
                inotify_event event = {};
                std::memcpy(&event, bytes.data() + at, sizeof event);
                names << QString::fromUtf8(bytes.data() + at + sizeof event);
                at += sizeof event + event.len;
            }
        }
        return names;
    }

private:
    int queue = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

QByteArray hangReportOf(qsizetype length)
{
    const QByteArray start = "Command: hang\nDuration: 9 s\n";
    return start + QByteArray(length - start.size(), 'x');
}

} // namespace

TEST_F(LogCollection, HangReportOf50000UnitsIsKeptWhole)
{
    ASSERT_TRUE(load(hangReportOf(50'000)));

    EXPECT_EQ(report().size(), 50'000);
}

TEST_F(LogCollection, HangReportOf50001UnitsIsCutTo50000)
{
    ASSERT_TRUE(load(hangReportOf(50'001)));

    EXPECT_EQ(report(), QString::fromLatin1(hangReportOf(50'000)));
}

TEST_F(LogCollection, HangInsideAnotherWordCutsTheReportToo)
{
    ASSERT_TRUE(load("change Duration:" + QByteArray(60'000, 'x')));

    EXPECT_EQ(report().size(), 50'000);
}

TEST_F(LogCollection, LongReportThatLacksEitherWordIsNeverCut)
{
    ASSERT_TRUE(load("hang Hang duration:" + QByteArray(60'000, 'x')));
    EXPECT_EQ(report().size(), 60'019);

    ASSERT_TRUE(load("Hang Duration:" + QByteArray(60'000, 'x')));
    EXPECT_EQ(report().size(), 60'014);
}

TEST_F(LogCollection, WordsBehindTheCutCountToo)
{
    ASSERT_TRUE(load(QByteArray(60'000, 'x') + "hang Duration:"));

    EXPECT_EQ(report(), QString(50'000, u'x'));
}

TEST_F(LogCollection, CutCountsUtf16UnitsAndMayPartASurrogatePair)
{
    const QByteArray start = "hang Duration:";
    ASSERT_TRUE(load(start + QByteArray(50'000 - start.size() - 1, 'x') + u"\U0001F600"_s.toUtf8()));

    ASSERT_EQ(report().size(), 50'000);
    EXPECT_TRUE(report().back().isHighSurrogate());
}

TEST_F(LogCollection, BothMarkersShowTwoAlertsInTheirOrder)
{
    ASSERT_TRUE(load("net.culater.SIMBL com.unsanity.ape", u"Harbour_1.crash"_s, !kSilent));

    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"alert Unsanity Application Enhancer is installed / " + kIncompatible,
                           "alert SIMBL is installed / " + kIncompatible, "logText setString"}));
}

TEST_F(LogCollection, BothMarkersShowNoAlertWhenSilent)
{
    ASSERT_TRUE(load("net.culater.SIMBL com.unsanity.ape"));

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"logText setString"}));
}

TEST_F(LogCollection, EachMarkerAloneShowsItsOwnAlert)
{
    ASSERT_TRUE(load("com.unsanity.ape", u"Harbour_1.crash"_s, !kSilent));
    EXPECT_EQ(recording.calls.taken().front(), "alert Unsanity Application Enhancer is installed / " + kIncompatible);

    ASSERT_TRUE(load("net.culater.SIMBL", u"Harbour_1.crash"_s, !kSilent));
    EXPECT_EQ(recording.calls.taken().front(), "alert SIMBL is installed / " + kIncompatible);
}

TEST_F(LogCollection, MarkersAreCaseSensitive)
{
    ASSERT_TRUE(load("com.Unsanity.APE net.culater.simbl", u"Harbour_1.crash"_s, !kSilent));

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"logText setString"}));
}

TEST_F(LogCollection, MarkersBehindTheCutOfAHangReportStillWarn)
{
    ASSERT_TRUE(load(hangReportOf(60'000) + "com.unsanity.ape", u"Harbour_1.crash"_s, !kSilent));

    EXPECT_EQ(recording.calls.taken().front(), "alert Unsanity Application Enhancer is installed / " + kIncompatible);
}

TEST_F(LogCollection, FileNameWithoutUnderscoreIsThisApplication)
{
    home.writeApplicationLog(u"This application.1.log"_s, "one");

    ASSERT_TRUE(load("crash", u"Harbour.crash"_s));

    EXPECT_EQ(recording.controller.appName, u"This application"_s);
    EXPECT_EQ(report(), u"crash\nLog 1:\none"_s);
}

TEST_F(LogCollection, FileNameThatBeginsWithUnderscoreGivesAnEmptyName)
{
    home.writeApplicationLog(u".1.log"_s, "one");
    home.writeApplicationLog(u".task.1.log"_s, "task one");
    home.writeApplicationLog(u".2.log"_s, "two");
    home.writeApplicationLog(u".task.2.log"_s, "task two");

    ASSERT_TRUE(load("crash", u"_Harbour.crash"_s));

    EXPECT_EQ(recording.controller.appName, QString());
    EXPECT_TRUE(recording.controller.appName.has_value());
    EXPECT_EQ(report(), u"crash\nLog 1:\none\nTask Log 1:\ntask one\nLog 2:\ntwo\nTask Log 2:\ntask two"_s);
}

TEST_F(LogCollection, NameEndsAtTheFirstUnderscoreOfTheLastComponent)
{
    EXPECT_EQ(recording.controller.appNameFromFilename(u"/a_b/Harbour Pilot_2026_11.crash"_s), u"Harbour Pilot"_s);
    EXPECT_EQ(recording.controller.appNameFromFilename(u"/a_b/Harbour.crash"_s), u"This application"_s);
    EXPECT_EQ(recording.controller.appNameFromFilename(u"/a/Harbour_1/"_s), u"Harbour"_s);
    EXPECT_EQ(recording.controller.appNameFromFilename(u"/"_s), u"This application"_s);
    EXPECT_EQ(recording.controller.appNameFromFilename(QString()), u"This application"_s);
    EXPECT_EQ(recording.calls.taken(), Calls::List());
    EXPECT_EQ(recording.controller.appName, std::nullopt);
}

TEST_F(LogCollection, AppendsTheFourLogsAlternately)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, "one");
    home.writeApplicationLog(u"Harbour.2.log"_s, "two");
    home.writeApplicationLog(u"Harbour.task.1.log"_s, "task one");
    home.writeApplicationLog(u"Harbour.task.2.log"_s, "task two");

    ASSERT_TRUE(load("crash"));

    EXPECT_EQ(report(), u"crash\nLog 1:\none\nTask Log 1:\ntask one\nLog 2:\ntwo\nTask Log 2:\ntask two"_s);
}

TEST_F(LogCollection, ListenerHearsWhereTheAppendedLogsBegin)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, "Log 1:\nfirst");
    home.writeApplicationLog(u"Harbour.task.1.log"_s, "\xFF");
    home.writeApplicationLog(u"Harbour.task.2.log"_s, "last");
    ASSERT_TRUE(load("crash \xF0\x9F\x98\x80"));

    EXPECT_EQ(recording.reportListener.report.path, home.path(u"Harbour_2026-11-02.crash"_s));
    EXPECT_EQ(
        recording.reportListener.report.appendedLogs,
        (QList<platform::AppendedLog>{{.title = u"Log 1"_s, .offset = 9}, {.title = u"Task Log 2"_s, .offset = 29}}));
    for (const platform::AppendedLog &log : recording.reportListener.report.appendedLogs) {
        EXPECT_TRUE(report().mid(log.offset).startsWith(log.title + u":\n"_s));
    }
}

TEST_F(LogCollection, ListenerHearsOfTheReplacedTextAndNotOfAFailure)
{
    ASSERT_TRUE(load("first"));
    EXPECT_EQ(recording.reportListener.textWhenHeard, u"first"_s);

    EXPECT_FALSE(load("\xFF", u"Other_1.crash"_s));

    EXPECT_EQ(recording.reportListener.report.path, home.path(u"Harbour_2026-11-02.crash"_s));
}

TEST_F(LogCollection, EmptyApplicationLogIsItsHeaderAlone)
{
    home.writeApplicationLog(u"Harbour.task.1.log"_s, QByteArray());

    ASSERT_TRUE(load("crash"));

    EXPECT_EQ(report(), u"crash\nTask Log 1:\n"_s);
}

TEST_F(LogCollection, CrashLogAtTheCeilingGetsNoApplicationLogs)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, QByteArray());

    ASSERT_TRUE(load(QByteArray(1'048'576, 'x')));
    EXPECT_EQ(report().size(), 1'048'576);

    ASSERT_TRUE(load(QByteArray(1'048'580, 'x')));
    EXPECT_EQ(report().size(), 1'048'580);
}

TEST_F(LogCollection, CrashLogJustBelowTheCeilingHasRoomForNoLogNotEvenAnEmptyOne)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, QByteArray());
    home.writeApplicationLog(u"Harbour.task.1.log"_s, QByteArray());

    for (const qsizetype length : {1'048'567, 1'048'575}) {
        ASSERT_TRUE(load(QByteArray(length, 'x')));
        EXPECT_EQ(report().size(), length);
    }
}

TEST_F(LogCollection, EmptyLogFitsOneUnitBelowItsBound)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, QByteArray());
    home.writeApplicationLog(u"Harbour.task.1.log"_s, QByteArray());

    ASSERT_TRUE(load(QByteArray(1'048'566, 'x')));
    EXPECT_TRUE(report().endsWith(u"x\nLog 1:\n"_s));

    ASSERT_TRUE(load(QByteArray(1'048'562, 'x')));
    EXPECT_TRUE(report().endsWith(u"x\nLog 1:\n"_s));

    ASSERT_TRUE(load(QByteArray(1'048'561, 'x')));
    EXPECT_TRUE(report().endsWith(u"x\nLog 1:\n\nTask Log 1:\n"_s));
}

TEST_F(LogCollection, LogThatBreaksItsBoundIsLeftOutAndTheTaskLogIsTriedWithTheSameRunningLength)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, QByteArray(48'567, 'a'));
    home.writeApplicationLog(u"Harbour.task.1.log"_s, QByteArray(48'561, 'b'));

    ASSERT_TRUE(load(QByteArray(1'000'000, 'x')));

    EXPECT_EQ(report(), QString(1'000'000, u'x') + u"\nTask Log 1:\n"_s + QString(48'561, u'b'));
}

TEST_F(LogCollection, LogOneUnitBelowItsBoundIsAppended)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, QByteArray(48'566, 'a'));

    ASSERT_TRUE(load(QByteArray(1'000'000, 'x')));

    EXPECT_EQ(report().size(), 1'000'000 + 8 + 48'566);
}

TEST_F(LogCollection, HeadersAreNotCountedSoTheReportEndsAtMost27UnitsPastTheCeiling)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, QByteArray(10, 'a'));
    home.writeApplicationLog(u"Harbour.task.1.log"_s, QByteArray(10, 'b'));
    home.writeApplicationLog(u"Harbour.2.log"_s, QByteArray(10, 'c'));
    home.writeApplicationLog(u"Harbour.task.2.log"_s, QByteArray(10, 'd'));

    ASSERT_TRUE(load(QByteArray(1'048'561 - 40, 'x')));

    EXPECT_EQ(report().size(), 1'048'561 + 8 + 13 + 8 + 13);
}

TEST_F(LogCollection, BoundsCountUtf16UnitsAndNotBytes)
{
    // Three bytes and one unit each: the file has three times the bytes of the bound, its text just fits.
    const QString text(1'048'566 - 5, u'\u20AC');
    home.writeApplicationLog(u"Harbour.1.log"_s, text.toUtf8());

    ASSERT_TRUE(load("crash"));

    EXPECT_EQ(report(), u"crash\nLog 1:\n"_s + text);
}

TEST_F(LogCollection, NoLogIsEvenOpenedOnceTheCeilingIsReached)
{
    const QString log = home.writeApplicationLog(u"Harbour.1.log"_s, "one");
    home.writeApplicationLog(u"Harbour.task.1.log"_s, "task one");
    const OpenedFiles opened(QFileInfo(log).path());

    ASSERT_TRUE(load(QByteArray(1'048'576, 'x')));
    EXPECT_EQ(opened.taken(), QStringList());

    ASSERT_TRUE(load(QByteArray(1'048'575, 'x')));
    EXPECT_EQ(opened.taken(), (QStringList{u"Harbour.1.log"_s, u"Harbour.task.1.log"_s}));
}

TEST_F(LogCollection, AppendedLogsCountSoALaterOneThatWouldFitAloneIsLeftOut)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, QByteArray(600'000, 'a'));
    home.writeApplicationLog(u"Harbour.task.1.log"_s, QByteArray(600'000, 'b'));
    home.writeApplicationLog(u"Harbour.2.log"_s, QByteArray(448'562, 'c'));
    home.writeApplicationLog(u"Harbour.task.2.log"_s, QByteArray(448'556, 'd'));

    ASSERT_TRUE(load("crash"));

    EXPECT_EQ(report(), u"crash\nLog 1:\n"_s + QString(600'000, u'a') + u"\nTask Log 2:\n"_s + QString(448'556, u'd'));
}

TEST_F(LogCollection, RunningLengthStartsAfterTheCut)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, QByteArray(998'566, 'a'));

    ASSERT_TRUE(load(hangReportOf(2'000'000)));

    EXPECT_EQ(report().size(), 50'000 + 8 + 998'566);
}

TEST_F(LogCollection, SecondCallReplacesReportAndName)
{
    ASSERT_TRUE(load("first"));
    ASSERT_TRUE(load("second", u"Beacon_1.crash"_s));

    EXPECT_EQ(report(), u"second"_s);
    EXPECT_EQ(recording.controller.appName, u"Beacon"_s);
}

TEST_F(LogCollection, MissingCrashLogChangesNothing)
{
    EXPECT_FALSE(recording.controller.loadLogSilent(home.path(u"gone_1.crash"_s), !kSilent));

    EXPECT_EQ(recording.calls.taken(), Calls::List());
    EXPECT_EQ(recording.controller.appName, std::nullopt);
    EXPECT_FALSE(recording.controller.logOpened);
}

TEST_F(LogCollection, SuccessSetsLogOpened)
{
    ASSERT_TRUE(load(QByteArray()));

    EXPECT_TRUE(recording.controller.logOpened);
    EXPECT_EQ(report(), QString());
}

TEST_F(LogCollection, ReportTextIsWhatTheFileHolds)
{
    const QString text = u"\uFEFFone\r\ntwo\rthree\u00A0four\u2028five\u2029six \U0001F600 "_s + QChar(QChar::Null)
        + u"\uFDD0 seven\n"_s;

    ASSERT_TRUE(load(text.toUtf8()));

    EXPECT_EQ(report(), text);
}

TEST_F(LogCollection, ApplicationLogsAreAppendedAsTheyAre)
{
    const QString one = u"\uFEFFone\r\ntwo\rthree\u00A0four\u2028five"_s;
    const QString taskOne = u"a"_s + QChar(QChar::Null) + u"b"_s;
    const QString two = QString(1'000'000, u'x');
    const QString taskTwo = u"\uFEFF\n\u2029\U0001F600"_s;
    home.writeApplicationLog(u"Harbour.1.log"_s, one.toUtf8());
    home.writeApplicationLog(u"Harbour.task.1.log"_s, taskOne.toUtf8());
    home.writeApplicationLog(u"Harbour.2.log"_s, two.toUtf8());
    home.writeApplicationLog(u"Harbour.task.2.log"_s, taskTwo.toUtf8());

    ASSERT_TRUE(load("crash"));

    EXPECT_TRUE(report()
                == u"crash\nLog 1:\n"_s + one + u"\nTask Log 1:\n"_s + taskOne + u"\nLog 2:\n"_s + two
                    + u"\nTask Log 2:\n"_s + taskTwo);
}

TEST_F(LogCollection, DirectoryInPlaceOfTheCrashLogChangesNothing)
{
    QDir().mkpath(home.path(u"Folder_1.crash"_s));

    EXPECT_FALSE(recording.controller.loadLogSilent(home.path(u"Folder_1.crash"_s), kSilent));
    EXPECT_EQ(recording.calls.taken(), Calls::List());
}

TEST_F(LogCollection, BrokenApplicationLogIsLeftOutAndTheOthersAreStillTried)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, "caf\xE9");
    QDir().mkpath(home.path(u"Library/Logs/Korvale/Harbour.task.1.log"_s));
    ASSERT_EQ(::mkfifo(home.path(u"Library/Logs/Korvale/Harbour.2.log"_s).toUtf8().constData(), 0600), 0);
    home.writeApplicationLog(u"Harbour.task.2.log"_s, "task two");

    ASSERT_TRUE(load("crash"));

    EXPECT_EQ(report(), u"crash\nTask Log 2:\ntask two"_s);
}

TEST_F(LogCollection, DanglingLinkAndDeviceInPlaceOfApplicationLogsAreLeftOut)
{
    home.writeApplicationLog(u"Harbour.task.1.log"_s, "task one");
    ASSERT_TRUE(QFile::link(home.path(u"gone"_s), home.path(u"Library/Logs/Korvale/Harbour.1.log"_s)));
    ASSERT_TRUE(QFile::link(u"/dev/zero"_s, home.path(u"Library/Logs/Korvale/Harbour.2.log"_s)));

    ASSERT_TRUE(load("crash"));

    EXPECT_EQ(report(), u"crash\nTask Log 1:\ntask one"_s);
}

TEST_F(LogCollection, LogDirectoryIsAskedAfreshForEachOfTheFourPaths)
{
    home.lookups.questions.clear();

    ASSERT_TRUE(load("crash"));

    ScriptedLookups::Questions four;
    {
        home.lookups.questions.swap(four);
        (void)KVLocalPaths::logDirectory(true);
    }
    ScriptedLookups::Questions expected;
    for (int path = 0; path < 4; ++path) {
        expected.insert(expected.end(), home.lookups.questions.begin(), home.lookups.questions.end());
    }
    ASSERT_GE(four.size(), expected.size());
    four.resize(expected.size());
    EXPECT_EQ(four, expected) << "before any file is looked at";
}

TEST_F(LogCollection, WithoutALogDirectoryTheReportIsTheCrashLogAlone)
{
    home.lookups.directories.clear();

    ASSERT_TRUE(load("crash"));

    EXPECT_EQ(report(), u"crash"_s);
}

TEST_F(LogCollection, RootGetsTheLogsOfTheUserAtTheConsole)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, "one");
    home.lookups.homes[u"anna"_s] = home.path(QString());
    runAsRoot(home.lookups, u"anna"_s);
    installStandardDirectories(home.lookups, u"/var/root"_s);

    ASSERT_TRUE(load("crash"));

    EXPECT_EQ(report(), u"crash\nLog 1:\none"_s);
}

TEST_F(LogCollection, RootReadsTheLogsOnlyWithTheRightsOfTheUserAtTheConsole)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, "of the user");
    runAsRoot(home.lookups, u"user1"_s);
    home.lookups.homes[u"user1"_s] = home.path(QString());
    home.lookups.directories[{platform::directory::kLibrary, platform::domain::kUser}] = {u"/var/root/Library"_s};
    home.lookups.questions.clear();

    ASSERT_TRUE(load("crash"));
    ASSERT_EQ(report(), u"crash\nLog 1:\nof the user"_s);
    // Three bytes for each unit that just fits, with the header of a log and of a task log.
    EXPECT_EQ(std::ranges::count(home.lookups.questions, "file of user1 up to 3145701"), 2);
    EXPECT_EQ(std::ranges::count(home.lookups.questions, "file of user1 up to 3145686"), 2);

    home.lookups.openOfUser = nullptr;
    ASSERT_TRUE(load("crash"));
    EXPECT_EQ(report(), u"crash"_s);
}

TEST_F(LogCollection, RootReadsNoLogOfOneUsersWithTheRightsOfAnotherWhoHasComeToTheConsole)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, "of the user");
    runAsRoot(home.lookups, u"root"_s);
    home.lookups.homes = {{u"user1"_s, home.path(QString())}, {u"root"_s, u"/root"_s}};
    home.lookups.directories[{platform::directory::kLibrary, platform::domain::kUser}] = {u"/var/root/Library"_s};
    // The four paths are built while the user is there.
    home.lookups.firstConsoleUsers = {u"user1"_s, u"user1"_s, u"user1"_s, u"user1"_s};

    ASSERT_TRUE(load("crash"));

    EXPECT_TRUE(home.lookups.firstConsoleUsers.empty());
    EXPECT_EQ(report(), u"crash"_s);
}

TEST_F(LogCollection, RootReadsTheLogsOfAUserWhoseHomeIsTheRootDirectory)
{
    home.writeApplicationLog(u"Harbour.1.log"_s, "of the user");
    runAsRoot(home.lookups, u"user1"_s);
    home.lookups.homes[u"user1"_s] = u"/"_s;
    home.lookups.directories[{platform::directory::kLibrary, platform::domain::kUser}] = {u"/var/root"_s
                                                                                          + home.path(u"Library"_s)};

    ASSERT_TRUE(load("crash"));

    EXPECT_EQ(report(), u"crash\nLog 1:\nof the user"_s);
}

TEST_F(LogCollection, OrdinaryUsersFilesAreReadWithoutAnyonesRights)
{
    ASSERT_TRUE(load("crash"));

    EXPECT_TRUE(std::ranges::none_of(home.lookups.questions,
                                     [](const std::string &asked) { return asked.starts_with("file of "); }));
}

TEST_F(LogCollection, ExceptionPassesToTheCallerAndWhatWasDoneStays)
{
    recording.calls.failAt("logText setString");

    EXPECT_THROW(load("crash"), platform::PlatformException);
    EXPECT_EQ(recording.controller.appName, u"Harbour"_s);
    EXPECT_FALSE(recording.controller.logOpened);
}
