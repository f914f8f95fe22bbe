// Where the standard directories lie and who the user is, for an ordinary user and for root.
#include "paths/KVLocalPaths.h"

#include "support/NamedCase.h"
#include "support/ScriptedLookups.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

using Questions = ScriptedLookups::Questions;
using Answer = std::optional<QString>;

constexpr std::uint64_t kUserAndLocal = platform::domain::kUser | platform::domain::kLocal;

class KVLocalPathsTest : public testing::Test
{
protected:
    /// What the lookup answers for the user's library folder.
    void answerForLibrary(const QStringList &places)
    {
        lookups.directories[{platform::directory::kLibrary, platform::domain::kUser}] = places;
    }

    static Answer userLibrary()
    {
        return KVLocalPaths::pathForDirectoryForUserDomain(platform::directory::kLibrary, platform::domain::kUser);
    }

    ScriptedLookups lookups;

private:
    LookupsScope scope{lookups};
};

/// An operation that answers for a kind of directory in a domain.
struct DirectoryCase : NamedCase {
    Answer (*ask)();
    std::uint64_t kind;
    std::uint64_t domain;
    QStringView appended;
};

constexpr DirectoryCase kDirectoryCases[] = {
    {{"ApplicationOfUser"}, [] { return KVLocalPaths::applicationDirectory(true); }, 1, 1, u""},
    {{"ApplicationLocal"}, [] { return KVLocalPaths::applicationDirectory(false); }, 1, 2, u""},
    {{"AdminApplicationOfUser"}, [] { return KVLocalPaths::adminApplicationDirectory(true); }, 4, 1, u""},
    {{"AdminApplicationLocal"}, [] { return KVLocalPaths::adminApplicationDirectory(false); }, 4, 2, u""},
    {{"DocumentOfUser"}, [] { return KVLocalPaths::documentDirectory(true); }, 9, 1, u""},
    {{"DocumentLocal"}, [] { return KVLocalPaths::documentDirectory(false); }, 9, 2, u""},
    {{"LibraryOfUser"}, [] { return KVLocalPaths::libraryDirectory(true); }, 5, 1, u""},
    {{"LibraryLocal"}, [] { return KVLocalPaths::libraryDirectory(false); }, 5, 2, u""},
    {{"PrefsOfUser"}, [] { return KVLocalPaths::prefsDirectory(true); }, 5, 1, u"/Preferences"},
    {{"PrefsLocal"}, [] { return KVLocalPaths::prefsDirectory(false); }, 5, 2, u"/Preferences"},
    {{"CacheOfUser"}, [] { return KVLocalPaths::cacheDirectory(true); }, 13, 1, u""},
    {{"CacheLocal"}, [] { return KVLocalPaths::cacheDirectory(false); }, 13, 2, u""},
    {{"Movie"}, [] { return KVLocalPaths::movieDirectory(); }, 17, 1, u""},
    {{"AppSupportOfUser"}, [] { return KVLocalPaths::appSupportDirectory(true); }, 14, 1, u""},
    {{"AppSupportLocal"}, [] { return KVLocalPaths::appSupportDirectory(false); }, 14, 2, u""},
    {{"Desktop"}, [] { return KVLocalPaths::desktopDirectory(); }, 12, 1, u""},
    {{"SystemLibrary"}, [] { return KVLocalPaths::systemLibraryDirectory(); }, 5, 8, u""},
    {{"LogOfUser"}, [] { return KVLocalPaths::logDirectory(true); }, 5, 1, u"/Logs"},
    {{"LogLocal"}, [] { return KVLocalPaths::logDirectory(false); }, 5, 2, u"/Logs"},
    {{"LocalDocumentation"}, [] { return KVLocalPaths::localDocumentationDirectory(); }, 8, 2, u""},
};

class KVLocalPathsDirectories : public testing::TestWithParam<DirectoryCase>
{
protected:
    std::string searchQuestion() const
    {
        return "search " + std::to_string(GetParam().kind) + " " + std::to_string(GetParam().domain);
    }

    void answer(const QStringList &places) { lookups.directories[{GetParam().kind, GetParam().domain}] = places; }

    bool isForUser() const { return GetParam().domain == platform::domain::kUser; }

    QString appended() const { return GetParam().appended.toString(); }

    ScriptedLookups lookups;
    LookupsScope scope{lookups};
};

} // namespace

TEST_P(KVLocalPathsDirectories, NotRootGetsThePlatformsFirstAnswerUnchanged)
{
    answer({u"/private/var/root/first"_s, u"/second"_s});

    EXPECT_EQ(GetParam().ask(), u"/private/var/root/first"_s + appended());
    EXPECT_EQ(lookups.questions, (Questions{searchQuestion(), "user id"}));
}

TEST_P(KVLocalPathsDirectories, RootGetsTheConsoleUsersPlaceInTheUsersDomainAlone)
{
    runAsRoot(lookups, u"user1"_s);
    answer({u"/var/root/first"_s, u"/second"_s});

    if (isForUser()) {
        EXPECT_EQ(GetParam().ask(), u"/Users/user1/first"_s + appended());
        EXPECT_EQ(lookups.questions,
                  (Questions{searchQuestion(), "user id", "user id", "console user", "home of user1"}));
    } else {
        EXPECT_EQ(GetParam().ask(), u"/var/root/first"_s + appended());
        EXPECT_EQ(lookups.questions, (Questions{searchQuestion(), "user id"}));
    }
}

TEST_P(KVLocalPathsDirectories, AnEmptyLookupListGivesNothing)
{
    answer({});

    EXPECT_EQ(GetParam().ask(), std::nullopt);
}

TEST_P(KVLocalPathsDirectories, RootWithAConsoleUserOfUnknownHomeGetsNothingInTheUsersDomainAlone)
{
    runAsRoot(lookups, u"stranger"_s);
    answer({u"/var/root/first"_s});

    EXPECT_EQ(GetParam().ask(), isForUser() ? std::nullopt : Answer(u"/var/root/first"_s + appended()));
}

TEST_P(KVLocalPathsDirectories, RootWithNobodyAtTheConsoleGetsNothingInTheUsersDomainAlone)
{
    runAsRoot(lookups, std::nullopt);
    answer({u"/var/root/first"_s});

    EXPECT_EQ(GetParam().ask(), isForUser() ? std::nullopt : Answer(u"/var/root/first"_s + appended()));
}

INSTANTIATE_TEST_SUITE_P(, KVLocalPathsDirectories, testing::ValuesIn(kDirectoryCases), nameOfCase);

TEST_F(KVLocalPathsTest, KindAndMaskReachTheLookupUnchanged)
{
    lookups.directories[{0xFFFF'FFFF'FFFF'FFFF, 0x8000'0000'0000'0001}] = {u"/odd"_s};

    EXPECT_EQ(KVLocalPaths::pathForDirectoryForUserDomain(0xFFFF'FFFF'FFFF'FFFF, 0x8000'0000'0000'0001), u"/odd"_s);
}

TEST_F(KVLocalPathsTest, NotRootUserDirectoryAndUsernameAreTheProcessUsers)
{
    lookups.consoleUser = u"somebody else"_s;

    EXPECT_EQ(KVLocalPaths::userDirectory(), u"/Users/user1"_s);
    EXPECT_EQ(KVLocalPaths::username(), u"user1"_s);
    EXPECT_EQ(lookups.questions, (Questions{"user id", "home", "user id", "user name"}));
}

TEST_F(KVLocalPathsTest, NotRootTrashIsInTheProcessUsersHome)
{
    EXPECT_EQ(KVLocalPaths::trashDirectory(), u"/Users/user1/.Trash"_s);
    EXPECT_EQ(lookups.questions, (Questions{"user id", "home"}));
}

TEST_F(KVLocalPathsTest, NotRootWithoutAHomeThereIsNoTrash)
{
    lookups.home = std::nullopt;

    EXPECT_EQ(KVLocalPaths::userDirectory(), std::nullopt);
    EXPECT_EQ(KVLocalPaths::trashDirectory(), std::nullopt);
}

TEST_F(KVLocalPathsTest, RootUserDirectoryUsernameAndTrashAreTheConsoleUsers)
{
    runAsRoot(lookups, u"user1"_s);

    EXPECT_EQ(KVLocalPaths::userDirectory(), u"/Users/user1"_s);
    EXPECT_EQ(KVLocalPaths::username(), u"user1"_s);
    EXPECT_EQ(KVLocalPaths::trashDirectory(), u"/Users/user1/.Trash"_s);
    EXPECT_EQ(lookups.questions,
              (Questions{"user id", "console user", "home of user1", "user id", "console user", "user id",
                         "console user", "home of user1"}));
}

TEST_F(KVLocalPathsTest, RootWithAConsoleUserOfUnknownHomeHasNeitherHomeNorTrash)
{
    runAsRoot(lookups, u"stranger"_s);

    EXPECT_EQ(KVLocalPaths::userDirectory(), std::nullopt);
    EXPECT_EQ(KVLocalPaths::trashDirectory(), std::nullopt);
    EXPECT_EQ(KVLocalPaths::username(), u"stranger"_s);
}

TEST_F(KVLocalPathsTest, RootFirstAnswerUnderPrivateVarRootBecomesTheHomeFollowedByTLibraryLogs)
{
    runAsRoot(lookups, u"user1"_s);
    answerForLibrary({u"/private/var/root/Library/Logs"_s});

    EXPECT_EQ(userLibrary(), u"/Users/user1/t/Library/Logs"_s);
}

TEST_F(KVLocalPathsTest, RootWithAnEmptyLookupListGetsNothingAndTheAdjustmentIsNotAttempted)
{
    runAsRoot(lookups, u"user1"_s);
    answerForLibrary({});

    EXPECT_EQ(userLibrary(), std::nullopt);
    EXPECT_EQ(lookups.questions, (Questions{"search 5 1", "user id"}));
}

TEST_F(KVLocalPathsTest, RootWithTheMaskOfUserAndLocalGetsTheFirstAnswerUntouched)
{
    runAsRoot(lookups, u"user1"_s);
    lookups.directories[{platform::directory::kLibrary, kUserAndLocal}] = {u"/var/root/Library"_s, u"/Library"_s};

    EXPECT_EQ(KVLocalPaths::pathForDirectoryForUserDomain(platform::directory::kLibrary, kUserAndLocal),
              u"/var/root/Library"_s);
    EXPECT_EQ(lookups.questions, (Questions{"search 5 3", "user id"}));
}

TEST_F(KVLocalPathsTest, RootWithTheLoginScreenShowingHasNoUserAndTheHomeOfNoName)
{
    runAsRoot(lookups, u"loginwindow"_s);
    lookups.homes[u"loginwindow"_s] = u"/never/asked"_s;
    lookups.homeOfNobody = u"/home/of/no/name"_s;

    EXPECT_EQ(KVLocalPaths::currentConsoleUser(), std::nullopt);
    EXPECT_EQ(KVLocalPaths::username(), std::nullopt);
    EXPECT_EQ(KVLocalPaths::userDirectory(), u"/home/of/no/name"_s);
}

TEST_F(KVLocalPathsTest, RootWithNobodyAtTheConsoleHasNoUserAndTheHomeOfNoName)
{
    runAsRoot(lookups, std::nullopt);
    lookups.homeOfNobody = u"/home/of/no/name"_s;

    EXPECT_EQ(KVLocalPaths::currentConsoleUser(), std::nullopt);
    EXPECT_EQ(KVLocalPaths::username(), std::nullopt);
    EXPECT_EQ(KVLocalPaths::userDirectory(), u"/home/of/no/name"_s);
    EXPECT_EQ(lookups.questions,
              (Questions{"console user", "user id", "console user", "user id", "console user", "home of nobody"}));
}

TEST_F(KVLocalPathsTest, TheLoginScreensNameIsComparedExactly)
{
    for (const QString &name : {u"Loginwindow"_s, u"loginwindow "_s, u"loginwindo"_s, QString(u""_s)}) {
        lookups.consoleUser = name;
        EXPECT_EQ(KVLocalPaths::currentConsoleUser(), name);
    }
}

TEST_F(KVLocalPathsTest, TheConsoleUserIsAnsweredToAnOrdinaryProcessToo)
{
    lookups.consoleUser = u"somebody else"_s;

    EXPECT_EQ(KVLocalPaths::currentConsoleUser(), u"somebody else"_s);
    EXPECT_EQ(lookups.questions, Questions{"console user"});
}

TEST_F(KVLocalPathsTest, LogDirectoryOfRootIsInTheConsoleUsersOrTheLocalLibrary)
{
    runAsRoot(lookups, u"user1"_s);
    installStandardDirectories(lookups, u"/var/root"_s);

    EXPECT_EQ(KVLocalPaths::logDirectory(true), u"/Users/user1/Library/Logs"_s);
    EXPECT_EQ(KVLocalPaths::logDirectory(false), u"/Library/Logs"_s);
}

TEST_F(KVLocalPathsTest, LogDirectoryOfAnOrdinaryUserIsInTheUsersOrTheLocalLibrary)
{
    installStandardDirectories(lookups, u"/Users/user1"_s);

    EXPECT_EQ(KVLocalPaths::logDirectory(true), u"/Users/user1/Library/Logs"_s);
    EXPECT_EQ(KVLocalPaths::logDirectory(false), u"/Library/Logs"_s);
}

TEST_F(KVLocalPathsTest, AppendedNamesHaveOneSeparatorAtTheSeam)
{
    answerForLibrary({u"/Users/user1/Library/"_s});
    lookups.home = u"/Users/user1//"_s;

    EXPECT_EQ(KVLocalPaths::prefsDirectory(true), u"/Users/user1/Library/Preferences"_s);
    EXPECT_EQ(KVLocalPaths::logDirectory(true), u"/Users/user1/Library/Logs"_s);
    EXPECT_EQ(KVLocalPaths::trashDirectory(), u"/Users/user1/.Trash"_s);
}

TEST_F(KVLocalPathsTest, NothingIsKeptFromOneCallToTheNext)
{
    runAsRoot(lookups, u"user1"_s);
    installStandardDirectories(lookups, u"/var/root"_s);
    lookups.homes[u"user2"_s] = u"/Users/user2"_s;

    ASSERT_EQ(KVLocalPaths::libraryDirectory(true), u"/Users/user1/Library"_s);
    lookups.consoleUser = u"user2"_s;

    EXPECT_EQ(KVLocalPaths::libraryDirectory(true), u"/Users/user2/Library"_s);
}

namespace {

struct RootAdjustmentCase : NamedCase {
    QStringView firstAnswer;
    QStringView result;
};

class KVLocalPathsRootAdjustment : public testing::TestWithParam<RootAdjustmentCase>
{
protected:
    ScriptedLookups lookups;
    LookupsScope scope{lookups};
};

constexpr RootAdjustmentCase kRootAdjustmentCases[] = {
    {{"Library"}, u"/var/root/Library", u"/Users/user1/Library"},
    {{"Caches"}, u"/var/root/Library/Caches", u"/Users/user1/Library/Caches"},
    {{"PrivateKeepsTheLastLetter"}, u"/private/var/root/Library", u"/Users/user1/t/Library"},
    {{"RootsHomeItself"}, u"/var/root", u"/Users/user1"},
    {{"PrivateRootsHomeItself"}, u"/private/var/root", u"/Users/user1/t"},
    {{"AnotherHomeIsAppendedWhole"}, u"/Users/admin/Library", u"/Users/user1/Users/admin/Library"},
    {{"NoComponentBoundary"}, u"/var/rootless/Library", u"/Users/user1/less/Library"},
    {{"PrivateNoComponentBoundary"}, u"/private/var/rootless", u"/Users/user1/tless"},
    {{"BothPrefixesOneAfterTheOther"}, u"/var/root/private/var/root/Library", u"/Users/user1/t/Library"},
    {{"TheFirstPrefixIsNotDroppedTwice"}, u"/var/root/var/root/Library", u"/Users/user1/var/root/Library"},
    {{"PrefixInTheMiddle"}, u"/mnt/var/root/Library", u"/Users/user1/mnt/var/root/Library"},
    {{"OtherCase"}, u"/VAR/root/Library", u"/Users/user1/VAR/root/Library"},
    {{"EmptyAnswer"}, u"", u"/Users/user1"},
};

} // namespace

TEST_P(KVLocalPathsRootAdjustment, MovesTheFirstAnswerUnderTheConsoleUsersHome)
{
    runAsRoot(lookups, u"user1"_s);
    lookups.directories[{platform::directory::kCaches, platform::domain::kUser}] = {GetParam().firstAnswer.toString()};

    EXPECT_EQ(KVLocalPaths::cacheDirectory(true), GetParam().result.toString());
}

TEST_P(KVLocalPathsRootAdjustment, LeavesTheFirstAnswerToAnOrdinaryUserUntouched)
{
    lookups.directories[{platform::directory::kCaches, platform::domain::kUser}] = {GetParam().firstAnswer.toString()};

    EXPECT_EQ(KVLocalPaths::cacheDirectory(true), GetParam().firstAnswer.toString());
}

TEST_P(KVLocalPathsRootAdjustment, LeavesTheFirstAnswerInOtherDomainsUntouched)
{
    runAsRoot(lookups, u"user1"_s);
    for (const std::uint64_t mask : {std::uint64_t(2), std::uint64_t(3), std::uint64_t(8), std::uint64_t(9)}) {
        lookups.directories[{platform::directory::kCaches, mask}] = {GetParam().firstAnswer.toString()};
        EXPECT_EQ(KVLocalPaths::pathForDirectoryForUserDomain(platform::directory::kCaches, mask),
                  GetParam().firstAnswer.toString());
    }
}

INSTANTIATE_TEST_SUITE_P(, KVLocalPathsRootAdjustment, testing::ValuesIn(kRootAdjustmentCases), nameOfCase);

TEST_F(KVLocalPathsTest, CacheDirectoryOfTheSystemIsTheConfigurationStringsValue)
{
    lookups.userCacheDirectory = {QByteArray("/var/folders/é/C/")};

    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), u"/var/folders/é/C/"_s);
    EXPECT_EQ(lookups.questions, Questions{"configuration string 65538 into 1024"});
}

TEST_F(KVLocalPathsTest, CacheDirectoryOfTheSystemForRootIsTheProcesssToo)
{
    runAsRoot(lookups, u"user1"_s);
    lookups.userCacheDirectory = {QByteArray("/var/folders/zz/C/")};

    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), u"/var/folders/zz/C/"_s);
    EXPECT_EQ(lookups.questions, Questions{"configuration string 65538 into 1024"});
}

TEST_F(KVLocalPathsTest, CacheDirectoryOfTheSystemWithoutAValueIsNothing)
{
    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), std::nullopt);
}

TEST_F(KVLocalPathsTest, CacheDirectoryOfTheSystemWithAnEmptyValueIsAnEmptyPathNotNothing)
{
    lookups.userCacheDirectory = {QByteArray()};

    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), QString(u""_s));
}

TEST_F(KVLocalPathsTest, CacheDirectoryOfTheSystemLongerThanTheBufferIsCutAt1023Bytes)
{
    const QByteArray value = "/" + QByteArray(1023, 'c');
    lookups.userCacheDirectory = {value};

    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), QString::fromLatin1(value.first(1023)));
}

TEST_F(KVLocalPathsTest, CacheDirectoryOfTheSystemThatJustFitsIsNotCut)
{
    lookups.userCacheDirectory = {QByteArray(1023, 'c')};
    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), QString(1023, u'c'));

    // Nothing was cut off it, so what is wrong with its end is not mended.
    lookups.userCacheDirectory = {QByteArray(1022, 'c') + '\xC3'};
    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), std::nullopt);
}

TEST_F(KVLocalPathsTest, ASizeFarBeyondTheBufferIsNotReadPastItsEnd)
{
    const QByteArray value(5000, 'c');
    lookups.userCacheDirectory = {value, std::numeric_limits<std::size_t>::max()};

    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), QString::fromLatin1(value.first(1023)));
}

TEST_F(KVLocalPathsTest, CacheDirectoryOfTheSystemIsCutBeforeACharacterThatWouldBeCutInTwo)
{
    // The cut falls one, two and three bytes into a character of four bytes, then right behind it.
    for (const qsizetype before : {1022, 1021, 1020}) {
        const QByteArray start(before, 'c');
        lookups.userCacheDirectory = {start + "\U0001F600/rest"};
        EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), QString::fromLatin1(start));
    }
    const QByteArray start(1019, 'c');
    lookups.userCacheDirectory = {start + "\U0001F600/rest"};
    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), QString::fromLatin1(start) + u"\U0001F600"_s);

    // Four bytes are a whole character, or none.
    lookups.userCacheDirectory = {start + "\xF0\x9F\x98x/rest"};
    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), std::nullopt);
}

TEST_F(KVLocalPathsTest, CacheDirectoryOfTheSystemWhoseBytesAreNoUtf8IsNothing)
{
    for (const QByteArray &value :
         {QByteArray("/cache\xFF/x"), QByteArray("/cache\xE2\x82"), QByteArray("/\xC0\xAF") + QByteArray(2000, 'c')}) {
        lookups.userCacheDirectory = {value};
        EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), std::nullopt);
    }
}

TEST(KVLocalPaths, HoldsNoStateAndHasNoInstances)
{
    EXPECT_TRUE((std::is_base_of_v<platform::Object, KVLocalPaths>));
    EXPECT_FALSE(std::is_default_constructible_v<KVLocalPaths>);
    EXPECT_EQ(sizeof(KVLocalPaths), sizeof(platform::Object));
}
