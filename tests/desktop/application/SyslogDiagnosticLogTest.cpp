// What a line of the diagnostic log looks like on standard error, and how much of it the system's log is sent.
#include "desktop/application/SyslogDiagnosticLog.h"

#include "support/PrintQt.h"

#include <QByteArray>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace Qt::StringLiterals;

namespace {

/// What standard error shows of the line, without the program's name and process ID before it.
std::string shown(const QString &line)
{
    testing::internal::CaptureStderr();
    SyslogDiagnosticLog().log(line);
    const std::string output = testing::internal::GetCapturedStderr();
    const std::string head = "korvale-crash-reporter[" + std::to_string(getpid()) + "]: ";
    return output.starts_with(head) ? output.substr(head.size()) : "without the head: " + output;
}

/// What the system's log was sent last, which gets nothing of this.
QByteArray sentToSystemLog;

bool isSystemLog(const sockaddr *address)
{
    return address && address->sa_family == AF_UNIX
        && reinterpret_cast<const sockaddr_un *>(address)->sun_path == std::string_view(_PATH_LOG);
}

} // namespace

/// In the place of the library's.
ssize_t sendto(int socket, const void *bytes, size_t size, int flags, const sockaddr *address, socklen_t length)
{
    if (!isSystemLog(address)) {
        return ::syscall(SYS_sendto, socket, bytes, size, flags, address, length);
    }
    sentToSystemLog = QByteArray(static_cast<const char *>(bytes), static_cast<qsizetype>(size));
    return static_cast<ssize_t>(size);
}

TEST(SyslogDiagnosticLog, WritesOneLineWithTheProgramsName)
{
    EXPECT_EQ(shown(u"Returned data: OK"_s), "Returned data: OK\n");
}

TEST(SyslogDiagnosticLog, TakesPercentSignsLiterally)
{
    EXPECT_EQ(shown(u"100 %s %n %d%% %m"_s), "100 %s %n %d%% %m\n");
}

TEST(SyslogDiagnosticLog, KeepsLineBreaksFromStartingANewLine)
{
    EXPECT_EQ(shown(u"one\ntwo\r\nthree\tfour\v\f"_s), "one\\ntwo\\r\\nthree\\tfour\\x0b\\x0c\n");
}

TEST(SyslogDiagnosticLog, KeepsControlCharactersFromTheTerminal)
{
    const QString line = u"a"_s + QChar(0) + QChar(0x1b) + u"[31m"_s + QChar(0x7f) + QChar(0x85) + QChar(0x9b) + u"z"_s;

    EXPECT_EQ(shown(line), "a\\x00\\x1b[31m\\x7f\\x85\\x9bz\n");
}

TEST(SyslogDiagnosticLog, WritesOtherTextAsUtf8)
{
    EXPECT_EQ(shown(u"\u00e4\u65e5\U0001F600"_s), "\xc3\xa4\xe6\x97\xa5\xf0\x9f\x98\x80\n");
}

TEST(SyslogDiagnosticLog, AnUnpairedSurrogateDoesNotBreakTheLine)
{
    const std::string line = shown(u"a"_s + QChar(0xd800) + u"b"_s);

    EXPECT_TRUE(line.starts_with("a"));
    EXPECT_TRUE(line.ends_with("b\n"));
}

TEST(SyslogDiagnosticLog, KeepsALongLineWhole)
{
    EXPECT_EQ(shown(u"x"_s.repeated(100000)), std::string(100000, 'x') + "\n");
}

TEST(SyslogDiagnosticLog, SendsTheSystemsLogNoMoreOfALineThanOneMessageTakes)
{
    for (const int length : {16'383, 16'384, 16'385}) {
        shown(u"x"_s.repeated(length));
        EXPECT_TRUE(sentToSystemLog.startsWith("<13>")) << sentToSystemLog.left(80).constData();
        EXPECT_EQ(sentToSystemLog.count('x'), std::min(length, 16'384));
    }
}
