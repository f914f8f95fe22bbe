// The proxy that the desktop names for an address.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QProcess>
#include <QTimer>
#include <QUrl>

#include <chrono>

/// Asks libproxy by its own command, in a process beside the event loop: to find a proxy it may have to run a script of
/// the network's, which takes as long as it takes.
class ProxyLookup : public QObject
{
    Q_OBJECT

public:
    /// Runs the command for the scheme and host of the URL. After the limit, or when its answer has more than 64 KiB,
    /// it is ended, as if it had found none.
    ProxyLookup(const QString &command, const QUrl &url, std::chrono::milliseconds limit);
    /// Ends the command.
    ~ProxyLookup() override;

    /// Whether a variable of the environment names a proxy for HTTPS, in which case libcurl follows it and nobody else
    /// is asked.
    static bool isInEnvironment();

Q_SIGNALS:
    /// Emitted once, from the event loop: the first proxy with its scheme and port, such as
    /// "http://proxy.example.org:3128"; empty for none, also when there is no such command or it is of no help. By a
    /// SOCKS proxy the server's name is not looked up here: the scheme is "socks5h" or "socks4a".
    void found(const QByteArray &proxy);

private:
    void end();

    QProcess process;
    QTimer limitTimer;
};
