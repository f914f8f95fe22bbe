// libcurl's transfers as part of the event loop.
#include "desktop/transfer/CurlMulti.h"

#include <poll.h>

#include <algorithm>
#include <optional>

namespace {

bool isReadable(curl_socket_t socket)
{
    pollfd one = {.fd = socket, .events = POLLIN, .revents = 0};
    return ::poll(&one, 1, 0) > 0 && (one.revents & POLLIN) != 0;
}

} // namespace

void CurlMulti::Release::operator()(QSocketNotifier *notifier) const
{
    notifier->setEnabled(false);
    notifier->deleteLater();
}

CurlMulti::CurlMulti(const CurlLibrary &library)
    : curl(library)
    , multi(library.multiInit())
{
    curl.multiSetopt(multi, CURLMOPT_SOCKETFUNCTION, &CurlMulti::onSocket);
    curl.multiSetopt(multi, CURLMOPT_SOCKETDATA, this);
    curl.multiSetopt(multi, CURLMOPT_TIMERFUNCTION, &CurlMulti::onTimer);
    curl.multiSetopt(multi, CURLMOPT_TIMERDATA, this);
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, [this] { act(CURL_SOCKET_TIMEOUT, 0); });
}

CurlMulti::~CurlMulti()
{
    curl.multiCleanup(multi);
}

bool CurlMulti::add(CURL *easy)
{
    return curl.multiAddHandle(multi, easy) == CURLM_OK;
}

void CurlMulti::remove(CURL *easy)
{
    curl.multiRemoveHandle(multi, easy);
}

void CurlMulti::wake()
{
    int running = 0;
    reportEnd(curl.multiSocketAll(multi, &running));
}

bool CurlMulti::onlyWrites() const
{
    return std::ranges::any_of(watches,
                               [](const auto &entry) { return entry.second.writing && !entry.second.reading; });
}

int CurlMulti::onSocket(CURL * /*easy*/, curl_socket_t socket, int what, void *self, void * /*unused*/)
{
    static_cast<CurlMulti *>(self)->watch(socket, what);
    return 0;
}

int CurlMulti::onTimer(CURLM * /*multi*/, long milliseconds, void *self)
{
    QTimer &timer = static_cast<CurlMulti *>(self)->timer;
    if (milliseconds < 0) {
        timer.stop();
    } else {
        timer.start(std::chrono::milliseconds(milliseconds));
    }
    return 0;
}

void CurlMulti::watch(curl_socket_t socket, int what)
{
    if (what == CURL_POLL_REMOVE) {
        watches.erase(socket);
        return;
    }
    Watch &watch = watches[socket];
    const auto set = [&](Notifier &current, bool wanted, QSocketNotifier::Type type, int event) {
        if (!wanted) {
            current.reset();
        } else if (!current) {
            current = notifier(socket, type, event);
        }
    };
    set(watch.reading, (what & CURL_POLL_IN) != 0, QSocketNotifier::Read, CURL_CSELECT_IN);
    set(watch.writing, (what & CURL_POLL_OUT) != 0, QSocketNotifier::Write, CURL_CSELECT_OUT);
}

CurlMulti::Notifier CurlMulti::notifier(curl_socket_t socket, QSocketNotifier::Type type, int event)
{
    Notifier made(new QSocketNotifier(socket, type, this));
    connect(made.get(), &QSocketNotifier::activated, this, [this, socket, event] {
        // What has come is read first: writing to a connection that is gone loses it.
        const bool reads = event == CURL_CSELECT_OUT && watches[socket].reading && isReadable(socket);
        act(socket, reads ? CURL_CSELECT_IN : event);
    });
    return made;
}

void CurlMulti::act(curl_socket_t socket, int event)
{
    int running = 0;
    reportEnd(curl.multiSocketAction(multi, socket, event, &running));
    Q_EMIT acted();
}

void CurlMulti::reportEnd(CURLMcode code)
{
    std::optional<CURLcode> result;
    if (code == CURLM_OUT_OF_MEMORY) {
        // It may have no socket to wait for any more.
        result = CURLE_OUT_OF_MEMORY;
    }
    int waiting = 0;
    while (const CURLMsg *message = curl.multiInfoRead(multi, &waiting)) {
        if (message->msg == CURLMSG_DONE) {
            result = message->data.result;
        }
    }
    if (result) {
        Q_EMIT finished(*result);
    }
}

#include "moc_CurlMulti.cpp"
