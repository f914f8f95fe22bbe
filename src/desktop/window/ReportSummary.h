// What the window says of the report before it is sent.
#pragma once

#include <QString>

/// What would be sent, and where to.
struct ReportSummary {
    QString logFile;      ///< The crash log's path; its last component is shown.
    qint64 bytes = 0;     ///< Of the report text, with the appended logs.
    int appendedLogs = 0; ///< How many of the application's own logs follow the crash log.
    QString host;         ///< Where the report goes.
};

/// One line for a person, such as "Harbour_1.crash (52.4 kB, with 4 application logs), sent to crash.example.org". The
/// names are as displayText() gives them, whole.
QString summaryText(const ReportSummary &summary);
