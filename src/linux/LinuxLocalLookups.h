// What Linux knows about its users, the standard directories and its clocks.
#pragma once

#include "platform/LocalLookups.h"

/// The lookups of Linux. They keep no state; everything is asked of the system on each call, and names and paths that
/// are not valid UTF-8 are treated as missing.
class LinuxLocalLookups : public platform::LocalLookups
{
public:
    /// The standard layout, which our products use on Linux as well. The user's own directories are left out when the
    /// user's home is not known; bits of the mask other than user, local and system name no domain here.
    QStringList searchPathForDirectoriesInDomains(std::uint64_t kind, std::uint64_t domainMask) const override;
    std::uint32_t realUserId() const override;
    /// $HOME if it is an absolute path, else the home of the process's account; without separators at its end.
    std::optional<QString> homeDirectory() const override;
    /// From the account's entry, with separators at its end removed.
    std::optional<QString> homeDirectoryForUser(const std::optional<QString> &name) const override;
    /// The name of the real user ID's account.
    std::optional<QString> userName() const override;
    /// The user of the active session on the first seat (systemd-logind's "seat0"); "loginwindow" for a greeter.
    /// std::nullopt when no session is active there, when the session ends meanwhile, or where logind does not run.
    std::optional<QString> copyConsoleUser() const override;
    /// $XDG_CACHE_HOME if it is an absolute path, else ".cache" in homeDirectory() (XDG Base Directory Specification).
    std::size_t configurationString(int name, std::span<char> buffer) const override;
    /// $TMPDIR if it is not empty, else /tmp.
    std::optional<QString> temporaryDirectory() const override;
    /// A random UUID (RFC 4122 version 4) without braces.
    QString globallyUniqueString() const override;
    std::time_t calendarTime() const override;
    std::clock_t processorTime() const override;
    /// By the thread's effective IDs, groups and capabilities (credentials(7)); nothing is read through links of procfs
    /// nor in it, of a user whom the process's user namespace does not have (user_namespaces(7)), or before Linux 5.6.
    std::optional<QString> textOfFileOfUser(const QString &user, const QString &path,
                                            qsizetype maxBytes) const override;
};
