// A user's rights to files, taken on by one thread.
#pragma once

#include "platform/Object.h"

#include <sys/types.h>

#include <vector>

/// Replaces the calling thread's filesystem user ID, group ID and groups (credentials(7)) and gives them back when it
/// is destroyed, which must happen in the same thread. Other threads keep theirs.
class FileRights : public platform::Object
{
public:
    FileRights(uid_t user, gid_t group, const std::vector<gid_t> &groups);
    ~FileRights() override;

    /// Whether the rights are those that were asked for. If not, they are nobody's in particular.
    bool areTaken() const { return taken; }

private:
    std::vector<gid_t> formerGroups;
    uid_t formerUser = 0;
    gid_t formerGroup = 0;
    bool taken = false;
};
