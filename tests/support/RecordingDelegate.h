// A delegate that writes down what its transfers report.
#pragma once

#include "platform/UrlConnection.h"

#include <QStringList>

#include <functional>
#include <utility>

class RecordingDelegate : public platform::UrlConnectionDelegate
{
public:
    void connectionDidReceiveData(platform::UrlConnection &connection, const QByteArray &data) override
    {
        heard << QStringLiteral("data ") + QString::fromLatin1(data.first(std::min<qsizetype>(data.size(), 40)));
        largest = std::max(largest, data.size());
        bytes += data.size();
        onData(connection);
    }

    void connectionDidFailWithError(platform::UrlConnection &connection, const platform::UrlError & /*error*/) override
    {
        heard << QStringLiteral("failed");
        onEnd(connection);
    }

    void connectionDidFinishLoading(platform::UrlConnection &connection) override
    {
        heard << QStringLiteral("finished");
        onEnd(connection);
    }

    bool hasEnded() const
    {
        return heard.contains(QStringLiteral("failed")) || heard.contains(QStringLiteral("finished"));
    }

    QStringList heard;
    qsizetype largest = 0; ///< The size of the largest chunk.
    qint64 bytes = 0;      ///< Of all chunks together.
    std::function<void(platform::UrlConnection &)> onData = [](platform::UrlConnection &) {};
    std::function<void(platform::UrlConnection &)> onEnd = [](platform::UrlConnection &) {};
};
