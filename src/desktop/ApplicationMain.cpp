// The application's main function: makes the parts, connects them and runs the event loop.
#include "desktop/ApplicationMain.h"

#include "AppController.h"
#include "CommandLine.h"
#include "SubmissionHost.h"
#include "desktop/DesktopApplication.h"
#include "desktop/DisplayCheck.h"
#include "desktop/MessageAlertPanel.h"
#include "desktop/OperationQueue.h"
#include "desktop/QtProcessInfo.h"
#include "desktop/QtUrlLoader.h"
#include "desktop/QtUserDefaults.h"
#include "desktop/ReportWindow.h"
#include "desktop/SyslogDiagnosticLog.h"
#include "desktop/SystemClock.h"

#include <QApplication>
#include <QFileOpenEvent>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

std::unique_ptr<QApplication> startedToolkit(int &argumentCount, char **arguments)
{
    const DisplayCheck displayCheck;
    auto toolkit = std::make_unique<QApplication>(argumentCount, arguments);
    QApplication::setApplicationDisplayName(u"Korvale Crash Reporter"_s);
    QGuiApplication::setDesktopFileName(u"com.korvale.crashreporter"_s);
    // The window's own closing decides; the end of an alert that stands alone at launch does not.
    QApplication::setQuitOnLastWindowClosed(false);
    return toolkit;
}

/// The application's parts, alive together for the whole run.
class RunningApplication : public QObject
{
public:
    explicit RunningApplication(QtProcessInfo &info)
        : processInfo(info)
        , desktopApplication(&window)
        , alertPanel(&window)
        , urlLoader(operations)
        , controls(window.controls())
        , controller(controls,
                     {.application = desktopApplication,
                      .alertPanel = alertPanel,
                      .userDefaults = userDefaults,
                      .urlLoader = urlLoader,
                      .processInfo = processInfo,
                      .clock = clock,
                      .diagnosticLog = diagnosticLog,
                      .submissionHost = QString::fromUtf16(kSubmissionHost)})
    {
        controller.init();
        connectWindow();
        qApp->installEventFilter(this);
    }

    /// Opens the files of the command line and then finishes launching. The event loop must be running: termination
    /// asked for before that would go unheard.
    void launch()
    {
        const QStringList paths = openedFiles(processInfo.arguments());
        for (const QString &path : paths) {
            openFile(path);
        }
        // A turn of the event loop later, because some systems deliver the files opened at launch as events.
        QMetaObject::invokeMethod(
            this, [this] { operations.perform([this] { controller.applicationDidFinishLaunching(nullptr); }); },
            Qt::QueuedConnection);
    }

    bool eventFilter(QObject * /*watched*/, QEvent *event) override
    {
        if (event->type() != QEvent::FileOpen) {
            return false;
        }
        openFile(static_cast<QFileOpenEvent *>(event)->file());
        return true;
    }

private:
    void openFile(const QString &path)
    {
        operations.perform([this, path] { controller.applicationOpenFile(&desktopApplication, path); });
    }

    void connectWindow()
    {
        connect(&window, &ReportWindow::disclosureClicked, this,
                [this] { operations.performIfIdle([this] { controller.disclosureClick(&controls.disclosureBtn); }); });
        connect(&window, &ReportWindow::submitClicked, this,
                [this] { operations.performIfIdle([this] { controller.submitReport(&controls.submitBtn); }); });
        connect(&window, &ReportWindow::cancelClicked, this,
                [this] { operations.performIfIdle([this] { controller.cancel(); }); });
        connect(&window, &ReportWindow::filesDropped, this, [this](const QStringList &paths) {
            for (const QString &path : paths) {
                openFile(path);
            }
        });
        connect(&window, &ReportWindow::closed, this, [this] {
            if (controller.applicationShouldTerminateAfterLastWindowClosed(&desktopApplication)) {
                desktopApplication.terminate(nullptr);
            }
        });
    }

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

} // namespace

int applicationMain(int argc, char **argv)
{
    QtProcessInfo processInfo(argc, argv);
    // The toolkit is given the program's name alone: it would take options it knows, and their values, from a command
    // line whose words are not meant for it.
    int toolkitArgumentCount = argc > 0 ? 1 : 0;
    const std::unique_ptr<QApplication> toolkit = startedToolkit(toolkitArgumentCount, argv);
    RunningApplication application(processInfo);
    QMetaObject::invokeMethod(&application, &RunningApplication::launch, Qt::QueuedConnection);
    return QApplication::exec();
}
