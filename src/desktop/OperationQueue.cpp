// Keeps the controller's operations apart.
#include "desktop/OperationQueue.h"

#include <QScopedValueRollback>

#include <utility>

void OperationQueue::perform(Operation operation)
{
    if (running || !waiting.empty()) {
        waiting.push_back(std::move(operation));
        return;
    }
    run(operation);
}

void OperationQueue::performIfIdle(const Operation &operation)
{
    if (!running && waiting.empty()) {
        run(operation);
    }
}

void OperationQueue::run(const Operation &operation)
{
    {
        const QScopedValueRollback busy(running, true);
        operation();
    }
    if (!waiting.empty()) {
        QMetaObject::invokeMethod(this, &OperationQueue::runNext, Qt::QueuedConnection);
    }
}

void OperationQueue::runNext()
{
    if (running || waiting.empty()) {
        return;
    }
    const Operation next = std::move(waiting.front());
    waiting.pop_front();
    run(next);
}
