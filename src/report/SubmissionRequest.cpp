// The request that a report is posted with.
#include "report/SubmissionRequest.h"

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

} // namespace

platform::UrlRequest submissionRequest(const QString &host, const QString &boundary, std::optional<QByteArray> body)
{
    platform::UrlRequest request;
    request.url = submissionUrl(host);
    request.addValueForHTTPHeaderField("multipart/form-data; boundary=" + boundary.toUtf8(), "Content-Type");
    request.method = "POST";
    request.body = std::move(body);
    return request;
}
