// libcurl's transfers as part of the event loop.
#pragma once

#include "desktop/transfer/CurlLibrary.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <map>
#include <memory>

/// One multi handle, driven by socket notifiers and a timer: libcurl works only when a socket is ready or its time has
/// come, and does no more at once than the event loop can spare.
class CurlMulti : public QObject
{
    Q_OBJECT

public:
    explicit CurlMulti(const CurlLibrary &library);
    /// All handles must have been removed.
    ~CurlMulti() override;

    /// Begins the transfer of the handle, from the event loop; returns false when there is no memory for it.
    bool add(CURL *easy);
    /// Ends the transfer of the handle, if it has not ended. Not to be called by a callback of libcurl.
    void remove(CURL *easy);

    /// Has libcurl act without an event. While it connects, 7.88 goes on to a host's next address only the next time
    /// that it acts, and asks neither for a socket nor for a timer to make it act.
    void wake();

    /// Whether libcurl wants to write to a connection and has done with reading from it.
    bool onlyWrites() const;

Q_SIGNALS:
    /// A socket became readable or writable, or a time of libcurl's has come, and libcurl has acted on that.
    void acted();
    /// The transfer of the only handle has ended.
    void finished(CURLcode result);

private:
    /// Out of sight at once, but gone only when no signal of its own runs any more.
    struct Release {
        void operator()(QSocketNotifier *notifier) const;
    };
    using Notifier = std::unique_ptr<QSocketNotifier, Release>;
    struct Watch {
        Notifier reading;
        Notifier writing;
    };

    static int onSocket(CURL *easy, curl_socket_t socket, int what, void *self, void *unused);
    static int onTimer(CURLM *multi, long milliseconds, void *self);

    void watch(curl_socket_t socket, int what);
    Notifier notifier(curl_socket_t socket, QSocketNotifier::Type type, int event);
    void act(curl_socket_t socket, int event);
    /// Whether the transfer has ended, after libcurl has acted and returned this code.
    void reportEnd(CURLMcode code);

    const CurlLibrary &curl;
    CURLM *multi; ///< Null when there was no memory for it, which libcurl's functions take, but for those that act.
    QTimer timer;
    std::map<curl_socket_t, Watch> watches;
};
