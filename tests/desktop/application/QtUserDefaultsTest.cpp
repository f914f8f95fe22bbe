// The settings in a real file, and what is made of a file that somebody else has written.
#include "desktop/application/QtUserDefaults.h"

#include "support/LeaseHolder.h"
#include "support/LogLines.h"
#include "support/PrintQt.h"
#include "support/ScopedVariable.h"
#include "support/ScriptedLookups.h"
#include "support/StoredDefaults.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString kCount = u"crashSubmissionCount"_s;
const QString kDate = u"lastCrashSubmissionDate"_s;

/// Ends the process well if a count that was set is known, whether it could be written or not.
[[noreturn]] void countToFourAndEnd()
{
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();
    _exit(defaults.integerForKey(kCount) == 4 ? 0 : 1);
}

/// The rules about who may read and write do not hold for root, but by its capabilities (capset(2)).
[[noreturn]] void countToFourAsAnOrdinaryUserAndEnd()
{
    __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none = {};
    if (::syscall(SYS_capset, &header, none.data()) != 0) {
        _exit(2);
    }
    countToFourAndEnd();
}

void writeOrEnd(const char *path, const QByteArray &text)
{
    QFile file(QString::fromLatin1(path));
    if (!file.open(QFile::WriteOnly | QFile::Unbuffered) || file.write(text) != text.size()) {
        _exit(2);
    }
}

/// Root is another user in a namespace in which there is nobody else (user_namespaces(7)).
[[noreturn]] void countToFourAsUser1000AndEnd()
{
    const QByteArray user = "1000 " + QByteArray::number(geteuid()) + " 1\n";
    const QByteArray group = "1000 " + QByteArray::number(getegid()) + " 1\n";
    if (unshare(CLONE_NEWUSER) != 0) {
        _exit(2);
    }
    writeOrEnd("/proc/self/setgroups", "deny");
    writeOrEnd("/proc/self/uid_map", user);
    writeOrEnd("/proc/self/gid_map", group);
    countToFourAndEnd();
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QFile::ReadOnly) ? file.readAll() : "no file"_ba;
}

class UserDefaultsTest : public testing::Test
{
protected:
    UserDefaultsTest()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, everyone.path());
        systems.home = user.path();
    }

    QString path() const { return user.filePath(u"Korvale/CrashReporter.conf"_s); }

    QString folder() const { return QFileInfo(path()).path(); }

    QByteArray stored() const { return contentOf(path()); }

    static void write(const QString &path, const QByteArray &content)
    {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        ASSERT_TRUE(file.open(QFile::WriteOnly));
        file.write(content);
    }

    void putFifoInPlace() const
    {
        ASSERT_TRUE(QFile::rename(path(), path() + u".away"_s));
        ASSERT_EQ(mkfifo(path().toLocal8Bit().constData(), 0600), 0);
    }

    void putStoreBack() const
    {
        ASSERT_TRUE(QFile::remove(path()));
        ASSERT_TRUE(QFile::rename(path() + u".away"_s, path()));
    }

    void aFileWith(const QByteArray &content) const { write(path(), "[General]\n" + content + "\n"); }

    qint64 countIn(const QByteArray &value) const
    {
        aFileWith("crashSubmissionCount=" + value);
        return StoredDefaults().integerForKey(kCount);
    }

    const QTemporaryDir user;
    const ScopedVariable configured{"XDG_CONFIG_HOME", user.path().toUtf8()};
    const QTemporaryDir everyone;
    ScriptedLookups systems;
    const LookupsScope scope{systems};
};

/// Who may do what with it; 0 where it is not there.
mode_t modeOf(const QString &path)
{
    struct stat status = {};
    return stat(path.toLocal8Bit().constData(), &status) == 0 ? status.st_mode & 0777 : 0;
}

gid_t groupOf(const QString &path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.toLocal8Bit().constData(), &status), 0);
    return status.st_gid;
}

/// Of the link itself where it is one.
ino_t inodeOf(const QString &path)
{
    struct stat status = {};
    EXPECT_EQ(fstatat(AT_FDCWD, path.toLocal8Bit().constData(), &status, AT_SYMLINK_NOFOLLOW), 0);
    return status.st_ino;
}

/// At one moment, as somebody else may who may write the folder.
bool swap(const QString &one, const QString &another)
{
    return ::renameat2(AT_FDCWD, one.toLocal8Bit().constData(), AT_FDCWD, another.toLocal8Bit().constData(),
                       RENAME_EXCHANGE)
        == 0;
}

constexpr const char *kOfAFile = "system.posix_acl_access";
constexpr const char *kOfNewFiles = "system.posix_acl_default";

/// Gives it an access control list (acl(5)) by which the owner may read and write, and a user that the list names, and
/// nobody else. It names this process's own: a user namespace may have no other.
bool letANamedUserReadAndWrite(const QString &path, const char *attribute)
{
    constexpr auto kNobody = static_cast<__le32>(ACL_UNDEFINED_ID);
    const struct {
        posix_acl_xattr_header header = {POSIX_ACL_XATTR_VERSION};
        std::array<posix_acl_xattr_entry, 5> entries = {{{ACL_USER_OBJ, ACL_READ | ACL_WRITE, kNobody},
                                                         {ACL_USER, ACL_READ | ACL_WRITE, geteuid()},
                                                         {ACL_GROUP_OBJ, 0, kNobody},
                                                         {ACL_MASK, ACL_READ | ACL_WRITE, kNobody},
                                                         {ACL_OTHER, 0, kNobody}}};
    } list;
    return setxattr(path.toLocal8Bit().constData(), attribute, &list, sizeof list, 0) == 0;
}

/// What fgetxattr(2) gives in place of an answer, of the attribute or of all: this error, or no byte where it is 0.
struct ScriptedAttributes {
    int error;
    QByteArray name = {};
    std::function<void()> meanwhile = {}; ///< Is done first.
};
std::optional<ScriptedAttributes> scriptedAttributes;

class AttributesScope
{
public:
    explicit AttributesScope(ScriptedAttributes attributes) { scriptedAttributes = std::move(attributes); }
    AttributesScope(const AttributesScope &) = delete;
    AttributesScope &operator=(const AttributesScope &) = delete;
    ~AttributesScope() { scriptedAttributes.reset(); }
};

std::optional<ssize_t> scriptedAttribute(const char *name)
{
    if (!scriptedAttributes || (!scriptedAttributes->name.isEmpty() && scriptedAttributes->name != name)) {
        return std::nullopt;
    }
    if (scriptedAttributes->meanwhile) {
        scriptedAttributes->meanwhile();
    }
    // Where it answers, the error is what another call has left.
    errno = scriptedAttributes->error == 0 ? ENODATA : scriptedAttributes->error;
    return scriptedAttributes->error == 0 ? 0 : -1;
}

/// Whose all links are, and the process.
struct Owners {
    uid_t links;
    uid_t process;
};
std::optional<Owners> scriptedOwners;

class OwnersScope
{
public:
    explicit OwnersScope(const Owners &owners) { scriptedOwners = owners; }
    Q_DISABLE_COPY_MOVE(OwnersScope)
    ~OwnersScope() { scriptedOwners.reset(); }
};

/// Is done once, behind the first look at the file or link itself that is this one then.
struct BehindALook {
    ino_t at;
    std::function<void()> isDone;
};
std::optional<BehindALook> scriptedLook;

void looked(struct stat &status)
{
    if (scriptedOwners && S_ISLNK(status.st_mode)) {
        status.st_uid = scriptedOwners->links;
    }
    if (scriptedLook && scriptedLook->at == status.st_ino) {
        std::exchange(scriptedLook, std::nullopt)->isDone();
    }
}

/// The errors that readlinkat(2), flock(2) and fsync(2) give in place of what they do; 0 where they do it.
int errorOfLinks = 0;
int errorOfLocks = 0;
int errorOfSyncs = 0;
int locksTried = 0;

/// One of them, until this object's end.
class ErrorScope
{
public:
    ErrorScope(int &scripted, int error)
        : place(scripted)
    {
        place = error;
    }
    ErrorScope(const ErrorScope &) = delete;
    ErrorScope &operator=(const ErrorScope &) = delete;
    ~ErrorScope() { place = 0; }

private:
    int &place;
};

/// How many files the process has open.
qsizetype openFiles()
{
    return QDir(u"/proc/self/fd"_s).entryList(QDir::AllEntries | QDir::System).size();
}

/// A group that this process may give a file to: any for root; for a user who is in no other, the user's own.
gid_t anotherGroup()
{
    std::array<gid_t, 1000> groups = {4321};
    const int count = geteuid() == 0 ? 1 : getgroups(static_cast<int>(groups.size()), groups.data());
    const auto *const end = groups.cbegin() + std::max(count, 0);
    const auto *const other = std::find_if(groups.cbegin(), end, [](gid_t group) { return group != getegid(); });
    return other == end ? getegid() : *other;
}

} // namespace

/// In the place of the library's.
ssize_t fgetxattr(int file, const char *name, void *value, size_t size) noexcept
{
    const std::optional<ssize_t> scripted = scriptedAttribute(name);
    return scripted ? *scripted : ::syscall(SYS_fgetxattr, file, name, value, size);
}

int fstat(int file, struct stat *status) noexcept
{
    const int result = fstatat(file, "", status, AT_EMPTY_PATH);
    if (result == 0) {
        looked(*status);
    }
    return result;
}

uid_t geteuid() noexcept
{
    return scriptedOwners ? scriptedOwners->process : static_cast<uid_t>(::syscall(SYS_geteuid));
}

ssize_t readlinkat(int folder, const char *path, char *target, size_t size) noexcept
{
    errno = errorOfLinks;
    return errorOfLinks != 0 ? -1 : static_cast<ssize_t>(::syscall(SYS_readlinkat, folder, path, target, size));
}

int flock(int file, int operation) noexcept
{
    ++locksTried;
    errno = errorOfLocks;
    return errorOfLocks != 0 ? -1 : static_cast<int>(::syscall(SYS_flock, file, operation));
}

int fsync(int file)
{
    errno = errorOfSyncs;
    return errorOfSyncs != 0 ? -1 : static_cast<int>(::syscall(SYS_fsync, file));
}

TEST_F(UserDefaultsTest, AnAbsentCountIsZeroAndAnAbsentObjectIsNothing)
{
    const StoredDefaults defaults;

    EXPECT_EQ(defaults.integerForKey(kCount), 0);
    EXPECT_EQ(defaults.objectForKey(kDate), std::nullopt);
}

TEST_F(UserDefaultsTest, ACountComesBackInAnotherRun)
{
    for (const qint64 count :
         {qint64(1), qint64(-1), std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min()}) {
        {
            StoredDefaults defaults;
            defaults.setIntegerForKey(count, kCount);
            EXPECT_EQ(defaults.integerForKey(kCount), count);
            defaults.synchronize();
        }
        EXPECT_EQ(StoredDefaults().integerForKey(kCount), count);
    }
}

TEST_F(UserDefaultsTest, ADateComesBackExactToTheMillisecond)
{
    const QDateTime date(QDate(2026, 11, 2), QTime(10, 15, 30, 123), QTimeZone::utc());
    {
        StoredDefaults defaults;
        defaults.setObjectForKey(date, kDate);
        defaults.synchronize();
    }

    const std::optional<QVariant> found = StoredDefaults().objectForKey(kDate);

    ASSERT_NE(found, std::nullopt);
    EXPECT_EQ(found->metaType(), QMetaType::fromType<QDateTime>());
    EXPECT_EQ(found->toDateTime().toMSecsSinceEpoch(), date.toMSecsSinceEpoch());
}

TEST_F(UserDefaultsTest, ATextInThePlaceOfTheDateStaysAText)
{
    aFileWith("lastCrashSubmissionDate=2026-11-02T10:15:00");

    const std::optional<QVariant> found = StoredDefaults().objectForKey(kDate);

    ASSERT_NE(found, std::nullopt);
    EXPECT_EQ(found->metaType(), QMetaType::fromType<QString>());
    EXPECT_EQ(found->toString(), u"2026-11-02T10:15:00"_s);
}

TEST_F(UserDefaultsTest, ValuesAreInTheFileAsSoonAsTheyAreSynchronized)
{
    StoredDefaults defaults;
    defaults.setIntegerForKey(12, kCount);
    defaults.setObjectForKey(QDateTime(QDate(2026, 11, 2), QTime(10, 15), QTimeZone::utc()), kDate);

    defaults.synchronize();

    EXPECT_TRUE(stored().contains("crashSubmissionCount=12\n"));
    EXPECT_TRUE(stored().contains("lastCrashSubmissionDate=@DateTime("));
}

TEST_F(UserDefaultsTest, SynchronizedValuesSurviveTheProcessEndingAtOnce)
{
    EXPECT_EXIT(
        {
            StoredDefaults defaults;
            defaults.setIntegerForKey(7, kCount);
            defaults.synchronize();
            _exit(0);
        },
        testing::ExitedWithCode(0), "");

    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 7);
}

TEST_F(UserDefaultsTest, OtherValuesInTheFileStay)
{
    aFileWith("crashSubmissionCount=3\nsomethingElse=kept");
    {
        StoredDefaults defaults;
        defaults.setIntegerForKey(4, kCount);
        defaults.synchronize();
    }

    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
    EXPECT_TRUE(stored().contains("somethingElse=kept\n"));
}

TEST_F(UserDefaultsTest, AWholeNumberAsTextCounts)
{
    EXPECT_EQ(countIn("\"12\""), 12);
    EXPECT_EQ(countIn("-5"), -5);
    EXPECT_EQ(countIn("9223372036854775807"), std::numeric_limits<qint64>::max());
}

TEST_F(UserDefaultsTest, WhatIsNoWholeNumberCountsAsZero)
{
    for (const char *value :
         {"", "twelve", "12abc", "3.7", "9223372036854775808", "0x1f", "1, 2, 3", "true", "@Invalid()",
          "@ByteArray(\\xff)", "@Variant(\\0\\0\\0\\x10)", "@DateTime(\\0)", "@Rect(1 2 3 4)"}) {
        EXPECT_EQ(countIn(value), 0) << value;
    }
}

TEST_F(UserDefaultsTest, AFractionCountsAsZeroAndIsNotRounded)
{
    StoredDefaults defaults;

    defaults.setObjectForKey(3.7, kCount);

    EXPECT_EQ(defaults.integerForKey(kCount), 0);
}

TEST_F(UserDefaultsTest, ABrokenDateIsNoDateAndNoCrash)
{
    for (const char *value : {"@DateTime()", "@DateTime(\\0\\0)", "@Variant(\\0\\0\\0\\x10\\0)", "@Invalid()"}) {
        aFileWith("lastCrashSubmissionDate=" + QByteArray(value));
        const std::optional<QVariant> found = StoredDefaults().objectForKey(kDate);
        EXPECT_FALSE(found && found->toDateTime().isValid()) << value;
    }
}

TEST_F(UserDefaultsTest, AFileThatIsNoSettingsFileIsReplacedByOne)
{
    write(path(), QByteArray("\0\xff\xfe[[[\n=\n]\x01", 12));
    StoredDefaults defaults;

    EXPECT_EQ(defaults.integerForKey(kCount), 0);
    defaults.setIntegerForKey(1, kCount);
    defaults.synchronize();

    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 1);
}

TEST_F(UserDefaultsTest, ALineThatTheToolkitTakesForNoneDoesNotStopTheCount)
{
    write(path(), "\"crashSubmissionCount=5\"\n");
    StoredDefaults defaults;

    defaults.setIntegerForKey(1, kCount);
    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=1\n");
}

TEST_F(UserDefaultsTest, WhatTheToolkitWouldNotWriteAgainDoesNotStopTheCount)
{
    for (const char *content : {"; limits=none\n", "[General]\n=5\ncrashSubmissionCount=3\n",
                                "[General]\na\\\\b=1\na\\b=2\ncrashSubmissionCount=3\n"}) {
        write(path(), content);
        StoredDefaults defaults;
        const qint64 before = defaults.integerForKey(kCount);
        defaults.setIntegerForKey(before + 1, kCount);
        defaults.synchronize();

        EXPECT_EQ(StoredDefaults().integerForKey(kCount), before + 1) << content;
    }
}

TEST_F(UserDefaultsTest, AValueWithANameThatTheToolkitDoesNotWriteComesInPlaceOfNoOther)
{
    for (const char *content : {"[General]\ncrashSubmissionCount=3\n\n[crashSubmissionCount]\n=5\n",
                                "[General]\ncrashSubmissionCount=3\n\\crashSubmissionCount=5\n",
                                "[General]\ncrashSubmissionCount=3\n\n[a]\n\\b=5\nb=kept\n"}) {
        write(path(), content);
        StoredDefaults defaults;
        defaults.setIntegerForKey(4, kCount);
        defaults.synchronize();

        EXPECT_EQ(StoredDefaults().integerForKey(kCount), 4) << content;
        EXPECT_FALSE(stored().contains("@Invalid")) << stored().constData();
        EXPECT_EQ(stored().contains("b=kept\n"), QByteArray(content).contains("b=kept\n")) << stored().constData();
    }
}

TEST_F(UserDefaultsTest, AHeadingIsNoValueWhateverIsInIt)
{
    write(path(), "[a=b]\n");
    StoredDefaults defaults;

    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=1\n");
}

TEST_F(UserDefaultsTest, SettingsOfTheWholeSystemAreNotTheUsers)
{
    write(everyone.filePath(u"Korvale/CrashReporter.conf"_s), "[General]\ncrashSubmissionCount=99\n");
    write(everyone.filePath(u"Korvale.conf"_s), "[General]\ncrashSubmissionCount=98\n");

    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 0);
}

TEST_F(UserDefaultsTest, SettingsOfTheWholeOrganisationAreNotThePrograms)
{
    write(user.filePath(u"Korvale.conf"_s), "[General]\ncrashSubmissionCount=99\n");

    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 0);
}

TEST_F(UserDefaultsTest, AFifoInPlaceOfTheWholeOrganisationsIsNotWaitedFor)
{
    ASSERT_EQ(mkfifo(user.filePath(u"Korvale.conf"_s).toLocal8Bit().constData(), 0600), 0);
    alarm(20);

    EXPECT_EQ(countIn("4"), 4);

    alarm(0);
}

TEST_F(UserDefaultsTest, AStoreWhoseFolderCannotBeMadeIsNoErrorAndKeepsTheValuesForThisRun)
{
    // A file where the folder should be.
    write(user.filePath(u"Korvale"_s), "in the way");
    StoredDefaults defaults;

    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();

    EXPECT_EQ(defaults.integerForKey(kCount), 5);
    EXPECT_EQ(QDir(user.path()).entryList(QDir::Files), QStringList{u"Korvale"_s});
}

TEST_F(UserDefaultsTest, AConfigurationFolderLongerThanAnyPathIsNoErrorAndKeepsTheValuesForThisRun)
{
    const ScopedVariable elsewhere("XDG_CONFIG_HOME", user.path().toUtf8() + QByteArray("/d").repeated(60'000));

    EXPECT_EXIT(countToFourAndEnd(), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(QDir(user.path()).isEmpty());
}

TEST_F(UserDefaultsTest, AConfigurationFolderWithANameLongerThanAnyIsNotMade)
{
    const QByteArray longest(NAME_MAX, 'd');
    for (const QByteArray &name : {longest + 'd', longest}) {
        const ScopedVariable elsewhere("XDG_CONFIG_HOME", user.path().toUtf8() + "/a/" + name);
        EXPECT_EXIT(countToFourAndEnd(), testing::ExitedWithCode(0), "");
        EXPECT_EQ(QFile::exists(user.filePath(u"a"_s)), name == longest);
    }
}

TEST_F(UserDefaultsTest, AConfigurationFolderInWhichThereIsNoRoomForTheLongestNameIsNotMade)
{
    constexpr qsizetype kNeeded = 8 + 31; // "/Korvale", and the name of the new file
    const auto madeWithRoomFor = [&](qsizetype room) {
        const qsizetype length = PATH_MAX - 1 - room - user.path().size();
        const QByteArray below = QByteArray("/d").repeated(length / 2 - 1) + (length % 2 == 0 ? "/d" : "/dd");
        const ScopedVariable elsewhere("XDG_CONFIG_HOME", user.path().toUtf8() + below);
        StoredDefaults defaults;
        defaults.setIntegerForKey(4, kCount);
        defaults.synchronize();
        return StoredDefaults().integerForKey(kCount) == 4;
    };

    EXPECT_FALSE(madeWithRoomFor(kNeeded - 1));
    EXPECT_TRUE(QDir(user.path()).isEmpty());
    EXPECT_TRUE(madeWithRoomFor(kNeeded));
}

TEST_F(UserDefaultsTest, AStoreThatIsAFolderIsNoError)
{
    QDir().mkpath(path() + u"/inside"_s);
    StoredDefaults defaults;

    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();

    EXPECT_TRUE(QFileInfo(path()).isDir());
}

TEST_F(UserDefaultsTest, AStoreThatCannotBeReplacedKeepsItsFormerContentWhole)
{
    aFileWith("crashSubmissionCount=3");
    const QByteArray before = stored();
    const QString storeFolder = QFileInfo(path()).path();
    ASSERT_TRUE(QFile::setPermissions(path(), QFile::ReadOwner));
    ASSERT_TRUE(QFile::setPermissions(storeFolder, QFile::ReadOwner | QFile::ExeOwner));

    EXPECT_EXIT(countToFourAsAnOrdinaryUserAndEnd(), testing::ExitedWithCode(0), "");

    EXPECT_EQ(stored(), before);
    EXPECT_EQ(QDir(storeFolder).entryList(QDir::Files | QDir::Hidden), QStringList{u"CrashReporter.conf"_s});
    QFile::setPermissions(storeFolder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

TEST_F(UserDefaultsTest, AStoreThatMayNotBeWrittenIsNotReplacedThoughItsFolderMayBe)
{
    aFileWith("crashSubmissionCount=3");
    const QByteArray before = stored();
    ASSERT_TRUE(QFile::setPermissions(path(), QFile::ReadOwner));

    EXPECT_EXIT(countToFourAsAnOrdinaryUserAndEnd(), testing::ExitedWithCode(0), "");

    EXPECT_EQ(stored(), before);
    EXPECT_EQ(QDir(QFileInfo(path()).path()).entryList(QDir::Files | QDir::Hidden),
              QStringList{u"CrashReporter.conf"_s});
}

TEST_F(UserDefaultsTest, AStoreThatCannotBeReadIsNotReplaced)
{
    aFileWith("crashSubmissionCount=12\nsomethingElse=kept");
    const QByteArray before = stored();
    ASSERT_TRUE(QFile::setPermissions(path(), QFile::WriteOwner));

    EXPECT_EXIT(countToFourAsAnOrdinaryUserAndEnd(), testing::ExitedWithCode(0), "");

    QFile::setPermissions(path(), QFile::ReadOwner | QFile::WriteOwner);
    EXPECT_EQ(stored(), before);
}

TEST_F(UserDefaultsTest, AWriteThatFailsHalfwayKeepsTheFormerContentWhole)
{
    const rlimit bound = {.rlim_cur = 500, .rlim_max = 500};
    // Beyond the bound is a copy of the former content, or only the new one.
    for (const qsizetype length : {1000, 470}) {
        aFileWith("other=" + QByteArray(length, 'x'));
        const QByteArray before = stored();
        EXPECT_EXIT(
            {
                // As a full disk does, which takes some bytes and then no more.
                std::signal(SIGXFSZ, SIG_IGN);
                setrlimit(RLIMIT_FSIZE, &bound);
                countToFourAndEnd();
            },
            testing::ExitedWithCode(0), "");

        EXPECT_EQ(stored(), before);
        EXPECT_EQ(QDir(QFileInfo(path()).path()).entryList(QDir::Files | QDir::Hidden),
                  QStringList{u"CrashReporter.conf"_s});
    }
}

TEST_F(UserDefaultsTest, AStoreUnderALeaseIsNotWaitedForAsTheSystemWould)
{
    for (const bool canBeRead : {false, true}) {
        aFileWith("crashSubmissionCount=3");
        StoredDefaults defaults;
        QElapsedTimer clock;
        clock.start();
        {
            const LeaseHolder holder(path(), canBeRead ? LeaseHolder::TakesItAgain : LeaseHolder::Keeps);

            EXPECT_EQ(defaults.integerForKey(kCount), canBeRead ? 3 : 0);
            EXPECT_EQ(defaults.objectForKey(kDate), std::nullopt);
            defaults.setIntegerForKey(4, kCount);
            defaults.synchronize();
        }

        EXPECT_LT(clock.elapsed(), 5000) << "the system would wait for 45 seconds";
        EXPECT_TRUE(stored().contains(canBeRead ? "crashSubmissionCount=4\n" : "crashSubmissionCount=3\n"));
    }
}

TEST_F(UserDefaultsTest, WhatALeaseKeptBackIsStoredWithTheNext)
{
    aFileWith("crashSubmissionCount=3");
    StoredDefaults defaults;
    {
        const LeaseHolder holder(path(), LeaseHolder::Keeps);
        defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
        defaults.synchronize();
    }

    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=4\n");
}

TEST_F(UserDefaultsTest, AStoreThatIsTooLargeForOneIsNotReadAndStays)
{
    // The toolkit reads a list of a list by calling itself, as deep as somebody has written one.
    const QByteArray list = "x=\"@Variant(" + QByteArray("\\0\\0\\0\\x09\\0\\0\\0\\x01").repeated(100'000) + ")\"";
    aFileWith("crashSubmissionCount=3\n" + list);
    const QByteArray former = stored();

    EXPECT_EXIT(countToFourAndEnd(), testing::ExitedWithCode(0), "");

    EXPECT_EQ(stored(), former);
}

TEST_F(UserDefaultsTest, AStoreMayHaveSixtyFourKibibytesAndNoMore)
{
    const QByteArray count = "[General]\ncrashSubmissionCount=3\n";
    for (const int size : {64 * 1024, 64 * 1024 + 1}) {
        write(path(), count + "x=" + QByteArray(size - count.size() - 3, 'x') + '\n');
        ASSERT_EQ(stored().size(), size);
        EXPECT_EQ(StoredDefaults().integerForKey(kCount), size == 64 * 1024 ? 3 : 0);
    }
}

TEST_F(UserDefaultsTest, NothingIsStoredThatWouldBeTooLargeToBeReadAgain)
{
    const QByteArray count = "[General]\ncrashSubmissionCount=3\n";
    write(path(), count + "x=" + QByteArray(64 * 1024 - count.size() - 3, 'x') + '\n');
    for (const qint64 next : {4, 10}) {
        StoredDefaults defaults;
        defaults.setIntegerForKey(next, kCount);
        defaults.synchronize();

        EXPECT_EQ(defaults.integerForKey(kCount), next);
        EXPECT_EQ(StoredDefaults().integerForKey(kCount), 4);
    }
}

TEST_F(UserDefaultsTest, APathThatLeadsBackBehindALinkIsTheOneThatTheSystemFinds)
{
    ASSERT_TRUE(QDir(user.path()).mkpath(u"a/b"_s));
    ASSERT_TRUE(QFile::link(user.filePath(u"a/b"_s), user.filePath(u"link"_s)));
    const ScopedVariable behind("XDG_CONFIG_HOME", (user.path() + u"/link/../cfg"_s).toUtf8());
    StoredDefaults defaults;

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 4);
    EXPECT_TRUE(QFile::exists(user.filePath(u"a/cfg/Korvale/CrashReporter.conf"_s)));
    EXPECT_FALSE(QFile::exists(user.filePath(u"cfg"_s)));
}

TEST_F(UserDefaultsTest, AHomeThatDoesNotExistIsNoError)
{
    const ScopedVariable unset("XDG_CONFIG_HOME", std::nullopt);
    systems.home = u"/proc/self/no such home"_s;
    StoredDefaults defaults;

    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();

    EXPECT_EQ(defaults.integerForKey(kCount), 5);
    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 0);
}

TEST_F(UserDefaultsTest, AStoreThatIsALinkToAFifoLeavesTheFifoInPlace)
{
    const QString fifo = user.filePath(u"fifo"_s);
    ASSERT_EQ(mkfifo(fifo.toLocal8Bit().constData(), 0600), 0);
    QDir().mkpath(QFileInfo(path()).path());
    ASSERT_TRUE(QFile::link(fifo, path()));
    // Readable and writable at once, so that whoever opens the fifo does not wait.
    const int held = open(fifo.toLocal8Bit().constData(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(held, 0);

    StoredDefaults defaults;
    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();

    struct stat status = {};
    ASSERT_EQ(stat(fifo.toLocal8Bit().constData(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
    close(held);
}

TEST_F(UserDefaultsTest, AFifoInPlaceOfTheStoreIsNotWaitedForAndStays)
{
    QDir().mkpath(QFileInfo(path()).path());
    ASSERT_EQ(mkfifo(path().toLocal8Bit().constData(), 0600), 0);

    StoredDefaults defaults;
    EXPECT_EQ(defaults.integerForKey(kCount), 0);
    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();

    struct stat status = {};
    ASSERT_EQ(stat(path().toLocal8Bit().constData(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST_F(UserDefaultsTest, AFifoThatComesInPlaceOfTheStoreLaterIsNotWaitedForAndStays)
{
    aFileWith("crashSubmissionCount=3");
    StoredDefaults defaults;
    ASSERT_EQ(defaults.integerForKey(kCount), 3);
    ASSERT_TRUE(QFile::remove(path()));
    ASSERT_EQ(mkfifo(path().toLocal8Bit().constData(), 0600), 0);

    EXPECT_EQ(defaults.integerForKey(kCount), 0);
    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();

    EXPECT_EQ(defaults.integerForKey(kCount), 5);
    struct stat status = {};
    ASSERT_EQ(stat(path().toLocal8Bit().constData(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST_F(UserDefaultsTest, ALinkToAFileStaysALink)
{
    const QString file = user.filePath(u"elsewhere.conf"_s);
    write(file, "[General]\ncrashSubmissionCount=3\n");
    QDir().mkpath(QFileInfo(path()).path());
    ASSERT_TRUE(QFile::link(file, path()));

    StoredDefaults defaults;
    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    defaults.synchronize();

    EXPECT_TRUE(QFileInfo(path()).isSymLink());
    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
}

TEST_F(UserDefaultsTest, ALinkIsFollowedThatIsTheUsersOwnOrRoots)
{
    constexpr uid_t kUser = 1000;
    constexpr uid_t kAnother = 4321;
    struct Case {
        Owners owners;
        bool isFollowed;
    };
    const QString file = user.filePath(u"elsewhere.conf"_s);
    for (const auto &[owners, isFollowed] :
         {Case{{.links = kUser, .process = kUser}, true}, Case{{.links = 0, .process = kUser}, true},
          Case{{.links = kAnother, .process = kUser}, false}, Case{{.links = kAnother, .process = 0}, false}}) {
        write(file, "[General]\ncrashSubmissionCount=3\n");
        QFile::remove(path());
        QDir().mkpath(folder());
        ASSERT_TRUE(QFile::link(file, path()));
        const OwnersScope scripted(owners);

        StoredDefaults defaults;
        const qint64 before = defaults.integerForKey(kCount);
        defaults.setIntegerForKey(before + 1, kCount);
        defaults.synchronize();

        EXPECT_EQ(before, isFollowed ? 3 : 0) << owners.links << " " << owners.process;
        EXPECT_TRUE(QFileInfo(path()).isSymLink());
        EXPECT_TRUE(stored().contains(isFollowed ? "crashSubmissionCount=4\n" : "crashSubmissionCount=3\n"))
            << owners.links << " " << owners.process;
    }
}

TEST_F(UserDefaultsTest, ALinkThatAnotherUserSwapsBehindTheLookLeadsNowhere)
{
    const QString shared = user.filePath(u"shared.conf"_s);
    const QString secret = user.filePath(u"secret"_s);
    write(shared, "[General]\ncrashSubmissionCount=3\n");
    write(secret, "secret");
    QDir().mkpath(folder());
    ASSERT_TRUE(QFile::link(shared, path()));
    ASSERT_TRUE(QFile::link(secret, path() + u".other"_s));
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    scriptedLook = {{.at = inodeOf(path()), .isDone = [&] { swap(path(), path() + u".other"_s); }}};

    defaults.synchronize();

    EXPECT_FALSE(scriptedLook);
    EXPECT_EQ(contentOf(secret), "secret");
    EXPECT_EQ(contentOf(shared), "[General]\ncrashSubmissionCount=4\n") << "it is the link that was looked at";
}

TEST_F(UserDefaultsTest, ALinkThatAnotherUserPutsInPlaceOfTheStoreBehindTheLookLeadsNowhere)
{
    const QString secret = user.filePath(u"secret"_s);
    write(secret, "[General]\npassword=secret\n");
    aFileWith("crashSubmissionCount=3");
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0666), 0);
    ASSERT_TRUE(QFile::link(secret, path() + u".other"_s));
    const OwnersScope scripted({.links = 4321, .process = 1000});
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    scriptedLook = {{.at = inodeOf(path()), .isDone = [&] { swap(path(), path() + u".other"_s); }}};

    defaults.synchronize();

    EXPECT_FALSE(scriptedLook);
    EXPECT_TRUE(QFileInfo(path()).isSymLink());
    EXPECT_EQ(contentOf(path() + u".other"_s), "[General]\ncrashSubmissionCount=3\n");
    EXPECT_EQ(contentOf(secret), "[General]\npassword=secret\n");
    EXPECT_EQ(defaults.integerForKey(kCount), 4);
}

TEST_F(UserDefaultsTest, AFileThatIsPutInPlaceOfTheStoreWhileItIsWrittenStays)
{
    const QString open = path() + u".open"_s;
    aFileWith("secret=1");
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0600), 0);
    write(open, "");
    ASSERT_EQ(chmod(open.toLocal8Bit().constData(), 0666), 0);
    bool isSwapped = false;
    const AttributesScope attributes(
        {.error = ENODATA, .meanwhile = [&] { isSwapped = isSwapped || swap(path(), open); }});
    StoredDefaults defaults;

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_TRUE(isSwapped);
    EXPECT_EQ(stored(), "");
    EXPECT_EQ(modeOf(path()), 0666U);
    EXPECT_EQ(contentOf(open), "[General]\nsecret=1\n");
    EXPECT_EQ(defaults.integerForKey(kCount), 4);
    EXPECT_FALSE(QFileInfo::exists(path() + u".korvale-new"_s));
}

TEST_F(UserDefaultsTest, EveryOneOfSeveralLinksStaysALinkBeTheFileThereOrNot)
{
    // The way up is out of the folder that the second link lies in, which is a link as well.
    QDir().mkpath(user.filePath(u"kept/inner"_s));
    QDir().mkpath(user.filePath(u"Korvale"_s));
    ASSERT_TRUE(QFile::link(user.filePath(u"kept/inner"_s), user.filePath(u"way"_s)));
    ASSERT_TRUE(QFile::link(user.filePath(u"way/second"_s), path()));
    ASSERT_EQ(::symlink("../real", user.filePath(u"kept/inner/second"_s).toLocal8Bit().constData()), 0);
    for (qint64 count = 1; count <= 2; ++count) {
        StoredDefaults defaults;
        defaults.setIntegerForKey(count, kCount);
        defaults.synchronize();

        EXPECT_TRUE(QFileInfo(path()).isSymLink());
        EXPECT_TRUE(QFileInfo(user.filePath(u"kept/inner/second"_s)).isSymLink());
        EXPECT_TRUE(QFileInfo(user.filePath(u"kept/real"_s)).isFile());
        EXPECT_EQ(StoredDefaults().integerForKey(kCount), count);
    }
}

TEST_F(UserDefaultsTest, AsManyLinksAreFollowedAsTheSystemFollows)
{
    constexpr int kFollowed = 40; // path_resolution(7)
    QDir().mkpath(folder());
    write(user.filePath(u"0"_s), "");
    for (int link = 1; link <= kFollowed; ++link) {
        ASSERT_TRUE(QFile::link(user.filePath(QString::number(link - 1)), user.filePath(QString::number(link))));
    }
    const auto storedBehind = [&](int links) {
        EXPECT_TRUE(QFile::link(user.filePath(QString::number(links - 1)), path()));
        StoredDefaults defaults;
        defaults.setIntegerForKey(links, kCount);
        defaults.synchronize();
        QFile::remove(path());
        return contentOf(user.filePath(u"0"_s));
    };

    EXPECT_EQ(storedBehind(kFollowed + 1), "");
    EXPECT_EQ(storedBehind(kFollowed), "[General]\ncrashSubmissionCount=40\n");
}

TEST_F(UserDefaultsTest, AUsersOwnFilesBesideWhatALinkLeadsToStay)
{
    const QString file = user.filePath(u"dotfiles/crash.conf"_s);
    write(file, "[General]\ncrashSubmissionCount=3\n");
    const QStringList drafts = {file + u".new"_s, file + u".new.lock"_s, file + u".lock"_s};
    for (const QString &draft : drafts) {
        write(draft, "a draft");
    }
    QDir().mkpath(QFileInfo(path()).path());
    ASSERT_TRUE(QFile::link(file, path()));
    StoredDefaults defaults;

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
    for (const QString &draft : drafts) {
        EXPECT_EQ(contentOf(draft), "a draft") << draft.toStdString();
    }
}

TEST_F(UserDefaultsTest, LinksThatLeadToNoPlaceForAFileStayAsTheyAre)
{
    QDir().mkpath(user.filePath(u"Korvale"_s));
    QDir().mkpath(user.filePath(u"folder"_s));
    const QByteArray link = path().toLocal8Bit();
    const QByteArray tooLong(NAME_MAX + 1, 'x');
    for (const char *target :
         {"CrashReporter.conf", "missing/file", "../folder/", "../folder/..", tooLong.constData()}) {
        ASSERT_EQ(::symlink(target, link.constData()), 0);
        StoredDefaults defaults;
        defaults.setIntegerForKey(4, kCount);
        defaults.synchronize();

        EXPECT_EQ(QDir(user.filePath(u"Korvale"_s)).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
                  QStringList{u"CrashReporter.conf"_s});
        ASSERT_EQ(::unlink(link.constData()), 0);
    }
}

TEST_F(UserDefaultsTest, ALinkMayLeadToANameThatIsNoText)
{
    QDir().mkpath(folder());
    const QByteArray file = folder().toLocal8Bit() + "/d\377";
    ASSERT_EQ(::symlink("d\377", path().toLocal8Bit().constData()), 0);
    StoredDefaults defaults;

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=4\n");
    EXPECT_TRUE(QFileInfo(path()).isSymLink());
    EXPECT_EQ(::unlink(file.constData()), 0);
}

TEST_F(UserDefaultsTest, AConfigurationFolderThatIsNoTextIsNone)
{
    const QByteArray folder = user.path().toUtf8() + "/d\377";
    const ScopedVariable configuration("XDG_CONFIG_HOME", folder);
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_TRUE(QFileInfo(user.filePath(u".config/Korvale/CrashReporter.conf"_s)).isFile());
    EXPECT_EQ(QDir(user.path()).entryList(QDir::Dirs | QDir::NoDotAndDotDot), QStringList());
}

TEST_F(UserDefaultsTest, WithoutANameForTheNewFileTheFormerOneStaysAndTheValuesAreKeptForThisRun)
{
    constexpr int kLongestName = 255;
    const QString file = user.filePath(QString(kLongestName, u'x'));
    write(file, "[General]\ncrashSubmissionCount=3\n");
    QDir().mkpath(QFileInfo(path()).path());
    ASSERT_TRUE(QFile::link(file, path()));

    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=3\n");
    EXPECT_EQ(defaults.integerForKey(kCount), 4);
}

TEST_F(UserDefaultsTest, WithoutAConfigurationFolderTheStoreIsInTheHomeThatTheSystemKnows)
{
    for (const std::optional<QByteArray> &value :
         {std::optional<QByteArray>(), std::optional<QByteArray>("relative")}) {
        const QTemporaryDir home;
        const ScopedVariable unset("XDG_CONFIG_HOME", value);
        ScriptedLookups lookups;
        lookups.home = home.path();

        QtUserDefaults defaults(lookups);
        defaults.setIntegerForKey(5, kCount);
        defaults.synchronize();

        EXPECT_TRUE(QFileInfo(home.filePath(u".config/Korvale/CrashReporter.conf"_s)).isFile());
    }
}

namespace {

/// Root's lookups, with a home that the account names.
class RootsLookups : public ScriptedLookups
{
public:
    explicit RootsLookups(const QString &homeOfRoot)
    {
        runAsRoot(*this, u"user1"_s);
        homes[u"root"_s] = homeOfRoot;
    }
};

} // namespace

TEST_F(UserDefaultsTest, RootsStoreIsInTheHomeOfItsAccountWhateverTheEnvironmentSays)
{
    const QTemporaryDir home;
    const RootsLookups lookups(home.path());

    QtUserDefaults defaults(lookups);
    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();

    // What an ordinary user makes is never root's.
    EXPECT_EQ(QFileInfo(home.filePath(u".config/Korvale/CrashReporter.conf"_s)).isFile(), geteuid() == 0);
    EXPECT_EQ(stored(), "no file") << "nothing of root's in the folder that XDG_CONFIG_HOME names";
}

TEST_F(UserDefaultsTest, RootKeepsNothingThroughALinkNotEvenThroughOneOfItsOwn)
{
    for (const QString &place : {u".config"_s, u".config/Korvale"_s, u".config/Korvale/CrashReporter.conf"_s}) {
        const QTemporaryDir home;
        const QTemporaryDir elsewhere;
        const QString target = elsewhere.filePath(u"target"_s);
        if (place.endsWith(u".conf")) {
            write(target, "[General]\ncrashSubmissionCount=7\n");
        } else {
            ASSERT_TRUE(QDir().mkdir(target));
        }
        ASSERT_TRUE(QDir().mkpath(QFileInfo(home.filePath(place)).path()));
        ASSERT_TRUE(QFile::link(target, home.filePath(place)));
        const RootsLookups lookups(home.path());

        QtUserDefaults defaults(lookups);
        EXPECT_EQ(defaults.integerForKey(kCount), 0) << place.toStdString();
        defaults.setIntegerForKey(5, kCount);
        defaults.synchronize();

        EXPECT_EQ(defaults.integerForKey(kCount), 5);
        EXPECT_TRUE(QDir(target).isEmpty());
        if (QFile file(target); place.endsWith(u".conf")) {
            ASSERT_TRUE(file.open(QFile::ReadOnly));
            EXPECT_EQ(file.readAll(), "[General]\ncrashSubmissionCount=7\n");
        }
    }
}

TEST_F(UserDefaultsTest, RootKeepsNothingWithoutAHomeThatIsThere)
{
    const QTemporaryDir home;
    const RootsLookups lookups(home.filePath(u"gone"_s));

    QtUserDefaults defaults(lookups);
    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();

    EXPECT_TRUE(QDir(home.path()).isEmpty());
}

TEST_F(UserDefaultsTest, RootLooksAgainBeforeEachReadingAndWriting)
{
    const QTemporaryDir home;
    const QString ours = home.filePath(u".config/Korvale"_s);
    const QString file = ours + u"/CrashReporter.conf"_s;
    const RootsLookups lookups(home.path());
    QtUserDefaults defaults(lookups);
    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();
    if (geteuid() != 0) {
        // What an ordinary user makes is another's from the beginning.
        EXPECT_FALSE(QFileInfo::exists(ours));
        return;
    }
    ASSERT_EQ(defaults.integerForKey(kCount), 5);

    write(file, "[General]\ncrashSubmissionCount=7\n");
    ASSERT_EQ(chown(ours.toLocal8Bit().constData(), 4321, 4321), 0);
    EXPECT_EQ(defaults.integerForKey(kCount), 0);

    const QString target = home.filePath(u"of-root"_s);
    ASSERT_TRUE(QFile::remove(file));
    ASSERT_TRUE(QFile::link(target, file));
    defaults.setIntegerForKey(6, kCount);
    defaults.synchronize();
    EXPECT_FALSE(QFileInfo::exists(target));
    EXPECT_EQ(defaults.integerForKey(kCount), 6);
}

TEST_F(UserDefaultsTest, WhatIsMadeIsTheUsersAloneWhateverTheMask)
{
    const QString folder = user.filePath(u"new/folders"_s);
    const ScopedVariable elsewhere("XDG_CONFIG_HOME", folder.toUtf8());
    const mode_t mask = umask(0);
    StoredDefaults defaults;
    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();
    umask(mask);

    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 5);
    for (const QString &made : {user.filePath(u"new"_s), folder, folder + u"/Korvale"_s}) {
        EXPECT_EQ(modeOf(made), 0700U) << made.toStdString();
    }
    const QFileInfoList files = QDir(folder + u"/Korvale"_s).entryInfoList(QDir::Files);
    ASSERT_EQ(files.size(), 1);
    EXPECT_EQ(modeOf(files.first().filePath()), 0600U);
}

TEST_F(UserDefaultsTest, WithoutAHomeNothingIsStoredAndNothingFails)
{
    const ScopedVariable unset("XDG_CONFIG_HOME", std::nullopt);
    ScriptedLookups lookups;
    lookups.home = std::nullopt;

    QtUserDefaults defaults(lookups);
    defaults.setIntegerForKey(5, kCount);
    defaults.synchronize();

    EXPECT_EQ(QtUserDefaults(lookups).integerForKey(kCount), 0);
    EXPECT_EQ(StoredDefaults().objectForKey(kDate), std::nullopt);
}

namespace {

/// Another that is writing a file of the folder, as long as this object lives.
class HeldLock
{
public:
    explicit HeldLock(const QString &folder)
    {
        QDir().mkpath(folder);
        opened = open(folder.toLocal8Bit().constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        EXPECT_EQ(flock(opened, LOCK_EX | LOCK_NB), 0);
    }
    HeldLock(const HeldLock &) = delete;
    HeldLock &operator=(const HeldLock &) = delete;
    ~HeldLock() { close(opened); }

private:
    int opened = -1;
};

} // namespace

TEST_F(UserDefaultsTest, WhatAnotherProcessHasStoredMeanwhileIsRead)
{
    aFileWith("crashSubmissionCount=11");
    const StoredDefaults defaults;
    ASSERT_EQ(defaults.integerForKey(kCount), 11);

    aFileWith("crashSubmissionCount=112\nlastCrashSubmissionDate=soon");

    EXPECT_EQ(defaults.integerForKey(kCount), 112);
    EXPECT_EQ(defaults.objectForKey(kDate), QVariant(u"soon"_s));
}

TEST_F(UserDefaultsTest, WhatAnotherProcessStoresAfterThisOneCounts)
{
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    aFileWith("crashSubmissionCount=112");

    EXPECT_EQ(defaults.integerForKey(kCount), 112);
}

TEST_F(UserDefaultsTest, WhatAnotherProcessHasStoredMeanwhileStays)
{
    StoredDefaults defaults;
    aFileWith("somethingElse=kept");

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
    EXPECT_TRUE(stored().contains("somethingElse=kept\n"));
}

TEST_F(UserDefaultsTest, TheStoreKeepsItsPermissions)
{
    constexpr auto kOurs = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser;
    for (const auto permissions : {kOurs, kOurs | QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther}) {
        aFileWith("crashSubmissionCount=3");
        ASSERT_TRUE(QFile::setPermissions(path(), permissions));
        StoredDefaults defaults;

        defaults.setIntegerForKey(4, kCount);
        defaults.synchronize();

        EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
        EXPECT_EQ(QFile::permissions(path()), permissions);
    }
}

TEST_F(UserDefaultsTest, AnOrdinaryUsersStoreKeepsItsPermissionsAndOwner)
{
    aFileWith("crashSubmissionCount=3");
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0664), 0);

    EXPECT_EXIT(countToFourAsUser1000AndEnd(), testing::ExitedWithCode(0), "");

    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
    EXPECT_EQ(modeOf(path()), 0664U);
    EXPECT_EQ(QFileInfo(path()).ownerId(), geteuid());
}

TEST_F(UserDefaultsTest, TheStoreKeepsItsGroup)
{
    const gid_t group = anotherGroup();
    aFileWith("crashSubmissionCount=3");
    ASSERT_EQ(chown(path().toLocal8Bit().constData(), static_cast<uid_t>(-1), group), 0);
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0660), 0);
    StoredDefaults defaults;

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
    EXPECT_EQ(groupOf(path()), group);
    EXPECT_EQ(modeOf(path()), 0660U);
}

TEST_F(UserDefaultsTest, WhereItsGroupCannotBeGivenTheStoreIsTheUsersAlone)
{
    aFileWith("crashSubmissionCount=3");
    const bool isOfAnother = geteuid() == 0;
    ASSERT_EQ(chown(path().toLocal8Bit().constData(), static_cast<uid_t>(-1), isOfAnother ? 4321 : getegid()), 0);
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0664), 0);

    EXPECT_EXIT(countToFourAsAnOrdinaryUserAndEnd(), testing::ExitedWithCode(0), "");

    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
    EXPECT_EQ(groupOf(path()), getegid());
    EXPECT_EQ(modeOf(path()), isOfAnother ? 0600U : 0664U);
}

TEST_F(UserDefaultsTest, WhoeverAnAccessControlListKeptOutStaysOut)
{
    aFileWith("crashSubmissionCount=3");
    ASSERT_EQ(chown(path().toLocal8Bit().constData(), static_cast<uid_t>(-1), anotherGroup()), 0);
    ASSERT_TRUE(letANamedUserReadAndWrite(path(), kOfAFile));
    ASSERT_EQ(modeOf(path()), 0660U) << "the group's rights are what the list leaves others at most, not its own";
    StoredDefaults defaults;

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
    EXPECT_EQ(modeOf(path()), 0600U);
}

TEST_F(UserDefaultsTest, WhatIsPutInPlaceOfTheNewFileDoesNotGetTheRightsOfTheStore)
{
    const QString fresh = path() + u".korvale-new"_s;
    const QString secret = user.filePath(u"secret"_s);
    write(secret, "secret");
    ASSERT_EQ(chmod(secret.toLocal8Bit().constData(), 0600), 0);
    aFileWith("crashSubmissionCount=3");
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0666), 0);
    bool isSwapped = false;
    const AttributesScope attributes({.error = ENODATA, .meanwhile = [&] {
                                          isSwapped = isSwapped || (QFile::remove(fresh) && QFile::link(secret, fresh));
                                      }});
    StoredDefaults defaults;

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_TRUE(isSwapped);
    EXPECT_EQ(modeOf(secret), 0600U);
}

TEST_F(UserDefaultsTest, NobodyElseGetsRightsByTheListOfTheFolder)
{
    aFileWith("crashSubmissionCount=3");
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0660), 0);
    ASSERT_TRUE(letANamedUserReadAndWrite(QFileInfo(path()).path(), kOfNewFiles));
    StoredDefaults defaults;

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
    EXPECT_EQ(modeOf(path()), 0600U);
}

TEST_F(UserDefaultsTest, WhereThereMayBeAnAccessControlListOfAnyKindTheStoreIsTheUsersAlone)
{
    const std::initializer_list<std::pair<ScriptedAttributes, mode_t>> answers = {
        {{.error = EIO}, 0600},
        {{.error = EACCES}, 0600},
        {{.error = ENOTSUP}, 0660}, // as of a file system without such lists
        {{.error = 0, .name = "system.nfs4_acl"_ba}, 0600},
        {{.error = 0, .name = "system.cifs_acl"_ba}, 0600},
        {{.error = 0, .name = "user.something"_ba}, 0660},
    };
    for (const auto &[answer, mode] : answers) {
        const AttributesScope attributes(answer);
        aFileWith("crashSubmissionCount=3");
        ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0660), 0);
        StoredDefaults defaults;

        defaults.setIntegerForKey(4, kCount);
        defaults.synchronize();

        EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
        EXPECT_EQ(modeOf(path()), mode) << answer.error << ' ' << answer.name.constData();
    }
}

TEST_F(UserDefaultsTest, WhatAKilledProcessHasWrittenHalfwayIsClearedAway)
{
    write(path() + u".korvale-new"_s, "[General]\nhalf=");
    const QStringList ofTheUser = {u"CrashReporter.conf.korvale-new.backup"_s, u"CrashReporter.conf.korvale-newest"_s};
    for (const QString &name : ofTheUser) {
        write(QFileInfo(path()).path() + u'/' + name, "mine");
    }
    StoredDefaults defaults;

    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=4\n");
    EXPECT_EQ(QDir(QFileInfo(path()).path()).entryList(QDir::Files | QDir::Hidden),
              QStringList{u"CrashReporter.conf"_s} + ofTheUser);
}

TEST_F(UserDefaultsTest, WhatCannotBeClearedAwayLeavesTheStoreAsItIs)
{
    aFileWith("crashSubmissionCount=3");
    QDir().mkpath(path() + u".korvale-new"_s);
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);

    defaults.synchronize();

    EXPECT_TRUE(stored().contains("crashSubmissionCount=3\n"));
    EXPECT_EQ(defaults.integerForKey(kCount), 4) << "it is known to this run";
}

TEST_F(UserDefaultsTest, AProcessThatIsKilledLeavesNoLock)
{
    aFileWith("crashSubmissionCount=3");
    EXPECT_EXIT(
        {
            const HeldLock held(folder());
            std::raise(SIGKILL);
        },
        testing::KilledBySignal(SIGKILL), "");
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);

    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=4\n");
}

TEST_F(UserDefaultsTest, NothingIsWaitedForThatHasTheNameOfALock)
{
    aFileWith("crashSubmissionCount=3");
    for (const QString &name : {u".lock"_s, u".korvale-new.lock"_s}) {
        ASSERT_EQ(mkfifo((path() + name).toLocal8Bit().constData(), 0600), 0);
    }
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);

    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=4\n");
}

TEST_F(UserDefaultsTest, TwoNamesOfOneFileAreUnderOneLock)
{
    const QString file = user.filePath(u"dotfiles/crash.conf"_s);
    write(file, "[General]\ncrashSubmissionCount=3\n");
    QDir().mkpath(folder());
    ASSERT_TRUE(QFile::link(file, path()));
    StoredDefaults defaults;
    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    {
        const HeldLock held(QFileInfo(file).path());
        defaults.synchronize();
    }
    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=3\n");

    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=4\n");
}

TEST_F(UserDefaultsTest, WhereThereAreNoLocksTheStoreStaysAndNothingIsWaitedFor)
{
    aFileWith("crashSubmissionCount=3");
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    const qsizetype openBefore = openFiles();
    const ErrorScope noLocks(errorOfLocks, ENOLCK);
    locksTried = 0;

    defaults.synchronize();

    EXPECT_EQ(locksTried, 1);
    EXPECT_EQ(openFiles(), openBefore);
    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=3\n");
    EXPECT_EQ(defaults.integerForKey(kCount), 4);
}

TEST_F(UserDefaultsTest, WhatIsNotOnTheDiskDoesNotReplaceTheStore)
{
    aFileWith("crashSubmissionCount=3");
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    const ErrorScope brokenDisk(errorOfSyncs, EIO);

    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=3\n");
    EXPECT_EQ(QDir(folder()).entryList(QDir::Files | QDir::Hidden), QStringList{u"CrashReporter.conf"_s});
    EXPECT_EQ(defaults.integerForKey(kCount), 4);
}

TEST_F(UserDefaultsTest, WithoutRoomForTemporaryFilesTheStoreStaysAndTheValuesAreKeptForThisRun)
{
    for (const QByteArray &place : {user.path().toUtf8() + "/missing", "/proc"_ba}) {
        aFileWith("crashSubmissionCount=3");
        const ScopedVariable nowhere("TMPDIR", place);
        StoredDefaults defaults;
        defaults.setIntegerForKey(4, kCount);

        testing::internal::CaptureStderr();
        defaults.synchronize();

        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=3\n");
        EXPECT_EQ(defaults.integerForKey(kCount), 4);
    }
}

TEST_F(UserDefaultsTest, NothingIsLeftAmongTheTemporaryFiles)
{
    const QTemporaryDir temporary;
    const ScopedVariable there("TMPDIR", temporary.path().toUtf8());
    StoredDefaults defaults;
    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);

    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=1\n");
    EXPECT_TRUE(QDir(temporary.path()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
}

TEST_F(UserDefaultsTest, ALockThatNobodyGivesUpLeavesTheStoreAsItIs)
{
    aFileWith("crashSubmissionCount=3");
    const HeldLock held(folder());

    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();

    EXPECT_TRUE(stored().contains("crashSubmissionCount=3\n"));
    EXPECT_EQ(defaults.integerForKey(kCount), 4) << "this run goes on counting";
}

TEST_F(UserDefaultsTest, ALockIsWaitedForHalfASecondAndNoLonger)
{
    const HeldLock held(folder());
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    // A busy machine may take longer, but hardly each time.
    qint64 shortest = std::numeric_limits<qint64>::max();
    for (int tries = 0; tries < 10 && shortest >= 740; ++tries) {
        QElapsedTimer clock;
        clock.start();
        defaults.synchronize();
        shortest = std::min(shortest, clock.elapsed());
    }

    EXPECT_GE(shortest, 490);
    EXPECT_LT(shortest, 740);
}

TEST_F(UserDefaultsTest, WhatALockKeptBackIsStoredWithTheNext)
{
    auto held = std::make_unique<HeldLock>(folder());
    StoredDefaults defaults;
    defaults.setIntegerForKey(4, kCount);
    defaults.synchronize();
    ASSERT_EQ(stored(), "no file");
    held.reset();

    defaults.synchronize();

    EXPECT_TRUE(stored().contains("crashSubmissionCount=4\n"));
}

TEST_F(UserDefaultsTest, WhatAnotherProcessStoresWhileALockKeepsThisOneBackCountsAsWell)
{
    aFileWith("crashSubmissionCount=41\nlastCrashSubmissionDate=once");
    StoredDefaults defaults;
    auto held = std::make_unique<HeldLock>(folder());
    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    defaults.setObjectForKey(u"today"_s, kDate);
    defaults.synchronize();
    ASSERT_EQ(defaults.integerForKey(kCount), 42);
    ASSERT_EQ(defaults.objectForKey(kDate), QVariant(u"today"_s));
    held.reset();

    aFileWith("crashSubmissionCount=46\nlastCrashSubmissionDate=soon");

    EXPECT_EQ(defaults.integerForKey(kCount), 47);
    EXPECT_EQ(defaults.objectForKey(kDate), QVariant(u"soon"_s));
}

TEST_F(UserDefaultsTest, WhatALockKeptBackIsAddedToWhatAnotherProcessStores)
{
    aFileWith("crashSubmissionCount=1");
    StoredDefaults defaults;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    auto held = std::make_unique<HeldLock>(folder());
    for (int attempt = 0; attempt < 3; ++attempt) {
        defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
        defaults.setObjectForKey(now, kDate);
    }
    held.reset();
    {
        QSettings another(path(), QSettings::IniFormat);
        another.setValue(kCount, 2);
        another.setValue(kDate, now.addSecs(-60));
    }

    EXPECT_EQ(defaults.integerForKey(kCount), 5);
    EXPECT_EQ(defaults.objectForKey(kDate), QVariant(now));
    defaults.synchronize();
    const StoredDefaults next;
    EXPECT_EQ(next.integerForKey(kCount), 5);
    EXPECT_EQ(next.objectForKey(kDate), QVariant(now));
}

TEST_F(UserDefaultsTest, AnAttemptIsAddedToWhatAnotherProcessHasStoredMeanwhile)
{
    aFileWith("crashSubmissionCount=1");
    StoredDefaults defaults;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    defaults.setObjectForKey(now, kDate);
    {
        QSettings another(path(), QSettings::IniFormat);
        another.setValue(kCount, 7);
        another.setValue(kDate, now.addSecs(60));
    }

    defaults.synchronize();

    const StoredDefaults next;
    EXPECT_EQ(next.integerForKey(kCount), 8);
    EXPECT_EQ(next.objectForKey(kDate), QVariant(now.addSecs(60)));
}

TEST_F(UserDefaultsTest, AnAttemptIsAddedToWhatAnotherProcessHasStoredBetweenTheReadings)
{
    aFileWith("crashSubmissionCount=1");
    StoredDefaults defaults;
    const qint64 count = defaults.integerForKey(kCount);
    aFileWith("crashSubmissionCount=27");
    ASSERT_FALSE(defaults.objectForKey(kDate));
    defaults.setIntegerForKey(count + 1, kCount);
    EXPECT_EQ(defaults.integerForKey(kCount), 28);

    defaults.synchronize();

    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 28);
}

TEST_F(UserDefaultsTest, WhatIsSetAfterAWriteIsCountedFromIt)
{
    aFileWith("crashSubmissionCount=1");
    StoredDefaults defaults;
    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    defaults.synchronize();
    defaults.setIntegerForKey(3, kCount);

    defaults.synchronize();

    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 3);
}

TEST_F(UserDefaultsTest, WhatIsCountedWhileSomethingElseIsInPlaceOfTheStoreIsAddedToIt)
{
    aFileWith("crashSubmissionCount=12");
    StoredDefaults defaults;
    ASSERT_EQ(defaults.integerForKey(kCount), 12);
    ASSERT_NO_FATAL_FAILURE(putFifoInPlace());
    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    defaults.synchronize();
    ASSERT_EQ(defaults.integerForKey(kCount), 1);

    ASSERT_NO_FATAL_FAILURE(putStoreBack());

    EXPECT_EQ(defaults.integerForKey(kCount), 13);
    defaults.synchronize();
    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 13);
}

TEST_F(UserDefaultsTest, NoAttemptCountsTwiceWhereAnotherCouldNotBeAddedToIt)
{
    aFileWith("crashSubmissionCount=5");
    StoredDefaults defaults;
    auto held = std::make_unique<HeldLock>(folder());
    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    defaults.synchronize();
    held.reset();
    ASSERT_NO_FATAL_FAILURE(putFifoInPlace());
    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    defaults.synchronize();
    EXPECT_EQ(defaults.integerForKey(kCount), 7);

    ASSERT_NO_FATAL_FAILURE(putStoreBack());

    EXPECT_EQ(defaults.integerForKey(kCount), 7);
    defaults.synchronize();
    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 7);
}

TEST_F(UserDefaultsTest, OfTheFirstCountNothingIsSaidButThatItIsStored)
{
    const LogLines log(u"korvale.settings.info=true"_s);
    StoredDefaults defaults;

    defaults.setIntegerForKey(defaults.integerForKey(kCount) + 1, kCount);
    defaults.synchronize();

    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=1\n");
    EXPECT_EQ(LogLines::text(), QString());
}

TEST_F(UserDefaultsTest, ThatThereIsNoFolderForTheSettingsIsSaid)
{
    write(folder(), "a file");
    const LogLines log(u"korvale.settings.info=true"_s);

    StoredDefaults().synchronize();

    EXPECT_EQ(LogLines::text(),
              u"korvale.settings: \"%1\" is not written: it has no folder, and none can be made"_s.arg(path()));
}

TEST_F(UserDefaultsTest, ThatThereIsNoRoomForTemporaryFilesIsSaid)
{
    aFileWith("crashSubmissionCount=3");
    const ScopedVariable nowhere("TMPDIR", "/nowhere");
    const LogLines log(u"korvale.settings.info=true"_s);

    StoredDefaults().synchronize();

    EXPECT_EQ(LogLines::text(),
              u"korvale.settings: no copy of the settings can be made or read among the temporary files"_s);
    EXPECT_EQ(stored(), "[General]\ncrashSubmissionCount=3\n");
}

TEST_F(UserDefaultsTest, ThatOthersMayLeadRootElsewhereIsSaid)
{
    const QTemporaryDir home;
    const RootsLookups lookups(home.path());
    ASSERT_TRUE(QFile::link(user.path(), home.filePath(u".config"_s)));
    const LogLines log(u"korvale.settings.info=true"_s);

    QtUserDefaults(lookups).synchronize();

    EXPECT_EQ(LogLines::text(),
              u"korvale.settings: \"%1/.config/Korvale/CrashReporter.conf\" is not taken: "
              u"from root's home on, it is not root's alone"_s.arg(home.path()));
}

TEST_F(UserDefaultsTest, WhyALinkCannotBeReadIsSaid)
{
    write(user.filePath(u"settings"_s), "[General]\ncrashSubmissionCount=3\n");
    QDir().mkpath(folder());
    ASSERT_TRUE(QFile::link(user.filePath(u"settings"_s), path()));
    const ErrorScope scripted(errorOfLinks, EIO);
    const LogLines log(u"korvale.settings.info=true"_s);

    StoredDefaults().synchronize();

    EXPECT_EQ(LogLines::text(), u"korvale.settings: \"%1\" is not taken: Input/output error"_s.arg(path()));
}
