// Which paths are system directories, and which lie inside a backup on a mounted volume.
#include "paths/KVLocalPaths.h"
#include "support/NamedCase.h"
#include "support/ScriptedLookups.h"

#include <gtest/gtest.h>

#include <ostream>
#include <tuple>

using namespace Qt::StringLiterals;

namespace {

using Questions = ScriptedLookups::Questions;

/// What an ordinary user's question for a standard directory asks of the lookups.
Questions searchOf(const std::string &kindAndDomain)
{
    return {"search " + kindAndDomain, "user id"};
}

Questions operator+(Questions all, const Questions &more)
{
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

/// Who the process runs as; in both cases the user's home is /Users/user1.
enum class Runner { OrdinaryUser, RootWithConsoleUser };

std::ostream &operator<<(std::ostream &stream, Runner runner)
{
    return stream << (runner == Runner::OrdinaryUser ? "ordinary user" : "root with console user");
}

void runAs(Runner runner, ScriptedLookups &lookups)
{
    if (runner == Runner::RootWithConsoleUser) {
        runAsRoot(lookups, u"user1"_s);
        installStandardDirectories(lookups, u"/var/root"_s);
    } else {
        installStandardDirectories(lookups, u"/Users/user1"_s);
    }
}

struct PathCase : NamedCase {
    QStringView path;
    bool isSystemDirectory;
    bool isSystemDirectoryExactly;
};

constexpr bool kYes = true;
constexpr bool kNo = false;

constexpr PathCase kPathCases[] = {
    {{"Root"}, u"/", kYes, kYes},
    {{"TwoSeparators"}, u"//", kNo, kNo},
    {{"ThreeSeparatorsShortenedToOne"}, u"///", kNo, kNo},
    {{"Applications"}, u"/Applications", kYes, kYes},
    {{"ApplicationsWithSeparator"}, u"/Applications/", kNo, kNo},
    {{"UsersShared"}, u"/Users/Shared", kYes, kYes},
    {{"UsersSharedWithSeparator"}, u"/Users/Shared/", kNo, kNo},
    {{"Volumes"}, u"/Volumes", kYes, kYes},
    {{"VolumesWithSeparator"}, u"/Volumes/", kNo, kNo},
    {{"Usr"}, u"/usr", kYes, kNo},
    {{"UsrWithSeparator"}, u"/usr/", kNo, kNo},
    {{"UsrLocalWithSeparator"}, u"/usr/local/", kYes, kNo},
    {{"UsrlocalInOneWord"}, u"/usrlocal", kYes, kNo},
    {{"PrivateVar"}, u"/private/var", kYes, kNo},
    {{"PrivateTmp"}, u"/private/tmp", kNo, kNo},
    {{"SystemLibrary"}, u"/System/Library", kYes, kYes},
    {{"InSystemLibrary"}, u"/System/Library/Fonts", kYes, kNo},
    {{"Home"}, u"/Users/user1", kYes, kYes},
    {{"LibraryOfHome"}, u"/Users/user1/Library", kYes, kYes},
    {{"LogsOfHome"}, u"/Users/user1/Library/Logs", kNo, kNo},
    {{"MoviesOfHome"}, u"/Users/user1/Movies", kNo, kNo},
};

class KVLocalPathsSystemDirectoryTable : public testing::TestWithParam<std::tuple<Runner, PathCase>>
{
protected:
    KVLocalPathsSystemDirectoryTable() { runAs(std::get<Runner>(GetParam()), lookups); }

    static const PathCase &pathCase() { return std::get<PathCase>(GetParam()); }

    static QString path() { return pathCase().path.toString(); }

    ScriptedLookups lookups;

private:
    LookupsScope scope{lookups};
};

class KVLocalPathsSystemDirectories : public testing::Test
{
protected:
    KVLocalPathsSystemDirectories() { installStandardDirectories(lookups, u"/Users/user1"_s); }

    static bool isExactly(const std::optional<QString> &path)
    {
        return KVLocalPaths::isPathSystemDirectoryExactMatch(path, true);
    }

    ScriptedLookups lookups;

private:
    LookupsScope scope{lookups};
};

const Questions kAllQuestions = searchOf("1 1") + searchOf("1 2") + searchOf("4 1") + searchOf("4 2") + searchOf("9 1")
    + searchOf("9 2") + searchOf("5 1") + searchOf("5 2") + searchOf("5 1") + searchOf("5 2") + searchOf("13 1")
    + searchOf("13 2") + searchOf("14 1") + searchOf("14 2") + searchOf("12 1") + Questions{"user id", "home"}
    + searchOf("5 8") + searchOf("8 2");

} // namespace

TEST_P(KVLocalPathsSystemDirectoryTable, AnswersForAnyMatch)
{
    EXPECT_EQ(KVLocalPaths::isPathSystemDirectory(path()), pathCase().isSystemDirectory);
    EXPECT_EQ(KVLocalPaths::isPathSystemDirectoryExactMatch(path(), false), pathCase().isSystemDirectory);
}

TEST_P(KVLocalPathsSystemDirectoryTable, AnswersForAnExactMatch)
{
    EXPECT_EQ(KVLocalPaths::isPathSystemDirectoryExactMatch(path(), true), pathCase().isSystemDirectoryExactly);
}

INSTANTIATE_TEST_SUITE_P(, KVLocalPathsSystemDirectoryTable,
                         testing::Combine(testing::Values(Runner::OrdinaryUser, Runner::RootWithConsoleUser),
                                          testing::ValuesIn(kPathCases)),
                         [](const auto &instance) {
                             const bool isRoot = std::get<Runner>(instance.param) == Runner::RootWithConsoleUser;
                             return std::string(isRoot ? "RootWithConsoleUser_" : "OrdinaryUser_")
                                 + std::get<PathCase>(instance.param).name;
                         });

namespace {

/// A directory of the list, and how many of all questions it takes to come to it.
struct ListedCase : NamedCase {
    QStringView path;
    std::size_t questions;
};

class KVLocalPathsListedDirectory : public testing::TestWithParam<ListedCase>
{
protected:
    KVLocalPathsListedDirectory()
    {
        // Every place has a name of its own, so that none is found before its turn.
        installStandardDirectories(lookups, u"/Users/user1"_s);
        lookups.directories[{platform::directory::kApplications, platform::domain::kUser}] = {u"/apps of user"_s};
        lookups.directories[{platform::directory::kDocuments, platform::domain::kLocal}] = {u"/documents"_s};
    }

    ScriptedLookups lookups;
    LookupsScope scope{lookups};
};

constexpr ListedCase kListedCases[] = {
    {{"ApplicationOfUser"}, u"/apps of user", 2},
    {{"ApplicationLocal"}, u"/Applications", 4},
    {{"AdminApplicationOfUser"}, u"/Users/user1/Applications/Utilities", 6},
    {{"AdminApplicationLocal"}, u"/Applications/Utilities", 8},
    {{"DocumentOfUser"}, u"/Users/user1/Documents", 10},
    {{"DocumentLocal"}, u"/documents", 12},
    {{"LibraryOfUser"}, u"/Users/user1/Library", 14},
    {{"LibraryLocal"}, u"/Library", 16},
    {{"PrefsOfUser"}, u"/Users/user1/Library/Preferences", 18},
    {{"PrefsLocal"}, u"/Library/Preferences", 20},
    {{"CacheOfUser"}, u"/Users/user1/Library/Caches", 22},
    {{"CacheLocal"}, u"/Library/Caches", 24},
    {{"AppSupportOfUser"}, u"/Users/user1/Library/Application Support", 26},
    {{"AppSupportLocal"}, u"/Library/Application Support", 28},
    {{"Desktop"}, u"/Users/user1/Desktop", 30},
    {{"UserDirectory"}, u"/Users/user1", 32},
    {{"SystemLibrary"}, u"/System/Library", 34},
    {{"LocalDocumentation"}, u"/Library/Documentation", 36},
    {{"UsersShared"}, u"/Users/Shared", 36},
    {{"Volumes"}, u"/Volumes", 36},
};

} // namespace

TEST_P(KVLocalPathsListedDirectory, IsASystemDirectoryAndNothingAfterItIsAskedFor)
{
    ASSERT_LE(GetParam().questions, kAllQuestions.size());
    const Questions expected(kAllQuestions.begin(),
                             kAllQuestions.begin() + static_cast<std::ptrdiff_t>(GetParam().questions));

    EXPECT_TRUE(KVLocalPaths::isPathSystemDirectoryExactMatch(GetParam().path.toString(), true));
    EXPECT_EQ(lookups.questions, expected);
}

INSTANTIATE_TEST_SUITE_P(, KVLocalPathsListedDirectory, testing::ValuesIn(kListedCases), nameOfCase);

TEST_F(KVLocalPathsSystemDirectories, APathInNoListIsComparedWithEveryOneInItsOrder)
{
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(u"/opt/korvale"_s));
    EXPECT_EQ(lookups.questions, kAllQuestions);
}

TEST_F(KVLocalPathsSystemDirectories, APathWithASystemPrefixIsComparedWithEveryOneBefore)
{
    EXPECT_TRUE(KVLocalPaths::isPathSystemDirectory(u"/usr/lib"_s));
    EXPECT_EQ(lookups.questions, kAllQuestions);
}

TEST_F(KVLocalPathsSystemDirectories, WhatIsDecidedByItsLengthAsksNoLookup)
{
    EXPECT_TRUE(isExactly(u"/"_s));
    EXPECT_FALSE(isExactly(u"/u"_s));
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(u"//"_s));
    EXPECT_EQ(lookups.questions, Questions());
}

TEST_F(KVLocalPathsSystemDirectories, NoPathGivesNoFromAllThree)
{
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(std::nullopt));
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectoryExactMatch(std::nullopt, false));
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectoryExactMatch(std::nullopt, true));
    EXPECT_FALSE(KVLocalPaths::isPathOnTimeMachineVolume(std::nullopt));
    EXPECT_EQ(lookups.questions, Questions());
}

TEST_F(KVLocalPathsSystemDirectories, AnEmptyPathGivesNoFromAllThree)
{
    // Not even where the system's answer is an empty path.
    lookups.home = QString(u""_s);

    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(QString()));
    EXPECT_FALSE(isExactly(QString(u""_s)));
    EXPECT_FALSE(KVLocalPaths::isPathOnTimeMachineVolume(QString()));
}

TEST_F(KVLocalPathsSystemDirectories, NoPathEqualsADirectoryThatTheSystemCannotFind)
{
    lookups.directories.clear();
    lookups.home = std::nullopt;

    EXPECT_FALSE(isExactly(u"/Applications"_s));
    EXPECT_FALSE(isExactly(u"/Users/user1"_s));
    EXPECT_TRUE(isExactly(u"/Volumes"_s));
}

TEST_F(KVLocalPathsSystemDirectories, LengthIsCountedInUtf16UnitsSoTwoCharactersBeyondTheBmpAreLongEnough)
{
    const QString twoCharacters = u"\U0001F600\U0001F601"_s;
    ASSERT_EQ(twoCharacters.size(), 4);
    lookups.home = twoCharacters;

    EXPECT_TRUE(isExactly(twoCharacters));
}

TEST_F(KVLocalPathsSystemDirectories, OneCharacterBeyondTheBmpIsTooShort)
{
    const QString oneCharacter = u"\U0001F600"_s;
    ASSERT_EQ(oneCharacter.size(), 2);
    lookups.home = oneCharacter;

    EXPECT_FALSE(isExactly(oneCharacter));
    EXPECT_EQ(lookups.questions, Questions());
}

TEST_F(KVLocalPathsSystemDirectories, TheTwoUnitsDroppedMayBeHalfACharacter)
{
    // "/" and the second half of the character before it.
    lookups.home = u"/x"_s + QChar(0xD83D);

    EXPECT_TRUE(isExactly(u"/x\U0001F600/"_s));
}

TEST_F(KVLocalPathsSystemDirectories, APathOfThreeUnitsLosesTwoAsWell)
{
    lookups.home = u"/"_s;

    EXPECT_TRUE(isExactly(u"///"_s));
}

TEST_F(KVLocalPathsSystemDirectories, APathThatBecomesADirectoryByLosingTwoUnitsIsOne)
{
    EXPECT_TRUE(isExactly(u"/Volumes_/"_s));
    EXPECT_TRUE(isExactly(u"/Volumes//"_s));
}

TEST_F(KVLocalPathsSystemDirectories, ComparisonsAreCaseSensitive)
{
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(u"/applications"_s));
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(u"/USR/lib"_s));
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(u"/volumes"_s));
}

TEST_F(KVLocalPathsSystemDirectories, PathsAreComparedAsGivenWithoutStandardisation)
{
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(u"//Applications"_s));
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(u"/Users/../Applications"_s));
    EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(u"~/Library"_s));
}

TEST_F(KVLocalPathsSystemDirectories, PrefixesEndAtNoComponentsEnd)
{
    for (const QString &path : {u"/usrlocal"_s, u"/variable"_s, u"/private/various"_s, u"/Systemic"_s}) {
        EXPECT_TRUE(KVLocalPaths::isPathSystemDirectory(path)) << path.toStdString();
        EXPECT_FALSE(isExactly(path)) << path.toStdString();
    }
}

TEST_F(KVLocalPathsSystemDirectories, PlacesOutsideTheListAreNone)
{
    lookups.userCacheDirectory = {QByteArray("/cache of user1")};
    lookups.temporary = u"/temporary"_s;

    for (const std::optional<QString> &path :
         {KVLocalPaths::movieDirectory(), KVLocalPaths::trashDirectory(), KVLocalPaths::logDirectory(true),
          KVLocalPaths::logDirectory(false), KVLocalPaths::darwinCacheDirectory(), KVLocalPaths::tempDirectory()}) {
        ASSERT_TRUE(path);
        EXPECT_FALSE(KVLocalPaths::isPathSystemDirectory(path)) << path->toStdString();
    }
}

TEST_F(KVLocalPathsSystemDirectories, RootWithNobodyAtTheConsoleStillHasTheMachinesDirectories)
{
    runAsRoot(lookups, std::nullopt);

    EXPECT_TRUE(isExactly(u"/Library"_s));
    EXPECT_FALSE(isExactly(u"/Users/user1/Library"_s));
}

namespace {

struct VolumeCase : NamedCase {
    QStringView path;
    bool isOnTimeMachineVolume;
};

class KVLocalPathsTimeMachine : public testing::TestWithParam<VolumeCase>
{
};

constexpr VolumeCase kVolumeCases[] = {
    {{"InsideABackup"}, u"/Volumes/Backup/Backups.backupdb/host/Latest", kYes},
    {{"TheVolumesOwnName"}, u"/Volumes/Backups.backupdb", kYes},
    {{"TheVolumes"}, u"/Volumes", kNo},
    {{"TheVolumesWithSeparator"}, u"/Volumes/", kNo},
    {{"AVolume"}, u"/Volumes/Backup", kNo},
    {{"NotUnderTheVolumes"}, u"/Backups.backupdb/host", kNo},
    {{"OtherCase"}, u"/Volumes/Backup/backups.backupdb", kNo},
    {{"LongerName"}, u"/Volumes/Backup/Backups.backupdb.old", kNo},
    {{"LongerNameInFront"}, u"/Volumes/Backup/Old Backups.backupdb", kNo},
    {{"WithSeparatorAtTheEnd"}, u"/Volumes/Backup/Backups.backupdb/", kYes},
    {{"SeveralSeparators"}, u"/Volumes//Backups.backupdb//host", kYes},
    {{"VolumesInOtherCase"}, u"/volumes/Backup/Backups.backupdb", kNo},
    {{"VolumesWithoutComponentBoundary"}, u"/VolumesOld/Backup/Backups.backupdb", kNo},
    {{"RelativePath"}, u"Volumes/Backup/Backups.backupdb", kNo},
    {{"VolumesNotAtTheBeginning"}, u"/mnt/Volumes/Backup/Backups.backupdb", kNo},
};

} // namespace

TEST_P(KVLocalPathsTimeMachine, IsInsideABackupOnAMountedVolumeOrNot)
{
    EXPECT_EQ(KVLocalPaths::isPathOnTimeMachineVolume(GetParam().path.toString()), GetParam().isOnTimeMachineVolume);
}

INSTANTIATE_TEST_SUITE_P(, KVLocalPathsTimeMachine, testing::ValuesIn(kVolumeCases), nameOfCase);
