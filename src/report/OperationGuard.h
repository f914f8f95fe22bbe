// The guard that the controller's operations run under.
#pragma once

#include "platform/DiagnosticLog.h"
#include "platform/PlatformException.h"

#include <QString>

#include <utility>

/// Runs the body. A platform::PlatformException that leaves it becomes one line of the log, with the operation's label
/// and the exception's name and reason, and the neutral result is given. Any other exception passes on.
template<typename Result, typename Body>
Result guarded(platform::DiagnosticLog &log, QLatin1StringView label, Result neutral, Body &&body)
{
    try {
        return std::forward<Body>(body)();
    } catch (const platform::PlatformException &exception) {
        log.log(QLatin1StringView("Exception in ") + label + QLatin1StringView(". ") + exception.name()
                + QLatin1StringView(" - ") + exception.reason());
        return neutral;
    }
}

/// The same for an operation without a result.
template<typename Body>
void guarded(platform::DiagnosticLog &log, QLatin1StringView label, Body &&body)
{
    guarded(log, label, false, [&body] {
        std::forward<Body>(body)();
        return true;
    });
}
