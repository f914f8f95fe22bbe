// The proxy that the desktop names for an address.
#include "desktop/transfer/ProxyLookup.h"

#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <array>

namespace {

/// Bytes of an answer, which a script of the network's may have made.
constexpr qint64 kLongestAnswer = qint64(64) * 1024;

struct Scheme {
    QByteArrayView name;
    QByteArrayView toLibcurl; ///< Of those of SOCKS, the one by which the proxy looks the server's name up.
    int port = 0;             ///< Where the address has none, for which libcurl would take 1080 with most schemes.
};
constexpr std::array kSchemes = {
    Scheme{"http", "http", 80},         Scheme{"https", "https", 443},      Scheme{"socks", "socks5h", 1080},
    Scheme{"socks5", "socks5h", 1080},  Scheme{"socks5h", "socks5h", 1080}, Scheme{"socks4", "socks4a", 1080},
    Scheme{"socks4a", "socks4a", 1080},
};

/// The first word of "http://proxy:3128 direct://", as libcurl takes it; a proxy that fails is not a reason to send the
/// report past it, nor is one that libcurl does not know. What a user has set as "proxy:3128" is an HTTP proxy.
QByteArray firstProxy(const QByteArray &answer)
{
    const QByteArray first = answer.simplified().split(' ').value(0);
    const bool hasScheme = first.contains("://");
    const QByteArray address = hasScheme ? first : "http://" + first;
    const qsizetype user = address.indexOf("://") + 3;
    const qsizetype host = std::max(user, address.lastIndexOf('@') + 1);
    const qsizetype end = address.indexOf('/', host);
    const QByteArray hostAndPort = address.sliced(host, (end < 0 ? address.size() : end) - host);
    const qsizetype colon = hostAndPort.indexOf(':', std::max<qsizetype>(0, hostAndPort.indexOf(']')));
    const QByteArray port = colon < 0 ? QByteArray() : hostAndPort.sliced(colon + 1);
    // An address needs a scheme or a port not to be any other word.
    if (hostAndPort.isEmpty() || colon == 0 || (!hasScheme && port.isEmpty())) {
        return {};
    }
    const auto *const scheme = std::ranges::find(kSchemes, address.first(user - 3).toLower(), &Scheme::name);
    return scheme == kSchemes.end() ? address
                                    : scheme->toLibcurl.toByteArray() + "://" + address.sliced(user, host - user)
            + hostAndPort.first(hostAndPort.size() - port.size() - (colon < 0 ? 0 : 1)) + ':'
            + (port.isEmpty() ? QByteArray::number(scheme->port) : port);
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
    process.setStandardErrorFile(QProcess::nullDevice());
    // Queued, because a command that cannot be started may say so from inside the constructor, and because whoever
    // hears of the end may delete this object.
    connect(&process, &QProcess::errorOccurred, this, &ProxyLookup::end, Qt::QueuedConnection);
    connect(&process, &QProcess::finished, this, &ProxyLookup::end, Qt::QueuedConnection);
    const auto endIfTooLong = [this] {
        if (process.bytesAvailable() > kLongestAnswer) {
            end();
        }
    };
    connect(&process, &QProcess::readyRead, this, endIfTooLong, Qt::QueuedConnection);
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
