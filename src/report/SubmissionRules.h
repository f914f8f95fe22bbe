// The rules of a submission: which address is accepted, and how often one may stay anonymous.
#pragma once

#include <QDateTime>
#include <QString>
#include <QVariant>

/// Submissions of a user that are never throttled.
inline constexpr qint64 kFreeSubmissions = 11;

/// Seconds that must lie between the last submission and an anonymous one.
inline constexpr double kAnonymousSpacing = 180.0;

/// Whether an address that is not empty is accepted: it contains "@" and it contains ".", anywhere and in any order.
/// The rule is weak on purpose: a stricter one would refuse addresses that work.
bool isAcceptedAddress(QStringView address);

/// Seconds from now to what is stored as a date, negative for a date in the past, not a number for a date that is not
/// valid. Throws platform::PlatformException when what is stored is not a date.
double intervalSinceNow(const QVariant &storedDate, const QDateTime &now);

/// Whether the count alone lets an anonymous submission pass.
bool isFreeSubmission(qint64 storedCount);

/// Whether an anonymous submission must be refused, given the interval from now to the last one, in seconds: fewer than
/// 180 have elapsed, or it lies in the future. NaN counts as elapsed.
bool isTooSoonForAnonymous(double interval);

/// The count after one more submission. It only grows, so the largest number stays what it is.
qint64 countAfter(qint64 storedCount);
