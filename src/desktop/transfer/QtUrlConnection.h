// One transfer over QNetworkReply.
#pragma once

#include "base/OperationQueue.h"
#include "platform/UrlConnection.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>

/// Turns the signals of a reply into the callbacks of its delegate. Between two callbacks it goes back to the event
/// loop, and it takes bytes from the network only as fast as the delegate does, so an answer of any size needs little
/// memory.
class QtUrlConnection : public platform::UrlConnection, public std::enable_shared_from_this<QtUrlConnection>
{
public:
    /// Sent once, when the transfer has ended or was cancelled, before its last callback.
    using EndListener = std::function<void(const QtUrlConnection &)>;

    /// Takes over the reply together with its manager, which serves no other reply. The delegate and the queue must
    /// outlive the transfer's end.
    QtUrlConnection(QNetworkReply *runningReply, platform::UrlConnectionDelegate &receiver,
                    OperationQueue &operationQueue, std::chrono::milliseconds idleTimeout, EndListener listener);
    ~QtUrlConnection() override;

    /// Begins to listen to the reply. Sent once, right after construction.
    void start();

    void cancel() override;

private:
    struct DeleteLater {
        void operator()(QNetworkReply *ended) const { ended->manager()->deleteLater(); }
    };

    void onIdle();
    void callBackLater();
    void callBack();
    void reportEnd();
    std::unique_ptr<QNetworkReply, DeleteLater> takeReply();

    std::unique_ptr<QNetworkReply, DeleteLater> reply; ///< Empty once the transfer has ended.
    platform::UrlConnectionDelegate &delegate;
    OperationQueue &operations;
    QTimer idleTimer;
    EndListener endListener;
    qint64 received = 0;          ///< Bytes of the body that the delegate has been given.
    bool callbackPending = false; ///< From the wish to call back until the callback has returned.
};
