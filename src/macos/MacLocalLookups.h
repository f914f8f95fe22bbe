// What macOS knows about its users, the standard directories and its clocks.
#pragma once

#include "platform/LocalLookups.h"

/// The lookups of macOS, through its C interfaces. They keep no state; everything is asked of the system on each call,
/// and names or paths that are not valid UTF-8 are treated as missing.
class MacLocalLookups : public platform::LocalLookups
{
public:
    /// What sysdir(3) enumerates, with "~" expanded. The user's own directories are left out when the user's home is
    /// not known; bits of the mask other than user, local and system are ignored.
    QStringList searchPathForDirectoriesInDomains(std::uint64_t kind, std::uint64_t domainMask) const override;
    std::uint32_t realUserId() const override;
    /// $HOME if it is an absolute path, else the home of the process's account; without separators at its end.
    std::optional<QString> homeDirectory() const override;
    /// From the account's entry, with separators at its end removed.
    std::optional<QString> homeDirectoryForUser(const std::optional<QString> &name) const override;
    /// The name of the real user ID's account.
    std::optional<QString> userName() const override;
    /// What the dynamic store of the system configuration names; "loginwindow" is its own name for the login screen.
    std::optional<QString> copyConsoleUser() const override;
    /// confstr(3) itself.
    std::size_t configurationString(int name, std::span<char> buffer) const override;
    /// The per-user temporary directory of confstr(3), which ends with "/"; /tmp where there is none.
    std::optional<QString> temporaryDirectory() const override;
    /// A random UUID (RFC 4122 version 4) without braces.
    QString globallyUniqueString() const override;
    std::time_t calendarTime() const override;
    std::clock_t processorTime() const override;
};
