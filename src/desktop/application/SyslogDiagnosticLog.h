// The diagnostic log, in the system's log.
#pragma once

#include "platform/DiagnosticLog.h"

class SyslogDiagnosticLog : public platform::DiagnosticLog
{
public:
    /// One line to the system's log (a notice of a user's program) and to standard error, as UTF-8; control characters
    /// are written as escapes, so that whatever comes from outside stays one line. A log that does not take it at once
    /// goes without: syslog(3) would wait for it, the window with it. The system's log gets the first 16,384 code
    /// units.
    void log(const QString &line) override;
};
