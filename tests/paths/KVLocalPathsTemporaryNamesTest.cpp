// How temporary files are named.
#include "paths/KVLocalPaths.h"
#include "support/NamedCase.h"
#include "support/ScriptedLookups.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <new>

using namespace Qt::StringLiterals;

namespace {

using Questions = ScriptedLookups::Questions;

const QString kAlphabet = u"abcdefghijklmnopqrstuvwxyz0123456789"_s;

/// The text that the system's own generator gives for a seed.
QString drawn(unsigned int seed, std::uint64_t length)
{
    std::srand(seed);
    QString text;
    for (std::uint64_t i = 0; i < length; ++i) {
        text.append(kAlphabet.at(std::rand() % 36));
    }
    return text;
}

/// What the generator gives next, when it has just been given the seed.
int firstDrawOf(unsigned int seed)
{
    std::srand(seed);
    return std::rand();
}

class KVLocalPathsTemporaryNames : public testing::Test
{
protected:
    ScriptedLookups lookups;

private:
    LookupsScope scope{lookups};
};

struct SeedCase : NamedCase {
    std::time_t seconds;
    std::clock_t ticks;
    unsigned int seed;
};

class KVLocalPathsSeed : public testing::TestWithParam<SeedCase>
{
protected:
    ScriptedLookups lookups;
    LookupsScope scope{lookups};
};

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

// The seeds are the products modulo 2^32, worked out with arbitrary precision.
constexpr SeedCase kSeedCases[] = {
    {{"SmallProduct"}, 1000, 3, 3000U},
    {{"ProductOfMoreThan32Bits"}, 1'700'000'000, 4711, 2'880'960'256U},
    {{"ProductOfMoreThan64Bits"}, 1'700'000'000'000, 123'456'789'012'345, 1'627'793'408U},
    {{"NegativeTicks"}, 1'700'000'000, -1, 2'594'967'296U},
    {{"NegativeTime"}, -5, 7, 4'294'967'261U},
    {{"BothNegative"}, -5, -7, 35U},
    {{"LargestOfBoth"}, kMax, kMax, 1U},
    {{"SmallestOfBoth"}, kMin, kMin, 0U},
    {{"SmallestTimesMinusOne"}, kMin, -1, 0U},
    {{"TicksNotCountedYet"}, 1'700'000'000, 0, 0U},
    {{"ProductThatIsAMultipleOf2ToThe32"}, std::int64_t(1) << 20, std::int64_t(1) << 12, 0U},
};

} // namespace

TEST_P(KVLocalPathsSeed, IsTheLow32BitsOfTimeTimesProcessorTime)
{
    lookups.seconds = GetParam().seconds;
    lookups.ticks = GetParam().ticks;

    EXPECT_EQ(KVLocalPaths::randomString(64), drawn(GetParam().seed, 64));
}

INSTANTIATE_TEST_SUITE_P(, KVLocalPathsSeed, testing::ValuesIn(kSeedCases), nameOfCase);

TEST_F(KVLocalPathsTemporaryNames, RandomStringOf0CharactersIsEmptyAndReseedsTheGenerator)
{
    lookups.seconds = 21;
    lookups.ticks = 2;
    const int expected = firstDrawOf(42);
    std::srand(7);

    EXPECT_EQ(KVLocalPaths::randomString(0), QString());
    EXPECT_EQ(std::rand(), expected);
}

TEST_F(KVLocalPathsTemporaryNames, RandomStringOf1CharacterIsOneOfTheAlphabet)
{
    const QString text = KVLocalPaths::randomString(1);

    ASSERT_EQ(text.size(), 1);
    EXPECT_TRUE(kAlphabet.contains(text));
}

TEST_F(KVLocalPathsTemporaryNames, RandomStringsInTheSameSecondAndTickAreTheSame)
{
    EXPECT_EQ(KVLocalPaths::randomString(20), KVLocalPaths::randomString(20));
}

TEST_F(KVLocalPathsTemporaryNames, RandomStringsInTheSameSecondAndAnotherTickDiffer)
{
    const QString before = KVLocalPaths::randomString(20);
    ++lookups.ticks;

    EXPECT_NE(KVLocalPaths::randomString(20), before);
}

TEST_F(KVLocalPathsTemporaryNames, RandomStringBeforeTheFirstTickIsThatOfSeed0AtEveryTimeOfDay)
{
    lookups.ticks = 0;
    const QString ofSeed0 = drawn(0, 20);

    for (const std::time_t seconds :
         {std::time_t(0), std::time_t(1), std::time_t(86'399), std::time_t(1'700'000'000)}) {
        lookups.seconds = seconds;
        EXPECT_EQ(KVLocalPaths::randomString(20), ofSeed0);
    }
}

TEST_F(KVLocalPathsTemporaryNames, RandomStringIsMadeOfLowerCaseAsciiLettersAndDigitsAlone)
{
    const QString text = KVLocalPaths::randomString(100'000);

    for (const QChar character : kAlphabet) {
        EXPECT_TRUE(text.contains(character)) << character.toLatin1();
    }
    for (const QChar character : text) {
        ASSERT_TRUE(kAlphabet.contains(character)) << static_cast<int>(character.unicode());
    }
}

TEST_F(KVLocalPathsTemporaryNames, RandomStringAsksTheTimeFirstThenTheProcessorTimeOnEveryCall)
{
    KVLocalPaths::randomString(0);
    KVLocalPaths::randomString(3);

    EXPECT_EQ(lookups.questions, (Questions{"time", "clock", "time", "clock"}));
}

TEST_F(KVLocalPathsTemporaryNames, RandomStringOf10000000CharactersHasThatManyAndNoSpareMemory)
{
    constexpr std::uint64_t kLength = 10'000'000;

    const QString text = KVLocalPaths::randomString(kLength);

    EXPECT_EQ(static_cast<std::uint64_t>(text.size()), kLength);
    EXPECT_LT(static_cast<std::uint64_t>(text.capacity()), kLength + kLength / 10);
}

TEST_F(KVLocalPathsTemporaryNames, RandomStringThatNoMemoryCanHoldThrows)
{
    EXPECT_THROW(KVLocalPaths::randomString(std::numeric_limits<std::uint64_t>::max()), std::bad_alloc);
}

TEST_F(KVLocalPathsTemporaryNames, TempDirectoryIsWhatTheSystemGivesUnchanged)
{
    lookups.temporary = u"/private/tmp//of user1/"_s;

    EXPECT_EQ(KVLocalPaths::tempDirectory(), u"/private/tmp//of user1/"_s);
    EXPECT_EQ(lookups.questions, Questions{"temporary directory"});
}

TEST_F(KVLocalPathsTemporaryNames, TempDirectoryAndUuidOfRootAreTheProcesssToo)
{
    runAsRoot(lookups, u"user1"_s);

    EXPECT_EQ(KVLocalPaths::tempDirectory(), u"/tmp/of-user1/"_s);
    EXPECT_EQ(KVLocalPaths::uuid(), u"unique"_s);
    EXPECT_EQ(lookups.questions, (Questions{"temporary directory", "unique string"}));
}

TEST_F(KVLocalPathsTemporaryNames, TempFileIsTheUniqueStringAnd8RandomCharactersInTheTemporaryDirectory)
{
    lookups.seconds = 21;
    lookups.ticks = 2;
    lookups.temporary = u"/tmp/of-user1/"_s;
    lookups.uniqueStrings = {u"4D2C-11"_s};

    EXPECT_EQ(KVLocalPaths::tempFile(), u"/tmp/of-user1/4D2C-11"_s + drawn(42, 8));
    EXPECT_EQ(lookups.questions, (Questions{"temporary directory", "unique string", "time", "clock"}));
}

TEST_F(KVLocalPathsTemporaryNames, TempFileTwiceGivesTwoPathsEvenWhenTheRandomCharactersRepeat)
{
    lookups.uniqueStrings = {u"first"_s, u"second"_s};

    const std::optional<QString> first = KVLocalPaths::tempFile();
    const std::optional<QString> second = KVLocalPaths::tempFile();

    ASSERT_TRUE(first && second);
    EXPECT_NE(*first, *second);
    EXPECT_EQ(first->last(8), second->last(8));
}

TEST_F(KVLocalPathsTemporaryNames, TempFileWithoutATemporaryDirectoryIsNothingAndAsksTheRestAllTheSame)
{
    lookups.temporary = std::nullopt;

    EXPECT_EQ(KVLocalPaths::tempFile(), std::nullopt);
    EXPECT_EQ(lookups.questions, (Questions{"temporary directory", "unique string", "time", "clock"}));
}
