// The running application's parts and their connections.
#include "desktop/application/Composition.h"

#include "SubmissionHost.h"
#include "base/Utf8.h"
#include "report/CommandLine.h"

#include <QApplication>
#include <QFileOpenEvent>

namespace {

QString submissionHost()
{
    return QString::fromUtf16(kSubmissionHost);
}

} // namespace

Composition::Composition(QtProcessInfo &info)
    : processInfo(info)
    , qtApplication(window)
    , alertPanel(window)
    , userDefaults(platform::systemLocalLookups())
    , urlLoader(operations)
    , controls(window.controls())
    , controller(controls,
                 {.application = qtApplication,
                  .alertPanel = alertPanel,
                  .userDefaults = userDefaults,
                  .urlLoader = urlLoader,
                  .processInfo = processInfo,
                  .clock = clock,
                  .diagnosticLog = diagnosticLog,
                  .reportListener = *this,
                  .submissionHost = submissionHost()})
{
    // Alerts may stand alone, before the window.
    QApplication::setWindowIcon(window.windowIcon());
    controller.init();
    connectWindow();
    // The system asks for no more than the user who closes the window.
    connect(&terminationSignals, &TerminationSignals::received, this, &Composition::windowClosed);
    qApp->installEventFilter(this);
}

void Composition::launch()
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

void Composition::reportLoaded(const platform::LoadedReport &report)
{
    window.setReportSummary({.logFile = report.path,
                             .bytes = utf8Length(controls.logText.string()),
                             .appendedLogs = static_cast<int>(report.appendedLogs.size()),
                             .host = submissionHost()});
    window.setAppendedLogs(report.appendedLogs);
}

bool Composition::eventFilter(QObject * /*watched*/, QEvent *event)
{
    if (event->type() != QEvent::FileOpen) {
        return false;
    }
    openFile(static_cast<QFileOpenEvent *>(event)->file());
    return true;
}

void Composition::openFile(const QString &path)
{
    operations.perform([this, path] { controller.applicationOpenFile(&qtApplication, path); });
}

void Composition::connectWindow()
{
    // Queued, never dropped: the toggle has already changed and must stay in sync with the pane.
    connect(&window, &ReportWindow::disclosureClicked, this,
            [this] { operations.perform([this] { controller.disclosureClick(&controls.disclosureBtn); }); });
    connect(&window, &ReportWindow::submitClicked, this,
            [this] { operations.performIfIdle([this] { controller.submitReport(&controls.submitBtn); }); });
    connect(&window, &ReportWindow::cancelClicked, this,
            [this] { operations.performIfIdle([this] { controller.cancel(); }); });
    connect(&urlLoader, &CurlUrlLoader::uploadProgress, &window, &ReportWindow::setUploadProgress);
    // Whoever owns the display could have every file that root may read dropped there, and shown.
    window.setAcceptDrops(platform::systemLocalLookups().realUserId() != platform::kRootUserId);
    connect(&window, &ReportWindow::filesDropped, this, [this](const QStringList &paths) {
        for (const QString &path : paths) {
            openFile(path);
        }
    });
    connect(&window, &ReportWindow::closed, this, &Composition::windowClosed);
}

void Composition::windowClosed()
{
    if (controller.applicationShouldTerminateAfterLastWindowClosed(&qtApplication)) {
        qtApplication.terminate(nullptr);
    }
}

#include "moc_Composition.cpp"
