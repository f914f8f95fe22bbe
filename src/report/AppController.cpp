// The application controller: launch, details disclosure, log collection and submission.
#include "report/AppController.h"

#include "base/PathText.h"
#include "base/TextFile.h"
#include "paths/KVLocalPaths.h"
#include "report/CommandLine.h"
#include "report/OperationGuard.h"
#include "report/ReportText.h"
#include "report/SubmissionRules.h"

#include <array>

using namespace Qt::StringLiterals;
using platform::Animation;
using platform::Display;
using platform::Rect;

namespace {

/// Add-on products that are known to cause trouble: what a crash log contains when one is loaded, and the title of the
/// alert about it. They are looked for in this order.
struct ConflictingSoftware {
    QLatin1StringView marker;
    QLatin1StringView alertTitle;
};
constexpr std::array<ConflictingSoftware, 2> kConflictingSoftware = {{
    {"com.unsanity.ape"_L1, "Unsanity Application Enhancer is installed"_L1},
    {"net.culater.SIMBL"_L1, "SIMBL is installed"_L1},
}};

/// Where the application logs of the table stand in the order in which their paths are built: the plain logs first.
constexpr std::array<size_t, kApplicationLogs.size()> kPathOrder = {0, 2, 1, 3};

constexpr QLatin1StringView kSubmissionCountKey = "crashSubmissionCount"_L1;
constexpr QLatin1StringView kLastSubmissionKey = "lastCrashSubmissionDate"_L1;

QString addressMessage()
{
    // example.org is reserved for documentation (RFC 2606 section 3).
    return u"Please enter an address in the form name@example.org"_s;
}

QString crashHeadline(const QString &subject)
{
    return subject
        + u" crashed the last time it ran. Please submit a bug report so we can prevent this occurring in future."_s;
}

/// The paths of the application logs, in the order of the table; nothing where there is no log directory.
std::array<std::optional<QString>, kApplicationLogs.size()> applicationLogPaths(const QString &appName)
{
    std::array<std::optional<QString>, kApplicationLogs.size()> paths;
    for (const size_t index : kPathOrder) {
        if (const std::optional<QString> directory = KVLocalPaths::logDirectory(true)) {
            paths.at(index) = *directory + u"/Korvale/"_s + appName + kApplicationLogs.at(index).fileSuffix;
        }
    }
    return paths;
}

/// The text of the application log, if it may be appended to a report of the running length.
std::optional<QString> appendableLog(const ApplicationLog &log, const std::optional<QString> &path,
                                     quint64 runningLength)
{
    if (!path || !fileExists(*path) || !mayTakeMoreLogs(runningLength)) {
        return std::nullopt;
    }
    std::optional<QString> text = textOfFile(*path, mostBytes(log));
    if (!text || !fits(log, static_cast<quint64>(text->size()), runningLength)) {
        return std::nullopt;
    }
    return text;
}

} // namespace

AppController::AppController(const platform::ReportControls &controls, const PlatformServices &platformServices)
    : mainWindow(controls.mainWindow)
    , initialInfo(controls.initialInfo)
    , disclosureBtn(controls.disclosureBtn)
    , logView(controls.logView)
    , logText(controls.logText)
    , infoText(controls.infoText)
    , emailText(controls.emailText)
    , submitBtn(controls.submitBtn)
    , spinner(controls.spinner)
    , services(platformServices)
{
}

AppController *AppController::init()
{
    logOpened = false;
    return this;
}

bool AppController::applicationOpenFile(const platform::Object * /*application*/, const QString &path)
{
    return guarded(services.diagnosticLog, "application:openFile"_L1, false, [&] {
        logOpened = false;
        logOpened = loadLogSilent(path, false);
        return logOpened;
    });
}

void AppController::applicationDidFinishLaunching(const platform::Object * /*notification*/)
{
    guarded(services.diagnosticLog, "applicationDidFinishLaunching"_L1, [&] {
        const LaunchOptions options = launchOptions(services.processInfo.arguments());
        if (options.remoteName && options.logPath) {
            loadLogSilent(*options.logPath, true);
        }
        if (logOpened) {
            showReport();
        } else {
            services.application.terminate(this);
        }
        // Last, so that the remote name takes the place of the application's name. It does so after termination was
        // asked for, too: asking returns.
        if (options.remoteName) {
            initialInfo.setStringValue(crashHeadline(u"The client running on "_s + *options.remoteName));
        }
    });
}

void AppController::showReport()
{
    // The window is laid out with the pane visible; it is first shown with the pane folded away.
    disclosureClick(nullptr);
    disclosureBtn.setState(platform::kStateOff);
    initialInfo.setStringValue(crashHeadline(appName.value_or(QString())));
    mainWindow.makeKeyAndOrderFront(this);
    services.application.activate(platform::OtherApplications::Ignore);
}

bool AppController::applicationShouldTerminateAfterLastWindowClosed(const platform::Object * /*application*/) const
{
    return true;
}

void AppController::disclosureClick(const platform::Object * /*sender*/)
{
    guarded(services.diagnosticLog, "disclosureClick"_L1, [&] {
        // Height and origin change by the same amount in opposite directions: the top edge stays where it is. The pane
        // is never visible in a window too small for it: it is shown after the window was told to grow and hidden
        // before it is told to shrink.
        if (logView.isHidden()) {
            Rect frame = mainWindow.frame();
            frame.height += logView.frame().height;
            frame.y -= logView.frame().height;
            mainWindow.setFrameDisplayAnimate(frame, Display::On, Animation::On);
            logView.setHidden(false);
        } else {
            logView.setHidden(true);
            Rect frame = mainWindow.frame();
            frame.height -= logView.frame().height;
            frame.y += logView.frame().height;
            mainWindow.setFrameDisplayAnimate(frame, Display::On, Animation::On);
        }
    });
}

QString AppController::appNameFromFilename(const QString &path) const
{
    const QString filename = lastPathComponent(path);
    const qsizetype underscore = filename.indexOf(u'_');
    return underscore < 0 ? u"This application"_s : filename.left(underscore);
}

bool AppController::loadLogSilent(const QString &path, bool silent)
{
    if (!fileExists(path)) {
        return false;
    }
    const std::optional<QString> crashLog = textOfFile(path);
    if (!crashLog) {
        return false;
    }
    if (!silent) {
        warnOfConflictingSoftware(*crashLog);
    }
    appName = appNameFromFilename(path);

    QString report = withoutLongHangReport(*crashLog);
    auto runningLength = static_cast<quint64>(report.size());
    const auto paths = applicationLogPaths(*appName);
    for (size_t index = 0; index < kApplicationLogs.size(); ++index) {
        const ApplicationLog &log = kApplicationLogs.at(index);
        if (const std::optional<QString> text = appendableLog(log, paths.at(index), runningLength)) {
            report += log.header + *text;
            runningLength += static_cast<quint64>(text->size());
        }
    }
    logText.setString(report);
    logOpened = true;
    return true;
}

void AppController::warnOfConflictingSoftware(const QString &crashLog)
{
    for (const ConflictingSoftware &software : kConflictingSoftware) {
        if (crashLog.contains(software.marker)) {
            services.alertPanel.runAlertPanel(
                software.alertTitle,
                u"This software causes incompatibilities with Korvale products and we recommend disabling it."_s);
        }
    }
}

void AppController::submitReport(const platform::Object * /*sender*/)
{
    guarded(services.diagnosticLog, "submitReport"_L1, [&] {
        if (logText.string().isEmpty()) {
            services.alertPanel.runAlertPanel(u"Critical error"_s, u"Plovrin was unable to find a log to submit."_s);
            services.application.terminate(this);
            return;
        }
        const qint64 storedCount = services.userDefaults.integerForKey(kSubmissionCountKey);
        const std::optional<QVariant> storedDate = services.userDefaults.objectForKey(kLastSubmissionKey);

        const QString address = emailText.stringValue();
        if (!address.isEmpty() && !isAcceptedAddress(address)) {
            services.alertPanel.runAlertPanel(u"Invalid email format."_s, addressMessage());
            return;
        }
        if (address.isEmpty() && isThrottled(storedCount, storedDate)) {
            services.alertPanel.runAlertPanel(u"You must enter your email address."_s, addressMessage());
            return;
        }
        recordAttempt(storedCount);
        if (!silentOutput) {
            enterSendingState();
        }
        postDictionary(reportForm());
    });
}

bool AppController::isThrottled(qint64 storedCount, const std::optional<QVariant> &storedDate) const
{
    return !isFreeSubmission(storedCount) && storedDate
        && isTooSoonForAnonymous(intervalSinceNow(*storedDate, services.clock.date()));
}

void AppController::recordAttempt(qint64 storedCount)
{
    // Recorded before anything is sent and never taken back: it counts attempts, whatever becomes of them. Made durable
    // here, because an accepted upload ends the process.
    services.userDefaults.setIntegerForKey(countAfter(storedCount), kSubmissionCountKey);
    services.userDefaults.setObjectForKey(services.clock.date(), kLastSubmissionKey);
    services.userDefaults.synchronize();
}

void AppController::enterSendingState()
{
    spinner.setUsesThreadedAnimation(true);
    spinner.startAnimation(this);
    spinner.setNeedsDisplay(true);
    infoText.setEditable(false);
    emailText.setEnabled(false);
    submitBtn.setEnabled(false);
    submitBtn.setTitle(u"Sending..."_s);
}

QVariantMap AppController::reportForm() const
{
    // The fields of a report: the report text, always; the description and the address, when there is one.
    QVariantMap form = {{u"crashlog"_s, logText.string()}};
    if (const QString description = infoText.string(); !description.isEmpty()) {
        form.insert(u"info"_s, description);
    }
    if (const QString address = emailText.stringValue(); !address.isEmpty()) {
        form.insert(u"email"_s, address);
    }
    return form;
}
