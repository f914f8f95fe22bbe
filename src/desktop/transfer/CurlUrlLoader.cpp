// HTTP transfers on libcurl.
#include "desktop/transfer/CurlUrlLoader.h"

#include <QLoggingCategory>

#include <utility>

using namespace Qt::StringLiterals;

Q_DECLARE_LOGGING_CATEGORY(lcTransfer)

namespace {

/// The version of libcurl's interface, which is part of the library's name.
constexpr int kInterfaceVersion = 4;

bool canBeSent(const platform::UrlRequest &request)
{
    return request.method == "POST" && request.url.isValid() && request.url.scheme() == "https"_L1
        && !request.url.host().isEmpty();
}

} // namespace

CurlUrlLoader::CurlUrlLoader(OperationQueue &operationQueue, TransferSettings transferSettings)
    : operations(operationQueue)
    , settings(std::move(transferSettings))
{
}

CurlUrlLoader::~CurlUrlLoader()
{
    for (const auto &transfer : std::exchange(running, {})) {
        transfer->cancel();
    }
}

std::shared_ptr<platform::UrlConnection>
CurlUrlLoader::connectionWithRequestDelegate(const platform::UrlRequest &request,
                                             platform::UrlConnectionDelegate &delegate)
{
    if (!canBeSent(request)) {
        qCInfo(lcTransfer, "this is no POST to an HTTPS address");
        return nullptr;
    }
    if (!curl) {
        curl = CurlLibrary::load(settings.library, kInterfaceVersion);
    }
    if (!curl) {
        qCInfo(lcTransfer, "libcurl cannot be loaded, or is too old");
        return nullptr;
    }
    const auto transfer = std::make_shared<CurlUrlConnection>(
        curl, settings, request, delegate, operations, [this](const CurlUrlConnection &ended) { forget(ended); });
    connect(transfer.get(), &CurlUrlConnection::uploadProgress, this, &CurlUrlLoader::uploadProgress);
    running.push_back(transfer);
    transfer->start();
    return transfer;
}

void CurlUrlLoader::forget(const CurlUrlConnection &transfer)
{
    std::erase_if(running, [&transfer](const auto &candidate) { return candidate.get() == &transfer; });
}

#include "moc_CurlUrlLoader.cpp"
