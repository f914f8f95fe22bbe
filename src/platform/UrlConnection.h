// One asynchronous HTTP transfer, the request it is made from and the delegate it reports to.
#pragma once

#include "platform/Object.h"

#include <QByteArray>
#include <QList>
#include <QUrl>

#include <memory>
#include <optional>
#include <utility>

namespace platform {

struct UrlRequest {
    QUrl url;
    QByteArray method;
    /// Name and value, in the order in which they were added.
    QList<std::pair<QByteArray, QByteArray>> headers;
    /// The body's bytes, or std::nullopt for a request without a body.
    std::optional<QByteArray> body;

    void addValueForHTTPHeaderField(const QByteArray &value, const QByteArray &field)
    {
        headers.append({field, value});
    }
};

/// That a transfer gave no complete answer. Why is for the person who looks into it, and in the transport's own
/// diagnostics.
struct UrlError {
};

class UrlConnection : public Object
{
public:
    /// Stops the transfer: no callback of it arrives any more. Does nothing when the transfer has ended.
    virtual void cancel() = 0;
};

/// Receives the callbacks of its transfers: on the main thread, from the event loop, one at a time and never while
/// another operation of the delegate runs. A transfer outlives its own callback.
class UrlConnectionDelegate
{
public:
    UrlConnectionDelegate() = default;
    UrlConnectionDelegate(const UrlConnectionDelegate &) = delete;
    UrlConnectionDelegate &operator=(const UrlConnectionDelegate &) = delete;
    virtual ~UrlConnectionDelegate() = default;

    /// A chunk of the reply's body, at least one byte, whatever the reply's status.
    virtual void connectionDidReceiveData(UrlConnection &connection, const QByteArray &data) = 0;
    /// There is no complete answer to a request that was sent whole: nothing listening, TLS refused, connection lost,
    /// cut short, timed out; or the answer leads elsewhere. Last callback of the transfer.
    virtual void connectionDidFailWithError(UrlConnection &connection, const UrlError &error) = 0;
    /// The answer is complete, whatever its status but a redirect's. Last callback of the transfer.
    virtual void connectionDidFinishLoading(UrlConnection &connection) = 0;
};

class UrlLoader : public Object
{
public:
    /// Starts a transfer and returns before any callback of it. A transfer that runs goes on, and reports, even when
    /// the caller lets go of it. Returns a null pointer when no transfer can be created: the request is no POST to a
    /// valid https URL, or the network's library cannot be loaded.
    virtual std::shared_ptr<UrlConnection> connectionWithRequestDelegate(const UrlRequest &request,
                                                                         UrlConnectionDelegate &delegate) = 0;
};

} // namespace platform
