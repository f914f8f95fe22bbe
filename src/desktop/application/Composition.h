// The running application: its parts, and how they are connected.
#pragma once

#include "base/OperationQueue.h"
#include "desktop/application/QtApplication.h"
#include "desktop/application/QtClock.h"
#include "desktop/application/QtProcessInfo.h"
#include "desktop/application/QtUserDefaults.h"
#include "desktop/application/SyslogDiagnosticLog.h"
#include "desktop/application/TerminationSignals.h"
#include "desktop/transfer/CurlUrlLoader.h"
#include "desktop/window/QtAlertPanel.h"
#include "desktop/window/ReportWindow.h"
#include "report/AppController.h"

#include <QObject>

/// Owns the window and its controller for the whole run, and routes every external event to the controller, one
/// operation at a time: what the window's user presses, files that are dropped onto it, and files that the system opens
/// onto the application object, which must exist before.
class Composition : public QObject, public platform::ReportListener
{
    Q_OBJECT

public:
    /// The process information must outlive the application.
    explicit Composition(QtProcessInfo &info);

    /// Opens the files of the command line and then finishes launching. The event loop must be running: termination
    /// asked for before that would go unheard.
    void launch();

    /// Says in the window what would be sent, and where to.
    void reportLoaded(const platform::LoadedReport &report) override;

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void openFile(const QString &path);
    void connectWindow();
    void windowClosed();

    QtProcessInfo &processInfo;
    OperationQueue operations;
    ReportWindow window;
    QtApplication qtApplication;
    QtAlertPanel alertPanel;
    QtUserDefaults userDefaults;
    QtClock clock;
    SyslogDiagnosticLog diagnosticLog;
    CurlUrlLoader urlLoader;
    platform::ReportControls controls;
    AppController controller;
    TerminationSignals terminationSignals;
};
