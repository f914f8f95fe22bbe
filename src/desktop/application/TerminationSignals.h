// The signals that ask the program to end.
#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <array>
#include <csignal>

inline constexpr std::array kTerminationSignals = {SIGTERM, SIGINT, SIGHUP};

/// Turns these into a Qt signal in the event loop, where everything may be done that a handler of signals may not; two
/// seconds later SIGALRM ends the process, should it still be there. One object at a time. When it is destroyed the
/// program is ending, and what comes then changes nothing: by their default, the signals would end it in the middle of
/// that, as if it had failed.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    TerminationSignals();

Q_SIGNALS:
    void received();

private:
    void onReadable();

    QSocketNotifier notifier;
};
