// The rules of a submission.
#include "report/SubmissionRules.h"

#include "platform/PlatformException.h"

#include <limits>

using namespace Qt::StringLiterals;

namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

} // namespace

bool isAcceptedAddress(QStringView address)
{
    return address.contains(u'@') && address.contains(u'.');
}

double intervalSinceNow(const QVariant &storedDate, const QDateTime &now)
{
    if (storedDate.metaType() != QMetaType::fromType<QDateTime>()) {
        throw platform::PlatformException(
            u"InvalidArgumentException"_s,
            u"a value of type %1 has no interval since now"_s.arg(QLatin1StringView(storedDate.typeName())));
    }
    const QDateTime date = storedDate.toDateTime();
    if (!date.isValid()) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    return static_cast<double>(now.msecsTo(date)) / kMillisecondsPerSecond;
}

bool isFreeSubmission(qint64 storedCount)
{
    return storedCount < kFreeSubmissions;
}

bool isTooSoonForAnonymous(double interval)
{
    return interval > -kAnonymousSpacing;
}

qint64 countAfter(qint64 storedCount)
{
    return storedCount == std::numeric_limits<qint64>::max() ? storedCount : storedCount + 1;
}
