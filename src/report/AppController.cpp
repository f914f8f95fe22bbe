// The application controller, its operations in the order in which a report meets them.
#include "report/AppController.h"

#include "base/PathText.h"
#include "base/TextFile.h"
#include "base/Utf8.h"
#include "report/CommandLine.h"
#include "report/FormData.h"
#include "report/OperationGuard.h"
#include "report/ReportText.h"
#include "report/SubmissionRequest.h"
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

QString tryAgainMessage()
{
    return u"Please try again later."_s;
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
    return guarded("application:openFile"_L1, [&] {
        logOpened = false;
        logOpened = loadLogSilent(path, false);
        return logOpened;
    });
}

void AppController::applicationDidFinishLaunching(const platform::Object * /*notification*/)
{
    guarded("applicationDidFinishLaunching"_L1, [&] {
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
    services.application.activateIgnoringOtherApps();
}

bool AppController::applicationShouldTerminateAfterLastWindowClosed(const platform::Object * /*application*/) const
{
    return true;
}

void AppController::disclosureClick(const platform::Object * /*sender*/)
{
    guarded("disclosureClick"_L1, [&] {
        // Height and origin change by the same amount in opposite directions: the top edge stays where it is. The pane
        // is never visible in a window too small for it: it is shown after the window was told to grow and hidden
        // before it is told to shrink. Its frame is asked for again for each value.
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
    std::optional<QString> crashLog = textOfFile(path);
    if (!crashLog) {
        return false;
    }
    if (!silent) {
        warnOfConflictingSoftware(*crashLog);
    }
    appName = appNameFromFilename(path);

    const ReportText report = reportText(*std::move(crashLog), *appName);
    logText.setString(report.text);
    logOpened = true;
    services.reportListener.reportLoaded({.path = path, .appendedLogs = report.appendedLogs});
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
    guarded("submitReport"_L1, [&] {
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

std::optional<QByteArray> AppController::generateFormDataForBoundary(const QVariantMap &form, const QString &boundary)
{
    return guarded("generateFormData:forBoundary"_L1, [&]() -> std::optional<QByteArray> {
        FormDataBody body(boundary);
        const QStringList names = form.keys();
        for (const QString &name : names) {
            body.addField(name, form.value(name));
        }
        return body.bytes();
    });
}

void AppController::postDictionary(const QVariantMap &form)
{
    guarded("postDictionary"_L1, [&] {
        responseData = QByteArray();
        const QString boundary = services.processInfo.globallyUniqueString();
        std::optional<QByteArray> body = generateFormDataForBoundary(form, boundary);
        // A transfer that still runs is replaced here without being cancelled: it goes on and reports to this
        // controller, and the loader keeps it for as long.
        connection = services.urlLoader.connectionWithRequestDelegate(
            submissionRequest(services.submissionHost, boundary, std::move(body)), *this);
        if (!connection) {
            // Said even when output is silent. The window stays in the sending state, which cancel leaves.
            services.alertPanel.runAlertPanel(u"Unable to submit crash report - failed to establish a connection."_s,
                                              tryAgainMessage());
        }
    });
}

void AppController::connectionDidReceiveData(platform::UrlConnection &transfer, const QByteArray &data)
{
    guarded("connection:didReceiveData"_L1, [&] {
        // A report is accepted by an answer without a body and refused by one with a body. Its status is never looked
        // at, on purpose: the server's front end may answer with a status of its own.
        // The transfer that reports is cancelled, which need not be the one in connection.
        transfer.cancel();
        resetSubmitControls();
        if (!silentOutput) {
            services.alertPanel.runAlertPanel(u"Crash log upload failed."_s, tryAgainMessage());
        }
        services.diagnosticLog.log(u"Returned data: "_s + textFromAscii(data).value_or(u"(null)"_s));
        responseData.append(data);
    });
}

void AppController::connectionDidFailWithError(platform::UrlConnection & /*transfer*/,
                                               const platform::UrlError & /*error*/)
{
    guarded("connection:didFailWithError"_L1, [&] {
        resetSubmitControls();
        if (!silentOutput) {
            services.alertPanel.runAlertPanel(u"Connection failed."_s, tryAgainMessage());
        }
        // connection goes on referring to the ended transfer, so that a later cancel still addresses a living one.
    });
}

void AppController::connectionDidFinishLoading(platform::UrlConnection & /*transfer*/)
{
    guarded("connectionDidFinishLoading"_L1, [&] {
        resetSubmitControls();
        services.application.terminate(this);
    });
}

void AppController::cancel()
{
    guarded("cancel:"_L1, [&] {
        resetSubmitControls();
        emailText.setEnabled(true);
        infoText.setEditable(true);
        if (connection) {
            connection->cancel();
        }
        connection.reset();
    });
}

std::optional<QString> AppController::response()
{
    return guarded("response:"_L1, [&] { return textFromUtf8(responseData); });
}

void AppController::resetSubmitControls()
{
    // The address and the description stay locked: only cancel gives them back.
    spinner.stopAnimation(this);
    submitBtn.setTitle(u"Report Crash"_s);
    submitBtn.setEnabled(true);
}
