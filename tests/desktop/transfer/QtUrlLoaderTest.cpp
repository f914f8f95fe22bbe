// Transfers against a real TLS server: what counts as an answer, and that everything is posted exactly once.
#include "desktop/transfer/QtUrlLoader.h"

#include "support/EventLoop.h"
#include "support/HeardDelegate.h"
#include "support/PrintQt.h"
#include "support/ThrowAwayAuthority.h"
#include "support/TlsServer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <unistd.h>

#include <iostream>
#include <ostream>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using After = Answer::After;
using Then = Answer::Then;

namespace {

constexpr qint64 kMebibyte = 1024 * 1024;

platform::UrlRequest aPost(const QUrl &url, const std::optional<QByteArray> &body = "the report")
{
    return {url, "POST", {{"Content-Type", "text/plain"}}, body};
}

/// Nothing listens there any more.
quint16 aClosedPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

QUrl withPort(quint16 port)
{
    QUrl url(u"https://127.0.0.1/"_s);
    url.setPort(port);
    return url;
}

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

class UrlLoaderTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { ThrowAwayAuthority::shared().trust(); }

    std::shared_ptr<platform::UrlConnection> start(const platform::UrlRequest &request)
    {
        return loader.connectionWithRequestDelegate(request, delegate);
    }

    /// Posts and gives what the delegate heard up to the end.
    QStringList heardAfter(const platform::UrlRequest &request)
    {
        const auto transfer = start(request);
        if (!transfer) {
            return {u"no transfer"_s};
        }
        if (!eventually([this] { return delegate.hasEnded(); })) {
            delegate.heard << u"no end"_s;
        }
        return delegate.heard;
    }

    QStringList heardAfterAnswer(const Answer &answer)
    {
        server.willAnswer({answer});
        return heardAfter(aPost(server.url()));
    }

    TlsServer server;
    OperationQueue operations;
    HeardDelegate delegate;
    QtUrlLoader loader{operations};
};

const QStringList kFinished = {u"finished"_s};
const QStringList kFailed = {u"failed"_s};

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

TEST_F(UrlLoaderTest, AFieldAddedTwiceIsSentAsOneList)
{
    platform::UrlRequest request = aPost(server.url());
    request.addValueForHTTPHeaderField("one", "X-Note");
    request.addValueForHTTPHeaderField("two", "X-Note");

    EXPECT_EQ(heardAfter(request), kFinished);

    EXPECT_EQ(server.requests().value(0).values("X-Note"), QList<QByteArray>{"one, two"});
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

TEST_F(UrlLoaderTest, OtherMethodsAreSentUnderTheirOwnName)
{
    EXPECT_EQ(heardAfter({server.url(), "PROPFIND", {}, "abc"}), kFinished);

    EXPECT_EQ(server.requests().value(0).method(), "PROPFIND");
    EXPECT_EQ(server.requests().value(0).body, "abc");
}

TEST_F(UrlLoaderTest, EveryRequestHasAConnectionOfItsOwn)
{
    server.willAnswer({{answered("200 OK").bytes, Then::StayConnected}});

    heardAfter(aPost(server.url()));
    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
    delegate.heard.clear();
    heardAfter(aPost(server.url()));

    EXPECT_EQ(server.connections(), 2);
}

TEST_F(UrlLoaderTest, Http2IsNotOffered)
{
    server.offerHttp2();

    EXPECT_EQ(heardAfter(aPost(server.url())), kFinished);

    EXPECT_EQ(server.negotiatedProtocol(), QByteArray());
}

TEST_F(UrlLoaderTest, TwoTransfersRunSideBySide)
{
    server.willAnswer({{"", Then::StayConnected}, answered("200 OK")});
    HeardDelegate second;
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
        Reply{"AnotherProtocol", {"SSH-2.0-nothing\r\n\r\n"}, kFailed},
        Reply{"CompressedAndCut",
              {"HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 23\r\n\r\n\x1f\x8b"},
              {u"data \x1f\u008b"_s, u"failed"_s}},
        Reply{"OnAConnectionThatStays", {answered("200 OK").bytes, Then::StayConnected}, kFinished},
        Reply{"ChallengedForAPassword",
              answered("401 Unauthorized", "no", "WWW-Authenticate: Basic realm=\"x\"\r\n"),
              {u"data no"_s, u"finished"_s}},
        Reply{"ChallengedForADigest",
              answered("401 Unauthorized", "", "WWW-Authenticate: Digest realm=\"x\", nonce=\"y\"\r\n"), kFinished}),
    [](const auto &one) { return one.param.name; });

// Transport failures before a request

TEST_F(UrlLoaderTest, NothingListeningIsAFailure)
{
    EXPECT_EQ(heardAfter(aPost(withPort(aClosedPort()))), kFailed);
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
        server.willAnswer({answered(GetParam(), body, "Location: " + location + "\r\n"), answered("200 OK", "seen")});
        return heardAfter(aPost(server.url(u"/first"_s)));
    }
};

class FollowedRedirect : public Redirect
{
};

class RepeatingRedirect : public Redirect
{
};

} // namespace

TEST_P(FollowedRedirect, IsFollowedByAGetWithoutTheReport)
{
    EXPECT_EQ(heardAfterRedirectTo("/second", "moved"), (QStringList{u"data seen"_s, u"finished"_s}));

    EXPECT_EQ(server.posts(), 1);
    ASSERT_EQ(server.requests().size(), 2);
    EXPECT_EQ(server.requests().last().method(), "GET");
    EXPECT_EQ(server.requests().last().target(), "/second");
    EXPECT_EQ(server.requests().last().body, "");
}

TEST_P(FollowedRedirect, IsFollowedWhenItsOwnBodyIsLarge)
{
    EXPECT_EQ(heardAfterRedirectTo("/second", QByteArray(kMebibyte, 'm')),
              (QStringList{u"data seen"_s, u"finished"_s}));
}

TEST_P(FollowedRedirect, ThatNeverEndsIsAFailureWithOnePost)
{
    server.willAnswer({answered(GetParam(), "", "Location: /again\r\n")});

    EXPECT_EQ(heardAfter(aPost(server.url())), kFailed);

    EXPECT_EQ(server.posts(), 1);
}

INSTANTIATE_TEST_SUITE_P(, FollowedRedirect, testing::Values("301 Moved Permanently", "302 Found", "303 See Other"),
                         nameOfStatus);

TEST_P(RepeatingRedirect, IsAFailureBecauseNothingIsPostedTwice)
{
    EXPECT_EQ(heardAfterRedirectTo("/second"), kFailed);

    EXPECT_EQ(server.posts(), 1);
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(RepeatingRedirect, IsAFailureAlsoWithoutABody)
{
    server.willAnswer({answered(GetParam(), "", "Location: /second\r\n"), answered("200 OK")});

    EXPECT_EQ(heardAfter(aPost(server.url(), std::nullopt)), kFailed);

    EXPECT_EQ(server.requests().size(), 1);
}

INSTANTIATE_TEST_SUITE_P(, RepeatingRedirect, testing::Values("307 Temporary Redirect", "308 Permanent Redirect"),
                         nameOfStatus);

TEST_P(Redirect, ToNowhereIsAFailure)
{
    EXPECT_EQ(heardAfterAnswer(answered(GetParam(), "moved")), kFailed);
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(Redirect, ToAnUnprotectedAddressIsAFailure)
{
    EXPECT_EQ(heardAfterRedirectTo("http://127.0.0.1:" + QByteArray::number(server.port()) + "/"), kFailed);
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(Redirect, ToAFileIsAFailure)
{
    EXPECT_EQ(heardAfterRedirectTo("file:///etc/hostname"), kFailed);
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(Redirect, ToWhereNothingListensIsAFailure)
{
    EXPECT_EQ(heardAfterRedirectTo("https://127.0.0.1:" + QByteArray::number(aClosedPort()) + "/"), kFailed);
    EXPECT_EQ(server.requests().size(), 1);
}

INSTANTIATE_TEST_SUITE_P(, Redirect,
                         testing::Values("301 Moved Permanently", "302 Found", "303 See Other",
                                         "307 Temporary Redirect", "308 Permanent Redirect"),
                         nameOfStatus);

TEST_F(UrlLoaderTest, AnOutdatedRedirectToNowhereIsAFailureLikeAnyOther)
{
    EXPECT_EQ(heardAfterAnswer(answered("305 Use Proxy")), kFailed);
    EXPECT_EQ(server.requests().size(), 1);
}

// Large answers

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
    const auto transfer = start(aPost(withPort(aClosedPort())));

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

    HeardDelegate later;
    loader.connectionWithRequestDelegate(aPost(server.url()), later);

    EXPECT_TRUE(eventually([&] { return later.hasEnded(); }));
    EXPECT_EQ(server.posts(), 1);
    EXPECT_EQ(delegate.heard, QStringList{});
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

    HeardDelegate later;
    loader.connectionWithRequestDelegate(aPost(server.url()), later);
    EXPECT_TRUE(eventually([&] { return later.hasEnded(); }));
    EXPECT_EQ(delegate.heard, QStringList{});
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
    auto shortLived = std::make_unique<QtUrlLoader>(operations);
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
    auto shortLived = std::make_unique<QtUrlLoader>(operations);
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
    HeardDelegate other;
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

constexpr std::chrono::milliseconds kShort = 400ms;

class IdleTime : public UrlLoaderTest
{
protected:
    QStringList heardOfImpatientLoader(const platform::UrlRequest &request)
    {
        clock.start();
        impatient.connectionWithRequestDelegate(request, delegate);
        eventually([this] { return delegate.hasEnded(); }, 60s);
        return delegate.heard;
    }

    std::chrono::milliseconds passed() const { return std::chrono::milliseconds(clock.elapsed()); }

    QtUrlLoader impatient{operations, kShort};
    QElapsedTimer clock;
};

} // namespace

TEST_F(IdleTime, IsSixtySecondsUnlessSaidOtherwise)
{
    EXPECT_EQ(kIdleTimeout, 60s);
}

TEST_F(IdleTime, AServerThatNeverAnswersIsAFailure)
{
    server.willAnswer({{"", Then::StayConnected}});

    EXPECT_EQ(heardOfImpatientLoader(aPost(server.url())), kFailed);
    EXPECT_EQ(server.posts(), 1);
    // The system may let a timer of this kind run out a twentieth early.
    EXPECT_GE(passed(), kShort * 19 / 20);
    EXPECT_TRUE(eventually([this] { return server.closedConnections() == 1; }));
}

TEST_F(IdleTime, AServerThatNeverShakesHandsIsAFailure)
{
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));

    EXPECT_EQ(heardOfImpatientLoader(aPost(withPort(silent.serverPort()))), kFailed);
}

TEST_F(IdleTime, AnAnswerThatStopsHalfWayIsAFailure)
{
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", Then::StayConnected}});

    EXPECT_EQ(heardOfImpatientLoader(aPost(server.url())), (QStringList{u"data abc"_s, u"failed"_s}));
}

TEST_F(IdleTime, AServerThatStopsReadingIsAFailure)
{
    server.willAnswer({{"", Then::StopReading, After::Head}});

    EXPECT_EQ(heardOfImpatientLoader(aPost(server.url(), QByteArray(64 * kMebibyte, 'x'))), kFailed);
    EXPECT_EQ(server.posts(), 1);
}

TEST_F(IdleTime, AnAnswerThatTricklesIsComplete)
{
    server.willAnswer({{"HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\n", Then::StayConnected, After::Request,
                        trickling("abcdefgh", kShort / 3)}});

    EXPECT_EQ(heardOfImpatientLoader(aPost(server.url())).last(), u"finished"_s);
    EXPECT_EQ(delegate.bytes, 8);
    EXPECT_GT(passed(), 2 * kShort);
}

TEST_F(IdleTime, ARequestThatTricklesIsComplete)
{
    // So fast that what the system's own buffers hold at the end takes far less than the idle time.
    server.readSlowly(4 * kMebibyte, kShort / 8);

    EXPECT_EQ(heardOfImpatientLoader(aPost(server.url(), QByteArray(96 * kMebibyte, 'x'))), kFinished);
    EXPECT_GT(passed(), 2 * kShort);
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
        eventually([] { return false; }, 3 * kShort);
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

TEST(UrlLoaderDeathTest, WithoutATlsLibraryThereIsNoTransfer)
{
    // In a process of its own, where no library has been loaded yet.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            QCoreApplication::setLibraryPaths({});
            OperationQueue operations;
            HeardDelegate delegate;
            QtUrlLoader loader(operations);
            const auto transfer = loader.connectionWithRequestDelegate(aPost(QUrl(u"https://127.0.0.1/"_s)), delegate);
            _exit(transfer == nullptr && delegate.heard.isEmpty() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// Proxies

namespace {

/// Answers every request with a demand for a password, and keeps what it was asked.
class RefusingProxy
{
public:
    RefusingProxy()
    {
        server.listen(QHostAddress::LocalHost);
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this] {
            QTcpSocket *const socket = server.nextPendingConnection();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                asked += socket->readAll();
                socket->write("HTTP/1.1 407 Proxy Authentication Required\r\nContent-Length: 0\r\n\r\n");
                socket->disconnectFromHost();
            });
        });
    }

    QByteArray address() const { return "http://127.0.0.1:" + QByteArray::number(server.serverPort()); }

    QByteArray asked;

private:
    QTcpServer server;
};

} // namespace

TEST(UrlLoaderDeathTest, TheProxyOfTheSystemIsAskedAndItsRefusalIsNoAnswer)
{
    // In a process of its own, for the system's proxies are looked up once.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const RefusingProxy proxy;
            qputenv("https_proxy", proxy.address());
            OperationQueue operations;
            HeardDelegate delegate;
            QtUrlLoader loader(operations);
            loader.connectionWithRequestDelegate(aPost(QUrl(u"https://crash.example.org/"_s)), delegate);
            const bool ended = eventually([&] { return delegate.hasEnded(); });
            const bool asked = proxy.asked.startsWith("CONNECT crash.example.org:443 HTTP/1.");
            std::cerr << proxy.asked.toStdString() << delegate.reason.toStdString();
            _exit(ended && asked && delegate.heard == kFailed ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
