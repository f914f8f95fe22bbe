// The application controller: from launch, over collecting the report, to its submission and the server's answer.
//
// An operation whose name has several keywords is one identifier here, the keywords joined; docs/architecture.md
// states the rule. Everything runs on the main thread, one operation at a time.
#pragma once

#include "platform/AlertPanel.h"
#include "platform/Application.h"
#include "platform/Clock.h"
#include "platform/DiagnosticLog.h"
#include "platform/LoadedReport.h"
#include "platform/ProcessInfo.h"
#include "platform/ReportControls.h"
#include "platform/UrlConnection.h"
#include "platform/UserDefaults.h"
#include "report/OperationGuard.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>
#include <utility>

/// What the controller asks of the platform.
struct PlatformServices {
    platform::Application &application;
    platform::AlertPanel &alertPanel;
    platform::UserDefaults &userDefaults;
    platform::UrlLoader &urlLoader;
    platform::ProcessInfo &processInfo;
    platform::Clock &clock;
    platform::DiagnosticLog &diagnosticLog;
    platform::ReportListener &reportListener = platform::ReportListener::missing();
    /// Host name or address of the submission endpoint, bare: no scheme, no port.
    QString submissionHost;
};

/// Created once, together with the report window, and kept for the whole run.
///
/// Eleven operations run under a guard for platform::PlatformException: applicationOpenFile,
/// applicationDidFinishLaunching, disclosureClick, submitReport, generateFormDataForBoundary, postDictionary, the three
/// callbacks of a transfer, cancel and response. Such an exception becomes one line of the diagnostic log and the
/// operation's neutral result (false, std::nullopt); the steps already done stay done. Any other exception passes on.
class AppController : public platform::Object, public platform::UrlConnectionDelegate
{
public:
    AppController(const platform::ReportControls &controls, const PlatformServices &platformServices);

    /// Prepares the controller for launching: no log is loaded yet. Called once, before any other operation; returns
    /// this.
    AppController *init();

    /// A crash log was opened onto the application, at launch or later. Loads it with the alerts about conflicting
    /// software and returns whether it is now the report; if not, an earlier report stays. `application` is ignored.
    bool applicationOpenFile(const platform::Object *application, const QString &path);

    /// Launching has finished; every file opened at launch has been delivered. Reads the command line and shows the
    /// report window, or asks the application to terminate when no log was loaded. `notification` is ignored.
    void applicationDidFinishLaunching(const platform::Object *notification);

    /// Always true: closing the report window ends the application.
    bool applicationShouldTerminateAfterLastWindowClosed(const platform::Object *application) const;

    /// Folds the log pane away when it is visible and brings it back when it is hidden; the window shrinks or grows by
    /// the pane's height at its bottom edge and keeps its top edge. The pane's visibility alone decides, not the
    /// triangle's state. `sender` is ignored.
    void disclosureClick(const platform::Object *sender);

    /// Validates the form, throttles anonymous submissions, records the attempt in the user's settings and starts the
    /// upload. A refusal is an alert and changes nothing. `sender` is ignored.
    void submitReport(const platform::Object *sender);

    /// The body of a multipart/form-data request (RFC 7578, on the syntax of RFC 2046) with one part for each field of
    /// the form, in the form's own order; std::nullopt when the encoding failed. FormData.h says what a part looks
    /// like.
    std::optional<QByteArray> generateFormDataForBoundary(const QVariantMap &form, const QString &boundary);

    /// Posts the form to the submission endpoint; returns before any callback of the transfer. Keeps no reference to
    /// the form. When no transfer can be created, an alert says so and the window stays in the sending state.
    void postDictionary(const QVariantMap &form);

    /// Any byte of an answer means that the report was refused. Cancels the transfer, so only the first chunk of an
    /// answer ever arrives here.
    void connectionDidReceiveData(platform::UrlConnection &transfer, const QByteArray &data) override;
    /// There was no complete answer; the user may try again.
    void connectionDidFailWithError(platform::UrlConnection &transfer, const platform::UrlError &error) override;
    /// An answer without a byte means that the report was accepted: asks the application to terminate.
    void connectionDidFinishLoading(platform::UrlConnection &transfer) override;

    /// Stops the upload, if one runs, and gives the window back to the user: the only way to unlock the address and the
    /// description.
    void cancel();

    /// The bytes of the last answer as UTF-8 text; std::nullopt when they are not valid UTF-8.
    std::optional<QString> response();

    /// The part of the path's last component before its first "_"; "This application" when there is none.
    QString appNameFromFilename(const QString &path) const;

    /// Makes the crash log at the path, with the crashed application's own logs, the report. Returns false, and changes
    /// nothing, when no file exists there or it cannot be read as UTF-8. Unless silent, alerts say which conflicting
    /// software the log names.
    bool loadLogSilent(const QString &path, bool silent);

protected:
    bool logOpened = false;    ///< A crash log has been loaded; read by the launch decision alone.
    bool silentOutput = false; ///< Suppresses the sending state and the failure alerts; no operation ever sets it.
    QByteArray responseData;   ///< The bytes of the server's answer to the current upload.
    std::shared_ptr<platform::UrlConnection> connection; ///< The current upload, also after it ended; see cancel.
    std::optional<QString> appName;                      ///< The crashed application; unset until a log is loaded.
    platform::Window &mainWindow;
    platform::TextField &initialInfo;
    platform::Button &disclosureBtn;
    platform::View &logView;
    platform::TextView &logText;
    platform::TextView &infoText;
    platform::TextField &emailText;
    platform::Button &submitBtn;
    platform::ProgressIndicator &spinner;

private:
    template<typename Body>
    auto guarded(QLatin1StringView label, Body body)
    {
        return ::guarded(services.diagnosticLog, label, std::move(body));
    }

    void showReport();
    void warnOfConflictingSoftware(const QString &crashLog);
    bool isThrottled(qint64 storedCount, const std::optional<QVariant> &storedDate) const;
    void recordAttempt(qint64 storedCount);
    void enterSendingState();
    void resetSubmitControls();
    QVariantMap reportForm() const;

    PlatformServices services;
};
