// The body of a multipart/form-data request, part by part.
#include "report/FormData.h"

#include "base/PathText.h"
#include "base/TextFile.h"
#include "base/Utf8.h"
#include "platform/PlatformException.h"

#include <QUrl>

#include <new>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// Bytes reserved before the first part.
constexpr qsizetype kReservedBytes = 100;

/// Makes the body grow, and raises the platform's exception where there is no memory for it.
template<typename Growth>
void translatingBadAlloc(Growth grow)
{
    try {
        grow();
    } catch (const std::bad_alloc &) {
        throw platform::PlatformException(u"MallocException"_s, u"there is no memory for the body of the request"_s);
    }
}

/// Exactly the URL type: a type derived from it is a text like any other value. The narrowness is deliberate.
bool isUrl(const QVariant &value)
{
    return value.metaType() == QMetaType::fromType<QUrl>();
}

} // namespace

FormDataBody::FormDataBody(QString boundaryText)
    : boundary(std::move(boundaryText))
{
    translatingBadAlloc([this] { body.reserve(kReservedBytes); });
}

void FormDataBody::addField(const QString &name, const QVariant &value)
{
    append({u"--", boundary, u"\r\n"});
    if (!isUrl(value)) {
        addText(name, value.toString());
    } else if (const QUrl url = value.toUrl(); url.isLocalFile()) {
        addFile(name, url);
    }
    append({u"\r\n"});
}

void FormDataBody::addText(const QString &name, const QString &text)
{
    append({u"Content-Disposition: form-data; name=\"", name, u"\"\r\n\r\n", text});
}

void FormDataBody::addFile(const QString &name, const QUrl &file)
{
    const QString path = file.path(QUrl::FullyDecoded);
    append({u"Content-Disposition: form-data; name=\"", name, u"\"; filename=\"", lastPathComponent(path), u"\"\r\n"});
    append({u"Content-Type: application/octet-stream\r\n\r\n"});
    const QByteArray content = contentsOfRegularFile(path).value_or(QByteArray());
    translatingBadAlloc([&] { body.append(content); });
}

void FormDataBody::append(std::initializer_list<QStringView> pieces)
{
    translatingBadAlloc([&] {
        for (const QStringView piece : pieces) {
            appendUtf8(body, piece);
        }
    });
}
