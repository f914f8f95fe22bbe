// Whole files, and what is never waited for.
#include "base/TextFile.h"

#include "support/LeaseHolder.h"
#include "support/LimitedMemory.h"
#include "support/SampleHome.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QLoggingCategory>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <limits>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

/// Lets the test go on as an ordinary user who owns the paths, because root may read every file.
class OrdinaryUser
{
public:
    explicit OrdinaryUser(const QStringList &paths)
    {
        if (::geteuid() != 0) {
            return;
        }
        for (const QString &path : paths) {
            EXPECT_EQ(::chown(path.toUtf8().constData(), kNobody, static_cast<gid_t>(-1)), 0);
        }
        EXPECT_EQ(::seteuid(kNobody), 0);
        switched = true;
    }
    OrdinaryUser(const OrdinaryUser &) = delete;
    OrdinaryUser &operator=(const OrdinaryUser &) = delete;
    ~OrdinaryUser()
    {
        if (switched) {
            EXPECT_EQ(::seteuid(0), 0);
        }
    }

private:
    static constexpr uid_t kNobody = 65534;
    bool switched = false;
};

/// The flags of the process's descriptor of the file; nothing when there is none.
std::optional<int> descriptorFlags(const QString &path)
{
    std::error_code failure;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd", failure)) {
        if (std::filesystem::read_symlink(entry.path(), failure) != path.toStdString()) {
            continue;
        }
        // It may be closed, and its number be another's, before it is asked: so what it refers to is looked at again.
        const int flags = ::fcntl(std::stoi(entry.path().filename()), F_GETFD);
        if (flags >= 0 && std::filesystem::read_symlink(entry.path(), failure) == path.toStdString()) {
            return flags;
        }
    }
    return std::nullopt;
}

/// Memory of many mappings, each of which has a line in /proc/self/maps.
class ManyMappings
{
public:
    ManyMappings()
    {
        for (size_t page = 0; page < kMappings; page += 2) {
            EXPECT_EQ(::mprotect(memory + page * pageSize, pageSize, PROT_READ), 0);
        }
    }
    ManyMappings(const ManyMappings &) = delete;
    ManyMappings &operator=(const ManyMappings &) = delete;
    ~ManyMappings() { ::munmap(memory, kMappings * pageSize); }

    bool contains(quintptr address) const
    {
        const auto begin = reinterpret_cast<quintptr>(memory);
        return address >= begin && address < begin + kMappings * pageSize;
    }

    static constexpr size_t kMappings = 4096;

private:
    size_t pageSize = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    char *memory = static_cast<char *>(
        ::mmap(nullptr, kMappings *pageSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
};

/// What is read by somebody who has asked for it by QT_LOGGING_RULES, as long as this object lives.
class LoadingLog
{
public:
    LoadingLog()
        : before(
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &text) { lines << text; }))
    {
        lines.clear();
        QLoggingCategory::setFilterRules(u"korvale.loading=true"_s);
    }
    LoadingLog(const LoadingLog &) = delete;
    LoadingLog &operator=(const LoadingLog &) = delete;
    ~LoadingLog()
    {
        QLoggingCategory::setFilterRules({});
        qInstallMessageHandler(before);
    }

    static inline QStringList lines;

private:
    QtMessageHandler before;
};

/// A file system that gives fewer bytes than are asked for (read(2)), as long as this object lives.
class ShortReads
{
public:
    explicit ShortReads(std::size_t bytes)
    {
        mostBytes = bytes;
        calls = 0;
    }
    ShortReads(const ShortReads &) = delete;
    ShortReads &operator=(const ShortReads &) = delete;
    ~ShortReads() { mostBytes = kNoLimit; }

    static constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
    static inline std::atomic<std::size_t> mostBytes = kNoLimit;
    static inline std::atomic<int> calls = 0;
};

class TextFile : public testing::Test
{
protected:
    SampleHome home;
};

} // namespace

/// The C library's, for no more bytes than the test lets it give.
extern "C" ssize_t read(int file, void *into, size_t count)
{
    static const auto original = reinterpret_cast<decltype(&read)>(::dlsym(RTLD_NEXT, "read"));
    ++ShortReads::calls;
    return original(file, into, std::min(count, ShortReads::mostBytes.load()));
}

TEST_F(TextFile, RegularFileGivesItsBytes)
{
    const QByteArray bytes(200'001, 'x');

    EXPECT_EQ(contentsOfRegularFile(home.write(u"a"_s, bytes)), bytes);
    EXPECT_EQ(contentsOfRegularFile(home.write(u"empty"_s, QByteArray())), QByteArray());
}

TEST_F(TextFile, LinkIsFollowed)
{
    ASSERT_TRUE(QFile::link(home.write(u"a"_s, "content"), home.path(u"link"_s)));

    EXPECT_EQ(contentsOfRegularFile(home.path(u"link"_s)), "content");
    EXPECT_TRUE(fileExists(home.path(u"link"_s)));
}

TEST_F(TextFile, DanglingLinkDoesNotExist)
{
    ASSERT_TRUE(QFile::link(home.path(u"gone"_s), home.path(u"link"_s)));

    EXPECT_FALSE(fileExists(home.path(u"link"_s)));
    EXPECT_EQ(contentsOfRegularFile(home.path(u"link"_s)), std::nullopt);
}

TEST_F(TextFile, DirectoryExistsAndCannotBeRead)
{
    EXPECT_TRUE(fileExists(home.path(QString())));
    EXPECT_EQ(contentsOfRegularFile(home.path(QString())), std::nullopt);
}

TEST_F(TextFile, FifoWithoutAWriterIsRefusedAtOnce)
{
    ASSERT_EQ(::mkfifo(home.path(u"pipe"_s).toUtf8().constData(), 0600), 0);

    EXPECT_TRUE(fileExists(home.path(u"pipe"_s)));
    EXPECT_EQ(contentsOfRegularFile(home.path(u"pipe"_s)), std::nullopt);
}

TEST_F(TextFile, SocketCannotBeRead)
{
    const QByteArray path = home.path(u"socket"_s).toUtf8();
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    ASSERT_LT(static_cast<size_t>(path.size()), sizeof address.sun_path);
    std::copy(path.begin(), path.end(), address.sun_path);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);

    EXPECT_EQ(contentsOfRegularFile(home.path(u"socket"_s)), std::nullopt);
    ::close(socket);
}

TEST_F(TextFile, DeviceCannotBeRead)
{
    EXPECT_EQ(contentsOfRegularFile(u"/dev/zero"_s), std::nullopt);
    EXPECT_EQ(contentsOfRegularFile(u"/dev/null"_s), std::nullopt);
}

TEST_F(TextFile, FileThatReportsNoSizeIsReadToItsEnd)
{
    struct stat status = {};
    ASSERT_EQ(::stat("/proc/self/status", &status), 0);
    ASSERT_EQ(status.st_size, 0);

    const std::optional<QByteArray> content = contentsOfRegularFile(u"/proc/self/status"_s);

    ASSERT_TRUE(content.has_value());
    EXPECT_TRUE(content->startsWith("Name:"));
    EXPECT_TRUE(content->endsWith('\n'));
}

TEST_F(TextFile, LongFileThatReportsNoSizeIsReadToItsEnd)
{
    const ManyMappings mappings;

    const std::optional<QByteArray> content = contentsOfRegularFile(u"/proc/self/maps"_s);

    ASSERT_TRUE(content.has_value());
    EXPECT_TRUE(content->endsWith('\n'));
    const QList<QByteArray> lines = content->split('\n');
    const auto ofMappings = std::count_if(lines.begin(), lines.end(), [&](const QByteArray &line) {
        return mappings.contains(line.left(line.indexOf('-')).toULongLong(nullptr, 16));
    });
    EXPECT_EQ(ofMappings, ManyMappings::kMappings);
}

TEST_F(TextFile, FileThatReportsMoreThanItHoldsIsReadToItsEnd)
{
    struct stat status = {};
    ASSERT_EQ(::stat("/sys/devices/system/cpu/online", &status), 0);

    const std::optional<QByteArray> content = contentsOfRegularFile(u"/sys/devices/system/cpu/online"_s);

    ASSERT_TRUE(content.has_value());
    EXPECT_LT(content->size(), status.st_size);
    EXPECT_TRUE(content->startsWith('0'));
    EXPECT_EQ(content->indexOf('\n'), content->size() - 1);
}

TEST_F(TextFile, ProgramsStartedMeanwhileDoNotInheritTheFile)
{
    // A file of holes, long enough that it is seen while it is being read.
    const QString file = QFileInfo(home.write(u"a"_s, "start")).canonicalFilePath();
    ASSERT_EQ(::truncate(file.toUtf8().constData(), off_t(64) * 1024 * 1024), 0);
    std::atomic<bool> isSeen = false;
    std::optional<int> flags;
    std::thread observer([&] {
        const QDeadlineTimer deadline(20'000);
        while (!flags && !deadline.hasExpired()) {
            flags = descriptorFlags(file);
        }
        isSeen = true;
    });

    while (!isSeen) {
        EXPECT_TRUE(contentsOfRegularFile(file).has_value());
    }

    observer.join();
    EXPECT_EQ(flags, FD_CLOEXEC);
}

TEST_F(TextFile, MissingEmptyAndUnnameablePathsDoNotExist)
{
    home.write(u"a"_s, "content");

    for (const QString &path : {home.path(u"gone"_s), QString(), home.path(u"a\0b"_s), home.path(QChar(0xD83D))}) {
        EXPECT_FALSE(fileExists(path));
        EXPECT_EQ(contentsOfRegularFile(path), std::nullopt);
    }
}

TEST_F(TextFile, FileLargerThanMaxBytesIsNotRead)
{
    const QString file = home.write(u"a"_s, "12345");

    EXPECT_EQ(contentsOfRegularFile(file, 5), "12345");
    EXPECT_EQ(contentsOfRegularFile(file, 4), std::nullopt);
    EXPECT_EQ(contentsOfRegularFile(u"/proc/self/status"_s, 10), std::nullopt) << "whatever size it reports";
}

TEST_F(TextFile, FileThatNoMemoryCanHoldCannotBeRead)
{
    // A file of holes: nothing of it is on the disk.
    const QString file = home.write(u"a"_s, "start");
    constexpr off_t kEightTebibytes = off_t(8) << 40;
    ASSERT_EQ(::truncate(file.toUtf8().constData(), kEightTebibytes), 0);

    EXPECT_EQ(contentsOfRegularFile(file), std::nullopt);
}

TEST_F(TextFile, FileWhoseReportedSizeIsTheLargestNumberCannotBeRead)
{
    // Memory that is a file has no limit of a file system's own, and holds nothing yet.
    const int file = ::memfd_create("log", MFD_CLOEXEC);
    ASSERT_GE(file, 0);
    ASSERT_EQ(::ftruncate(file, std::numeric_limits<off_t>::max()), 0);

    EXPECT_EQ(contentsOfRegularFile(u"/proc/self/fd/%1"_s.arg(file)), std::nullopt);
    ::close(file);
}

TEST_F(TextFile, FileWhoseReadingFailsCannotBeRead)
{
    // Reading at the start of a process's memory, which is a regular file, fails (proc(5)).
    EXPECT_TRUE(fileExists(u"/proc/self/mem"_s));
    EXPECT_EQ(contentsOfRegularFile(u"/proc/self/mem"_s), std::nullopt);
    EXPECT_EQ(textOfFile(u"/proc/self/mem"_s), std::nullopt);
}

TEST_F(TextFile, WhatFailedBeforeDoesNotCount)
{
    const QString file = home.write(u"a"_s, "content");

    errno = EINTR;
    EXPECT_EQ(contentsOfRegularFile(file), "content");
}

TEST_F(TextFile, IsReadAndClosedByAProcessWithoutStandardInput)
{
    const QString file = home.write(u"a"_s, "content");
    const auto readsAndCloses = [&file] {
        ::close(STDIN_FILENO);
        return contentsOfRegularFile(file) == "content" && ::fcntl(STDIN_FILENO, F_GETFD) < 0;
    };

    EXPECT_EXIT(_exit(readsAndCloses() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(TextFile, TextIsReadStrictly)
{
    EXPECT_EQ(textOfFile(home.write(u"a"_s, "caf\xC3\xA9")), u"caf\u00E9"_s);
    EXPECT_EQ(textOfFile(home.write(u"b"_s, "caf\xC3")), std::nullopt);
}

TEST_F(TextFile, TextIsDecodedAlikeWhereverItsBytesAreDivided)
{
    const QString characters = u"\u00E9\u0800\U0001F4A5\U00010000\0\uFEFF"_s;
    for (qsizetype before = 0; before < 16; ++before) {
        const QString text = QString(before, u'x') + characters.repeated(5'000);
        ASSERT_EQ(textOfFile(home.write(u"a"_s, text.toUtf8())), text) << before;
    }
}

TEST_F(TextFile, TextOfWhichAReadGivesAFewBytesIsDecodedAlike)
{
    const QString text = u"\u00E9\u0800\U0001F4A5x\U00010000"_s;
    const QString file = home.write(u"a"_s, text.toUtf8());
    for (const int bytes : {1, 2, 3}) {
        const ShortReads reads(static_cast<std::size_t>(bytes));
        ASSERT_EQ(textOfFile(file), text) << bytes;
        EXPECT_GT(ShortReads::calls, text.toUtf8().size() / bytes) << "the reads were no shorter";
    }
}

TEST_F(TextFile, TextIsReadStrictlyWhereverItsBytesAreDivided)
{
    for (const QByteArray &bad :
         {QByteArray("\xC3"), QByteArray("\xE0\xA0"), QByteArray("\xF0\x9F\x92"), QByteArray("\x80"),
          QByteArray("\xED\xA0\x80"), QByteArray("\xF0\x9F\x92\x80\x80"), QByteArray("\xFF\xFF\xFF")}) {
        for (qsizetype before = 16'384 - 8; before < 16'384 + 3; ++before) {
            ASSERT_EQ(textOfFile(home.write(u"a"_s, QByteArray(before, 'x') + bad)), std::nullopt) << before;
            ASSERT_EQ(textOfFile(home.write(u"a"_s, QByteArray(before, 'x') + bad + "y")), std::nullopt) << before;
        }
    }
}

TEST_F(TextFile, TextLargerThanMaxBytesIsNotRead)
{
    EXPECT_EQ(textOfFile(home.write(u"a"_s, "12345"), 5), u"12345"_s);
    EXPECT_EQ(textOfFile(home.write(u"a"_s, "12345"), 4), std::nullopt);
    EXPECT_EQ(textOfFile(u"/proc/self/status"_s, 10), std::nullopt) << "whatever size it reports";
}

TEST_F(TextFile, TextIsReadWithoutTheMemoryThatGrowingWouldTake)
{
    // A file of holes, whose text takes 66 MiB. Growing step by step, the toolkit would ask for the next power of two,
    // 128 MiB. What is left between is for a memory checker.
    const QString file = home.write(u"a"_s, "start");
    constexpr off_t kSize = off_t(33) * 1024 * 1024;
    ASSERT_EQ(::truncate(file.toUtf8().constData(), kSize), 0);
    const LimitedMemory memory(rlim_t(112) * 1024 * 1024);

    EXPECT_EQ(textOfFile(file).value_or(QString()).size(), kSize);
}

TEST_F(TextFile, TextIsReadWhateverSizeIsReportedUnlessNoMemoryCanHoldIt)
{
    EXPECT_TRUE(textOfFile(u"/proc/self/status"_s).value_or(QString()).endsWith(u'\n'));
    EXPECT_EQ(textOfFile(home.write(u"empty"_s, "")), QString());
    const QString holes = home.write(u"a"_s, "start");
    ASSERT_EQ(::truncate(holes.toUtf8().constData(), off_t(8) << 40), 0);
    EXPECT_EQ(textOfFile(holes), std::nullopt);
}

TEST_F(TextFile, FileWithoutReadPermissionExistsAndCannotBeRead)
{
    const QString file = home.write(u"a"_s, "content");
    const OrdinaryUser user({home.path(QString()), file});
    ASSERT_EQ(::chmod(file.toUtf8().constData(), 0), 0);

    EXPECT_TRUE(fileExists(file));
    EXPECT_EQ(contentsOfRegularFile(file), std::nullopt);
}

TEST_F(TextFile, NoneStaysOpenOnceItIsRead)
{
    const QString path = home.write(u"a"_s, "text");

    EXPECT_EQ(textOfFile(path), u"text"_s);
    EXPECT_EQ(contentsOfRegularFile(path), "text"_ba);
    EXPECT_EQ(textOfFile(path, 3), std::nullopt);

    EXPECT_EQ(descriptorFlags(path), std::nullopt);
}

TEST_F(TextFile, WhoAsksReadsWhyAFileIsNotTaken)
{
    const QString missing = home.path(u"gone"_s);
    const QString folder = home.path(QString());
    const QString text = home.write(u"a"_s, "caf\xC3");
    const QString holes = home.write(u"b"_s, "start");
    ASSERT_EQ(::truncate(holes.toUtf8().constData(), off_t(8) << 40), 0);
    const LoadingLog log;

    EXPECT_FALSE(fileExists(missing));
    EXPECT_EQ(textOfFile(missing), std::nullopt);
    EXPECT_EQ(textOfFile(folder), std::nullopt);
    EXPECT_EQ(textOfFile(text, 3), std::nullopt);
    EXPECT_EQ(textOfFile(text), std::nullopt);
    EXPECT_EQ(textOfFile(holes), std::nullopt);
    EXPECT_EQ(textOfFile(u"a\0b\nc"_s), std::nullopt);

    const auto quoted = [](const QString &path) { return u'"' + path + u'"'; };
    EXPECT_EQ(
        LoadingLog::lines,
        (QStringList{quoted(missing) + u" does not exist"_s,
                     quoted(missing) + u" is not taken: No such file or directory"_s,
                     quoted(folder) + u" is not taken: it is not a regular file"_s,
                     quoted(text) + u" is not taken: it is too large"_s,
                     quoted(text) + u" is not taken: it cannot be read, has grown too large, or is no text in UTF-8"_s,
                     quoted(holes) + u" is not taken: there is no memory for it"_s,
                     uR"("a\u0000b\nc" is not taken: it is not a name that a file can have)"_s}));
}

TEST_F(TextFile, ALeaseOfAnotherProcessIsWaitedFor)
{
    const QString path = home.write(u"leased"_s, "content");
    const LeaseHolder holder(path, LeaseHolder::Ends);

    EXPECT_EQ(textOfFile(path), u"content"_s);
}

TEST_F(TextFile, ALeaseThatIsNotGivenUpIsWaitedForTwoSecondsAndNoLonger)
{
    const QString path = home.write(u"leased"_s, "content");
    const LeaseHolder holder(path, LeaseHolder::Keeps);
    QElapsedTimer clock;
    clock.start();

    EXPECT_EQ(textOfFile(path), std::nullopt);

    EXPECT_GE(clock.elapsed(), 2000);
    EXPECT_LT(clock.elapsed(), 20'000);
}

TEST_F(TextFile, AFileThatIsOpenIsReadFromWhereItIs)
{
    const QString path = home.write(u"open"_s, "some content");
    const FileDescriptor file(::open(path.toLocal8Bit().constData(), O_RDONLY | O_CLOEXEC));
    const LoadingLog log;
    ASSERT_EQ(::lseek(file.get(), 5, SEEK_SET), 5);

    EXPECT_EQ(contentsOfRegularFile(file, path, 12), "content");

    ASSERT_EQ(::lseek(file.get(), 5, SEEK_SET), 5);
    EXPECT_EQ(contentsOfRegularFile(file, path, 11), std::nullopt) << "the file is larger";
    EXPECT_EQ(contentsOfRegularFile(FileDescriptor(), path, 12), std::nullopt);
    EXPECT_EQ(LoadingLog::lines,
              (QStringList{u'"' + path + u"\" is not taken: it is too large"_s,
                           u'"' + path + u"\" is not taken: Bad file descriptor"_s}));
}

TEST_F(TextFile, WhatIsNoRegularFileIsNotWaitedForWhateverItsOpeningSays)
{
    const QString path = home.path(u"fifo"_s);
    ASSERT_EQ(::mkfifo(path.toUtf8().constData(), S_IRUSR | S_IWUSR), 0);
    static int tries = 0;
    tries = 0;

    EXPECT_EQ(textOfFile(path, kAnySize,
                         [](const char *, int) {
                             ++tries;
                             errno = EWOULDBLOCK;
                             return -1;
                         }),
              std::nullopt);

    EXPECT_EQ(tries, 1);
}
