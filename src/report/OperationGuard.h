// The guard that the controller's operations run under.
#pragma once

#include "platform/DiagnosticLog.h"
#include "platform/PlatformException.h"

#include <QString>

#include <concepts>
#include <type_traits>

/// Calls the body and returns its result. A platform::PlatformException that leaves it becomes one line of the log,
/// with the operation's label and the exception's name and reason, and the result is the neutral one: false,
/// std::nullopt or void. Any other exception passes on.
template<std::invocable Body>
std::invoke_result_t<Body> guarded(platform::DiagnosticLog &log, QLatin1StringView label, Body body)
{
    try {
        return body();
    } catch (const platform::PlatformException &exception) {
        log.log(QLatin1StringView("Exception in ") + label + QLatin1StringView(". ") + exception.name()
                + QLatin1StringView(" - ") + exception.reason());
        return std::invoke_result_t<Body>();
    }
}
