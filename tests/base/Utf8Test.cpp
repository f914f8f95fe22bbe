// Strict conversions between text and bytes.
#include "base/Utf8.h"

#include "support/LimitedMemory.h"
#include "support/NamedCase.h"

#include <gtest/gtest.h>

#include <new>

using namespace Qt::StringLiterals;

namespace {

struct Bytes : NamedCase {
    QByteArray bytes;
};

class InvalidUtf8 : public testing::TestWithParam<Bytes>
{
};

class ValidUtf8 : public testing::TestWithParam<Bytes>
{
};

} // namespace

TEST_P(InvalidUtf8, HasNoText)
{
    EXPECT_EQ(textFromUtf8(GetParam().bytes), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, InvalidUtf8,
    testing::Values(Bytes{{"BadAtTheStart"}, "\xFF text"}, Bytes{{"BadInTheMiddle"}, "te\xC3xt"},
                    Bytes{{"CutAtTheEndAfterOne"}, "text\xC3"}, Bytes{{"CutAtTheEndAfterTwo"}, "text\xE2\x82"},
                    Bytes{{"CutAtTheEndAfterThree"}, "text\xF0\x9F\x98"}, Bytes{{"LoneContinuation"}, "\x80"},
                    Bytes{{"OverlongSlash"}, "\xC0\xAF"}, Bytes{{"OverlongOfThree"}, "\xE0\x80\xAF"},
                    Bytes{{"OverlongNul"}, "\xC0\x80"}, Bytes{{"HighSurrogate"}, "\xED\xA0\x80"},
                    Bytes{{"SurrogatePair"}, "\xED\xA0\xBD\xED\xB8\x80"}, Bytes{{"BeyondTheLast"}, "\xF4\x90\x80\x80"},
                    Bytes{{"FiveByteForm"}, "\xF8\x88\x80\x80\x80"},
                    Bytes{{"Utf16Mark"}, QByteArray("\xFF\xFEt\0", 4)}),
    nameOfCase);

TEST_P(ValidUtf8, ComesBackAsTheSameBytes)
{
    const std::optional<QString> text = textFromUtf8(GetParam().bytes);

    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(utf8FromText(*text), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, ValidUtf8,
    testing::Values(Bytes{{"Empty"}, ""}, Bytes{{"Mark"}, "\xEF\xBB\xBFtext"}, Bytes{{"MarkAlone"}, "\xEF\xBB\xBF"},
                    Bytes{{"TwoMarks"}, "\xEF\xBB\xBF\xEF\xBB\xBF"}, Bytes{{"Nul"}, QByteArray("a\0b\0", 4)},
                    Bytes{{"LineEnds"}, "a\r\nb\rc\n\xE2\x80\xA8"}, Bytes{{"Emoji"}, "\xF0\x9F\x98\x80"},
                    Bytes{{"LastCharacter"}, "\xF4\x8F\xBF\xBF"}, Bytes{{"Noncharacter"}, "\xEF\xBF\xBE\xEF\xB7\x90"},
                    Bytes{{"NoBreakSpace"},
                          "a\xC2\xA0"
                          "b"}),
    nameOfCase);

TEST(Utf8, ByteOrderMarkIsACharacterOfTheText)
{
    EXPECT_EQ(textFromUtf8("\xEF\xBB\xBFx"), u"\uFEFFx"_s);
}

TEST(Utf8, UnpairedSurrogateHasNoBytes)
{
    EXPECT_EQ(utf8FromText(u"x"_s + QChar(0xD83D)), std::nullopt);
    EXPECT_EQ(utf8FromText(QChar(0xDE00) + u"x"_s), std::nullopt);
    EXPECT_EQ(utf8FromText(u"\U0001F600"_s), QByteArray("\xF0\x9F\x98\x80"));
}

namespace {

QByteArray appended(const QString &text)
{
    QByteArray bytes;
    appendUtf8(bytes, text);
    EXPECT_EQ(utf8Length(text), bytes.size());
    return bytes;
}

} // namespace

TEST(Utf8, AppendedTextFollowsTheBytesThatAreThere)
{
    QByteArray bytes = "before ";
    appendUtf8(bytes, u"caf\u00E9");

    EXPECT_EQ(bytes, "before caf\xC3\xA9");
}

TEST(Utf8, AppendedTextHasOneToFourBytesACharacter)
{
    EXPECT_EQ(appended(u"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF"_s),
              "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
    EXPECT_EQ(appended(u"\uFEFFa"_s),
              "\xEF\xBB\xBF"
              "a")
        << "a mark of the text's own is kept";
    EXPECT_EQ(appended(QString()), QByteArray());
}

TEST(Utf8, AppendedTextOfTheFirstCharacterOfTwoBytesAloneIsTwiceAsLong)
{
    EXPECT_EQ(appended(QString(100, QChar(0x80))), QByteArray("\xC2\x80").repeated(100));
}

TEST(Utf8, LengthCountsWhatIsNotAsciiWhereverItStands)
{
    for (const QString &character : {u"\u00E9"_s, u"\u0800"_s, u"\U0001F4A5"_s, QString(QChar(0xDCA5))}) {
        for (qsizetype place = 0; place < 200; ++place) {
            const QString text = QString(place, u'x') + character + QString(199 - place, u'y');
            ASSERT_EQ(appended(text).size(), 199 + appended(character).size()) << place;
        }
    }
}

TEST(Utf8, HalfAPairIsAppendedAsTheReplacementCharacter)
{
    const QChar high(0xD83D);
    const QChar low(0xDE00);

    EXPECT_EQ(appended(u"x"_s + high), "x\xEF\xBF\xBD");
    EXPECT_EQ(appended(low + u"x"_s),
              "\xEF\xBF\xBD"
              "x");
    EXPECT_EQ(appended(QString(high) + high + low), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
    EXPECT_EQ(appended(QString(low) + high), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Utf8, PairAtAnyPlaceOfALongTextStaysWhole)
{
    for (qsizetype before = 4090; before <= 4100; ++before) {
        const QByteArray start(before, 'a');
        const QByteArray end(5000, 'b');
        EXPECT_EQ(appended(QString::fromLatin1(start) + u"\U0001F600\U0001F600"_s + QString::fromLatin1(end)),
                  start + "\xF0\x9F\x98\x80\xF0\x9F\x98\x80" + end)
            << before;
        EXPECT_EQ(appended(QString::fromLatin1(start) + QChar(0xD83D) + u"\U0001F600"_s + QString::fromLatin1(end)),
                  start + "\xEF\xBF\xBD\xF0\x9F\x98\x80" + end)
            << "behind half a pair, " << before;
    }
}

TEST(Utf8, BytesStayAsTheyWereWhereThereIsNoMemoryForTheText)
{
    // 72 MiB of UTF-8: what the C library has reserved for the allocations of a thread is 64 MiB.
    const QString text(qsizetype(24) * 1024 * 1024, QChar(0x2500));
    QByteArray bytes = "before";
    const LimitedMemory eightMebibytesMore(8 * 1024 * 1024);

    EXPECT_THROW(appendUtf8(bytes, text), std::bad_alloc);

    EXPECT_EQ(bytes, "before");
}

TEST(Utf8, AsciiEndsAt7F)
{
    EXPECT_EQ(textFromAscii(QByteArray("a\0\x7F", 3)), u"a\0\x7F"_s);
    EXPECT_EQ(textFromAscii("\x80"), std::nullopt);
    EXPECT_EQ(textFromAscii(""), QString());
}
