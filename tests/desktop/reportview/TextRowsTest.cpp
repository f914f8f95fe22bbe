// Rows found from any place against rows counted from the start of the text.
#include "desktop/reportview/TextRows.h"

#include "ViewSupport.h"

#include <QRandomGenerator>

#include <ctime>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

bool endsLine(QChar unit)
{
    return unit == u'\n' || unit == u'\r' || unit == QChar(0x2028) || unit == QChar(0x2029);
}

/// All rows of the text by the definition, from its start.
std::vector<Row> countedRows(const QString &text)
{
    std::vector<Row> rows;
    qsizetype begin = 0;
    do {
        qsizetype end = begin;
        while (end < text.size() && !endsLine(text[end])) {
            ++end;
        }
        qsizetype next = std::min(end + 1, text.size());
        if (next < text.size() && text[end] == u'\r' && text[next] == u'\n') {
            ++next;
        }
        qsizetype rowBegin = begin;
        for (qsizetype multiple = 0; multiple < end; multiple += kRowUnits) {
            if (multiple >= begin + kRowUnits) {
                const qsizetype division = divisionBefore(text, multiple);
                rows.push_back({rowBegin, division, division});
                rowBegin = division;
            }
        }
        rows.push_back({rowBegin, end, next});
        begin = next;
    } while (begin < text.size());
    if (!text.isEmpty() && endsLine(text.back())) {
        rows.push_back({text.size(), text.size(), text.size()});
    }
    return rows;
}

/// Every place near a row's ends and near those at which lines are divided, and some of the others.
qsizetype nextTried(const Row &row, qsizetype offset)
{
    constexpr qsizetype kNear = 40;
    const auto isNear = [offset](qsizetype place) { return std::abs(offset - place) <= kNear; };
    const qsizetype multiple = (offset + kNear) / kRowUnits * kRowUnits;
    const bool isClose = isNear(row.begin) || isNear(row.next) || isNear(multiple);
    const qsizetype following = std::min(row.next - kNear, (offset / kRowUnits + 1) * kRowUnits - kNear);
    return isClose ? offset + 1 : std::max(offset + 1, std::min(offset + 97, following));
}

void expectCountedRows(const QString &text)
{
    const std::vector<Row> rows = countedRows(text);
    Row walked = rowAt(text, 0);
    for (const Row &row : rows) {
        ASSERT_EQ(walked, row);
        for (qsizetype offset = row.begin; offset < row.next; offset = nextTried(row, offset)) {
            ASSERT_EQ(rowAt(text, offset), row) << "at " << offset;
        }
        if (row.begin > 0) {
            ASSERT_EQ(nextRow(text, previousRow(text, row)), row);
        }
        if (!row.isLast(text)) {
            walked = nextRow(text, row);
        }
    }
    ASSERT_EQ(rowAt(text, text.size()), rows.back());
    ASSERT_TRUE(rows.back().isLast(text));
}

QString randomText(QRandomGenerator &random)
{
    static const std::vector<QString> pieces = {u"\n"_s,
                                                u"\r\n"_s,
                                                u"\r"_s,
                                                u"\u2028"_s,
                                                u"\u2029"_s,
                                                u" "_s,
                                                u"x"_s,
                                                u"\U0001F4A5"_s,
                                                u"e\u0301"_s,
                                                QString(60, u'y'),
                                                QString(4'000, u'z'),
                                                QString(5'000, u'w'),
                                                QString(9'000, QChar(0x5D0))};
    QString text;
    for (int count = 0; count < 24; ++count) {
        text += pieces[random.bounded(static_cast<quint32>(pieces.size()))];
    }
    return text;
}

class HostileRows : public testing::TestWithParam<HostileText>
{
};

/// A character of several code units, given alone.
class PartedCharacters : public testing::TestWithParam<HostileText>
{
};

} // namespace

TEST_P(HostileRows, AreFoundFromAnyPlaceAsTheyAreCountedFromTheStart)
{
    expectCountedRows(GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(, HostileRows, testing::ValuesIn(hostileTexts()), nameOf);

TEST(TextRows, RandomTextsHaveTheRowsThatAreCountedFromTheirStart)
{
    QRandomGenerator random(7);
    for (int count = 0; count < 10; ++count) {
        expectCountedRows(randomText(random));
        if (testing::Test::HasFatalFailure()) {
            return;
        }
    }
}

// Every place of a line end around the places where a line would be divided, and where looking for such a place ends.
TEST(TextRows, LineEndsAroundADivisionAreNeverParted)
{
    for (const QString &lineEnd : {u"\n"_s, u"\r\n"_s, u"\r"_s, u"\u2028"_s, u"\r\n\r\n"_s}) {
        for (const qsizetype place : {kRowUnits - 32, kRowUnits, kRowUnits + 32}) {
            for (qsizetype units = place - 4; units <= place + 4; ++units) {
                expectCountedRows(QString(units, u'x') + lineEnd + QString(kRowUnits + 50, u'y'));
                expectCountedRows(QString(kRowUnits + units, u'x') + lineEnd + u"y"_s);
                expectCountedRows(QString(units, u'x') + lineEnd + u"harbour "_s.repeated(kRowUnits / 6));
                ASSERT_FALSE(testing::Test::HasFatalFailure()) << units;
            }
        }
    }
}

TEST(TextRows, NoRowIsLongerThanTwiceTheUnitsOfARow)
{
    const QString text = u"x\n"_s + QString(100'000, u'x');
    for (const Row &row : countedRows(text)) {
        EXPECT_LE(row.end - row.begin, 2 * kRowUnits);
    }
}

TEST(TextRows, LinesOfUsualLengthAreNeverDivided)
{
    const QString text = (QString(kRowUnits - 1, u'x') + u'\n').repeated(20);
    for (const Row &row : countedRows(text)) {
        EXPECT_FALSE(row.isContinued(text));
    }
}

TEST_P(PartedCharacters, AreNoneWhereALineIsDivided)
{
    const QString &character = GetParam().text;
    for (int shift = 0; shift < character.size(); ++shift) {
        const QString text = QString(shift, u'x') + character.repeated(5'000);
        for (const Row &row : countedRows(text)) {
            EXPECT_EQ((std::max<qsizetype>(row.begin, shift) - shift) % character.size(), 0) << row.begin;
        }
    }
}

TEST_P(PartedCharacters, AreNoneWhereARowIsDividedIntoPieces)
{
    constexpr qsizetype kPieceUnits = 256;
    const QString &character = GetParam().text;
    for (int shift = 0; shift < character.size(); ++shift) {
        const QString row = QString(shift, u'x') + character.repeated(2 * kRowUnits / character.size());
        for (qsizetype begin = 0; begin < row.size(); begin = divisionBefore(row, begin + kPieceUnits)) {
            EXPECT_EQ((std::max<qsizetype>(begin, shift) - shift) % character.size(), 0) << begin;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, PartedCharacters,
                         testing::Values(HostileText{"Pair", u"\U0001F4A5"_s}, HostileText{"Accent", u"e\u0301"_s},
                                         HostileText{"SkinColour", u"\U0001F44D\U0001F3FD"_s},
                                         HostileText{"Selector", u"\u2764\uFE0F"_s},
                                         HostileText{"Family", u"\U0001F468\u200D\U0001F469\u200D\U0001F467"_s},
                                         HostileText{"Flag", u"\U0001F1E9\U0001F1EA"_s},
                                         HostileText{"FlagOfTheFirstLetter", u"\U0001F1E6\U0001F1E9"_s},
                                         HostileText{"FlagOfTheLastLetter", u"\U0001F1FF\U0001F1E6"_s},
                                         HostileText{"TwoJamo", u"\u1112\u1161"_s},
                                         HostileText{"ThreeJamo", u"\u1112\u1161\u11AB"_s}),
                         nameOf);

// It begins with the same unit as the letters of a flag.
TEST(TextRows, PictureThatIsNoFlagLetterPartsNoFlagBehindIt)
{
    const QString picture = u"\U0001F201"_s;
    const QString text = picture + u"\U0001F1E9\U0001F1EA"_s.repeated(5'000);
    const std::vector<Row> rows = countedRows(text);
    ASSERT_GT(rows.size(), 2U);
    for (size_t index = 1; index < rows.size(); ++index) {
        EXPECT_EQ((rows[index].begin - picture.size()) % 4, 0) << rows[index].begin;
    }
}

TEST(TextRows, TextIsDividedBehindTheNextSpaceAmongThe32UnitsBefore)
{
    for (qsizetype space = 60; space < 100; ++space) {
        QString text(200, u'x');
        text[space] = u' ';
        EXPECT_EQ(divisionBefore(text, 100), space >= 68 ? space + 1 : 100) << space;
        text[space - 3] = u' ';
        EXPECT_EQ(divisionBefore(text, 100), space >= 68 ? space + 1 : 100) << space;
    }
    EXPECT_EQ(divisionBefore(u" xxxx", 3), 1);
    EXPECT_EQ(divisionBefore(u"xxxx", 3), 3);
}

TEST(TextRows, TextIsNotDividedAtItsEndsAndOutsideThem)
{
    for (const QString &text : {u"a bc"_s, u"abc "_s, QChar(0xDCA5) + u"bcd"_s, QString()}) {
        EXPECT_EQ(divisionBefore(text, text.size()), text.size());
        EXPECT_EQ(divisionBefore(text, text.size() + 9), text.size());
        EXPECT_EQ(divisionBefore(text, 0), 0);
        EXPECT_EQ(divisionBefore(text, -9), 0);
    }
    EXPECT_EQ(divisionBefore(QChar(0xDCA5) + u"bcd"_s, 2), 2);
}

TEST(TextRows, CharacterLongerThanThe32UnitsIsPartedButNoPairOfIt)
{
    const QString accents = u'a' + QString(80, QChar(0x301));
    EXPECT_EQ(divisionBefore(accents, 20), 20) << "near the start of the text";
    EXPECT_EQ(divisionBefore(accents, 60), 60);
    const QString pairs = u'a' + u"\U000E0100"_s.repeated(40);
    for (const qsizetype offset : {1, 41, 79}) {
        EXPECT_EQ(divisionBefore(pairs, offset), offset);
        EXPECT_EQ(divisionBefore(pairs, offset + 1), offset) << "inside a pair";
    }
    EXPECT_EQ(divisionBefore(u"\U0001F4A5x", 1), 0);
    // Joined into one: where they are can be told only from the first of them.
    const QString pictures = u"\U0001F468\u200D"_s.repeated(40);
    EXPECT_EQ(divisionBefore(pictures, 94), 93);
    EXPECT_EQ(divisionBefore(pictures, 20), 20);
}

// Looked at together, none of them must be taken for the others.
TEST(TextRows, EveryOneOfManyLineEndsSideBySideEndsARow)
{
    for (const QString &lineEnd : {u"\n"_s, u"\r"_s, u"\u2028"_s, u"\u2029"_s}) {
        expectCountedRows(u"x"_s + lineEnd.repeated(200) + u"y"_s);
        ASSERT_FALSE(testing::Test::HasFatalFailure());
    }
}

TEST(TextRows, LineIsFoundAtEitherEndAndOutsideTheText)
{
    const QString text = u"\nab\r\ncd"_s;
    for (const qsizetype offset : {-5, 0}) {
        EXPECT_EQ(lineAt(text, offset), (Range{0, 1}));
        EXPECT_EQ(rowAt(text, offset), (Row{0, 0, 1}));
    }
    for (const qsizetype offset : {5, 7, 99}) {
        EXPECT_EQ(lineAt(text, offset), (Range{5, 7}));
        EXPECT_EQ(rowAt(text, offset), (Row{5, 7, 7}));
    }
}

// Where a flag begins can be told from the first one alone, and that may be anywhere.
TEST(TextRows, EndlessRunOfFlagsIsPartedOnceAtMostAndHasTheSameRowsFromAnyPlace)
{
    const QString text = u"xx"_s + u"\U0001F1E9\U0001F1EA"_s.repeated(30'000);
    const std::vector<Row> rows = countedRows(text);
    ASSERT_EQ(rows.size(), 30U);
    int parted = 0;
    for (size_t index = 1; index + 1 < rows.size(); ++index) {
        const Row &row = rows[index];
        ASSERT_EQ(rowAt(text, row.begin), row);
        ASSERT_EQ(rowAt(text, row.end - 1), row);
        parted += (row.end - row.begin) % 4 == 0 ? 0 : 1;
    }
    EXPECT_LE(parted, 1);
}

TEST(TextRows, LineIsDividedBetweenWords)
{
    const QString text = u"harbour "_s.repeated(2'000);
    for (const Row &row : countedRows(text)) {
        EXPECT_TRUE(row.begin == text.size() || text.mid(row.begin).startsWith(u"harbour"_s));
    }
}

TEST(TextRows, LineOfManyUnitsIsFoundWhole)
{
    const QString text = u"before\r\n"_s + QString(16'000'000, u'x') + u"\nafter"_s;
    EXPECT_EQ(lineAt(text, 3), (Range{0, 8}));
    EXPECT_EQ(lineAt(text, 8), (Range{8, 16'000'009}));
    EXPECT_EQ(lineAt(text, 9'000'000), (Range{8, 16'000'009}));
    EXPECT_EQ(lineAt(text, text.size()), (Range{16'000'009, text.size()}));
}

// The work for one row must not depend on what the text holds elsewhere: a bound that only a scan could break.
TEST(TextRows, TenThousandRowsOfAVeryLargeTextTakeNoScanOfIt)
{
    const QString text(qsizetype(128) * 1024 * 1024, u'x');
    QRandomGenerator random(3);
    const std::clock_t begun = std::clock();
    for (int count = 0; count < 10'000; ++count) {
        const qsizetype offset = random.bounded(static_cast<int>(text.size()));
        const Row row = rowAt(text, offset);
        ASSERT_TRUE(row.begin <= offset && offset < row.next);
    }
    EXPECT_LT(std::clock() - begun, 10 * CLOCKS_PER_SEC);
}
