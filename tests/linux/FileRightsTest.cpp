// A user's rights to files, taken on by root; run as root of the system or of a namespace that has all users.
#include "base/TextFile.h"
#include "linux/LinuxLocalLookups.h"
#include "support/PrintQt.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <grp.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

using namespace Qt::StringLiterals;

namespace {

/// An account that every system has.
const QString kUser = u"nobody"_s;
constexpr uid_t kUserId = 65534;

/// Takes one of root's capabilities away from the process (capset(2)).
bool drop(int capability)
{
    __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets = {};
    if (::syscall(SYS_capget, &header, sets.data()) != 0) {
        return false;
    }
    sets[0].effective &= ~(1U << static_cast<unsigned>(capability));
    return ::syscall(SYS_capset, &header, sets.data()) == 0;
}

/// Whether groups that no user has are the process's again after a user's rights.
bool groupsComeBack(const LinuxLocalLookups &lookups)
{
    const std::array<gid_t, 2> before = {4711, 4712};
    std::array<gid_t, 3> after = {};
    if (::setgroups(before.size(), before.data()) != 0 || !lookups.takeFileRightsOfUser(kUser)) {
        return false;
    }
    return ::getgroups(after.size(), after.data()) == 2 && after[0] == before[0] && after[1] == before[1];
}

/// Whether a process without groups has none after a user's rights.
bool noGroupsComeBack(const LinuxLocalLookups &lookups)
{
    if (::setgroups(0, nullptr) != 0 || !lookups.takeFileRightsOfUser(kUser)) {
        return false;
    }
    return ::getgroups(0, nullptr) == 0;
}

/// How many groups the process has with the user's rights, where the file is the system's list of groups.
int groupsByList(const LinuxLocalLookups &lookups, const QString &list)
{
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || ::mount(list.toLocal8Bit().constData(), "/etc/group", nullptr, MS_BIND, nullptr) != 0) {
        return -1;
    }
    const auto rights = lookups.takeFileRightsOfUser(kUser);
    return rights ? ::getgroups(0, nullptr) : -1;
}

/// Moves the process into a user namespace whose only user has that ID there; it may set no groups in it.
bool enterNamespaceOf(uid_t onlyUser)
{
    const uid_t outside = ::geteuid();
    if (::unshare(CLONE_NEWUSER) != 0) {
        return false;
    }
    QFile map(u"/proc/self/uid_map"_s);
    return map.open(QFile::WriteOnly | QFile::Unbuffered)
        && map.write(QByteArray::number(onlyUser) + ' ' + QByteArray::number(outside) + " 1\n") > 0;
}

/// Mounts an empty folder over it, for this process alone.
bool hideProc()
{
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
        && ::mount("none", "/proc", "tmpfs", 0, nullptr) == 0 && ::access("/proc/self", F_OK) != 0;
}

class FileRightsTest : public testing::Test
{
protected:
    FileRightsTest()
    {
        EXPECT_EQ(::geteuid(), 0U) << "this takes root, of a namespace at least";
        EXPECT_EQ(::chmod(folder.path().toLocal8Bit().constData(), 0755), 0);
    }

    QString file(const QString &name, uid_t owner, gid_t group, mode_t mode) const
    {
        const QString path = folder.filePath(name);
        QFile output(path);
        EXPECT_TRUE(output.open(QFile::WriteOnly));
        output.write("content");
        output.close();
        EXPECT_EQ(::chown(path.toLocal8Bit().constData(), owner, group), 0);
        EXPECT_EQ(::chmod(path.toLocal8Bit().constData(), mode), 0);
        return path;
    }

    /// What is read of the file with the user's rights.
    std::optional<QByteArray> readByUser(const QString &path) const
    {
        const auto rights = lookups.takeFileRightsOfUser(kUser);
        EXPECT_NE(rights, nullptr);
        return contentsOfRegularFile(path);
    }

    const QTemporaryDir folder;
    const LinuxLocalLookups lookups;
};

} // namespace

TEST_F(FileRightsTest, UserOfTheProcessIsTheRealOneAndNotTheEffectiveOne)
{
    ASSERT_EQ(::seteuid(kUserId), 0);
    const std::uint32_t id = lookups.realUserId();
    ASSERT_EQ(::seteuid(0), 0);

    EXPECT_EQ(id, 0U);
}

TEST_F(FileRightsTest, WhatOnlyRootMayReadIsNotRead)
{
    const QString path = file(u"of-root"_s, 0, 0, 0600);

    EXPECT_EQ(readByUser(path), std::nullopt);
    EXPECT_EQ(contentsOfRegularFile(path), "content") << "root's own rights are back";
}

TEST_F(FileRightsTest, LinkOfTheUsersToWhatOnlyRootMayReadIsNotRead)
{
    const QString link = folder.filePath(u"link"_s);
    ASSERT_TRUE(QFile::link(file(u"of-root"_s, 0, 0, 0600), link));
    ASSERT_EQ(::lchown(link.toLocal8Bit().constData(), kUserId, kUserId), 0);

    EXPECT_EQ(readByUser(link), std::nullopt);
}

TEST_F(FileRightsTest, UsersOwnFileIsReadAndRootsRightToEveryFileComesBack)
{
    const QString path = file(u"of-the-user"_s, kUserId, 0, 0600);

    EXPECT_EQ(readByUser(path), "content");
    EXPECT_EQ(contentsOfRegularFile(path), "content");
}

TEST_F(FileRightsTest, GroupsAreTheUsersAndNotRoots)
{
    EXPECT_EQ(readByUser(file(u"of-the-users-group"_s, 0, kUserId, 0640)), "content");
    EXPECT_EQ(readByUser(file(u"of-roots-group"_s, 0, 0, 0640)), std::nullopt);
}

TEST_F(FileRightsTest, NobodyOfThatNameHasNoRights)
{
    EXPECT_EQ(lookups.takeFileRightsOfUser(u"no such user"_s), nullptr);
}

TEST_F(FileRightsTest, GroupsOfTheProcessComeBack)
{
    EXPECT_EXIT(_exit(groupsComeBack(lookups) ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(FileRightsTest, ProcessWithoutGroupsHasNoneAfterwards)
{
    EXPECT_EXIT(_exit(noGroupsComeBack(lookups) ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(FileRightsTest, GroupsAreAllThatTheUserIsIn)
{
    constexpr int kGroups = 100;
    const QString list = file(u"group"_s, 0, 0, 0644);
    QFile output(list);
    ASSERT_TRUE(output.open(QFile::WriteOnly | QFile::Truncate));
    for (int number = 0; number < kGroups; ++number) {
        output.write("group" + QByteArray::number(number) + ":x:" + QByteArray::number(5000 + number) + ":nobody\n");
    }
    output.close();

    // The user's own group is one more.
    EXPECT_EXIT(_exit(groupsByList(lookups, list)), testing::ExitedWithCode(kGroups + 1), "");
}

TEST_F(FileRightsTest, AreNotTakenWithoutTheRightToChangeTheUserOrTheGroup)
{
    for (const int missing : {CAP_SETUID, CAP_SETGID}) {
        EXPECT_EXIT(_exit(drop(missing) && !lookups.takeFileRightsOfUser(kUser) ? 0 : 1), testing::ExitedWithCode(0),
                    "")
            << missing;
    }
}

TEST_F(FileRightsTest, AreNotTakenOfAUserWhomTheNamespaceDoesNotHave)
{
    for (const uid_t other : {uid_t(0), kUserId - 1, kUserId + 1}) {
        EXPECT_EXIT(_exit(enterNamespaceOf(other) && !lookups.takeFileRightsOfUser(kUser) ? 0 : 1),
                    testing::ExitedWithCode(0), "")
            << other;
    }
}

TEST_F(FileRightsTest, AreNotTakenWhereGroupsCannotBeSet)
{
    EXPECT_EXIT(_exit(enterNamespaceOf(kUserId) && !lookups.takeFileRightsOfUser(kUser) ? 0 : 1),
                testing::ExitedWithCode(0), "");
}

TEST_F(FileRightsTest, AreTheUsersWithoutProcToo)
{
    const QString path = file(u"of-root"_s, 0, 0, 0600);

    EXPECT_EXIT(_exit(hideProc() && readByUser(path) == std::nullopt && contentsOfRegularFile(path) ? 0 : 1),
                testing::ExitedWithCode(0), "");
}
