// The diagnostic log, sent to the system's log as syslog(3) does, but that nothing is waited for.
#include "desktop/application/SyslogDiagnosticLog.h"

#include "desktop/application/StandardError.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDateTime>
#include <QLocale>

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr char kProgram[] = "korvale-crash-reporter";
/// UTF-16 code units of a line that go to the system's log: one message, which a socket does not take at any length.
constexpr qsizetype kLongestLogged = 16'384;

QString escaped(QChar control)
{
    switch (control.unicode()) {
    case u'\n':
        return u"\\n"_s;
    case u'\r':
        return u"\\r"_s;
    case u'\t':
        return u"\\t"_s;
    default:
        return u"\\x%1"_s.arg(uint{control.unicode()}, 2, 16, QLatin1Char('0'));
    }
}

QString onOneLine(const QString &text)
{
    QString line;
    for (const QChar character : text) {
        if (character.category() == QChar::Other_Control) {
            line += escaped(character);
        } else {
            line += character;
        }
    }
    return line;
}

/// What the system's log expects before a message (RFC 3164, section 4.1): its kind, and the time in English.
QByteArray head()
{
    const QDateTime now = QDateTime::currentDateTime();
    const QString time = QLocale::c().toString(now, u"MMM %1 hh:mm:ss"_s).arg(now.date().day(), 2);
    return '<' + QByteArray::number(LOG_USER | LOG_NOTICE) + '>' + time.toLatin1() + ' ';
}

/// By a socket of its own each time, as lines are few and the log may have been started anew.
void sendToSystemLog(const QByteArray &message)
{
    const int log = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    if (log < 0) {
        return;
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::ranges::copy(_PATH_LOG, address.sun_path);
    ::sendto(log, message.constData(), static_cast<size_t>(message.size()), MSG_DONTWAIT,
             reinterpret_cast<const sockaddr *>(&address), sizeof address);
    ::close(log);
}

} // namespace

void SyslogDiagnosticLog::log(const QString &line)
{
    const QByteArray program =
        kProgram + QByteArray("[") + QByteArray::number(QCoreApplication::applicationPid()) + "]: ";
    const QString said = onOneLine(line);
    sendToSystemLog(head() + program + said.left(kLongestLogged).toUtf8());
    writeToStandardError(program + said.toUtf8() + '\n');
}
