// Waiting for something to happen.
#pragma once

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

#include <chrono>

/// Runs the event loop until the condition holds, at most as long as the limit; returns whether it held.
template<typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20))
{
    const QDeadlineTimer deadline(limit);
    QEventLoop loop;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, &loop, [&] {
        if (condition() || deadline.hasExpired()) {
            loop.quit();
        }
    });
    look.start(std::chrono::milliseconds(1));
    loop.exec();
    return condition();
}
