// A user's rights to files, taken on by root; run as root of the system or of a namespace that has all users.
#include "linux/FileRights.h"

#include "base/TextFile.h"
#include "linux/LinuxLocalLookups.h"
#include "support/PrintQt.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/securebits.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <future>
#include <limits>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

/// Which of the calls on rights and files fail from now on: so many after so many others.
struct {
    int before = 0;
    int count = 0;
    int error = EPERM;
    bool isReached = false;
} failing;

bool failsNow()
{
    if (failing.before > 0) {
        --failing.before;
        return false;
    }
    if (failing.count == 0) {
        return false;
    }
    --failing.count;
    failing.isReached = true;
    errno = failing.error;
    return true;
}

template<class Function>
Function libraryFunction(const char *name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

} // namespace

// In the place of the library's. Of the calls that have no function there, one that is about anything else never fails.

int getgroups(int count, gid_t groups[]) noexcept
{
    return failsNow() ? -1 : libraryFunction<decltype(&getgroups)>("getgroups")(count, groups);
}

int fstatfs(int file, struct statfs *system) noexcept
{
    return failsNow() ? -1 : libraryFunction<decltype(&fstatfs)>("fstatfs")(file, system);
}

/// It reads as many words as any call has, be there fewer, as the library's does; that must not be looked at.
__attribute__((no_sanitize_address)) long syscall(long number, ...) noexcept
{
    constexpr std::array kNumbers = {SYS_setresuid, SYS_setresgid, SYS_setgroups, SYS_capget, SYS_capset, SYS_openat2};
    if (std::ranges::find(kNumbers, number) != kNumbers.end() && failsNow()) {
        return -1;
    }
    va_list list;
    va_start(list, number);
    const std::array words = {va_arg(list, long), va_arg(list, long), va_arg(list, long),
                              va_arg(list, long), va_arg(list, long), va_arg(list, long)};
    va_end(list);
    static const auto kLibrarys = libraryFunction<long (*)(long, ...)>("syscall");
    return kLibrarys(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}

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

/// What the system says of the calling thread's IDs, groups and capabilities.
QList<QByteArray> rightsOfThread()
{
    QFile status(u"/proc/thread-self/status"_s);
    EXPECT_TRUE(status.open(QFile::ReadOnly));
    QList<QByteArray> lines = status.readAll().split('\n');
    lines.removeIf([](const QByteArray &line) {
        return !line.startsWith("Uid:") && !line.startsWith("Gid:") && !line.startsWith("Groups:")
            && !line.startsWith("Cap");
    });
    EXPECT_EQ(lines.size(), 8);
    return lines;
}

/// Whether a user's rights are taken on and the thread's own are the same afterwards, to the last word.
bool rightsComeBack()
{
    const QList<QByteArray> before = rightsOfThread();
    const bool taken = FileRights(kUserId, kUserId, {4711}).areTaken();
    return taken && rightsOfThread() == before;
}

/// The same where these are the groups of the process.
bool groupsComeBack(const std::vector<gid_t> &groups)
{
    return ::setgroups(groups.size(), groups.data()) == 0 && rightsComeBack();
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
    std::optional<QString> readByUser(const QString &path) const
    {
        return lookups.textOfFileOfUser(kUser, path, kAnySize);
    }

    /// Of how many groups the user reads the files, where this is the system's list of groups.
    int groupsByList(const QString &list, gid_t first, int count) const
    {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
            || ::mount(list.toLocal8Bit().constData(), "/etc/group", nullptr, MS_BIND, nullptr) != 0) {
            return -1;
        }
        int read = 0;
        for (gid_t group = first; group < first + static_cast<gid_t>(count); ++group) {
            read += readByUser(file(u"of-a-group"_s, 0, group, 0040)) ? 1 : 0;
        }
        return read;
    }

    const QTemporaryDir folder;
    const QString ofUser = file(u"of-the-user"_s, kUserId, 0, 0600);
    const QString ofAll = file(u"of-all"_s, 0, 0, 0644);
    const LinuxLocalLookups lookups;
};

/// What is read with a user's rights; a memcheck that does not know openat2(2) reads nothing.
class UsersFile : public FileRightsTest
{
};

} // namespace

TEST_F(FileRightsTest, UserOfTheProcessIsTheRealOneAndNotTheEffectiveOne)
{
    ASSERT_EQ(::seteuid(kUserId), 0);
    const std::uint32_t id = lookups.realUserId();
    ASSERT_EQ(::seteuid(0), 0);

    EXPECT_EQ(id, 0U);
}

TEST_F(UsersFile, ThatOnlyRootMayReadIsNotRead)
{
    const QString path = file(u"of-root"_s, 0, 0, 0600);

    EXPECT_EQ(readByUser(path), std::nullopt);
    EXPECT_EQ(contentsOfRegularFile(path), "content") << "root's own rights are back";
}

TEST_F(UsersFile, LinkedToWhatOnlyRootMayReadIsNotRead)
{
    const QString link = folder.filePath(u"link"_s);
    ASSERT_TRUE(QFile::link(file(u"of-root"_s, 0, 0, 0600), link));
    ASSERT_EQ(::lchown(link.toLocal8Bit().constData(), kUserId, kUserId), 0);

    EXPECT_EQ(readByUser(link), std::nullopt);
}

TEST_F(UsersFile, IsReadAndRootsRightToEveryFileComesBack)
{
    EXPECT_EQ(readByUser(ofUser), u"content"_s);
    EXPECT_EQ(contentsOfRegularFile(ofUser), "content");
}

TEST_F(UsersFile, OfAGroupIsReadWhereTheGroupIsTheUsersAndNotRoots)
{
    EXPECT_EQ(readByUser(file(u"of-the-users-group"_s, 0, kUserId, 0640)), u"content"_s);
    EXPECT_EQ(readByUser(file(u"of-roots-group"_s, 0, 0, 0640)), std::nullopt);
}

TEST_F(UsersFile, LinkedToAnotherOfTheUsersIsRead)
{
    const QString link = folder.filePath(u"link"_s);
    ASSERT_TRUE(QFile::link(ofUser, link));
    ASSERT_EQ(::lchown(link.toLocal8Bit().constData(), kUserId, kUserId), 0);

    EXPECT_EQ(readByUser(link), u"content"_s);
}

TEST_F(UsersFile, LinkedToWhatTheProcessHasOpenIsNotRead)
{
    const QString unreachable = folder.filePath(u"private"_s);
    ASSERT_EQ(::mkdir(unreachable.toLocal8Bit().constData(), 0700), 0);
    const QString path = file(u"private/of-all"_s, 0, 0, 0644);
    const int opened = ::open(path.toLocal8Bit().constData(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(opened, 0);

    EXPECT_EQ(readByUser(path), std::nullopt);
    EXPECT_EQ(readByUser(u"/proc/self/fd/%1"_s.arg(opened)), std::nullopt);
    EXPECT_EQ(readByUser(u"/dev/fd/%1"_s.arg(opened)), std::nullopt);
    EXPECT_EQ(readByUser(u"/proc/self/root"_s + ofUser), std::nullopt) << "though the user may read that one";
    ::close(opened);
}

TEST_F(UsersFile, ThatTellsOfAProcessIsNotRead)
{
    // Everybody may read these two, but not everybody is told of this process.
    EXPECT_EQ(readByUser(u"/proc/self/maps"_s), std::nullopt);
    EXPECT_EQ(readByUser(u"/proc/version"_s), std::nullopt);
    errno = 0;
    EXPECT_EQ(openByRightsAlone("/proc/version", O_RDONLY | O_CLOEXEC), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(UsersFile, ThatIsRefusedIsClosed)
{
    const int before = ::dup(STDERR_FILENO);
    EXPECT_EQ(openByRightsAlone("/proc/version", O_RDONLY | O_CLOEXEC), -1);
    const int after = ::dup(STDERR_FILENO);

    EXPECT_EQ(after, before + 1);
    ::close(before);
    ::close(after);
}

TEST_F(UsersFile, LargerThanMaxBytesIsNotRead)
{
    EXPECT_EQ(lookups.textOfFileOfUser(kUser, ofUser, 7), u"content"_s);
    EXPECT_EQ(lookups.textOfFileOfUser(kUser, ofUser, 6), std::nullopt);
}

TEST_F(UsersFile, OfAUserWhomNobodyKnowsIsNotRead)
{
    EXPECT_EQ(lookups.textOfFileOfUser(u"no such user"_s, ofAll, kAnySize), std::nullopt);
}

TEST_F(FileRightsTest, AreTheEffectiveOnesAndWithoutCapabilities)
{
    const FileRights rights(kUserId, kUserId + 1, {4711, 4712});
    ASSERT_TRUE(rights.areTaken());

    const QList<QByteArray> lines = rightsOfThread();
    EXPECT_EQ(lines[0], "Uid:\t0\t65534\t0\t65534") << "real, effective, saved, for files";
    EXPECT_EQ(lines[1], "Gid:\t0\t65535\t0\t65535");
    EXPECT_EQ(lines[2].trimmed(), "Groups:\t4711 4712");
    EXPECT_EQ(lines[5], "CapEff:\t0000000000000000");
}

TEST_F(FileRightsTest, OfTheProcessComeBackToTheLastOne)
{
    EXPECT_TRUE(rightsComeBack());
    for (const std::vector<gid_t> &groups : {std::vector<gid_t>(), {4712, 4711}, std::vector<gid_t>(300, 4711)}) {
        EXPECT_EXIT(_exit(groupsComeBack(groups) ? 0 : 1), testing::ExitedWithCode(0), "") << groups.size();
    }
    EXPECT_EXIT(_exit(::setegid(4711) == 0 && rightsComeBack() ? 0 : 1), testing::ExitedWithCode(0), "");
    // Real and saved IDs are neither taken nor given back.
    EXPECT_EXIT(_exit(::setresgid(4711, 4712, 4713) == 0 && rightsComeBack() ? 0 : 1), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(_exit(::setresuid(0, 0, 65533) == 0 && rightsComeBack() ? 0 : 1), testing::ExitedWithCode(0), "");
    // What had no effect before has none afterwards.
    EXPECT_EXIT(_exit(drop(CAP_SYS_PTRACE) && rightsComeBack() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(FileRightsTest, OfTheProcessComeBackAlsoWhereTheUsersAreNotTaken)
{
    const auto noneTaken = [] {
        const QList<QByteArray> before = rightsOfThread();
        const bool taken = FileRights(kUserId, kUserId, {4711}).areTaken();
        return !taken && rightsOfThread() == before;
    };
    EXPECT_EXIT(_exit(drop(CAP_SETUID) && noneTaken() ? 0 : 1), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(_exit(drop(CAP_SETGID) && noneTaken() ? 0 : 1), testing::ExitedWithCode(0), "");
    const auto noneTakenWhile = [&](int failures) {
        const std::array<gid_t, 1> groups = {4712};
        const bool set = ::setgroups(groups.size(), groups.data()) == 0;
        failing.count = failures;
        return set && noneTaken();
    };
    // How many groups there are is not told at first, nor later.
    EXPECT_EXIT(_exit(noneTakenWhile(1) ? 0 : 1), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(_exit(noneTakenWhile(std::numeric_limits<int>::max()) ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(UsersFile, IsReadWithoutCapabilitiesThatTheKernelIsToldToLeave)
{
    const QString secret = file(u"of-root"_s, 0, 0, 0600);
    const auto staysHidden = [&] {
        return ::prctl(PR_SET_SECUREBITS, SECBIT_NO_SETUID_FIXUP) == 0 && readByUser(secret) == std::nullopt
            && readByUser(ofUser) == u"content"_s && rightsComeBack();
    };
    EXPECT_EXIT(_exit(staysHidden() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(FileRightsTest, AnotherThreadKeepsItsOwn)
{
    std::promise<void> taken;
    std::future<QList<QByteArray>> seen = std::async(std::launch::async, [&taken] {
        taken.get_future().wait();
        return rightsOfThread();
    });
    const QList<QByteArray> before = rightsOfThread();
    {
        const FileRights rights(kUserId, kUserId, {});
        taken.set_value();
        EXPECT_EQ(seen.get(), before);
    }
}

TEST_F(FileRightsTest, ProcessThatCannotHaveItsOwnBackEnds)
{
    const auto loseOwn = [] {
        const FileRights rights(kUserId, kUserId, {});
        return ::setresuid(kUserId, kUserId, kUserId);
    };
    EXPECT_EXIT(_exit(loseOwn()), testing::KilledBySignal(SIGABRT), "the rights of the process do not come back");
}

TEST_F(UsersFile, OfAnyGroupThatTheUserIsInIsRead)
{
    constexpr gid_t kFirst = 5000;
    constexpr int kGroups = 100;
    const QString list = file(u"group"_s, 0, 0, 0644);
    QFile output(list);
    ASSERT_TRUE(output.open(QFile::WriteOnly | QFile::Truncate));
    for (gid_t group = kFirst; group < kFirst + kGroups; ++group) {
        output.write("group" + QByteArray::number(group) + ":x:" + QByteArray::number(group) + ":nobody\n");
    }
    output.close();

    // The one after the last is not the user's.
    EXPECT_EXIT(_exit(groupsByList(list, kFirst, kGroups + 1)), testing::ExitedWithCode(kGroups), "");
}

TEST_F(UsersFile, IsNotReadWithoutTheRightToChangeTheUserOrTheGroup)
{
    ASSERT_EQ(readByUser(ofAll), u"content"_s);
    for (const int missing : {CAP_SETUID, CAP_SETGID}) {
        EXPECT_EXIT(_exit(drop(missing) && !readByUser(ofAll) ? 0 : 1), testing::ExitedWithCode(0), "") << missing;
    }
}

TEST_F(UsersFile, OfAUserWhomTheNamespaceDoesNotHaveIsNotRead)
{
    for (const uid_t other : {uid_t(0), kUserId - 1, kUserId + 1}) {
        EXPECT_EXIT(_exit(enterNamespaceOf(other) && !readByUser(ofAll) ? 0 : 1), testing::ExitedWithCode(0), "")
            << other;
    }
}

TEST_F(UsersFile, IsNotReadWhereGroupsCannotBeSet)
{
    EXPECT_EXIT(_exit(enterNamespaceOf(kUserId) && !readByUser(ofAll) ? 0 : 1), testing::ExitedWithCode(0), "");
}

namespace {

/// How a process ends that reads a user's file while one call fails.
enum : int { kUnread = 0, kRead = 1, kOtherRights = 2, kNotReached = 3 };

} // namespace

TEST_F(UsersFile, IsUnreadWhereACallForItFailsAndRootsOwnRightsComeBackOrTheProcessEnds)
{
    const auto endOfReading = [&](int call, int error) {
        const QList<QByteArray> before = rightsOfThread();
        failing = {.before = call, .count = 1, .error = error};
        const int end = readByUser(ofUser) ? kRead : kUnread;
        const bool isReached = failing.isReached;
        failing = {};
        return !isReached ? kNotReached : rightsOfThread() != before ? kOtherRights : end;
    };
    for (const int error : {EPERM, EFAULT, EINTR, EINVAL, ENOMEM, ENOSYS}) {
        std::vector<int> ends;
        const auto isKept = [&](int status) {
            ends.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
            return true;
        };
        do {
            EXPECT_EXIT(_exit(endOfReading(static_cast<int>(ends.size()), error)), isKept, "");
        } while (ends.size() < 100 && ends.back() != kNotReached);

        const auto givenBack = std::ranges::find_if(ends, [](int end) { return end != kUnread; });
        EXPECT_GE(givenBack - ends.begin(), 8)
            << "of those that take the user's rights and open the file each has failed";
        EXPECT_GE(ends.end() - givenBack, 5) << "and of those that give them back";
        EXPECT_TRUE(std::all_of(givenBack, ends.end() - 1, [](int end) { return end == kRead || end == -SIGABRT; }))
            << testing::PrintToString(ends) << " with " << std::strerror(error);
    }
}

TEST_F(UsersFile, IsReadAlikeWithoutProc)
{
    const QString path = file(u"of-root"_s, 0, 0, 0600);

    EXPECT_EXIT(_exit(hideProc() && readByUser(path) == std::nullopt && contentsOfRegularFile(path) ? 0 : 1),
                testing::ExitedWithCode(0), "");
}
