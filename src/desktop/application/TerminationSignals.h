// The signals that ask the program to end.
#pragma once

#include <QObject>
#include <QSocketNotifier>

/// Turns SIGTERM, SIGINT and SIGHUP into a Qt signal in the event loop, where everything may be done that a handler of
/// signals may not. One object a process; the signals' former handling comes back when it is destroyed.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    TerminationSignals();
    ~TerminationSignals() override;

Q_SIGNALS:
    void received();

private:
    void onReadable();

    QSocketNotifier notifier;
};
