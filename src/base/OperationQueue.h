// Keeps the controller's operations apart: never one inside another.
#pragma once

#include <QObject>

#include <deque>
#include <functional>

/// A modal alert runs a nested event loop, in which callbacks of transfers, opened files and clicks go on arriving
/// while the operation that shows the alert has not ended. Every entrance to the controller therefore goes through this
/// queue. Main thread only.
class OperationQueue : public QObject
{
    Q_OBJECT

public:
    using Operation = std::function<void()>;

    using QObject::QObject;

    /// Runs the operation at once when none is running. Otherwise it waits, and runs from the event loop after the
    /// running one has ended, in the order of the calls.
    void perform(Operation operation);

    /// Runs the operation at once when none is running or waiting, and else drops it: for what a user presses, which a
    /// modal alert blocks.
    void performIfIdle(const Operation &operation);

private:
    void run(const Operation &operation);
    void runNext();

    std::deque<Operation> waiting;
    bool running = false;
};
