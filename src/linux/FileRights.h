// A user's rights to files, taken on by one thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

/// Of one half of the capabilities, as capset(2) takes it.
struct CapabilitySets {
    std::uint32_t effective;
    std::uint32_t permitted;
    std::uint32_t inheritable;

    bool operator==(const CapabilitySets &) const = default;
};

/// What the kernel judges a thread by when it opens a file (credentials(7), capabilities(7)).
struct ThreadRights {
    uid_t user;
    gid_t group;
    std::vector<gid_t> groups;
    std::vector<CapabilitySets> capabilities;

    bool operator==(const ThreadRights &) const = default;
};

/// Replaces the calling thread's effective user ID, group ID, groups and capabilities by those of a user and gives them
/// back when it is destroyed, which must happen in the same thread. Other threads keep theirs. The real and the saved
/// IDs stay, so that the user may neither trace the process nor send it a signal meanwhile.
///
/// A thread that cannot take its own rights back ends the process: half root's and half a user's, everything that it
/// did later would be done with rights that nobody has chosen.
class FileRights
{
public:
    FileRights(uid_t user, gid_t group, const std::vector<gid_t> &groups);
    FileRights(const FileRights &) = delete;
    FileRights &operator=(const FileRights &) = delete;
    ~FileRights();

    /// Whether the rights are those that were asked for. If not, they are nobody's in particular.
    bool areTaken() const { return taken; }

private:
    const std::optional<ThreadRights> former; ///< Nothing where they cannot be known; then none are taken on.
    const bool taken;
};

/// Opens as open(2) does, but nothing that other things decide about than the thread's rights: no path leads through a
/// link of procfs to what a process has open or stands in (openat2(2), RESOLVE_NO_MAGICLINKS), for its own ones are
/// always followed; and no file of procfs is opened, for those tell of the process itself (errno is EACCES). Fails
/// where the system has no openat2(2), which came with Linux 5.6.
int openByRightsAlone(const char *path, int flags);
