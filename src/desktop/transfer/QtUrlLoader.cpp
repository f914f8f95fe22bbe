// HTTP transfers over QNetworkAccessManager.
#include "desktop/transfer/QtUrlLoader.h"

#include "desktop/transfer/SequentialBody.h"

#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslSocket>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

bool canBeLoaded(const QUrl &url)
{
    return url.isValid() && url.scheme() == "https"_L1 && !url.host().isEmpty() && QSslSocket::supportsSsl();
}

void addHeaders(QNetworkRequest &networkRequest, const platform::UrlRequest &request)
{
    for (const auto &[field, value] : request.headers) {
        // A field that is added twice is one list (RFC 9110 section 5.3).
        const QByteArray earlier = networkRequest.rawHeader(field);
        networkRequest.setRawHeader(field, earlier.isEmpty() ? value : earlier + ", " + value);
    }
}

QNetworkRequest networkRequestFor(const platform::UrlRequest &request)
{
    QNetworkRequest networkRequest(request.url);
    addHeaders(networkRequest, request);
    networkRequest.setHeader(QNetworkRequest::ContentLengthHeader, request.body ? request.body->size() : 0);
    // A buffered body could be rewound and sent again.
    networkRequest.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    // HTTP/2 lets a server turn requests away to be sent once more (RFC 9113 section 8.7), and its other gains are for
    // many requests on one connection.
    networkRequest.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    // The bytes of an answer decide. QNetworkReply would also take a compressed answer that was cut short for complete.
    networkRequest.setRawHeader("Accept-Encoding", "identity");
    return networkRequest;
}

} // namespace

QtUrlLoader::QtUrlLoader(OperationQueue &operationQueue, std::chrono::milliseconds timeout)
    : operations(operationQueue)
    , idleTimeout(timeout)
{
}

QtUrlLoader::~QtUrlLoader()
{
    for (const auto &transfer : std::exchange(running, {})) {
        transfer->cancel();
    }
}

std::shared_ptr<platform::UrlConnection>
QtUrlLoader::connectionWithRequestDelegate(const platform::UrlRequest &request,
                                           platform::UrlConnectionDelegate &delegate)
{
    if (!canBeLoaded(request.url)) {
        return nullptr;
    }
    const auto transfer = std::make_shared<QtUrlConnection>(send(request), delegate, operations, idleTimeout,
                                                            [this](const QtUrlConnection &ended) { forget(ended); });
    running.push_back(transfer);
    transfer->start();
    return transfer;
}

QNetworkReply *QtUrlLoader::send(const platform::UrlRequest &request)
{
    // As every program on the desktop does, through the proxy that the system names, if it names one.
    QNetworkProxyFactory::setUseSystemConfiguration(true);
    // One manager for each transfer. A shared one keeps connections: the server may close one just when the next
    // request is on its way on it, and a request that follows an aborted one to the same host may wait on it for ever.
    auto *const manager = new QNetworkAccessManager(&managers);
    // A request without a body gets an empty one: it looks the same on the wire, and without a body at all it would be
    // sent again after a lost connection.
    auto *const body = new SequentialBody(request.body.value_or(QByteArray()), manager);
    const QNetworkRequest networkRequest = networkRequestFor(request);
    if (request.method == "POST") {
        return manager->post(networkRequest, body);
    }
    return manager->sendCustomRequest(networkRequest, request.method, body);
}

void QtUrlLoader::forget(const QtUrlConnection &transfer)
{
    std::erase_if(running, [&transfer](const auto &candidate) { return candidate.get() == &transfer; });
}
