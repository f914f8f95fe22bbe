// The request that a report is posted with.
#pragma once

#include "platform/UrlConnection.h"

#include <QByteArray>
#include <QString>

#include <optional>

/// A POST to the submission endpoint of the host (a bare name or address), over HTTPS and on its standard port. The
/// body must be encoded with the same boundary; without one the request is sent all the same.
platform::UrlRequest submissionRequest(const QString &host, const QString &boundary, std::optional<QByteArray> body);
