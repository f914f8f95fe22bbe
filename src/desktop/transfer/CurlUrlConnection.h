// One transfer on libcurl.
#pragma once

#include "base/OperationQueue.h"
#include "desktop/transfer/AddressBook.h"
#include "desktop/transfer/CurlAttempt.h"
#include "desktop/transfer/CurlLibrary.h"
#include "desktop/transfer/CurlMulti.h"
#include "desktop/transfer/ProxyLookup.h"
#include "desktop/transfer/TransferSettings.h"
#include "desktop/transfer/UploadVerdict.h"
#include "platform/UrlConnection.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

/// Finds the proxy, tries the host's addresses until one takes the request, watches the time, and turns what happens
/// into the callbacks of the delegate. Between two callbacks it goes back to the event loop, and it takes bytes from
/// the network only as fast as the delegate does, so an answer of any size needs little memory.
class CurlUrlConnection : public QObject,
                          public platform::UrlConnection,
                          public std::enable_shared_from_this<CurlUrlConnection>
{
    Q_OBJECT

public:
    /// Called once, when the transfer has ended or was cancelled, before its last callback.
    using EndListener = std::function<void(const CurlUrlConnection &)>;

    /// The delegate and the queue must outlive the transfer's end.
    CurlUrlConnection(std::shared_ptr<const CurlLibrary> library, TransferSettings transferSettings,
                      platform::UrlRequest requestToSend, platform::UrlConnectionDelegate &receiver,
                      OperationQueue &operationQueue, EndListener listener);
    ~CurlUrlConnection() override;

    /// Begins the transfer; called once, right after construction.
    void start();

    /// Also drops what the system still holds of the request.
    void cancel() override;

Q_SIGNALS:
    /// So many bytes of the request's body have been acknowledged by the other side or its proxy, of that many. Emitted
    /// when the number changes, at most ten times a second.
    void uploadProgress(qint64 sent, qint64 total);

private:
    void beginAttempt();
    void abandonAttempt();
    void startAgain();
    void onActed();
    void onFinished(CURLcode result);
    bool triesNextAddress(CURLcode result);
    void endWith(CURLcode result);

    void look();
    void lookAtAddresses();
    void lookAtConnection(int connection);
    void reportProgress(qint64 acknowledged);

    bool take(QByteArrayView bytes);
    void scheduleCallbacks();
    void callBack();
    void reportEnd();
    void close();

    const std::shared_ptr<const CurlLibrary> curl; ///< Shared, for a transfer may outlive its loader.
    const TransferSettings settings;
    const platform::UrlRequest request;
    platform::UrlConnectionDelegate &delegate;
    OperationQueue &operations;
    EndListener endListener;

    std::unique_ptr<ProxyLookup> proxyLookup;
    QByteArray proxy;
    AddressBook addresses;
    CurlMulti multi;
    std::unique_ptr<CurlAttempt> attempt; ///< Empty while the proxy is looked up and once the transfer has ended.

    QTimer lookTimer;
    QElapsedTimer lastMove;      ///< Since a byte moved; before there is a connection, since the attempt began.
    qint64 movedAtLastLook = -1; ///< Bytes; -1 before the connection was looked at.
    qint64 sentAtLastLook = 0;

    QByteArray chunk;    ///< Received and not handed to the delegate.
    bool paused = false; ///< More was received than the chunk may hold.
    std::optional<TransferEnd> end;
    bool callbackPending = false; ///< From the wish to call back until the callback has returned.
    bool over = false;            ///< The last callback has begun, or the transfer was cancelled.
};
