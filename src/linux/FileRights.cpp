// A user's rights to files, taken on by one thread.
#include "linux/FileRights.h"

#include <QtGlobal>

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

namespace {

// The system calls are for the calling thread alone; the functions of the library are for all threads. Where IDs had 16
// bits once, the calls for today's have names of their own.
#ifdef SYS_setresuid32
constexpr long kSetUserIds = SYS_setresuid32;
constexpr long kSetGroupIds = SYS_setresgid32;
constexpr long kSetGroups = SYS_setgroups32;
#else
constexpr long kSetUserIds = SYS_setresuid;
constexpr long kSetGroupIds = SYS_setresgid;
constexpr long kSetGroups = SYS_setgroups;
#endif

/// An ID that stays as it is (setresuid(2)).
constexpr auto kUnchanged = static_cast<uid_t>(-1);

__user_cap_header_struct ofThisThread()
{
    return {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
}

static_assert(sizeof(CapabilitySets) == sizeof(__user_cap_data_struct));

std::optional<ThreadRights> presentRights()
{
    // The number first: of many groups that a process may have, it has few.
    const int count = ::getgroups(0, nullptr);
    if (count < 0) {
        return std::nullopt;
    }
    ThreadRights rights = {.user = ::geteuid(),
                           .group = ::getegid(),
                           .groups = std::vector<gid_t>(static_cast<std::size_t>(count)),
                           .capabilities = std::vector<CapabilitySets>(_LINUX_CAPABILITY_U32S_3)};
    __user_cap_header_struct header = ofThisThread();
    if (::getgroups(count, rights.groups.data()) != count
        || ::syscall(SYS_capget, &header, rights.capabilities.data()) != 0) {
        return std::nullopt;
    }
    return rights;
}

bool setGroups(const std::vector<gid_t> &groups)
{
    return ::syscall(kSetGroups, groups.size(), groups.data()) == 0;
}

bool setEffectiveGroup(gid_t group)
{
    return ::syscall(kSetGroupIds, kUnchanged, group, kUnchanged) == 0;
}

bool setEffectiveUser(uid_t user)
{
    return ::syscall(kSetUserIds, kUnchanged, user, kUnchanged) == 0;
}

bool setCapabilities(const std::vector<CapabilitySets> &capabilities)
{
    __user_cap_header_struct header = ofThisThread();
    return ::syscall(SYS_capset, &header, capabilities.data()) == 0;
}

std::vector<CapabilitySets> withoutEffect(std::vector<CapabilitySets> capabilities)
{
    for (CapabilitySets &half : capabilities) {
        half.effective = 0;
    }
    return capabilities;
}

// The user after the groups, for with root's user ID go the capabilities that the other changes need. They go by
// themselves, unless whoever started the process has asked the kernel to leave them (SECBIT_NO_SETUID_FIXUP).
bool take(uid_t user, gid_t group, const std::vector<gid_t> &groups, const std::vector<CapabilitySets> &capabilities)
{
    return setGroups(groups) && setEffectiveGroup(group) && setEffectiveUser(user)
        && setCapabilities(withoutEffect(capabilities));
}

} // namespace

FileRights::FileRights(uid_t user, gid_t group, const std::vector<gid_t> &groups)
    : former(presentRights())
    , taken(former && take(user, group, groups, former->capabilities))
{
}

// What one of the calls says does not matter: not all need to succeed where not all was taken on.
FileRights::~FileRights()
{
    if (former) {
        setEffectiveUser(former->user);
        setCapabilities(former->capabilities);
        setEffectiveGroup(former->group);
        setGroups(former->groups);
    }
    // Where they were not known before, none were taken on.
    if (former && presentRights() != former) {
        qFatal("the rights of the process do not come back");
    }
}

int openByRightsAlone(const char *path, int flags)
{
    open_how how = {};
    how.flags = static_cast<__u64>(flags);
    how.resolve = RESOLVE_NO_MAGICLINKS;
    const auto file = static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how));
    struct statfs system = {};
    if (file < 0 || (::fstatfs(file, &system) == 0 && system.f_type != PROC_SUPER_MAGIC)) {
        return file;
    }
    ::close(file);
    errno = EACCES;
    return -1;
}
