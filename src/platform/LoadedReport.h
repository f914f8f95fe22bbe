// What a window tells its user about the report that it shows.
#pragma once

#include "platform/Object.h"

#include <QList>
#include <QString>

namespace platform {

/// One of the application's own logs within the report text.
struct AppendedLog {
    QString title;        ///< Such as "Task Log 1".
    qsizetype offset = 0; ///< Where its heading begins, in UTF-16 code units from the start of the report text.

    bool operator==(const AppendedLog &) const = default;
};

/// Where the report text comes from.
struct LoadedReport {
    QString path;                    ///< The crash log's file.
    QList<AppendedLog> appendedLogs; ///< In their order.
};

/// Hears of every report that is loaded. The base class is the missing listener.
class ReportListener : public Object
{
public:
    static ReportListener &missing();

    /// Called after the report text was replaced.
    virtual void reportLoaded(const LoadedReport & /*report*/) {}
};

} // namespace platform
