// HTTP transfers over QNetworkAccessManager.
#pragma once

#include "base/OperationQueue.h"
#include "desktop/transfer/QtUrlConnection.h"
#include "platform/UrlConnection.h"

#include <QObject>

#include <chrono>
#include <memory>
#include <vector>

/// Seconds without a byte moving in either direction after which a transfer has failed.
inline constexpr std::chrono::milliseconds kIdleTimeout = std::chrono::seconds(60);

/// Every request is sent once, on a connection of its own: nothing is ever sent again, neither after a lost connection
/// nor after a redirect. The network stack and the TLS library are loaded at the first transfer.
class QtUrlLoader : public platform::UrlLoader
{
public:
    /// The queue must outlive the loader; all callbacks go through it.
    explicit QtUrlLoader(OperationQueue &operationQueue, std::chrono::milliseconds timeout = kIdleTimeout);
    /// Transfers that still run are cancelled.
    ~QtUrlLoader() override;

    /// Only HTTPS URLs with a host are valid.
    std::shared_ptr<platform::UrlConnection>
    connectionWithRequestDelegate(const platform::UrlRequest &request,
                                  platform::UrlConnectionDelegate &delegate) override;

private:
    QNetworkReply *send(const platform::UrlRequest &request);
    void forget(const QtUrlConnection &transfer);

    OperationQueue &operations;
    std::chrono::milliseconds idleTimeout;
    QObject managers; ///< Parent of the transfers' managers, so that none outlives the loader.
    std::vector<std::shared_ptr<QtUrlConnection>> running;
};
