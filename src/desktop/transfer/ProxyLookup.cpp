// The proxy that the desktop names for an address.
#include "desktop/transfer/ProxyLookup.h"

#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

/// The first word of "http://proxy:3128 direct://"; a proxy that fails is not a reason to send the report past it.
QByteArray firstProxy(const QByteArray &answer)
{
    const QByteArray first = answer.simplified().split(' ').value(0);
    const QUrl url = QUrl::fromEncoded(first, QUrl::StrictMode);
    return url.isValid() && url.scheme() != "direct"_L1 && !url.host().isEmpty() ? first : QByteArray();
}

} // namespace

ProxyLookup::ProxyLookup(const QString &command, const QUrl &url, std::chrono::milliseconds limit)
{
    // QProcess of Qt 6.4 leaves a pipe open whenever it finds only when starting that there is no such command.
    if (!QFileInfo(command).isExecutable()) {
        QMetaObject::invokeMethod(
            this, [this] { Q_EMIT found(QByteArray()); }, Qt::QueuedConnection);
        return;
    }
    process.setStandardInputFile(QProcess::nullDevice());
    // Queued, because a command that cannot be started may say so from inside the constructor.
    connect(&process, &QProcess::errorOccurred, this, &ProxyLookup::end, Qt::QueuedConnection);
    connect(&process, &QProcess::finished, this, &ProxyLookup::end, Qt::QueuedConnection);
    connect(&limitTimer, &QTimer::timeout, this, &ProxyLookup::end);
    limitTimer.start(limit);
    const QUrl host = url.adjusted(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment);
    // Appended, for a list of the toolkit's (6.4) that is made of its elements takes memory for granted.
    QStringList arguments;
    arguments.append(QString::fromLatin1(host.toEncoded()));
    process.start(command, arguments);
}

ProxyLookup::~ProxyLookup()
{
    process.kill();
    process.waitForFinished();
}

bool ProxyLookup::isInEnvironment()
{
    constexpr std::array kVariables = {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"};
    return std::ranges::any_of(kVariables, [](const char *name) { return !qEnvironmentVariableIsEmpty(name); });
}

void ProxyLookup::end()
{
    // A second call may have been queued before the first one, which has stopped the timer.
    if (!limitTimer.isActive()) {
        return;
    }
    limitTimer.stop();
    process.disconnect();
    // Where the program rested beyond the limit, the command may have answered meanwhile: its end is told before the
    // limit's.
    const bool hasAnswered = process.state() == QProcess::NotRunning && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0;
    process.kill();
    Q_EMIT found(hasAnswered ? firstProxy(process.readAllStandardOutput()) : QByteArray());
}

#include "moc_ProxyLookup.cpp"
