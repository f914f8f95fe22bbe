// One transfer over QNetworkReply.
#include "desktop/transfer/QtUrlConnection.h"

#include <QNetworkRequest>

#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// The most bytes that one callback hands over.
constexpr qint64 kChunkSize = qint64(64) * 1024;

int statusOf(const QNetworkReply &reply)
{
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

/// Whether the error only says that the status of a complete answer is 400 or more. QNetworkReply reports such an
/// answer as an error; here it is an answer like any other.
bool saysOnlyTheStatus(QNetworkReply::NetworkError error, int status)
{
    if (status < 400) {
        return false;
    }
    switch (error) {
    case QNetworkReply::ContentAccessDenied:
    case QNetworkReply::ContentOperationNotPermittedError:
    case QNetworkReply::ContentNotFoundError:
    case QNetworkReply::ContentConflictError:
    case QNetworkReply::ContentGoneError:
    case QNetworkReply::UnknownContentError:
    case QNetworkReply::ProtocolInvalidOperationError:
    case QNetworkReply::InternalServerError:
    case QNetworkReply::OperationNotImplementedError:
    case QNetworkReply::ServiceUnavailableError:
    case QNetworkReply::UnknownServerError:
        return true;
    case QNetworkReply::AuthenticationRequiredError:
        return status == 401;
    case QNetworkReply::ProxyAuthenticationRequiredError:
        return status == 407;
    default:
        return false;
    }
}

/// Whether the body has the length that was announced, if one was. QNetworkReply takes an announcement that is no
/// number for none at all, and an answer that may be incomplete must not pass for an accepted report.
bool hasItsLength(const QNetworkReply &reply, qint64 received)
{
    if (!reply.hasRawHeader("Content-Length") || reply.hasRawHeader("Transfer-Encoding")) {
        return true;
    }
    const int status = statusOf(reply);
    if (status == 204 || status == 304) {
        // These have no body, whatever their headers say (RFC 9112 section 6.3).
        return true;
    }
    bool isNumber = false;
    const qint64 announced = reply.rawHeader("Content-Length").toLongLong(&isNumber);
    return isNumber && announced == received;
}

/// Lets the network layer hold no more of the body than one chunk. Sent when the head of an answer has come: the limit
/// has no effect before the request is under way, and the body of a redirect, which nobody reads, would be held up by
/// it.
void limitReadBuffer(QNetworkReply &reply)
{
    const bool isRedirect = statusOf(reply) / 100 == 3;
    if (!isRedirect) {
        reply.setReadBufferSize(kChunkSize);
    }
}

/// Why the finished reply is not a complete answer; nothing when it is one.
std::optional<platform::UrlError> failureOf(const QNetworkReply &reply, qint64 received)
{
    if (reply.error() != QNetworkReply::NoError && !saysOnlyTheStatus(reply.error(), statusOf(reply))) {
        return platform::UrlError{reply.errorString()};
    }
    if (!hasItsLength(reply, received)) {
        return platform::UrlError{u"The body does not have the announced length"_s};
    }
    return std::nullopt;
}

} // namespace

QtUrlConnection::QtUrlConnection(QNetworkReply *runningReply, platform::UrlConnectionDelegate &receiver,
                                 OperationQueue &operationQueue, std::chrono::milliseconds idleTimeout,
                                 EndListener listener)
    : reply(runningReply)
    , delegate(receiver)
    , operations(operationQueue)
    , endListener(std::move(listener))
{
    idleTimer.setSingleShot(true);
    idleTimer.setInterval(idleTimeout);
}

QtUrlConnection::~QtUrlConnection() = default;

void QtUrlConnection::start()
{
    QNetworkReply *const source = reply.get();
    QObject::connect(source, &QNetworkReply::readyRead, source, [this] { callBackLater(); });
    QObject::connect(source, &QNetworkReply::finished, source, [this] {
        idleTimer.stop();
        callBackLater();
    });

    QObject::connect(source, &QNetworkReply::metaDataChanged, source, [source] { limitReadBuffer(*source); });

    const auto onProgress = [this] { idleTimer.start(); };
    QObject::connect(source, &QNetworkReply::encrypted, source, onProgress);
    QObject::connect(source, &QNetworkReply::uploadProgress, source, onProgress);
    QObject::connect(source, &QNetworkReply::metaDataChanged, source, onProgress);
    QObject::connect(source, &QNetworkReply::downloadProgress, source, onProgress);
    QObject::connect(&idleTimer, &QTimer::timeout, source, [this] { onIdle(); });
    idleTimer.start();
}

void QtUrlConnection::cancel()
{
    if (const auto ended = takeReply()) {
        ended->abort();
    }
}

void QtUrlConnection::onIdle()
{
    if (callbackPending) {
        // It is the delegate that is waited for, not the server.
        idleTimer.start();
        return;
    }
    reply->abort();
}

void QtUrlConnection::callBackLater()
{
    if (callbackPending) {
        return;
    }
    callbackPending = true;
    // The transfer holds itself until the callback has returned, whoever lets go of it meanwhile.
    const auto self = shared_from_this();
    QMetaObject::invokeMethod(
        reply.get(), [self] { self->operations.perform([self] { self->callBack(); }); }, Qt::QueuedConnection);
}

void QtUrlConnection::callBack()
{
    if (!reply) {
        return;
    }
    // An aborted reply is closed and holds no bytes any more.
    const QByteArray chunk = reply->isOpen() ? reply->read(kChunkSize) : QByteArray();
    if (!chunk.isEmpty()) {
        received += chunk.size();
        delegate.connectionDidReceiveData(*this, chunk);
    } else if (reply->isFinished()) {
        reportEnd();
    }
    callbackPending = false;
    if (reply && !chunk.isEmpty()) {
        callBackLater();
    }
}

void QtUrlConnection::reportEnd()
{
    const auto ended = takeReply();
    if (const auto failure = failureOf(*ended, received)) {
        delegate.connectionDidFailWithError(*this, *failure);
    } else {
        delegate.connectionDidFinishLoading(*this);
    }
}

std::unique_ptr<QNetworkReply, QtUrlConnection::DeleteLater> QtUrlConnection::takeReply()
{
    idleTimer.stop();
    if (reply) {
        // Aborting reports through the same signals as a failure.
        QObject::disconnect(reply.get(), nullptr, reply.get(), nullptr);
        endListener(*this);
    }
    return std::move(reply);
}
