// One transfer on libcurl.
#include "desktop/transfer/CurlUrlConnection.h"

#include "desktop/transfer/ConnectionBytes.h"

#include <QLoggingCategory>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

// The steps of a transfer and why it failed, for a person who looks into it: QT_LOGGING_RULES="korvale.transfer=true".
// Nothing of what is sent is ever part of it.
Q_LOGGING_CATEGORY(lcTransfer, "korvale.transfer", QtFatalMsg)

namespace {

/// Bytes that one callback hands over at most.
constexpr qsizetype kChunkSize = qsizetype(64) * 1024;

/// How often time limits and what has been sent are looked at: often enough for a progress indicator to move evenly.
constexpr std::chrono::milliseconds kLookInterval(100);

const char *nameOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Accepted:
        return "accepted";
    case Verdict::Refused:
        return "refused";
    case Verdict::Failed:
        break;
    }
    return "failed";
}

} // namespace

CurlUrlConnection::CurlUrlConnection(std::shared_ptr<const CurlLibrary> library, TransferSettings transferSettings,
                                     platform::UrlRequest requestToSend, platform::UrlConnectionDelegate &receiver,
                                     OperationQueue &operationQueue, EndListener listener)
    : curl(std::move(library))
    , settings(std::move(transferSettings))
    , request(std::move(requestToSend))
    , delegate(receiver)
    , operations(operationQueue)
    , endListener(std::move(listener))
    , multi(*curl)
{
    connect(&multi, &CurlMulti::acted, this, &CurlUrlConnection::onActed);
    connect(&multi, &CurlMulti::finished, this, &CurlUrlConnection::onFinished);
    connect(&lookTimer, &QTimer::timeout, this, &CurlUrlConnection::look);
    // A limit is kept to a tenth of itself.
    const auto shortest = std::min({settings.lookupLimit, settings.connectLimit, settings.idleLimit});
    lookTimer.setInterval(std::min(kLookInterval, shortest / 10));
}

CurlUrlConnection::~CurlUrlConnection()
{
    abandonAttempt();
}

void CurlUrlConnection::start()
{
    if (ProxyLookup::isInEnvironment()) {
        beginAttempt();
        return;
    }
    qCInfo(lcTransfer, "asking the desktop for a proxy");
    proxyLookup = std::make_unique<ProxyLookup>(settings.proxyCommand, request.url, settings.proxyLimit);
    connect(proxyLookup.get(), &ProxyLookup::found, this, [this](const QByteArray &found) {
        qCInfo(lcTransfer, "the desktop names %s", found.isEmpty() ? "no proxy" : "a proxy");
        proxy = found;
        beginAttempt();
    });
}

void CurlUrlConnection::cancel()
{
    if (over) {
        return;
    }
    qCInfo(lcTransfer, "cancelled");
    // Whoever holds the transfer may let go of it when it hears of the end.
    const auto self = weak_from_this().lock();
    close();
}

void CurlUrlConnection::beginAttempt()
{
    attempt = std::make_unique<CurlAttempt>(*curl, settings, request, proxy, addresses,
                                            [this](QByteArrayView bytes) { return take(bytes); });
    if (!attempt->isReady() || !multi.add(attempt->handle())) {
        endWith(CURLE_FAILED_INIT);
        return;
    }
    qCInfo(lcTransfer, "connecting");
    lastMove.start();
    movedAtLastLook = -1;
    lookTimer.start();
}

void CurlUrlConnection::abandonAttempt()
{
    if (attempt) {
        attempt->discard();
        multi.remove(attempt->handle());
        attempt.reset();
        addresses.forgetSockets();
    }
}

void CurlUrlConnection::startAgain()
{
    abandonAttempt();
    beginAttempt();
}

void CurlUrlConnection::onActed()
{
    // A complete answer to a part of the report: nothing that is sent now could change it.
    if (attempt && attempt->isAnswered() && !paused && multi.onlyWrites()) {
        endWith(CURLE_OK);
    }
}

void CurlUrlConnection::onFinished(CURLcode result)
{
    if (triesNextAddress(result)) {
        qCInfo(lcTransfer, "this address is of no use: %s", attempt->reason(result).constData());
        startAgain();
        return;
    }
    endWith(result);
}

bool CurlUrlConnection::triesNextAddress(CURLcode result)
{
    // libcurl itself goes on to the next address where there is no connection, but not where one is lost.
    return result != CURLE_COULDNT_CONNECT && !attempt->hasBegunRequest() && !attempt->hasProxyAnswer()
        && addresses.giveUpLastClosed();
}

void CurlUrlConnection::endWith(CURLcode result)
{
    end = attempt->end(result);
    qCInfo(lcTransfer, "%s: %s, %lld of %lld bytes sent", nameOf(verdictOn(*end)), attempt->reason(result).constData(),
           attempt->bytesSent(), end->bytesToSend);
    lookTimer.stop();
    abandonAttempt();
    scheduleCallbacks();
}

void CurlUrlConnection::look()
{
    // Once the request has begun no other address is tried, even if the connection is gone.
    if (const int connection = attempt->connection(); connection >= 0 || attempt->hasBegunRequest()) {
        lookAtConnection(connection);
    } else {
        lookAtAddresses();
    }
}

void CurlUrlConnection::lookAtAddresses()
{
    if (addresses.sockets().empty() && lastMove.elapsed() >= settings.lookupLimit.count()) {
        endWith(CURLE_OPERATION_TIMEDOUT);
        return;
    }
    if (addresses.giveUpOverdue(settings.connectLimit)) {
        qCInfo(lcTransfer, "this address does not answer");
        startAgain();
        return;
    }
    multi.wake();
}

void CurlUrlConnection::lookAtConnection(int connection)
{
    const qint64 moved = movedBytes(connection);
    // While the delegate is waited for, it is not the server that is.
    if (moved != std::exchange(movedAtLastLook, moved) || callbackPending) {
        lastMove.start();
    }
    if (lastMove.elapsed() >= settings.idleLimit.count()) {
        endWith(CURLE_OPERATION_TIMEDOUT);
        return;
    }
    reportProgress(attempt->bytesAcknowledged());
}

void CurlUrlConnection::reportProgress(qint64 acknowledged)
{
    // It is encrypted and has a head, and so is a little more than it is of the body.
    const qint64 total = request.body ? request.body->size() : 0;
    const qint64 known = std::clamp(acknowledged, sentAtLastLook, total);
    if (known != std::exchange(sentAtLastLook, known)) {
        Q_EMIT uploadProgress(known, total);
    }
}

bool CurlUrlConnection::take(QByteArrayView bytes)
{
    if (!chunk.isEmpty() && chunk.size() + bytes.size() > kChunkSize) {
        paused = true;
        return false;
    }
    chunk.append(bytes);
    scheduleCallbacks();
    return true;
}

void CurlUrlConnection::scheduleCallbacks()
{
    if (callbackPending) {
        return;
    }
    callbackPending = true;
    // The transfer holds itself until the callback has returned, whoever lets go of it meanwhile.
    const auto self = shared_from_this();
    QMetaObject::invokeMethod(
        this, [self] { self->operations.perform([self] { self->callBack(); }); }, Qt::QueuedConnection);
}

void CurlUrlConnection::callBack()
{
    if (over) {
        return;
    }
    if (chunk.isEmpty()) {
        reportEnd();
        return;
    }
    delegate.connectionDidReceiveData(*this, std::exchange(chunk, {}));
    callbackPending = false;
    if (over) {
        return;
    }
    if (attempt && std::exchange(paused, false)) {
        attempt->goOn();
    }
    if (!chunk.isEmpty() || end) {
        scheduleCallbacks();
    }
}

void CurlUrlConnection::reportEnd()
{
    close();
    const bool isWhole = end->completed && end->headEnded;
    const Verdict verdict = verdictOn(*end);
    if (verdict == Verdict::Accepted || (verdict == Verdict::Refused && isWhole)) {
        delegate.connectionDidFinishLoading(*this);
    } else {
        delegate.connectionDidFailWithError(*this, {});
    }
}

void CurlUrlConnection::close()
{
    over = true;
    lookTimer.stop();
    proxyLookup.reset();
    abandonAttempt();
    endListener(*this);
}

#include "moc_CurlUrlConnection.cpp"
