// Keeps the controller's operations apart.
#include "base/OperationQueue.h"

#include <QScopeGuard>

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
    // Also if the operation throws: queued operations must not be stranded.
    const auto goOn = qScopeGuard([this] {
        running = false;
        if (!waiting.empty()) {
            QMetaObject::invokeMethod(this, &OperationQueue::runNext, Qt::QueuedConnection);
        }
    });
    running = true;
    operation();
}

// Called once for each operation at whose end others were waiting, and nothing else takes from these.
void OperationQueue::runNext()
{
    const Operation next = std::move(waiting.front());
    waiting.pop_front();
    run(next);
}

#include "moc_OperationQueue.cpp"
