// The lookups of Linux, asked of the system that the tests run on.
#include "linux/LinuxLocalLookups.h"

#include "paths/KVLocalPaths.h"
#include "support/LookupsOfUserId.h"
#include "support/NamedCase.h"
#include "support/ScopedVariable.h"

#include <QSet>
#include <QUuid>

#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

#include <array>

using namespace Qt::StringLiterals;

namespace {

namespace directory = platform::directory;
namespace domain = platform::domain;

using LookupsOfUser = LookupsOfUserId<LinuxLocalLookups>;

constexpr std::uint32_t kRoot = 0;
/// Larger than the IDs that Debian gives to accounts, and not the one that stands for no ID.
constexpr std::uint32_t kIdWithoutAccount = 4'123'456'789U;

QString accountsHome()
{
    const passwd *const entry = getpwuid(getuid());
    return entry ? QString::fromUtf8(entry->pw_dir) : QString();
}

/// The value that the lookups hand over into a buffer that is large enough.
QByteArray userCacheDirectory()
{
    std::array<char, 1024> buffer = {};
    const std::size_t size =
        LinuxLocalLookups().configurationString(platform::kUserCacheDirectoryName, std::span(buffer));
    return size == 0 ? QByteArray() : QByteArray(buffer.data(), static_cast<qsizetype>(size - 1));
}

struct DirectoryCase : NamedCase {
    std::uint64_t kind;
    QStringView user;
    QStringView local;
    QStringView system;
};

class LinuxStandardDirectory : public testing::TestWithParam<DirectoryCase>
{
protected:
    static QStringList without(const QStringList &places)
    {
        QStringList there = places;
        there.removeAll(QString());
        return there;
    }

    static QStringList search(const platform::LocalLookups &lookups, std::uint64_t domainMask)
    {
        return lookups.searchPathForDirectoriesInDomains(GetParam().kind, domainMask);
    }

    static QString user() { return GetParam().user.toString(); }
    static QString local() { return GetParam().local.toString(); }
    static QString system() { return GetParam().system.toString(); }

    ScopedVariable home{"HOME", "/home/of test"};
    LookupsOfUser ordinary{1000};
    LookupsOfUser root{kRoot};
};

constexpr DirectoryCase kDirectoryCases[] = {
    {{"Applications"}, 1, u"/home/of test/Applications", u"/Applications", u"/System/Applications"},
    {{"AdminApplications"},
     4,
     u"/home/of test/Applications/Utilities",
     u"/Applications/Utilities",
     u"/System/Applications/Utilities"},
    {{"Library"}, 5, u"/home/of test/Library", u"/Library", u"/System/Library"},
    {{"Documentation"},
     8,
     u"/home/of test/Library/Documentation",
     u"/Library/Documentation",
     u"/System/Library/Documentation"},
    {{"Documents"}, 9, u"/home/of test/Documents", {}, {}},
    {{"Desktop"}, 12, u"/home/of test/Desktop", {}, {}},
    {{"Caches"}, 13, u"/home/of test/Library/Caches", u"/Library/Caches", u"/System/Library/Caches"},
    {{"ApplicationSupport"}, 14, u"/home/of test/Library/Application Support", u"/Library/Application Support", {}},
    {{"Movies"}, 17, u"/home/of test/Movies", {}, {}},
};

} // namespace

TEST_P(LinuxStandardDirectory, LiesInEachDomainWhereTheTableHasIt)
{
    EXPECT_EQ(search(ordinary, domain::kUser), without({user()}));
    EXPECT_EQ(search(ordinary, domain::kLocal), without({local()}));
    EXPECT_EQ(search(ordinary, domain::kSystem), without({system()}));
}

TEST_P(LinuxStandardDirectory, OfSeveralDomainsComeInTheOrderUserLocalSystem)
{
    EXPECT_EQ(search(ordinary, domain::kUser | domain::kLocal | domain::kSystem), without({user(), local(), system()}));
    EXPECT_EQ(search(ordinary, domain::kSystem | domain::kLocal), without({local(), system()}));
    EXPECT_EQ(search(ordinary, domain::kSystem | domain::kUser), without({user(), system()}));
}

TEST_P(LinuxStandardDirectory, OfRootIsUnderVarRootInTheUsersDomain)
{
    const QString underVarRoot = user().replace(u"/home/of test"_s, u"/var/root"_s);

    EXPECT_EQ(search(root, domain::kUser), QStringList(underVarRoot));
    EXPECT_EQ(search(root, domain::kLocal), without({local()}));
    EXPECT_EQ(search(root, domain::kSystem), without({system()}));
}

TEST_P(LinuxStandardDirectory, InNoDomainThatIsKnownIsNowhere)
{
    EXPECT_EQ(search(ordinary, 0), QStringList());
    EXPECT_EQ(search(ordinary, 4), QStringList());
    EXPECT_EQ(search(ordinary, 0xFFFF'FFFF'FFFF'FFF4), QStringList());
}

INSTANTIATE_TEST_SUITE_P(, LinuxStandardDirectory, testing::ValuesIn(kDirectoryCases), nameOfCase);

TEST(LinuxLocalLookups, KindsWithoutATableRowAreNowhere)
{
    for (const std::uint64_t kind : {std::uint64_t(0), std::uint64_t(2), std::uint64_t(99), ~std::uint64_t(0)}) {
        EXPECT_EQ(LinuxLocalLookups().searchPathForDirectoriesInDomains(kind, 1 | 2 | 8), QStringList()) << kind;
    }
}

TEST(LinuxLocalLookups, WithoutAHomeTheUsersDirectoriesAreLeftOut)
{
    const ScopedVariable home("HOME", std::nullopt);
    const LookupsOfUser lookups(kIdWithoutAccount);

    EXPECT_EQ(lookups.homeDirectory(), std::nullopt);
    EXPECT_EQ(lookups.searchPathForDirectoriesInDomains(directory::kLibrary, domain::kUser | domain::kLocal),
              QStringList(u"/Library"_s));
}

TEST(LinuxLocalLookups, RealUserIdIsTheProcesss)
{
    EXPECT_EQ(LinuxLocalLookups().realUserId(), getuid());
}

TEST(LinuxLocalLookups, HomeIsTheVariableIfItIsAnAbsolutePath)
{
    const ScopedVariable home("HOME", "/home/é");

    EXPECT_EQ(LinuxLocalLookups().homeDirectory(), u"/home/é"_s);
}

TEST(LinuxLocalLookups, HomeHasNoSeparatorAtItsEnd)
{
    for (const char *path : {"/home/user1/", "/home/user1//"}) {
        const ScopedVariable home("HOME", path);
        const LookupsOfUser lookups(1000);

        EXPECT_EQ(lookups.homeDirectory(), u"/home/user1"_s);
        EXPECT_EQ(lookups.searchPathForDirectoriesInDomains(directory::kLibrary, domain::kUser),
                  QStringList(u"/home/user1/Library"_s));
    }
}

TEST(LinuxLocalLookups, HomeMayBeTheRootDirectory)
{
    for (const char *root : {"/", "//"}) {
        const ScopedVariable home("HOME", root);
        const ScopedVariable cache("XDG_CACHE_HOME", std::nullopt);
        const LookupsOfUser lookups(1000);

        EXPECT_EQ(lookups.homeDirectory(), u"/"_s);
        EXPECT_EQ(lookups.searchPathForDirectoriesInDomains(directory::kLibrary, domain::kUser),
                  QStringList(u"/Library"_s));
        EXPECT_EQ(userCacheDirectory(), "/.cache");
    }
}

TEST(LinuxLocalLookups, HomeIsTheAccountsWhereTheVariableIsNoAbsolutePath)
{
    ASSERT_FALSE(accountsHome().isEmpty());
    for (const std::optional<QByteArray> &value :
         {std::optional<QByteArray>(), std::optional<QByteArray>(""), std::optional<QByteArray>("home/user1"),
          std::optional<QByteArray>("~"), std::optional<QByteArray>("/home/\xFF")}) {
        const ScopedVariable home("HOME", value);
        EXPECT_EQ(LinuxLocalLookups().homeDirectory(), accountsHome()) << value.value_or("unset").toStdString();
    }
}

TEST(LinuxLocalLookups, HomeOfANamedUserIsTheAccountsWhateverTheVariableSays)
{
    const ScopedVariable home("HOME", "/home/of test");

    EXPECT_EQ(LinuxLocalLookups().homeDirectoryForUser(u"root"_s), u"/root"_s);
}

TEST(LinuxLocalLookups, HomeOfAnUnknownNameIsNothing)
{
    EXPECT_EQ(LinuxLocalLookups().homeDirectoryForUser(u"no such user"_s), std::nullopt);
    EXPECT_EQ(LinuxLocalLookups().homeDirectoryForUser(QString()), std::nullopt);
    EXPECT_EQ(LinuxLocalLookups().homeDirectoryForUser(u"root"_s + QChar(u'\0') + u"x"_s), std::nullopt);
}

TEST(LinuxLocalLookups, HomeOfNoNameIsNothing)
{
    EXPECT_EQ(LinuxLocalLookups().homeDirectoryForUser(std::nullopt), std::nullopt);
}

TEST(LinuxLocalLookups, UserNameIsThatOfTheRealUserIdsAccount)
{
    const ScopedVariable user("USER", "somebody else");
    const ScopedVariable logname("LOGNAME", "somebody else");

    EXPECT_EQ(LookupsOfUser(kRoot).userName(), u"root"_s);
    EXPECT_EQ(LookupsOfUser(1).userName(), u"daemon"_s);
    EXPECT_EQ(LookupsOfUser(kIdWithoutAccount).userName(), std::nullopt);
}

TEST(LinuxLocalLookups, UserCacheDirectoryIsTheVariableIfItIsAnAbsolutePath)
{
    const ScopedVariable home("HOME", "/home/of test");
    const ScopedVariable cache("XDG_CACHE_HOME", "/cache/of test");

    EXPECT_EQ(userCacheDirectory(), "/cache/of test");
}

TEST(LinuxLocalLookups, UserCacheDirectoryIsInTheHomeWhereTheVariableIsNoAbsolutePath)
{
    const ScopedVariable home("HOME", "/home/of test");
    for (const std::optional<QByteArray> &value :
         {std::optional<QByteArray>(), std::optional<QByteArray>(""), std::optional<QByteArray>("cache")}) {
        const ScopedVariable cache("XDG_CACHE_HOME", value);
        EXPECT_EQ(userCacheDirectory(), "/home/of test/.cache") << value.value_or("unset").toStdString();
    }
}

TEST(LinuxLocalLookups, ConfigurationStringIsCutToTheBufferAndItsWholeSizeReturned)
{
    const ScopedVariable cache("XDG_CACHE_HOME", "/cache");
    std::array<char, 6> buffer = {'x', 'x', 'x', 'x', 'x', 'x'};

    const std::size_t size =
        LinuxLocalLookups().configurationString(platform::kUserCacheDirectoryName, std::span(buffer).first(4));

    EXPECT_EQ(size, 7U);
    EXPECT_EQ(buffer, (std::array<char, 6>{'/', 'c', 'a', '\0', 'x', 'x'}));
}

TEST(LinuxLocalLookups, ConfigurationStringForNoBufferReturnsItsSize)
{
    const ScopedVariable cache("XDG_CACHE_HOME", "/cache");

    EXPECT_EQ(LinuxLocalLookups().configurationString(platform::kUserCacheDirectoryName, {}), 7U);
}

TEST(LinuxLocalLookups, ConfigurationStringOfAnotherNameHasNoValue)
{
    std::array<char, 4> buffer = {'x', 'x', 'x', 'x'};

    EXPECT_EQ(LinuxLocalLookups().configurationString(0, buffer), 0U);
    EXPECT_EQ(LinuxLocalLookups().configurationString(65537, buffer), 0U);
    EXPECT_EQ(buffer, (std::array<char, 4>{'x', 'x', 'x', 'x'}));
}

TEST(LinuxLocalLookups, UserCacheDirectoryWithoutAHomeHasNoValue)
{
    const ScopedVariable home("HOME", std::nullopt);
    const ScopedVariable cache("XDG_CACHE_HOME", std::nullopt);
    std::array<char, 1024> buffer = {};

    EXPECT_EQ(
        LookupsOfUser(kIdWithoutAccount).configurationString(platform::kUserCacheDirectoryName, std::span(buffer)), 0U);
}

TEST(LinuxLocalLookups, TemporaryDirectoryIsTheVariableUnchanged)
{
    const ScopedVariable variable("TMPDIR", "/tmp/of test//");

    EXPECT_EQ(LinuxLocalLookups().temporaryDirectory(), u"/tmp/of test//"_s);
}

TEST(LinuxLocalLookups, TemporaryDirectoryIsTmpWithoutTheVariable)
{
    for (const std::optional<QByteArray> &value :
         {std::optional<QByteArray>(), std::optional<QByteArray>(""), std::optional<QByteArray>("/tmp/\xFF")}) {
        const ScopedVariable variable("TMPDIR", value);
        EXPECT_EQ(LinuxLocalLookups().temporaryDirectory(), u"/tmp"_s) << value.value_or("unset").toStdString();
    }
}

TEST(LinuxLocalLookups, UniqueStringsAreUuidsWithoutBracesAndDifferOnEveryCall)
{
    constexpr int kCalls = 1000;
    QSet<QString> seen;

    for (int i = 0; i < kCalls; ++i) {
        const QString unique = LinuxLocalLookups().globallyUniqueString();
        ASSERT_EQ(unique.size(), 36);
        ASSERT_FALSE(unique.contains(u'{') || unique.contains(u'/'));
        ASSERT_FALSE(QUuid::fromString(unique).isNull());
        seen.insert(unique);
    }

    EXPECT_EQ(seen.size(), kCalls);
}

TEST(LinuxLocalLookups, CalendarTimeIsTheSystemsInSeconds)
{
    const std::time_t before = std::time(nullptr);
    const std::time_t answer = LinuxLocalLookups().calendarTime();
    const std::time_t after = std::time(nullptr);

    EXPECT_LE(before, answer);
    EXPECT_LE(answer, after);
}

TEST(LinuxLocalLookups, ProcessorTimeIsTheProcesssInTicks)
{
    const std::clock_t before = std::clock();
    const std::clock_t answer = LinuxLocalLookups().processorTime();
    const std::clock_t after = std::clock();

    EXPECT_LE(before, answer);
    EXPECT_LE(answer, after);
}

TEST(LinuxLocalLookups, AreWhatKVLocalPathsAsks)
{
    const ScopedVariable cache("XDG_CACHE_HOME", "/cache/of test");
    const ScopedVariable temporary("TMPDIR", "/tmp/of test");

    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), u"/cache/of test"_s);
    EXPECT_EQ(KVLocalPaths::tempDirectory(), u"/tmp/of test"_s);
    EXPECT_EQ(KVLocalPaths::logDirectory(false), u"/Library/Logs"_s);
}

TEST(LinuxLocalLookups, CacheDirectoryLongerThanTheBufferIsCut)
{
    const ScopedVariable cache("XDG_CACHE_HOME", "/" + QByteArray(3000, 'c'));

    EXPECT_EQ(KVLocalPaths::darwinCacheDirectory(), u"/"_s + QString(1022, u'c'));
}
