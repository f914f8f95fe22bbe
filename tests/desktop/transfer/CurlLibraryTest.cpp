// Which library is taken for libcurl, and what becomes of a transfer whose library fails.
#include "desktop/transfer/CurlLibrary.h"

#include "desktop/transfer/CurlUrlConnection.h"
#include "support/LogLines.h"
#include "support/ScopedVariable.h"
#include "support/TransferSupport.h"

#include <gtest/gtest.h>

#include <cstdarg>

using namespace Qt::StringLiterals;

TEST(CurlLibrary, IsNoneThatLacksItsFunctions)
{
    EXPECT_EQ(CurlLibrary::load(u"Qt6Core"_s, 6), nullptr);
}

TEST(CurlLibrary, IsNoneThatIsOlderThan787)
{
    for (const auto &[version, isTaken] :
         {std::pair("075600", false), {"0756ff", false}, {"075700", true}, {"080000", true}}) {
        const ScopedVariable variable("OTHER_LIBCURL_VERSION", version);
        EXPECT_EQ(CurlLibrary::load(QStringLiteral(OTHER_LIBCURL), 4) != nullptr, isTaken) << version;
    }
}

TEST(CurlLibrary, IsNoneThatCannotBeginItsWork)
{
    const ScopedVariable variable("OTHER_LIBCURL_VERSION", "080000");
    const ScopedVariable failure("OTHER_LIBCURL_FAILS", "");

    EXPECT_EQ(CurlLibrary::load(QStringLiteral(OTHER_LIBCURL), 4), nullptr);
}

namespace {

/// libcurl as it is.
const CurlLibrary &realLibrary()
{
    static const auto library = CurlLibrary::load(u"curl"_s, 4);
    return *library;
}

/// The option that cannot be set.
CURLoption refused = CURLOPT_LASTENTRY;

/// Sets all options but the refused one. Each value has the size of a pointer.
CURLcode setOther(CURL *easy, CURLoption option, ...)
{
    va_list values;
    va_start(values, option);
    void *const value = va_arg(values, void *);
    va_end(values);
    return option == refused ? CURLE_UNKNOWN_OPTION : realLibrary().easySetopt(easy, option, value);
}

class FailingLibrary : public UrlLoaderTest
{
protected:
    /// The last line that a transfer logs; it is a failure, before anything is connected to.
    QString endOfTransfer()
    {
        const LogLines log(u"korvale.transfer=true"_s);
        delegate.heard.clear();
        const auto transfer = std::make_shared<CurlUrlConnection>(std::make_shared<const CurlLibrary>(library),
                                                                  testSettings(), aPost(server.url()), delegate,
                                                                  operations, [](const CurlUrlConnection &) {});
        transfer->start();
        EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
        EXPECT_EQ(delegate.heard, kFailed);
        EXPECT_EQ(server.connections(), 0);
        return LogLines::all().last();
    }

    const QString failure = u"korvale.transfer: failed: Failed initialization, 0 of 10 bytes sent"_s;
    CurlLibrary library = realLibrary();
};

} // namespace

TEST_F(FailingLibrary, GivesNoHandleAndSoNoTransfer)
{
    library.easyInit = []() -> CURL * { return nullptr; };

    EXPECT_EQ(endOfTransfer(), failure);
}

TEST_F(FailingLibrary, SetsNotEveryOptionAndSoSendsNothing)
{
    library.easySetopt = &setOther;
    for (const CURLoption option : {CURLOPT_URL, CURLOPT_SSL_VERIFYPEER, CURLOPT_ERRORBUFFER}) {
        refused = option;
        EXPECT_EQ(endOfTransfer(), failure) << option;
    }
}

TEST_F(FailingLibrary, HasNoMemoryForAHeaderAndSoSendsNothing)
{
    library.slistAppend = [](curl_slist *, const char *) -> curl_slist * { return nullptr; };

    EXPECT_EQ(endOfTransfer(), failure);
}

TEST_F(FailingLibrary, HasNoMemoryForTransfersAndSoSendsNothing)
{
    library.multiInit = []() -> CURLM * { return nullptr; };

    EXPECT_EQ(endOfTransfer(), failure);
}

TEST_F(FailingLibrary, TakesNoTransferAndSoSendsNothing)
{
    library.multiAddHandle = [](CURLM *, CURL *) { return CURLM_OUT_OF_MEMORY; };

    EXPECT_EQ(endOfTransfer(), failure);
}

TEST_F(FailingLibrary, HasNoMemoryToGoOnAndSoSendsNothing)
{
    library.multiSocketAction = [](CURLM *, curl_socket_t, int, int *) { return CURLM_OUT_OF_MEMORY; };

    EXPECT_EQ(endOfTransfer(), u"korvale.transfer: failed: Out of memory, 0 of 10 bytes sent"_s);
}
