// Transfers against a real TLS server: what counts as an answer, and that everything is posted exactly once.
#include "desktop/transfer/CurlUrlLoader.h"

#include "support/TransferSupport.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <unistd.h>

#include <iostream>
#include <ostream>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using After = Answer::After;
using Then = Answer::Then;

namespace {

qint64 residentKibibytes()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QFile::ReadOnly)) {
        return -1;
    }
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.simplified().split(' ').value(1).toLongLong();
        }
    }
    return -1;
}

/// Sends that many bytes, as fast as they are taken, and counts them.
Answer::Act sending(qint64 bytes, const std::shared_ptr<qint64> &sent)
{
    return [bytes, sent](QSslSocket &socket) {
        const auto more = [bytes, sent, &socket] {
            static const QByteArray kPiece(64 * 1024, 'x');
            while (*sent < bytes && socket.encryptedBytesToWrite() + socket.bytesToWrite() < kMebibyte) {
                *sent += socket.write(kPiece);
            }
        };
        QObject::connect(&socket, &QSslSocket::encryptedBytesWritten, &socket, more);
        more();
    };
}

/// Sends the bytes one by one, one at each tick.
Answer::Act trickling(const QByteArray &bytes, std::chrono::milliseconds tick)
{
    return [bytes, tick](QSslSocket &socket) {
        auto *const timer = new QTimer(&socket);
        QObject::connect(timer, &QTimer::timeout, &socket, [&socket, bytes, next = qsizetype(0)]() mutable {
            if (next < bytes.size()) {
                socket.write(bytes.sliced(next++, 1));
            }
        });
        timer->start(tick);
    };
}

/// A body whose end the server takes for that of a further request, and so does its act once more.
QByteArray seenToItsEnd(qsizetype size)
{
    return QByteArray(size, 'x') + "\r\n\r\n";
}

/// Answers with the head before the body has come, and does the rest once it has come to its end.
Answer before(const QByteArray &head, const Answer::Act &rest)
{
    return {"", Then::StayConnected, After::Head, [head, rest, isFirst = true](QSslSocket &socket) mutable {
                if (std::exchange(isFirst, false)) {
                    socket.write(head);
                } else {
                    rest(socket);
                }
            }};
}

} // namespace

// The request

TEST_F(UrlLoaderTest, TheRequestOnTheWireIsTheOneAskedFor)
{
    EXPECT_EQ(heardAfter(aPost(server.url(u"/a/b.php"_s), "line\r\n\0end"_ba)), kFinished);

    ASSERT_EQ(server.requests().size(), 1);
    const ReceivedRequest &request = server.requests().first();
    EXPECT_EQ(request.head.left(request.head.indexOf('\r')), "POST /a/b.php HTTP/1.1"_ba);
    EXPECT_EQ(request.values("Content-Type"), QList<QByteArray>{"text/plain"});
    EXPECT_EQ(request.values("Content-Length"), QList<QByteArray>{"10"});
    EXPECT_EQ(request.values("Transfer-Encoding"), QList<QByteArray>{});
    EXPECT_EQ(request.body, "line\r\n\0end"_ba);
}

TEST_F(UrlLoaderTest, AFieldAddedTwiceIsSentTwiceInItsOrder)
{
    platform::UrlRequest request = aPost(server.url());
    request.addValueForHTTPHeaderField("one", "X-Note");
    request.addValueForHTTPHeaderField("two", "X-Note");

    EXPECT_EQ(heardAfter(request), kFinished);

    EXPECT_EQ(server.requests().value(0).values("X-Note"), (QList<QByteArray>{"one", "two"}));
}

TEST_F(UrlLoaderTest, ARequestWithoutABodyIsPostedWithLengthZero)
{
    EXPECT_EQ(heardAfter(aPost(server.url(), std::nullopt)), kFinished);

    EXPECT_EQ(server.posts(), 1);
    EXPECT_EQ(server.requests().value(0).values("Content-Length"), QList<QByteArray>{"0"});
}

TEST_F(UrlLoaderTest, ABodyOfManyMebibytesArrivesByteForByte)
{
    QByteArray body(9 * kMebibyte + 7, Qt::Uninitialized);
    std::generate(body.begin(), body.end(), [value = 0u]() mutable { return static_cast<char>(value++ * 31 >> 3); });

    EXPECT_EQ(heardAfter(aPost(server.url(), body)), kFinished);

    EXPECT_EQ(server.posts(), 1);
    EXPECT_TRUE(server.requests().value(0).body == body);
}

TEST_F(UrlLoaderTest, EveryRequestHasAConnectionOfItsOwn)
{
    server.willAnswer({{answered("200 OK").bytes, Then::StayConnected}});

    const auto held = start(aPost(server.url()));
    EXPECT_TRUE(eventually([this] { return delegate.hasEnded() && server.closedConnections() == 1; }));
    delegate.heard.clear();
    heardAfter(aPost(server.url()));

    EXPECT_EQ(server.connections(), 2);
}

TEST_F(UrlLoaderTest, Http2IsNotOffered)
{
    server.offerHttp2();

    EXPECT_EQ(heardAfter(aPost(server.url())), kFinished);

    EXPECT_EQ(server.negotiatedProtocol(), "http/1.1");
}

TEST_F(UrlLoaderTest, TwoTransfersRunSideBySide)
{
    server.willAnswer({{"", Then::StayConnected}, answered("200 OK")});
    RecordingDelegate second;
    start(aPost(server.url(), "first"));
    ASSERT_TRUE(eventually([this] { return server.posts() == 1; }));

    loader.connectionWithRequestDelegate(aPost(server.url(), "second"), second);

    EXPECT_TRUE(eventually([&] { return second.hasEnded(); }));
    EXPECT_EQ(second.heard, kFinished);
    EXPECT_EQ(delegate.heard, QStringList{});
}

// Exactly one POST

namespace {

struct Loss {
    const char *name;
    Answer answer;
    qsizetype posts = 1; ///< Whose heads the server has seen.
    friend void PrintTo(const Loss &loss, std::ostream *out) { *out << loss.name; }
};

struct Body {
    const char *name;
    std::optional<QByteArray> bytes;
    friend void PrintTo(const Body &body, std::ostream *out) { *out << body.name; }
};

class LostConnection : public UrlLoaderTest, public testing::WithParamInterface<std::tuple<Loss, Body>>
{
};

} // namespace

TEST_P(LostConnection, IsAFailureAndNothingIsSentAgain)
{
    const auto &[loss, body] = GetParam();
    // A second request would be accepted, and so be noticed.
    server.willAnswer({loss.answer, answered("200 OK")});

    EXPECT_EQ(heardAfter(aPost(server.url(), body.bytes)), kFailed);
    EXPECT_EQ(server.connections(), 1);
    EXPECT_EQ(server.posts(), loss.posts);

    delegate.heard.clear();
    EXPECT_EQ(heardAfter(aPost(server.url(), body.bytes)), kFinished);
    EXPECT_EQ(server.connections(), 2);
    EXPECT_EQ(server.posts(), loss.posts + 1);
}

INSTANTIATE_TEST_SUITE_P(
    , LostConnection,
    testing::Combine(testing::Values(Loss{"ClosedAtOnce", {"", Then::HangUp, After::Accept}, 0},
                                     Loss{"ResetAtOnce", {"", Then::Reset, After::Accept}, 0},
                                     Loss{"ClosedAfterTheHead", {"", Then::HangUp, After::Head}},
                                     Loss{"ResetAfterTheHead", {"", Then::Reset, After::Head}},
                                     Loss{"ClosedAfterTheRequest", {""}},
                                     Loss{"ResetAfterTheRequest", {"", Then::Reset}},
                                     Loss{"ClosedInTheStatusLine", {"HTTP/1"}},
                                     Loss{"ClosedAfterTheStatusLine", {"HTTP/1.1 200 OK\r\n"}},
                                     Loss{"ResetAfterTheStatusLine", {"HTTP/1.1 200 OK\r\n", Then::Reset}},
                                     Loss{"ClosedInTheHead", {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n"}},
                                     Loss{"ClosedAfterAnInterimAnswer", {"HTTP/1.1 100 Continue\r\n\r\n"}}),
                     testing::Values(Body{"Body", "the report"}, Body{"EmptyBody", ""}, Body{"NoBody", std::nullopt},
                                     Body{"LargeBody", QByteArray(2 * kMebibyte, 'x')})),
    [](const auto &one) { return std::string(std::get<0>(one.param).name) + "With" + std::get<1>(one.param).name; });

TEST_F(UrlLoaderTest, AConnectionLostInTheMiddleOfTheBodyIsAFailureAndNothingIsSentAgain)
{
    for (const Then then : {Then::HangUp, Then::Reset}) {
        delegate.heard.clear();
        server.willAnswer({{"", then, After::SomeOfTheBody}});
        const qsizetype postsBefore = server.posts();

        EXPECT_EQ(heardAfter(aPost(server.url(), QByteArray(16 * kMebibyte, 'x'))), kFailed);

        EXPECT_EQ(server.posts(), postsBefore + 1);
        EXPECT_LT(server.requests().last().body.size(), 16 * kMebibyte);
    }
}

// What counts as an answer

namespace {

class Status : public UrlLoaderTest, public testing::WithParamInterface<const char *>
{
protected:
    QByteArray statusLine() const { return "HTTP/1.1 "_ba + GetParam() + "\r\n"; }
};

std::string nameOfStatus(const testing::TestParamInfo<const char *> &info)
{
    return std::string(info.param).substr(0, 3);
}

} // namespace

TEST_P(Status, WithoutABodyIsAnAnswerWithoutBytes)
{
    EXPECT_EQ(heardAfterAnswer(answered(GetParam())), kFinished);
    EXPECT_EQ(server.posts(), 1);
}

TEST_P(Status, WithABodyGivesTheBody)
{
    EXPECT_EQ(heardAfterAnswer(answered(GetParam(), "refused")), (QStringList{u"data refused"_s, u"finished"_s}));
    EXPECT_EQ(server.posts(), 1);
}

TEST_P(Status, CutBeforeItsFirstByteIsAFailure)
{
    EXPECT_EQ(heardAfterAnswer({statusLine() + "Content-Length: 10\r\n\r\n"}), kFailed);
    EXPECT_EQ(server.posts(), 1);
}

TEST_P(Status, CutShortOfItsLengthEndsAsAFailure)
{
    EXPECT_EQ(heardAfterAnswer({statusLine() + "Content-Length: 10\r\n\r\nabc"}).last(), u"failed"_s);
    EXPECT_EQ(server.posts(), 1);
}

TEST_P(Status, CutBetweenTwoChunksEndsAsAFailure)
{
    EXPECT_EQ(heardAfterAnswer({statusLine() + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n"}).last(), u"failed"_s);
    EXPECT_EQ(server.posts(), 1);
}

INSTANTIATE_TEST_SUITE_P(, Status,
                         testing::Values("200 OK", "201 Created", "205 Reset Content", "206 Partial Content",
                                         "300 Multiple Choices", "400 Bad Request", "401 Unauthorized", "403 Forbidden",
                                         "404 Not Found", "405 Method Not Allowed", "407 Proxy Authentication Required",
                                         "408 Request Timeout", "409 Conflict", "410 Gone", "413 Content Too Large",
                                         "418 Teapot", "429 Too Many Requests", "500 Internal Server Error",
                                         "501 Not Implemented", "502 Bad Gateway", "503 Service Unavailable",
                                         "504 Gateway Timeout", "599 Other"),
                         nameOfStatus);

namespace {

struct Reply {
    const char *name;
    Answer answer;
    QStringList heard;
    friend void PrintTo(const Reply &reply, std::ostream *out) { *out << reply.name; }
};

class Framing : public UrlLoaderTest, public testing::WithParamInterface<Reply>
{
};

} // namespace

TEST_P(Framing, DecidesWhetherTheAnswerIsComplete)
{
    EXPECT_EQ(heardAfterAnswer(GetParam().answer), GetParam().heard);
    EXPECT_EQ(server.posts(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    , Framing,
    testing::Values(
        Reply{"NoContentHasNoBodyWhateverItsHeadersSay", answered("204 No Content", "OK"), kFinished},
        Reply{"NotModifiedHasNoBodyWhateverItsHeadersSay",
              {"HTTP/1.1 304 Not Modified\r\nContent-Length: 9\r\n\r\n"},
              kFinished},
        Reply{"WithoutLengthTheBodyEndsWithTheConnection",
              {"HTTP/1.1 200 OK\r\n\r\nabc"},
              {u"data abc"_s, u"finished"_s}},
        Reply{"WithoutLengthAndBody", {"HTTP/1.1 200 OK\r\n\r\n"}, kFinished},
        Reply{"OfTheOldProtocol", {"HTTP/1.0 200 OK\r\n\r\n"}, kFinished},
        Reply{"WithoutLengthReset", {"HTTP/1.1 200 OK\r\n\r\n", Then::Reset}, kFailed},
        Reply{"Chunked",
              {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n"},
              {u"data abc"_s, u"finished"_s}},
        Reply{"ChunkedWithoutAByte", {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"}, kFinished},
        Reply{"ChunkedCutBeforeTheFirstChunk", {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"}, kFailed},
        Reply{"ChunkedCutInsideAChunk",
              {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nabc"},
              {u"data abc"_s, u"failed"_s}},
        Reply{"ChunkedCutInTheLastChunk", {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n"}, kFailed},
        Reply{"LengthThatIsNoNumber", {"HTTP/1.1 200 OK\r\nContent-Length: none\r\n\r\n"}, kFailed},
        Reply{"AfterAnInterimAnswer",
              {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"},
              kFinished},
        Reply{"AfterEveryKindOfInterimAnswer",
              {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 102 Processing\r\n\r\n"
               "HTTP/1.1 103 Early Hints\r\nLink: </x>\r\nLocation: /x\r\n\r\n"
               "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"},
              kFinished},
        // What follows is of a protocol that nobody has asked for.
        Reply{"RefusalAfterSwitchingProtocols",
              {"HTTP/1.1 101 Switching Protocols\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nno"},
              {u"data HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nno"_s, u"failed"_s}},
        Reply{"RefusalAfterProcessing",
              {"HTTP/1.1 102 Processing\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nno"},
              {u"data no"_s, u"finished"_s}},
        Reply{"RefusalAfterEarlyHints",
              {"HTTP/1.1 103 Early Hints\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nno"},
              {u"data no"_s, u"finished"_s}},
        Reply{"SwitchingProtocolsAlone", {"HTTP/1.1 101 Switching Protocols\r\n\r\n"}, kFailed},
        Reply{"ProcessingAlone", {"HTTP/1.1 102 Processing\r\n\r\n"}, kFailed},
        Reply{"EarlyHintsAlone", {"HTTP/1.1 103 Early Hints\r\n\r\n"}, kFailed},
        Reply{"LengthOfNothingWithAChunkedRefusal",
              {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\nTransfer-Encoding: chunked\r\n\r\n"
               "2\r\nNO\r\n0\r\n\r\n"},
              {u"data NO"_s, u"finished"_s}},
        Reply{"WithoutLengthCutWithoutTheEndOfTls", {"HTTP/1.1 200 OK\r\n\r\n", Then::Cut}, kFailed},
        Reply{"NoContentWithoutLength", {"HTTP/1.1 204 No Content\r\n\r\n", Then::StayConnected}, kFinished},
        Reply{"NotModifiedWithoutLengthCut", {"HTTP/1.1 304 Not Modified\r\n\r\n", Then::Cut}, kFinished},
        Reply{"ChunkedAndThenCut",
              {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", Then::Cut},
              kFinished},
        Reply{"WithALengthAndThenCut", {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", Then::Cut}, kFinished},
        Reply{"StatusLineAlone", {"HTTP/1.1 200 OK\r\n"}, kFailed},
        Reply{"StatusLineAloneCut", {"HTTP/1.1 200 OK\r\n", Then::Cut}, kFailed},
        Reply{"HeadWithoutItsLastByte", {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r"}, kFailed},
        Reply{"ManyHeadersBeforeNothing",
              {"HTTP/1.1 200 OK\r\n" + QByteArray("X-Header: x\r\n").repeated(300) + "Content-Length: 0\r\n\r\n",
               Then::StayConnected},
              kFinished},
        Reply{"ManyHeadersBeforeARefusal",
              {"HTTP/1.1 200 OK\r\n" + QByteArray("X-Header: x\r\n").repeated(300) + "Content-Length: 2\r\n\r\nno",
               Then::StayConnected},
              {u"data no"_s, u"finished"_s}},
        Reply{"HeadersWithoutEnd",
              {"HTTP/1.1 200 OK\r\n" + QByteArray("X-Header: x\r\n").repeated(40000), Then::StayConnected},
              kFailed},
        Reply{"OneHeaderWithoutEnd",
              {"HTTP/1.1 200 OK\r\nX: " + QByteArray(kMebibyte, 'x'), Then::StayConnected},
              kFailed},
        Reply{"InterimAnswersWithoutEnd",
              {QByteArray("HTTP/1.1 100 Continue\r\n\r\n").repeated(40000), Then::StayConnected},
              kFailed},
        Reply{"ChunkThatIsNoNumber", {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nnone\r\n\r\n"}, kFailed},
        Reply{"ChunkWithTrailers",
              {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nLocation: /x\r\n\r\n"},
              kFinished},
        Reply{"EncodingThatNobodyKnows",
              {"HTTP/1.1 200 OK\r\nTransfer-Encoding: x-unknown\r\n\r\nno", Then::HangUp},
              kFailed},
        Reply{"NegativeLength", {"HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n"}, kFailed},
        Reply{"LengthBeyondAnyNumber", {"HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999\r\n\r\n"}, kFailed},
        Reply{"TwoLengths", {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 0\r\n\r\nno"}, kFailed},
        Reply{"TwoLengthsInOne", {"HTTP/1.1 200 OK\r\nContent-Length: 0, 2\r\n\r\nno"}, kFailed},
        Reply{"OneLengthTwice",
              {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 2\r\n\r\nno"},
              {u"data no"_s, u"finished"_s}},
        Reply{"BytesAfterItsLength", {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\nno"}, kFinished},
        Reply{"OfAnotherVersionOfTheProtocol", {"HTTP/9.9 200 OK\r\nContent-Length: 0\r\n\r\n"}, kFailed},
        Reply{"WithoutHeadAtAll", {"accepted"}, kFailed},
        Reply{"AnotherProtocol", {"SSH-2.0-nothing\r\n\r\n"}, kFailed},
        Reply{"CompressedAndCut",
              {"HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 23\r\n\r\n\x1f\x8b"},
              {u"data \x1f\u008b"_s, u"failed"_s}},
        Reply{"OnAConnectionThatStays", {answered("200 OK").bytes, Then::StayConnected}, kFinished},
        Reply{"ChallengedForAPassword",
              answered("401 Unauthorized", "no", "WWW-Authenticate: Basic realm=\"x\"\r\n"),
              {u"data no"_s, u"finished"_s}},
        Reply{"ChallengedForNtlm", answered("401 Unauthorized", "", "WWW-Authenticate: NTLM\r\n"), kFinished},
        Reply{"ChallengedForNtlmWithABody",
              answered("401 Unauthorized", "no", "WWW-Authenticate: NTLM\r\nConnection: close\r\n"),
              {u"data no"_s, u"finished"_s}},
        Reply{"ChallengedAsByAProxy",
              answered("407 Proxy Authentication Required", "", "Proxy-Authenticate: Basic realm=\"x\"\r\n"),
              kFinished},
        Reply{"ChallengedForADigest",
              answered("401 Unauthorized", "", "WWW-Authenticate: Digest realm=\"x\", nonce=\"y\"\r\n"), kFinished}),
    [](const auto &one) { return one.param.name; });

// An answer before the whole report

namespace {

struct Early {
    const char *name;
    QByteArray framing; ///< What follows the status line, without a byte of a body.
    Then then;
    friend void PrintTo(const Early &early, std::ostream *out) { *out << early.name; }
};

class EarlyAnswer : public UrlLoaderTest, public testing::WithParamInterface<std::tuple<const char *, Early>>
{
protected:
    Answer answer(const QByteArray &rest) const
    {
        const auto &[status, early] = GetParam();
        return {"HTTP/1.1 "_ba + status + "\r\n" + rest, early.then, After::Head};
    }

    platform::UrlRequest aLargePost() const { return aPost(server.url(), QByteArray(32 * kMebibyte, 'x')); }
};

} // namespace

TEST_P(EarlyAnswer, WithoutBytesIsAFailureWhateverItsStatus)
{
    server.willAnswer({answer(std::get<1>(GetParam()).framing)});

    EXPECT_EQ(heardAfter(aLargePost()), kFailed);
    EXPECT_EQ(server.posts(), 1);
}

TEST_P(EarlyAnswer, WithBytesIsARefusalAtOnce)
{
    server.willAnswer({answer("Content-Length: 2\r\n\r\nno")});
    delegate.onData = [](platform::UrlConnection &transfer) { transfer.cancel(); };

    start(aLargePost());

    EXPECT_TRUE(eventually([this] { return !delegate.heard.isEmpty(); }));
    EXPECT_EQ(delegate.heard, QStringList{u"data no"_s});
    EXPECT_EQ(server.posts(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    , EarlyAnswer,
    testing::Combine(
        testing::Values("200 OK", "401 Unauthorized", "413 Content Too Large", "500 Internal Server Error"),
        testing::Values(
            Early{"AndDrains", "Content-Length: 0\r\n\r\n", Then::StayConnected},
            Early{"AndStopsReading", "Content-Length: 0\r\n\r\n", Then::StopReading},
            Early{"AndHangsUp", "Content-Length: 0\r\n\r\n", Then::HangUp},
            Early{"ClosingAndDrains", "Connection: close\r\nContent-Length: 0\r\n\r\n", Then::StayConnected},
            Early{"ChunkedAndDrains", "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", Then::StayConnected},
            Early{"ChunkedAndStopsReading", "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", Then::StopReading},
            Early{"WithoutLengthAndHangsUp", "\r\n", Then::HangUp})),
    [](const auto &one) {
        return nameOfStatus({std::get<0>(one.param), 0}) + std::get<1>(one.param).name;
    });

TEST_F(UrlLoaderTest, AnEmptyAnswerThatEndsAfterTheWholeReportIsAnAcceptanceWheneverItBegan)
{
    server.limitReceiveBuffer(16 * 1024);
    server.willAnswer({before("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n",
                              [](QSslSocket &socket) { socket.write("0\r\n\r\n"); })});

    EXPECT_EQ(heardAfter(aPost(server.url(), seenToItsEnd(256 * 1024))), kFinished);
}

TEST_F(UrlLoaderTest, TheReportIsSentToItsEndWhateverStatusAnEmptyAnswerBeginsWith)
{
    // So that the system takes over less than the whole report at once.
    server.limitReceiveBuffer(16 * 1024);
    server.willAnswer({before("HTTP/1.1 500 Internal Server Error\r\nTransfer-Encoding: chunked\r\n\r\n",
                              [](QSslSocket &socket) { socket.write("0\r\n\r\n"); })});

    EXPECT_EQ(heardAfter(aPost(server.url(), seenToItsEnd(kMebibyte))), kFinished);
}

TEST_F(UrlLoaderTest, AnEmptyAnswerToAReportThatTheSystemStillHoldsIsAFailure)
{
    server.limitReceiveBuffer(16 * 1024);
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", Then::StopReading, After::Head}});

    EXPECT_EQ(heardAfter(aPost(server.url(), QByteArray(512 * 1024, 'x'))), kFailed);
}

TEST_F(UrlLoaderTest, ARefusalIsHeardWhoseHeadComesBeforeTheReportAndItsBodyAfterwards)
{
    server.willAnswer({before("HTTP/1.1 500 Internal Server Error\r\nContent-Length: 2\r\n\r\n",
                              [](QSslSocket &socket) { socket.write("no"); })});

    EXPECT_EQ(heardAfter(aPost(server.url(), seenToItsEnd(256 * 1024))), (QStringList{u"data no"_s, u"finished"_s}));
}

TEST_F(UrlLoaderTest, AnEarlyRefusalIsHeardThoughTheConnectionIsResetBehindIt)
{
    for (const QByteArray &head : {"HTTP/1.1 413 Content Too Large\r\nContent-Length: 2\r\n\r\n"_ba,
                                   "HTTP/1.1 413 Content Too Large\r\nContent-Length: 4\r\n\r\nno"_ba}) {
        server.willAnswer({{head, Then::Reset, After::Head, [](QSslSocket &socket) {
                                socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
                                socket.flush();
                                socket.write("no");
                                socket.flush();
                            }}});
        delegate.heard.clear();
        EXPECT_TRUE(heardAfter(aPost(server.url(), QByteArray(32 * kMebibyte, 'x'))).value(0).startsWith(u"data no"_s));
    }
}

TEST_F(UrlLoaderTest, ALongRefusalIsHeardWholeFromAServerThatReadsNoMore)
{
    server.willAnswer(
        {{answered("500 Internal Server Error", QByteArray(200'000, 'x')).bytes, Then::StopReading, After::Head}});

    EXPECT_EQ(heardAfter(aPost(server.url(), QByteArray(32 * kMebibyte, 'x'))).last(), u"finished"_s);
    EXPECT_EQ(delegate.bytes, 200'000);
}

// Transport failures before a request

TEST_F(UrlLoaderTest, NothingListeningIsAFailure)
{
    EXPECT_EQ(heardAfter(aPost(withPort(aFreePort()))), kFailed);
}

TEST_F(UrlLoaderTest, AHostThatIsNotFoundIsAFailure)
{
    // Longer than any name of the domain name system (RFC 1035 section 2.3.4), so no server is asked for it.
    QUrl url(u"https://127.0.0.1/"_s);
    url.setHost(u"label."_s.repeated(50) + u"invalid"_s);
    ASSERT_TRUE(url.isValid());

    EXPECT_EQ(heardAfter(aPost(url)), kFailed);
}

namespace {

class Certificate : public UrlLoaderTest, public testing::WithParamInterface<const char *>
{
};

} // namespace

TEST_P(Certificate, ThatCannotBeTrustedIsAFailureAndNothingIsSent)
{
    TlsServer distrusted(QString::fromLatin1(GetParam()));

    EXPECT_EQ(heardAfter(aPost(distrusted.url())), kFailed);

    EXPECT_EQ(distrusted.connections(), 1);
    EXPECT_EQ(distrusted.requests().size(), 0);
}

INSTANTIATE_TEST_SUITE_P(, Certificate, testing::Values("expired", "otherhost", "stranger"),
                         [](const auto &one) { return std::string(one.param); });

// Redirects

namespace {

class Redirect : public UrlLoaderTest, public testing::WithParamInterface<const char *>
{
protected:
    QStringList heardAfterRedirectTo(const QByteArray &location, const QByteArray &body = {})
    {
        server.willAnswer({answered(GetParam(), body, "Location: " + location + "\r\n"), answered("200 OK")});
        return heardAfter(aPost(server.url(u"/first"_s)));
    }
};

} // namespace

TEST_P(Redirect, IsAFailureAndNotFollowed)
{
    EXPECT_EQ(heardAfterRedirectTo("/second"), kFailed);
    EXPECT_EQ(server.connections(), 1);
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(Redirect, IsAFailureAlsoWithoutAReport)
{
    server.willAnswer({answered(GetParam(), "", "Location: /second\r\n"), answered("200 OK")});

    EXPECT_EQ(heardAfter(aPost(server.url(), std::nullopt)), kFailed);
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(Redirect, ShowsItsOwnBodyToNobody)
{
    EXPECT_EQ(heardAfterRedirectTo("/second", QByteArray(kMebibyte, 'm')), kFailed);
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(Redirect, ShowsItsOwnBodyToNobodyWhateverEndsItsLines)
{
    server.willAnswer({{"HTTP/1.1 "_ba + GetParam() + "\nLocation: /second\nContent-Length: 2\n\nno"}});

    EXPECT_EQ(heardAfter(aPost(server.url())), kFailed);
}

TEST_P(Redirect, IsAFailureAtOnce)
{
    server.willAnswer(
        {{"HTTP/1.1 "_ba + GetParam() + "\r\nLocation: /second\r\nContent-Length: 10\r\n\r\n", Then::StayConnected}});

    EXPECT_EQ(heardAfter(aPost(server.url())), kFailed);
}

TEST_P(Redirect, ToAnUnprotectedAddressIsAFailure)
{
    EXPECT_EQ(heardAfterRedirectTo("http://127.0.0.1:" + QByteArray::number(server.port()) + "/"), kFailed);
    EXPECT_EQ(server.connections(), 1);
}

TEST_P(Redirect, ToAFileIsAFailure)
{
    EXPECT_EQ(heardAfterRedirectTo("file:///etc/hostname"), kFailed);
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(Redirect, WithAnEmptyLocationIsAFailure)
{
    EXPECT_EQ(heardAfterRedirectTo(""), kFailed);
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(Redirect, WithoutALocationIsJudgedByItsBody)
{
    EXPECT_EQ(heardAfterAnswer(answered(GetParam(), "moved")), (QStringList{u"data moved"_s, u"finished"_s}));
    delegate.heard.clear();
    EXPECT_EQ(heardAfterAnswer(answered(GetParam())), kFinished);
}

INSTANTIATE_TEST_SUITE_P(, Redirect,
                         testing::Values("301 Moved Permanently", "302 Found", "303 See Other",
                                         "307 Temporary Redirect", "308 Permanent Redirect"),
                         nameOfStatus);

TEST_F(UrlLoaderTest, ALocationOfAnAnswerThatLeadsNowhereMeansNothing)
{
    for (const char *status : {"201 Created", "300 Multiple Choices", "304 Not Modified", "305 Use Proxy"}) {
        delegate.heard.clear();
        EXPECT_EQ(heardAfterAnswer(answered(status, "", "Location: /made\r\n")), kFinished) << status;
    }
}

TEST_F(UrlLoaderTest, AChunkWhoseSizeIsUnclearIsAFailureAtOnce)
{
    EXPECT_EQ(heardAfterAnswer({"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1 2\r\nN", Then::StayConnected}),
              kFailed);
}

// Large answers

namespace {

class HeldUpAnswer : public UrlLoaderTest
{
protected:
    /// What the delegate hears when so many bytes have come while it was busy.
    QStringList sizesAfter(qsizetype size)
    {
        server.willAnswer({{answered("200 OK", QByteArray(size, 'x')).bytes, Then::StayConnected}});
        QStringList sizes;
        delegate.onData = [&, before = qint64(0)](platform::UrlConnection &) mutable {
            sizes << QString::number(delegate.bytes - std::exchange(before, delegate.bytes));
        };
        operations.perform([this] {
            start(aPost(server.url()));
            // Ends only when all of the answer was taken.
            eventually([this] { return server.closedConnections() == 1; }, 200ms);
        });
        EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
        return sizes;
    }
};

} // namespace

TEST_F(HeldUpAnswer, ComesInOnePieceOf64KibibytesAtMost)
{
    EXPECT_EQ(sizesAfter(65'536), QStringList{u"65536"_s});
}

TEST_F(HeldUpAnswer, IsHeardAtOnceWhenOnlyTheRestOfTheRequestIsLeft)
{
    // What libcurl has held back is handed over without a word from the server, which neither reads nor writes.
    server.willAnswer({{answered("500 Error", QByteArray(65'537, 'x')).bytes, Then::StopReading, After::Head}});
    operations.perform([this] {
        start(aPost(server.url(), QByteArray(32 * kMebibyte, 'x')));
        eventually([] { return false; }, 200ms);
    });

    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
    EXPECT_EQ(delegate.bytes, 65'537);
    EXPECT_EQ(delegate.heard.last(), u"finished"_s);
}

TEST_F(HeldUpAnswer, ComesInTwoPiecesBeyondThat)
{
    EXPECT_EQ(sizesAfter(65'537).size(), 2);
    EXPECT_LE(delegate.largest, 65'536);
}

TEST_F(UrlLoaderTest, AnAnswerOfOneGibibyteNeedsLittleMemory)
{
    const auto sent = std::make_shared<qint64>(0);
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n", Then::StayConnected, After::Request,
                        sending(1024 * kMebibyte, sent)}});
    const qint64 before = residentKibibytes();
    ASSERT_GT(before, 0);
    qint64 most = before;
    delegate.onData = [this, &most](platform::UrlConnection &) {
        delegate.heard.clear();
        if (delegate.bytes % (16 * kMebibyte) < 64 * 1024) {
            most = std::max(most, residentKibibytes());
        }
    };

    start(aPost(server.url()));
    ASSERT_TRUE(eventually([this] { return delegate.hasEnded(); }, 100s));

    EXPECT_EQ(delegate.heard, kFinished);
    EXPECT_EQ(delegate.bytes, 1024 * kMebibyte);
    EXPECT_LE(delegate.largest, 64 * 1024);
    // Far below the answer, with room for the freed memory that a sanitizer holds back.
    EXPECT_LT(most - before, 384 * 1024);
}

TEST_F(UrlLoaderTest, BytesThatNobodyTakesStayWithTheServer)
{
    const auto sent = std::make_shared<qint64>(0);
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n", Then::StayConnected, After::Request,
                        sending(1024 * kMebibyte, sent)}});
    bool sentMuch = false;
    delegate.onData = [&](platform::UrlConnection &transfer) {
        // What the system's own buffers take is far below this.
        sentMuch = eventually([&] { return *sent > 128 * kMebibyte; }, 2s);
        transfer.cancel();
    };

    start(aPost(server.url()));
    ASSERT_TRUE(eventually([this] { return server.closedConnections() == 1; }));

    EXPECT_FALSE(sentMuch);
    EXPECT_EQ(delegate.heard.size(), 1);
}

TEST_F(UrlLoaderTest, OnlyTheFirstChunkComesWhenTheDelegateCancelsThere)
{
    const auto sent = std::make_shared<qint64>(0);
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n", Then::StayConnected, After::Request,
                        sending(1024 * kMebibyte, sent)}});
    delegate.onData = [](platform::UrlConnection &transfer) { transfer.cancel(); };

    start(aPost(server.url()));

    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    EXPECT_EQ(delegate.heard.size(), 1);
    EXPECT_LE(delegate.bytes, 64 * 1024);
    EXPECT_LT(*sent, 128 * kMebibyte);
}

// Cancelling and lifetime

TEST_F(UrlLoaderTest, NothingIsReportedBeforeTheEventLoopRuns)
{
    const auto transfer = start(aPost(withPort(aFreePort())));

    EXPECT_NE(transfer, nullptr);
    EXPECT_EQ(delegate.heard, QStringList{});
    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
}

TEST_F(UrlLoaderTest, AfterCancelNothingIsReportedAndTheConnectionEnds)
{
    server.willAnswer({{"", Then::StayConnected}});
    const auto transfer = start(aPost(server.url()));
    ASSERT_TRUE(eventually([this] { return server.posts() == 1; }));

    transfer->cancel();

    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    EXPECT_EQ(delegate.heard, QStringList{});
}

TEST_F(UrlLoaderTest, CancelBeforeAnythingHappenedReportsNothingAndPostsNothing)
{
    const auto transfer = start(aPost(server.url()));
    transfer->cancel();

    EXPECT_EQ(heardUntilALaterEnd(loader), QStringList{});
    EXPECT_EQ(server.posts(), 1);
}

TEST_F(UrlLoaderTest, ACallbackThatWaitedIsDroppedByCancel)
{
    server.willAnswer({answered("200 OK", "refused")});
    const auto transfer = start(aPost(server.url()));
    operations.perform([&] {
        // The whole answer arrives while this operation runs.
        ASSERT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
        transfer->cancel();
    });

    EXPECT_EQ(heardUntilALaterEnd(loader), QStringList{});
}

TEST_F(UrlLoaderTest, CancellingATransferThatHasEndedDoesNothing)
{
    const auto transfer = start(aPost(server.url()));
    ASSERT_TRUE(eventually([this] { return delegate.hasEnded(); }));

    transfer->cancel();
    transfer->cancel();

    QCoreApplication::processEvents();
    EXPECT_EQ(delegate.heard, kFinished);
}

TEST_F(UrlLoaderTest, CancellingInsideTheLastCallbackDoesNothing)
{
    delegate.onEnd = [](platform::UrlConnection &transfer) { transfer.cancel(); };

    EXPECT_EQ(heardAfter(aPost(server.url())), kFinished);
}

TEST_F(UrlLoaderTest, WhileNothingHappensTheEventLoopRests)
{
    server.willAnswer({{"", Then::StayConnected}});
    const auto transfer = start(aPost(server.url()));
    ASSERT_TRUE(eventually([this] { return server.posts() == 1; }));
    int turns = 0;
    QObject::connect(QCoreApplication::eventDispatcher(), &QAbstractEventDispatcher::awake, &loader, [&] { ++turns; });

    QEventLoop loop;
    QTimer::singleShot(250ms, &loop, &QEventLoop::quit);
    loop.exec();

    EXPECT_LT(turns, 30);
}

TEST_F(UrlLoaderTest, ATransferThatHasEndedLeavesNothingOpen)
{
    const auto openFiles = [] { return QDir(u"/proc/self/fd"_s).count(); };
    EXPECT_EQ(heardAfter(aPost(server.url())), kFinished);
    ASSERT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    const auto before = openFiles();

    delegate.heard.clear();
    EXPECT_EQ(heardAfter(aPost(server.url())), kFinished);

    EXPECT_TRUE(eventually([&] { return openFiles() <= before; })) << openFiles() << " instead of " << before;
}

TEST_F(UrlLoaderTest, ATransferThatNobodyHoldsGoesOnAndReports)
{
    start(aPost(server.url())).reset();

    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
    EXPECT_EQ(delegate.heard, kFinished);
}

TEST_F(UrlLoaderTest, ATransferOutlivesTheCallbackInWhichItIsLetGo)
{
    std::shared_ptr<platform::UrlConnection> transfer = start(aPost(server.url()));
    const std::weak_ptr<platform::UrlConnection> observed = transfer;
    bool livedInside = false;
    delegate.onEnd = [&](platform::UrlConnection &) {
        transfer.reset();
        livedInside = !observed.expired();
    };

    ASSERT_TRUE(eventually([this] { return delegate.hasEnded(); }));

    EXPECT_TRUE(livedInside);
    EXPECT_TRUE(eventually([&] { return observed.expired(); }));
}

TEST_F(UrlLoaderTest, ATransferThatHasEndedIsNotKeptByTheLoader)
{
    server.willAnswer({answered("200 OK"), {""}, {"", Then::StayConnected}});
    for (const bool cancelled : {false, false, true}) {
        delegate.heard.clear();
        const std::weak_ptr<platform::UrlConnection> observed = start(aPost(server.url()));
        if (cancelled) {
            observed.lock()->cancel();
        } else {
            ASSERT_TRUE(eventually([this] { return delegate.hasEnded(); }));
        }
        EXPECT_TRUE(eventually([&] { return observed.expired(); }));
    }
}

TEST_F(UrlLoaderTest, ALoaderThatGoesAwayCancelsItsTransfers)
{
    server.willAnswer({{"", Then::StayConnected}});
    auto shortLived = std::make_unique<CurlUrlLoader>(operations, testSettings());
    const auto held = shortLived->connectionWithRequestDelegate(aPost(server.url()), delegate);
    const std::weak_ptr<platform::UrlConnection> notHeld =
        shortLived->connectionWithRequestDelegate(aPost(server.url()), delegate);
    ASSERT_TRUE(eventually([this] { return server.posts() == 2; }));

    shortLived.reset();

    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 2; }));
    EXPECT_EQ(delegate.heard, QStringList{});
    EXPECT_TRUE(notHeld.expired());
    held->cancel();
}

TEST_F(UrlLoaderTest, ALoaderMayGoAwayWhileACallbackWaits)
{
    server.willAnswer({answered("200 OK", "refused")});
    auto shortLived = std::make_unique<CurlUrlLoader>(operations, testSettings());
    const std::weak_ptr<platform::UrlConnection> observed =
        shortLived->connectionWithRequestDelegate(aPost(server.url()), delegate);
    operations.perform([&] {
        ASSERT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
        shortLived.reset();
    });

    EXPECT_TRUE(eventually([&] { return observed.expired(); }));
    EXPECT_EQ(delegate.heard, QStringList{});
}

TEST_F(UrlLoaderTest, CallbacksWaitForTheEndOfAnOperationThatShowsAnAlert)
{
    server.willAnswer({answered("200 OK", "refused")});
    QStringList heardMeanwhile = {u"not looked"_s};
    operations.perform([&] {
        start(aPost(server.url()));
        ASSERT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
        heardMeanwhile = delegate.heard;
    });

    EXPECT_EQ(heardMeanwhile, QStringList{});
    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
    EXPECT_EQ(delegate.heard, (QStringList{u"data refused"_s, u"finished"_s}));
}

TEST_F(UrlLoaderTest, CallbacksOfOtherTransfersWaitForTheEndOfACallback)
{
    server.willAnswer({answered("200 OK", "refused")});
    RecordingDelegate other;
    QStringList heardMeanwhile = {u"not looked"_s};
    delegate.onData = [&](platform::UrlConnection &transfer) {
        transfer.cancel();
        loader.connectionWithRequestDelegate(aPost(server.url()), other);
        ASSERT_TRUE(eventually([this] { return server.closedConnections() == 2; }));
        heardMeanwhile = other.heard;
    };

    start(aPost(server.url()));

    EXPECT_TRUE(eventually([&] { return other.hasEnded(); }));
    EXPECT_EQ(heardMeanwhile, QStringList{});
    EXPECT_EQ(delegate.heard, QStringList{u"data refused"_s});
    EXPECT_EQ(other.heard, (QStringList{u"data refused"_s, u"finished"_s}));
}

// Time

namespace {

/// Where it is waited for.
constexpr std::chrono::milliseconds kShortIdleLimit = 400ms;
/// Where it must not pass, though a busy machine lets this process rest for a while.
constexpr std::chrono::milliseconds kLongerIdleLimit = 2s;
/// What a server is given to do at, that does something all the time.
constexpr std::chrono::milliseconds kTick = kLongerIdleLimit / 40;

TransferSettings withIdleLimit(std::chrono::milliseconds limit)
{
    TransferSettings settings = testSettings();
    settings.idleLimit = limit;
    return settings;
}

class IdleTime : public UrlLoaderTest
{
protected:
    QStringList heardOf(CurlUrlLoader &timed, const platform::UrlRequest &request)
    {
        clock.start();
        timed.connectionWithRequestDelegate(request, delegate);
        eventually([this] { return delegate.hasEnded(); }, 60s);
        return delegate.heard;
    }

    std::chrono::milliseconds passed() const { return std::chrono::milliseconds(clock.elapsed()); }

    CurlUrlLoader impatient{operations, withIdleLimit(kShortIdleLimit)};
    CurlUrlLoader patient{operations, withIdleLimit(kLongerIdleLimit)};
    QElapsedTimer clock;
};

} // namespace

TEST_F(IdleTime, IsSixtySecondsUnlessSaidOtherwise)
{
    EXPECT_EQ(TransferSettings().idleLimit, 60s);
}

TEST_F(IdleTime, AServerThatNeverAnswersIsAFailure)
{
    server.willAnswer({{"", Then::StayConnected}});

    EXPECT_EQ(heardOf(impatient, aPost(server.url())), kFailed);
    EXPECT_EQ(server.posts(), 1);
    // The system may let a timer of this kind run out a twentieth early.
    EXPECT_GE(passed(), kShortIdleLimit * 19 / 20);
    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
}

TEST_F(IdleTime, WhenItHasPassedTheConnectionEndsAtOnceAndTheCallbackMayWait)
{
    server.willAnswer({{"", Then::StayConnected}});
    operations.perform([this] {
        impatient.connectionWithRequestDelegate(aPost(server.url()), delegate);
        EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
        // Longer than it takes to look at the time again.
        eventually([] { return false; }, kShortIdleLimit / 3);
    });

    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
    EXPECT_EQ(delegate.heard, kFailed);
}

TEST_F(IdleTime, DoesNotPassAfterCancel)
{
    server.willAnswer({{"", Then::StayConnected}});
    const auto transfer = impatient.connectionWithRequestDelegate(aPost(server.url()), delegate);
    ASSERT_TRUE(eventually([this] { return server.posts() == 1; }));

    transfer->cancel();

    EXPECT_EQ(heardUntilALaterEnd(impatient), QStringList{});
}

TEST_F(IdleTime, AServerThatNeverShakesHandsIsAFailure)
{
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));

    EXPECT_EQ(heardOf(impatient, aPost(withPort(silent.serverPort()))), kFailed);
}

TEST_F(IdleTime, AnAnswerThatStopsHalfWayIsAFailure)
{
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", Then::StayConnected}});

    EXPECT_EQ(heardOf(impatient, aPost(server.url())), (QStringList{u"data abc"_s, u"failed"_s}));
}

TEST_F(IdleTime, AServerThatStopsReadingIsAFailure)
{
    server.willAnswer({{"", Then::StopReading, After::Head}});

    EXPECT_EQ(heardOf(impatient, aPost(server.url(), QByteArray(64 * kMebibyte, 'x'))), kFailed);
    EXPECT_EQ(server.posts(), 1);
}

TEST_F(IdleTime, AnAnswerThatTricklesIsComplete)
{
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\n", Then::StayConnected, After::Request,
                        trickling("abcdefgh", 7 * kTick)}});

    EXPECT_EQ(heardOf(patient, aPost(server.url())).last(), u"finished"_s);
    EXPECT_EQ(delegate.bytes, 8);
    EXPECT_GT(passed(), kLongerIdleLimit);
}

TEST_F(IdleTime, ARequestThatTricklesIsComplete)
{
    // So fast that what the system's own buffers hold at the end takes far less than the idle time.
    server.readSlowly(kMebibyte, kTick);

    EXPECT_EQ(heardOf(patient, aPost(server.url(), QByteArray(96 * kMebibyte, 'x'))), kFinished);
    EXPECT_GT(passed(), kLongerIdleLimit);
}

TEST_F(IdleTime, DoesNotPassWhileTheSystemsOwnQueueDrains)
{
    // The whole body fits into the queue, and the server takes longer than the idle time to empty it.
    server.limitReceiveBuffer(16 * 1024);
    server.readSlowly(16 * 1024, kTick);

    EXPECT_EQ(heardOf(patient, aPost(server.url(), QByteArray(kMebibyte, 'x'))), kFinished);
    EXPECT_GT(passed(), kLongerIdleLimit);
    EXPECT_EQ(server.posts(), 1);
}

TEST_F(IdleTime, DoesNotPassWhileAHeadTrickles)
{
    server.willAnswer({{"", Then::StayConnected, After::Request,
                        trickling("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 2 * kTick)}});

    EXPECT_EQ(heardOf(patient, aPost(server.url())), kFinished);
    EXPECT_GT(passed(), kLongerIdleLimit);
}

TEST_F(IdleTime, DoesNotPassWhileItIsTheDelegateThatIsWaitedFor)
{
    QTimer alertEnded;
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nab", Then::StayConnected, After::Request,
                        [&](QSslSocket &socket) {
                            QObject::connect(&alertEnded, &QTimer::timeout, &socket, [&socket] { socket.write("c"); });
                        }}});
    operations.perform([this] {
        impatient.connectionWithRequestDelegate(aPost(server.url()), delegate);
        eventually([] { return false; }, 3 * kShortIdleLimit);
    });
    alertEnded.setSingleShot(true);
    alertEnded.start(0);

    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
    EXPECT_EQ(delegate.heard.last(), u"finished"_s);
    EXPECT_EQ(delegate.bytes, 3);
}

// What no transfer can be created for

namespace {

class UnusableUrl : public UrlLoaderTest, public testing::WithParamInterface<const char *>
{
};

} // namespace

TEST_P(UnusableUrl, GivesNoTransfer)
{
    EXPECT_EQ(start(aPost(QUrl(QString::fromLatin1(GetParam())))), nullptr);
    EXPECT_EQ(delegate.heard, QStringList{});
}

INSTANTIATE_TEST_SUITE_P(, UnusableUrl,
                         testing::Values("", "https://", "https:///path", "https://local host/",
                                         "https://localhost:70000/", "localhost/path", "http://localhost/",
                                         "ftp://localhost/", "file:///etc/hostname"));

TEST_F(UrlLoaderTest, AnotherMethodThanPostGivesNoTransfer)
{
    EXPECT_EQ(start({server.url(), "GET", {}, std::nullopt}), nullptr);
    EXPECT_EQ(start({server.url(), "PROPFIND", {}, "abc"}), nullptr);
}

TEST_F(UrlLoaderTest, WithoutTheNetworksLibraryThereIsNoTransfer)
{
    TransferSettings settings = testSettings();
    settings.library = u"korvale-no-such-library"_s;
    CurlUrlLoader powerless(operations, settings);

    EXPECT_EQ(powerless.connectionWithRequestDelegate(aPost(server.url()), delegate), nullptr);
    EXPECT_EQ(delegate.heard, QStringList{});
}

TEST_F(UrlLoaderTest, AnotherLibraryOfThatNameGivesNoTransfer)
{
    TransferSettings settings = testSettings();
    settings.library = u"Qt6Core"_s;
    OperationQueue queue;
    // The interface's version is part of the name, so this one is not even found.
    CurlUrlLoader powerless(queue, settings);

    EXPECT_EQ(powerless.connectionWithRequestDelegate(aPost(server.url()), delegate), nullptr);
}
