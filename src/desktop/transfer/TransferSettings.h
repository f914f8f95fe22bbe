// What a transfer waits for, and whom it trusts.
#pragma once

#include <QString>

#include <chrono>

/// The longest that the lookup of the host's name may take. The system's own resolver gives up earlier, unless it is
/// told otherwise.
inline constexpr std::chrono::milliseconds kLookupLimit = std::chrono::seconds(30);

/// The longest that connecting to one address of the host may take: time for four tries, the last after 15 seconds
/// (RFC 6298 section 5), and a slow answer to it.
inline constexpr std::chrono::milliseconds kConnectLimit = std::chrono::seconds(30);

/// As long may a connection be without a byte moving in either direction: a server may take its time over a report, and
/// a window that says "Sending..." forever helps nobody.
inline constexpr std::chrono::milliseconds kIdleLimit = std::chrono::seconds(60);

/// The longest that the desktop may take to name a proxy; someone waits.
inline constexpr std::chrono::milliseconds kProxyLimit = std::chrono::seconds(5);

struct TransferSettings {
    std::chrono::milliseconds lookupLimit = kLookupLimit;
    std::chrono::milliseconds connectLimit = kConnectLimit;
    std::chrono::milliseconds idleLimit = kIdleLimit;
    std::chrono::milliseconds proxyLimit = kProxyLimit;
    /// The folder of the certificate authorities, by the hashes of their names (c_rehash(1)). The system also has them
    /// in one file, which takes ten times as long to load.
    QString authorities = QStringLiteral("/etc/ssl/certs");
    /// libproxy's command. By its full name, for it is run without being asked for.
    QString proxyCommand = QStringLiteral("/usr/bin/proxy");
    /// The name of libcurl, without what the system puts around it.
    QString library = QStringLiteral("curl");
};
