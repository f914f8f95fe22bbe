// The upload operations of the application controller: the body, the request, and what the answer means.
//
// A report is accepted by an answer without a body and refused by an answer with one. The status of the answer is never
// looked at, on purpose: the server's front end may answer for it with a status of its own.
#include "base/Utf8.h"
#include "report/AppController.h"
#include "report/FormData.h"
#include "report/OperationGuard.h"

#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

QUrl submissionUrl(const QString &host)
{
    QUrl url;
    url.setScheme(u"https"_s);
    url.setHost(host);
    url.setPath(u"/appdata/plovrin/reportcrash.php"_s);
    return url;
}

platform::UrlRequest submissionRequest(const QString &host, const QString &boundary, std::optional<QByteArray> body)
{
    platform::UrlRequest request;
    request.url = submissionUrl(host);
    request.addValueForHTTPHeaderField("multipart/form-data; boundary=" + boundary.toUtf8(), "Content-Type");
    request.method = "POST";
    request.body = std::move(body);
    return request;
}

QString tryAgainMessage()
{
    return u"Please try again later."_s;
}

} // namespace

std::optional<QByteArray> AppController::generateFormDataForBoundary(const QVariantMap &form, const QString &boundary)
{
    return guarded(services.diagnosticLog, "generateFormData:forBoundary"_L1, std::optional<QByteArray>(),
                   [&]() -> std::optional<QByteArray> {
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
    guarded(services.diagnosticLog, "postDictionary"_L1, [&] {
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
    guarded(services.diagnosticLog, "connection:didReceiveData"_L1, [&] {
        // The transfer that reports, which need not be the one in connection.
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
    guarded(services.diagnosticLog, "connection:didFailWithError"_L1, [&] {
        resetSubmitControls();
        if (!silentOutput) {
            services.alertPanel.runAlertPanel(u"Connection failed."_s, tryAgainMessage());
        }
        // connection goes on referring to the ended transfer, so that a later cancel still addresses a living one.
    });
}

void AppController::connectionDidFinishLoading(platform::UrlConnection & /*transfer*/)
{
    guarded(services.diagnosticLog, "connectionDidFinishLoading"_L1, [&] {
        resetSubmitControls();
        services.application.terminate(this);
    });
}

void AppController::cancel()
{
    guarded(services.diagnosticLog, "cancel:"_L1, [&] {
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
    return guarded(services.diagnosticLog, "response:"_L1, std::optional<QString>(),
                   [&] { return textFromUtf8(responseData); });
}

void AppController::resetSubmitControls()
{
    // The address and the description stay locked: only cancel gives them back.
    spinner.stopAnimation(this);
    submitBtn.setTitle(u"Report Crash"_s);
    submitBtn.setEnabled(true);
}
