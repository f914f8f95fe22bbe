// A user's rights to files, taken on by one thread.
#include "linux/FileRights.h"

#include <grp.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace {

/// No ID; setting it changes nothing and returns the present one (setfsuid(2)).
constexpr auto kUnchanged = static_cast<uid_t>(-1);

std::vector<gid_t> presentGroups()
{
    std::vector<gid_t> groups(NGROUPS_MAX);
    const int count = ::getgroups(NGROUPS_MAX, groups.data());
    return {groups.begin(), groups.begin() + std::max(count, 0)};
}

/// By the system call, which is for the calling thread alone; the function of the library is for all of them.
bool setGroups(const std::vector<gid_t> &groups)
{
    return ::syscall(SYS_setgroups, groups.size(), groups.data()) == 0;
}

} // namespace

// The user last, for with root's user ID go the capabilities that the other changes need.
FileRights::FileRights(uid_t user, gid_t group, const std::vector<gid_t> &groups)
    : formerGroups(presentGroups())
{
    const bool groupsAreSet = setGroups(groups);
    formerGroup = static_cast<gid_t>(::setfsgid(group));
    formerUser = static_cast<uid_t>(::setfsuid(user));
    taken = groupsAreSet && static_cast<gid_t>(::setfsgid(kUnchanged)) == group
        && static_cast<uid_t>(::setfsuid(kUnchanged)) == user;
}

FileRights::~FileRights()
{
    ::setfsuid(formerUser);
    ::setfsgid(formerGroup);
    setGroups(formerGroups);
}
