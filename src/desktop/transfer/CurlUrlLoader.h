// HTTP transfers on libcurl.
#pragma once

#include "base/OperationQueue.h"
#include "desktop/transfer/CurlLibrary.h"
#include "desktop/transfer/CurlUrlConnection.h"
#include "desktop/transfer/TransferSettings.h"
#include "platform/UrlConnection.h"

#include <QObject>

#include <memory>
#include <vector>

/// Every request is sent once, on a connection of its own: nothing is ever sent again, neither after a lost connection
/// nor after a redirect. libcurl, and with it the TLS library, is loaded at the first transfer.
class CurlUrlLoader : public QObject, public platform::UrlLoader
{
    Q_OBJECT

public:
    /// The queue must outlive the loader; all callbacks go through it.
    explicit CurlUrlLoader(OperationQueue &operationQueue, TransferSettings transferSettings = {});
    /// Transfers that still run are cancelled.
    ~CurlUrlLoader() override;

    /// Only POSTs to HTTPS URLs with a host are sent.
    std::shared_ptr<platform::UrlConnection>
    connectionWithRequestDelegate(const platform::UrlRequest &request,
                                  platform::UrlConnectionDelegate &delegate) override;

Q_SIGNALS:
    /// So many bytes of the body of the transfer that runs have arrived at the other side, of that many; at most ten
    /// times a second.
    void uploadProgress(qint64 sent, qint64 total);

private:
    void forget(const CurlUrlConnection &transfer);

    OperationQueue &operations;
    TransferSettings settings;
    std::shared_ptr<const CurlLibrary> curl; ///< Empty until the first transfer.
    std::vector<std::shared_ptr<CurlUrlConnection>> running;
};
