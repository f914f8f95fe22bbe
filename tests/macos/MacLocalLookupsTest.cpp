// The lookups of macOS, compiled here against a few declarations and asked of a scripted system.
#include "macos/MacLocalLookups.h"

#include "macos/ScriptedSystem.h"
#include "paths/KVLocalPaths.h"
#include "support/LookupsOfUserId.h"
#include "support/PrintQt.h"
#include "support/ScopedVariable.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <ctime>

using namespace Qt::StringLiterals;

namespace {

namespace directory = platform::directory;
namespace domain = platform::domain;

constexpr std::uint32_t kUser = 501;
constexpr std::uint32_t kAllDomains = domain::kUser | domain::kLocal | domain::kSystem;
constexpr int kTemporaryDirectoryName = 65537;

using LookupsOfUser = LookupsOfUserId<MacLocalLookups>;

class MacLookups : public testing::Test
{
protected:
    MacLookups()
    {
        system.accounts = {{0, {"root", "/var/root"}}, {kUser, {"user1", "/Users/user1/"}}};
        system.directories[{directory::kLibrary, kAllDomains}] = {"~/Library", "/Library", "/System/Library"};
        system.directories[{directory::kLibrary, domain::kUser}] = {"~/Library"};
    }

    QStringList libraries(const platform::LocalLookups &lookups, std::uint64_t mask = kAllDomains) const
    {
        return lookups.searchPathForDirectoriesInDomains(directory::kLibrary, mask);
    }

    ScriptedSystem system;
    ScopedVariable home{"HOME", "/Users/user1"};
    LookupsOfUser ordinary{kUser};
    LookupsOfUser root{platform::kRootUserId};
};

} // namespace

TEST_F(MacLookups, DirectoriesComeInTheSystemsOrderUnderTheUsersHome)
{
    EXPECT_EQ(libraries(ordinary), QStringList({u"/Users/user1/Library"_s, u"/Library"_s, u"/System/Library"_s}));
}

TEST_F(MacLookups, DirectoriesOfRootAreUnderVarRootWhateverItsHomeIs)
{
    const ScopedVariable otherHome{"HOME", "/Users/user1"};

    EXPECT_EQ(libraries(root, domain::kUser), QStringList(u"/var/root/Library"_s));
}

TEST_F(MacLookups, DirectoriesBelowTheHomeOfTheRootDirectoryHaveOneSeparator)
{
    const ScopedVariable rootDirectory{"HOME", "/"};

    EXPECT_EQ(libraries(ordinary, domain::kUser), QStringList(u"/Library"_s));
}

TEST_F(MacLookups, DirectoriesOfAUserWithoutAHomeAreLeftOut)
{
    const ScopedVariable noHome{"HOME", ""};
    system.accounts.clear();

    EXPECT_EQ(libraries(ordinary), QStringList({u"/Library"_s, u"/System/Library"_s}));
}

TEST_F(MacLookups, DirectoriesOfOtherDomainsAreNotAskedFor)
{
    EXPECT_EQ(libraries(ordinary, domain::kUser | 4), QStringList(u"/Users/user1/Library"_s));
    EXPECT_EQ(libraries(ordinary, 0xFFFF'FFFF'0000'0001), QStringList(u"/Users/user1/Library"_s));
}

TEST_F(MacLookups, DirectoriesOfUnknownKindsAreNowhere)
{
    EXPECT_EQ(ordinary.searchPathForDirectoriesInDomains(99, kAllDomains), QStringList());
    EXPECT_EQ(ordinary.searchPathForDirectoriesInDomains(0x1'0000'0005, kAllDomains), QStringList());
}

TEST_F(MacLookups, DirectoriesOfTheLastKindThatTheSystemCanBeAskedForAreFound)
{
    system.directories[{0xFFFF'FFFF, kAllDomains}] = {"/Last"};

    EXPECT_EQ(ordinary.searchPathForDirectoriesInDomains(0xFFFF'FFFF, kAllDomains), QStringList(u"/Last"_s));
}

TEST_F(MacLookups, ADirectoryWhosePathIsNotUtf8IsLeftOut)
{
    system.directories[{directory::kLibrary, domain::kLocal}] = {"/Lib\xFFrary"};

    EXPECT_EQ(libraries(ordinary, domain::kLocal), QStringList());
}

TEST_F(MacLookups, TheHomeIsTheEnvironmentsWhereItIsAbsoluteAndElseTheAccounts)
{
    EXPECT_EQ(ordinary.homeDirectory(), u"/Users/user1"_s);
    const ScopedVariable relative{"HOME", "relative"};
    system.accounts[kUser].home = "/Volumes/Home/user1//";
    EXPECT_EQ(ordinary.homeDirectory(), u"/Volumes/Home/user1"_s);
    system.accounts[kUser].home = "//";
    EXPECT_EQ(ordinary.homeDirectory(), u"/"_s);
    system.accounts.clear();
    EXPECT_EQ(ordinary.homeDirectory(), std::nullopt);
}

TEST_F(MacLookups, TheHomeOfANamedUserIsTheAccounts)
{
    EXPECT_EQ(ordinary.homeDirectoryForUser(u"user1"_s), u"/Users/user1"_s);
    EXPECT_EQ(ordinary.homeDirectoryForUser(u"nobody-here"_s), std::nullopt);
    EXPECT_EQ(ordinary.homeDirectoryForUser(std::nullopt), std::nullopt);
    EXPECT_EQ(ordinary.homeDirectoryForUser(u"user1"_s + QChar::Null + u"x"_s), std::nullopt);
}

TEST_F(MacLookups, TheUsersNameIsTheAccounts)
{
    EXPECT_EQ(ordinary.userName(), u"user1"_s);
    system.accounts.clear();
    EXPECT_EQ(ordinary.userName(), std::nullopt);
}

TEST_F(MacLookups, TheConsoleUserIsNamedAndTheSystemsTextReleased)
{
    system.consoleUser = u"Zoë\U0001F600"_s;

    EXPECT_EQ(ordinary.copyConsoleUser(), system.consoleUser);
    EXPECT_EQ(system.stringsOut, 0);
}

TEST_F(MacLookups, AConsoleUserWhoseNameTakesTheMostBytesIsNamed)
{
    system.consoleUser = u"\u4F60\u597D"_s;

    EXPECT_EQ(ordinary.copyConsoleUser(), system.consoleUser);
}

TEST_F(MacLookups, TheLoginScreenHasTheNameThatThePathsKnow)
{
    system.consoleUser = u"loginwindow"_s;

    EXPECT_EQ(ordinary.copyConsoleUser(), platform::kLoginScreen.toString());
}

TEST_F(MacLookups, NobodyAtTheConsoleIsNothing)
{
    EXPECT_EQ(ordinary.copyConsoleUser(), std::nullopt);
}

TEST_F(MacLookups, AConsoleUserWhoseNameIsNoTextIsNothingAndReleased)
{
    system.consoleUser = QString(QChar(0xD83D));

    EXPECT_EQ(ordinary.copyConsoleUser(), std::nullopt);
    EXPECT_EQ(system.stringsOut, 0);
}

TEST_F(MacLookups, AConfigurationStringIsTheSystemsCutToTheBuffer)
{
    system.configurationStrings[platform::kUserCacheDirectoryName] = "/var/folders/x/C/";
    std::array<char, 5> buffer = {};

    EXPECT_EQ(ordinary.configurationString(platform::kUserCacheDirectoryName, buffer), 18U);
    EXPECT_STREQ(buffer.data(), "/var");
    EXPECT_EQ(ordinary.configurationString(1, buffer), 0U);
}

TEST_F(MacLookups, TheTemporaryDirectoryIsTheUsersOwnAndElseTmp)
{
    EXPECT_EQ(ordinary.temporaryDirectory(), u"/tmp"_s);
    system.configurationStrings[kTemporaryDirectoryName] = "/var/folders/x/T/";
    EXPECT_EQ(ordinary.temporaryDirectory(), u"/var/folders/x/T/"_s);
    system.configurationStrings[kTemporaryDirectoryName] = "/";
    EXPECT_EQ(ordinary.temporaryDirectory(), u"/"_s);
    system.configurationStrings[kTemporaryDirectoryName] = "";
    EXPECT_EQ(ordinary.temporaryDirectory(), u"/tmp"_s);
}

TEST_F(MacLookups, TheTemporaryDirectoryMayBeAsLongAsAnyPathAndNoLonger)
{
    const QByteArray longest = '/' + QByteArray(PATH_MAX - 2, 'x');
    system.configurationStrings[kTemporaryDirectoryName] = longest;
    EXPECT_EQ(ordinary.temporaryDirectory(), QString::fromLatin1(longest));
    system.configurationStrings[kTemporaryDirectoryName] = longest + 'x';
    EXPECT_EQ(ordinary.temporaryDirectory(), u"/tmp"_s);
}

TEST_F(MacLookups, TheRealUserIdIsTheProcesss)
{
    EXPECT_EQ(MacLocalLookups().realUserId(), 501U);
}

TEST_F(MacLookups, EachUniqueStringIsAnother)
{
    const QString first = ordinary.globallyUniqueString();

    EXPECT_EQ(first.size(), 36);
    EXPECT_NE(first, ordinary.globallyUniqueString());
}

TEST_F(MacLookups, TimesAreTheSystems)
{
    const std::time_t before = std::time(nullptr);
    const std::time_t told = ordinary.calendarTime();
    EXPECT_GE(told, before);
    EXPECT_LE(told, std::time(nullptr));

    const std::clock_t start = std::clock();
    const std::clock_t ticks = ordinary.processorTime();
    EXPECT_GE(ticks, start);
    EXPECT_LE(ticks, std::clock());
}

TEST_F(MacLookups, AreTheOnesThatThePathsAskWhereTheyAreLinked)
{
    system.configurationStrings[platform::kUserCacheDirectoryName] = "/var/folders/x/C/";

    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), u"/var/folders/x/C/"_s);
}
