// Searching in both directions, round the ends, and across the blocks that a large text is searched in.
#include "desktop/reportview/TextSearch.h"

#include "ViewSupport.h"

#include <QSignalSpy>

#include <chrono>
#include <optional>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

struct Found {
    Range place;
    bool wrapped = false;

    bool operator==(const Found &) const = default;
};

void PrintTo(const Found &found, std::ostream *out)
{
    PrintTo(found.place, out);
    *out << (found.wrapped ? " wrapped" : "");
}

class TextSearchTest : public testing::Test
{
protected:
    TextSearchTest()
    {
        QObject::connect(&search, &TextSearch::found, [this](Range place, bool wrapped) { found = {place, wrapped}; });
        QObject::connect(&search, &TextSearch::notFound, [this] { ++misses; });
    }

    std::optional<Found> result(const QString &text, const QString &words, qsizetype offset, SearchDirection direction)
    {
        found.reset();
        search.start(text, words, offset, direction);
        EXPECT_TRUE(eventually([this] { return !search.isRunning(); }));
        return found;
    }

    TextSearch search;
    std::optional<Found> found;
    int misses = 0;
};

constexpr auto kForward = SearchDirection::Forward;
constexpr auto kBackward = SearchDirection::Backward;

} // namespace

TEST_F(TextSearchTest, FindsForwardFromThePlaceAndGoesRoundTheEnd)
{
    const QString text = u"pier harbour pier"_s;
    EXPECT_EQ(result(text, u"pier"_s, 0, kForward), (Found{{0, 4}, false}));
    EXPECT_EQ(result(text, u"pier"_s, 4, kForward), (Found{{13, 17}, false}));
    EXPECT_EQ(result(text, u"pier"_s, 17, kForward), (Found{{0, 4}, true}));
    EXPECT_EQ(result(text, u"harbour"_s, 6, kForward), (Found{{5, 12}, true}));
}

TEST_F(TextSearchTest, FindsBackwardFromThePlaceAndGoesRoundTheStart)
{
    const QString text = u"pier harbour pier"_s;
    EXPECT_EQ(result(text, u"pier"_s, 17, kBackward), (Found{{13, 17}, false}));
    EXPECT_EQ(result(text, u"pier"_s, 13, kBackward), (Found{{0, 4}, false}));
    EXPECT_EQ(result(text, u"pier"_s, 0, kBackward), (Found{{13, 17}, true}));
    EXPECT_EQ(result(text, u"harbour"_s, 11, kBackward), (Found{{5, 12}, true}));
}

TEST_F(TextSearchTest, TheTextIsLetGoOfAtTheEnd)
{
    QString text = u"pier harbour pier"_s;
    text.detach();
    result(text, u"harbour"_s, 0, kForward);
    EXPECT_TRUE(text.isDetached());
    result(text, u"jetty"_s, 0, kForward);
    EXPECT_TRUE(text.isDetached());
}

TEST_F(TextSearchTest, CaseMakesNoDifference)
{
    EXPECT_EQ(result(u"The HARBOUR"_s, u"harbour"_s, 0, kForward), (Found{{4, 11}, false}));
}

TEST_F(TextSearchTest, SaysOnceThatNothingIsFound)
{
    for (const auto direction : {kForward, kBackward}) {
        misses = 0;
        EXPECT_EQ(result(u"abc"_s, u"x"_s, 1, direction), std::nullopt);
        EXPECT_EQ(result(u""_s, u"x"_s, 0, direction), std::nullopt);
        EXPECT_EQ(misses, 2);
    }
}

// The blocks of a search border anywhere: every place around the first borders is tried.
TEST_F(TextSearchTest, FindsWhatStandsAcrossTheBordersOfBlocks)
{
    const QString words = u"needle"_s;
    for (qsizetype place = 65'530; place < 65'542; ++place) {
        QString text(140'000, u'x');
        text.replace(place, words.size(), words);
        const Found expected{{place, place + words.size()}, false};
        EXPECT_EQ(result(text, words, 0, kForward), expected);
        EXPECT_EQ(result(text, words, text.size(), kBackward), expected);
        QString mirrored(140'000, u'x');
        const qsizetype fromEnd = mirrored.size() - place;
        mirrored.replace(fromEnd, words.size(), words);
        EXPECT_EQ(result(mirrored, words, mirrored.size(), kBackward), (Found{{fromEnd, fromEnd + 6}, false}));
    }
}

TEST_F(TextSearchTest, LargeTextIsSearchedInSeveralTurnsOfTheEventLoop)
{
    const QString text(qsizetype(32) * 1024 * 1024, u'x');
    for (const auto direction : {kForward, kBackward}) {
        misses = 0;
        search.start(text, u"y"_s, direction == kForward ? 0 : text.size(), direction);
        EXPECT_TRUE(search.isRunning());
        EXPECT_EQ(misses, 0);
        // Under memcheck each takes half a minute.
        EXPECT_TRUE(eventually([this] { return misses == 1; }, std::chrono::minutes(5)));
    }
}

TEST_F(TextSearchTest, FirstUnitOfATextOfWholeBlocksIsFound)
{
    const QString text = u'y' + QString(65'536, u'x');
    EXPECT_EQ(result(text, u"y"_s, text.size(), kBackward), (Found{{0, 1}, false}));
}

TEST_F(TextSearchTest, WhatStandsBehindThePlaceIsNotFoundBackwardBeforeTheStart)
{
    QString text(140'000, u'x');
    text.replace(10, 6, u"needle"_s);
    text.replace(139'990, 6, u"needle"_s);
    EXPECT_EQ(result(text, u"needle"_s, 135'000, kBackward), (Found{{10, 16}, false}));
}

TEST_F(TextSearchTest, StoppedSearchSaysNothing)
{
    search.start(QString(qsizetype(64) * 1024 * 1024, u'x'), u"y"_s, 0, kForward);
    ASSERT_TRUE(search.isRunning());
    search.stop();
    QCoreApplication::processEvents();
    EXPECT_FALSE(search.isRunning());
    EXPECT_EQ(misses, 0);
}
