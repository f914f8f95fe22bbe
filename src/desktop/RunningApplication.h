// The running application: its parts, and how they are connected.
#pragma once

#include "AppController.h"
#include "desktop/DesktopApplication.h"
#include "desktop/MessageAlertPanel.h"
#include "desktop/OperationQueue.h"
#include "desktop/QtProcessInfo.h"
#include "desktop/QtUrlLoader.h"
#include "desktop/QtUserDefaults.h"
#include "desktop/ReportWindow.h"
#include "desktop/SyslogDiagnosticLog.h"
#include "desktop/SystemClock.h"

#include <QObject>

/// Makes the window and its controller, alive together for the whole run, and leads everything that reaches the
/// application to the controller, one operation at a time: what the window's user presses, files that are dropped onto
/// it, and files that the system opens onto the application object, which must exist before.
class RunningApplication : public QObject
{
    Q_OBJECT

public:
    /// The process information must outlive the application.
    explicit RunningApplication(QtProcessInfo &info);

    /// Opens the files of the command line and then finishes launching. The event loop must be running: termination
    /// asked for before that would go unheard.
    void launch();

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void openFile(const QString &path);
    void connectWindow();

    QtProcessInfo &processInfo;
    OperationQueue operations;
    ReportWindow window;
    DesktopApplication desktopApplication;
    MessageAlertPanel alertPanel;
    QtUserDefaults userDefaults;
    SystemClock clock;
    SyslogDiagnosticLog diagnosticLog;
    QtUrlLoader urlLoader;
    ReportControls controls;
    AppController controller;
};
