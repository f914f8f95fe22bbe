// The diagnostic log over syslog(3).
#pragma once

#include "platform/DiagnosticLog.h"

class SyslogDiagnosticLog : public platform::DiagnosticLog
{
public:
    SyslogDiagnosticLog();

    /// One line to the system's log and to standard error, as UTF-8; control characters are written as escapes, so
    /// that whatever comes from outside stays one line.
    void log(const QString &line) override;
};
