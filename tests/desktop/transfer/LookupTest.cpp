// A lookup of the host's name that takes its time.
#include "support/TransferSupport.h"

#include <QElapsedTimer>

#include <dlfcn.h>
#include <netdb.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string_view>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds kShortLookupLimit = 150ms;

/// A name that nobody looks up: the answer waits as long as the object lives, but five seconds at most.
class SilentName
{
public:
    static constexpr std::string_view kName = "silent.invalid";

    SilentName()
    {
        const std::lock_guard lock(mutex);
        isSilent = true;
    }
    SilentName(const SilentName &) = delete;
    SilentName &operator=(const SilentName &) = delete;
    /// Lets those go that wait.
    ~SilentName()
    {
        std::unique_lock lock(mutex);
        isSilent = false;
        changed.notify_all();
        changed.wait(lock, [] { return waiting == 0; });
    }

    /// Returns when the answer has come.
    static void wait()
    {
        std::unique_lock lock(mutex);
        ++waiting;
        changed.wait_for(lock, 5s, [] { return !isSilent; });
        --waiting;
        changed.notify_all();
    }

    static bool isAskedFor()
    {
        const std::lock_guard lock(mutex);
        return waiting > 0;
    }

private:
    static inline std::mutex mutex;
    static inline std::condition_variable changed;
    static inline bool isSilent = false;
    static inline int waiting = 0;
};

class LookupTest : public UrlLoaderTest
{
protected:
    LookupTest()
    {
        TransferSettings settings = testSettings();
        settings.lookupLimit = kShortLookupLimit;
        settings.connectLimit = 10s;
        impatient.emplace(operations, settings);
    }

    platform::UrlRequest aPostToTheSilentName() const
    {
        QUrl url = server.url();
        url.setHost(QString::fromLatin1(SilentName::kName.data()));
        return aPost(url);
    }

    std::optional<CurlUrlLoader> impatient;
    const SilentName name;
};

} // namespace

/// The C library's, for all names but the silent one.
extern "C" int getaddrinfo(const char *name, const char *service, const addrinfo *hints, addrinfo **result)
{
    if (name && name == SilentName::kName) {
        SilentName::wait();
        return EAI_NONAME;
    }
    static const auto original = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return original(name, service, hints, result);
}

TEST_F(LookupTest, ThatTakesTooLongIsAFailure)
{
    QElapsedTimer clock;
    clock.start();

    impatient->connectionWithRequestDelegate(aPostToTheSilentName(), delegate);

    EXPECT_TRUE(eventually([this] { return delegate.hasEnded(); }));
    EXPECT_EQ(delegate.heard, kFailed);
    EXPECT_TRUE(SilentName::isAskedFor()) << "the end of the lookup was waited for";
    // The system may let a timer of this kind run out a twentieth early.
    EXPECT_GE(clock.elapsed(), (kShortLookupLimit * 19 / 20).count());
}

TEST_F(LookupTest, DoesNotHoldUpCancel)
{
    const auto transfer = impatient->connectionWithRequestDelegate(aPostToTheSilentName(), delegate);
    ASSERT_TRUE(eventually([] { return SilentName::isAskedFor(); }));
    QElapsedTimer clock;
    clock.start();

    transfer->cancel();

    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_TRUE(SilentName::isAskedFor());
    EXPECT_EQ(delegate.heard, QStringList{});
}
