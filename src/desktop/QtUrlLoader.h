// HTTP transfers over QNetworkAccessManager.
#pragma once

#include "desktop/OperationQueue.h"
#include "platform/UrlConnection.h"

#include <chrono>

/// Seconds without a byte moving in either direction after which a transfer has failed.
inline constexpr std::chrono::milliseconds kIdleTimeout = std::chrono::seconds(60);

class QtUrlLoader : public platform::UrlLoader
{
public:
    explicit QtUrlLoader(OperationQueue &operations, std::chrono::milliseconds idleTimeout = kIdleTimeout);
    ~QtUrlLoader() override;

    std::shared_ptr<platform::UrlConnection>
    connectionWithRequestDelegate(const platform::UrlRequest &request,
                                  platform::UrlConnectionDelegate &delegate) override;
};
