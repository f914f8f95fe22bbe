// What the head of an answer says.
#include "desktop/transfer/AnswerHead.h"

#include <QList>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

AnswerHead headOf(long status, const QList<QByteArray> &lines)
{
    AnswerHead head;
    head.take("HTTP/1.1 " + QByteArray::number(qlonglong(status)) + " Reason\r\n", status);
    for (const QByteArray &line : lines) {
        head.take(line + "\r\n", status);
    }
    return head;
}

} // namespace

TEST(AnswerHead, EndsWithItsBlankLine)
{
    EXPECT_FALSE(headOf(200, {"Server: x"}).hasEnded());
    EXPECT_TRUE(headOf(200, {"Server: x", ""}).hasEnded());
}

TEST(AnswerHead, EndsWithABareLineFeed)
{
    AnswerHead head;
    head.take("HTTP/1.1 200 OK\n", 200);
    head.take("\n", 200);
    EXPECT_TRUE(head.hasEnded());
}

TEST(AnswerHead, GoesOnAfterALineOfBlanks)
{
    for (const char *blanks : {" ", "\t", " \t "}) {
        EXPECT_FALSE(headOf(200, {"Server: x", blanks}).hasEnded()) << blanks;
        EXPECT_TRUE(headOf(200, {"Server: x", blanks, ""}).isClear()) << blanks;
    }
}

TEST(AnswerHead, GoesOnAfterALineWithoutAColon)
{
    const AnswerHead head = headOf(302, {"Location /other", ""});
    EXPECT_TRUE(head.hasEnded());
    EXPECT_TRUE(head.isClear());
    EXPECT_FALSE(head.isRedirect());
}

TEST(AnswerHead, EndsUnclearlyWithALineThatOnlyBeginsLikeABlankOne)
{
    for (const char *line : {"\rX", "\r", "\rLocation: /"}) {
        const AnswerHead head = headOf(200, {"Server: x", line});
        EXPECT_TRUE(head.hasEnded()) << line;
        EXPECT_FALSE(head.isClear()) << line;
    }
}

TEST(AnswerHead, OfAnInterimAnswerLeavesNothingToTheFinalOneHoweverItEnds)
{
    AnswerHead head = headOf(103, {"Transfer-Encoding: chunked", "\rX"});
    head.take("HTTP/1.1 200 OK\r\n", 200);
    head.take("\r\n", 200);
    EXPECT_TRUE(head.hasEnded());
    EXPECT_FALSE(head.isChunked());
}

TEST(AnswerHead, InChunksLacksTheLineFeedOfItsLastLineUntilItHasCome)
{
    AnswerHead head = headOf(200, {"Transfer-Encoding: chunked", ""});
    EXPECT_FALSE(head.lacksLineFeed());
    head.takeBody("0\r\nX: 1\r\n\r");
    EXPECT_TRUE(head.lacksLineFeed());
    head.takeBody("");
    EXPECT_TRUE(head.lacksLineFeed());
    head.takeBody("\n");
    EXPECT_FALSE(head.lacksLineFeed());
    AnswerHead whole = headOf(200, {"Content-Length: 1", ""});
    whole.takeBody("\r");
    EXPECT_FALSE(whole.lacksLineFeed());
}

TEST(AnswerHead, InChunksWithACarriageReturnBehindTheirEndLacksALineFeed)
{
    AnswerHead head = headOf(200, {"Transfer-Encoding: chunked", ""});
    head.takeBody("0\r\n\r\n\r");
    EXPECT_TRUE(head.lacksLineFeed());
    AnswerHead another = headOf(200, {"Transfer-Encoding: chunked", ""});
    another.takeBody("0\r\n\r\nX");
    EXPECT_FALSE(another.lacksLineFeed());
}

TEST(AnswerHead, IsUnclearAfterAnInterimAnswerThatIsNoneOfHttp)
{
    const auto isClearAfter = [](const char *begins, const char *ends) {
        AnswerHead head;
        head.take(begins, 103);
        head.take(ends, 103);
        head.take("HTTP/1.1 103 Early Hints\r\n", 103);
        head.take("\r\n", 103);
        head.take("HTTP/1.1 200 OK\r\n", 200);
        head.take("Content-Length: 0\r\n", 200);
        head.take("\r\n", 200);
        EXPECT_TRUE(head.hasEnded());
        return head.isClear();
    };
    EXPECT_TRUE(isClearAfter("HTTP/1.1 103 Early Hints\r\n", "\r\n"));
    EXPECT_FALSE(isClearAfter("HTTP/1.1 103%Early\r\n", "\r\n"));
    EXPECT_FALSE(isClearAfter("HTTP/1.1 100garbage here\r\n", "\r\n"));
    EXPECT_FALSE(isClearAfter("HTTP/1.1 103 Early Hints\r\n", "\rX\r\n"));
}

TEST(AnswerHead, OfAnInterimAnswerIsNotTheEnd)
{
    for (const long status : {100L, 101L, 102L, 103L, 199L}) {
        EXPECT_FALSE(headOf(status, {""}).hasEnded()) << status;
    }
}

TEST(AnswerHead, OfTheFinalAnswerCountsAndNotThatOfAnInterimOne)
{
    AnswerHead head = headOf(103, {"Location: /hint", "Content-Length: none", ""});
    head.take("HTTP/1.1 302 Found\r\n", 302);
    head.take("\r\n", 302);
    EXPECT_TRUE(head.hasEnded());
    EXPECT_FALSE(head.isRedirect());
    EXPECT_TRUE(head.isClear());
}

TEST(AnswerHead, IsNotChangedByTrailers)
{
    AnswerHead head = headOf(302, {""});
    head.take("Location: /late\r\n", 302);
    head.take("Content-Length: none\r\n", 302);
    head.take("\r\n", 302);
    EXPECT_FALSE(head.isRedirect());
    EXPECT_TRUE(head.isClear());
}

TEST(AnswerHead, LeadsElsewhereByFiveStatusesWithALocation)
{
    for (const long status : {301L, 302L, 303L, 307L, 308L}) {
        EXPECT_TRUE(headOf(status, {"Location: /other", ""}).isRedirect()) << status;
        EXPECT_TRUE(headOf(status, {"location:", ""}).isRedirect()) << status;
        EXPECT_FALSE(headOf(status, {"X-Location: /other", ""}).isRedirect()) << status;
        EXPECT_FALSE(headOf(status, {"Location: /other"}).isRedirect()) << status;
    }
    for (const long status : {200L, 201L, 300L, 304L, 305L, 306L, 309L, 399L, 401L, 503L}) {
        EXPECT_FALSE(headOf(status, {"Location: /other", ""}).isRedirect()) << status;
    }
}

TEST(AnswerHead, HasAClearLengthWhenThereIsOneNumberOrNone)
{
    EXPECT_TRUE(headOf(200, {""}).isClear());
    EXPECT_TRUE(headOf(200, {"Content-Length: 0", ""}).isClear());
    EXPECT_TRUE(headOf(200, {"content-length:\t12 ", ""}).isClear());
    EXPECT_TRUE(headOf(200, {"Content-Length: 5", "Content-Length: 5", ""}).isClear());
    EXPECT_TRUE(headOf(200, {"Content-Length: 5, 5", ""}).isClear());
    EXPECT_TRUE(headOf(200, {"Content-Length: 05", ""}).isClear());
}

TEST(AnswerHead, NeedsNoBlankBehindAColon)
{
    EXPECT_TRUE(headOf(200, {"Content-Length:0", ""}).isClear());
    EXPECT_FALSE(headOf(200, {"Content-Length:5", "Content-Length:15", ""}).isClear());
    EXPECT_TRUE(headOf(200, {"Transfer-Encoding:chunked", ""}).isChunked());
}

TEST(AnswerHead, IsClearOnlyInTheProtocolThatIsSpoken)
{
    for (const char *line : {"http/1.1 200 OK\r\n", "HTTP/x.y 200 OK\r\n", "HTTP/2 200 OK\r\n", "HTTP/2.0 200 OK\r\n",
                             "HTTP/1.10 200 OK\r\n", "HTTP/1.1\r\n", "ICY 200 OK\r\n", "\r\n"}) {
        AnswerHead head;
        head.take(line, 200);
        head.take("\r\n", 200);
        EXPECT_FALSE(head.isClear()) << line;
    }
}

TEST(AnswerHead, IsClearOnlyWithAStatusLineOfThreeDigitsBetweenBlanks)
{
    for (const char *line : {"HTTP/1.1 200%OK\r\n", "HTTP/1.1 200-\r\n", "HTTP/1.1 2x0 OK\r\n", "HTTP/1.1 20\r\n",
                             "HTTP/1.1  200 OK\r\n", "HTTP/1.1 2000 OK\r\n", "HTTP/1.1 \r\n"}) {
        AnswerHead head;
        head.take(line, 200);
        head.take("\r\n", 200);
        EXPECT_FALSE(head.isClear()) << line;
    }
    for (const char *line : {"HTTP/1.1 200 OK\r\n", "HTTP/1.0 200 \r\n", "HTTP/1.1 200\r\n", "HTTP/1.1 200\n"}) {
        AnswerHead head;
        head.take(line, 200);
        head.take("\r\n", 200);
        EXPECT_TRUE(head.isClear()) << line;
    }
}

TEST(AnswerHead, ContinuesAFieldInALineThatBeginsWithABlank)
{
    const AnswerHead folded = headOf(302, {"X-Folded: one", " Content-Length: none", "\tLocation: /other", ""});
    EXPECT_TRUE(folded.hasEnded());
    EXPECT_TRUE(folded.isClear());
    EXPECT_FALSE(folded.isRedirect());

    EXPECT_FALSE(headOf(200, {"Content-Length: 0", " 5", ""}).isClear());
    EXPECT_TRUE(headOf(200, {"Content-Length: 0", ": a field without a name", " 5", ""}).isClear());
    EXPECT_FALSE(headOf(200, {"Transfer-Encoding: chunked", " , gzip", ""}).isClear());
}

TEST(AnswerHead, PassesOverALineThatBeginsWithABlankBeforeTheFirstField)
{
    EXPECT_TRUE(headOf(200, {" Content-Length: none", "Content-Length: 0", ""}).isClear());
    EXPECT_FALSE(headOf(302, {"\tLocation: /other", ""}).isRedirect());
}

TEST(AnswerHead, SaysWhetherTheBodyIsChunked)
{
    EXPECT_TRUE(headOf(200, {"transfer-encoding: Chunked", ""}).isChunked());
    EXPECT_TRUE(headOf(200, {"transfer-encoding: Chunked", ""}).isClear());
    EXPECT_FALSE(headOf(200, {"Transfer-Encoding: identity", ""}).isChunked());
    EXPECT_TRUE(headOf(200, {"Transfer-Encoding: identity", ""}).isClear());
    EXPECT_FALSE(headOf(200, {""}).isChunked());
}

TEST(AnswerHead, IsNotClearWithACodingThatNobodyHasAskedFor)
{
    for (const char *coding : {"gzip, chunked", "deflate, chunked", "gzip", "x-chunked", "chunked, gzip",
                               "chunked, chunked", "identity, chunked", "chunked,", ", chunked", "chunked;q=1", ""}) {
        EXPECT_FALSE(headOf(200, {"Transfer-Encoding: "_ba + coding, ""}).isClear()) << coding;
    }
    EXPECT_FALSE(headOf(200, {"Transfer-Encoding: chunked", "Transfer-Encoding: chunked", ""}).isClear());
    EXPECT_FALSE(headOf(200, {"Transfer-Encoding: identity", "Transfer-Encoding: chunked", ""}).isClear());
}

TEST(AnswerHead, IsNotClearWhereHttp10IsCoded)
{
    AnswerHead head;
    head.take("HTTP/1.0 200 OK\r\n", 200);
    head.take("Transfer-Encoding: chunked\r\n", 200);
    EXPECT_FALSE(head.isClear());
}

TEST(AnswerHead, IsNotClearWithASpaceBeforeTheColonOfItsFraming)
{
    for (const char *space : {" ", "\t", " \t"}) {
        EXPECT_FALSE(headOf(200, {"Transfer-Encoding"_ba + space + ": chunked", ""}).isClear());
        EXPECT_FALSE(headOf(200, {"Content-Length"_ba + space + ": 0", ""}).isClear());
        EXPECT_TRUE(headOf(200, {"X-Other"_ba + space + ": 0", ""}).isClear());
    }
    EXPECT_TRUE(headOf(302, {"Location : /other", ""}).isRedirect());
}

namespace {

bool isClearWithBody(const QList<QByteArray> &pieces)
{
    AnswerHead head = headOf(200, {"Transfer-Encoding: chunked", ""});
    for (const QByteArray &piece : pieces) {
        head.takeBody(piece);
    }
    return head.isClear();
}

} // namespace

TEST(AnswerHead, IsClearWhereTheFirstChunksSizeIsANumber)
{
    for (const char *size : {"0\r\n", "0\n", "000\r\n", "aF09\r\n", "0;last\r\n", "0 \t;a=b;c=\"d\"\r\n", "0 \r\n"}) {
        EXPECT_TRUE(isClearWithBody({size})) << size;
    }
    EXPECT_TRUE(isClearWithBody({"0", "", "\r", "\n\r\n"}));
    EXPECT_TRUE(isClearWithBody({"2\r\nNO\r\nzz\r\n", "\r\n"}));
}

TEST(AnswerHead, IsNotClearWhereTheFirstChunksSizeOnlyBeginsAsANumber)
{
    for (const char *size : {"\r\n", "zz\r\n", "0x2\r\n", "0NO\r\n", "0 2\r\n", "0.5\r\n", "0 rows: error\r\n",
                             "0\rNO\r\n", "-0\r\n", " 0\r\n"}) {
        EXPECT_FALSE(isClearWithBody({size})) << size;
    }
    EXPECT_FALSE(isClearWithBody({"0", "x", "2\r\n"}));
    EXPECT_FALSE(isClearWithBody({"zz\r", "\n"}));
    EXPECT_FALSE(isClearWithBody({QByteArray(5000, '0')}));
}

TEST(AnswerHead, IsNotClearWhereTheLineOfTheFirstChunksSizeIsLongerThan4096Bytes)
{
    EXPECT_TRUE(isClearWithBody({QByteArray(4094, '0') + "\r\n"}));
    EXPECT_FALSE(isClearWithBody({QByteArray(4095, '0') + "\r\n"}));
}

TEST(AnswerHead, LooksAtNoBodyThatIsNotInChunks)
{
    AnswerHead head = headOf(200, {"Content-Length: 2", ""});
    head.takeBody("NO\r\n");
    EXPECT_TRUE(head.isClear());
}

TEST(AnswerHead, HasNoClearLengthOtherwise)
{
    for (const char *value : {"", "none", "-1", "+5", "0x10", "5 5", "5;5", "5,", "5, 0", "1e3", "9223372036854775808",
                              "99999999999999999999999"}) {
        EXPECT_FALSE(headOf(200, {"Content-Length: "_ba + value, ""}).isClear()) << value;
    }
    EXPECT_FALSE(headOf(200, {"Content-Length: 5", "Content-Length: 0", ""}).isClear());
    EXPECT_FALSE(headOf(200, {"Content-Length: 0", "Content-Length: 5", ""}).isClear());
}
