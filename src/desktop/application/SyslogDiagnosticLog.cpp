// The diagnostic log over syslog(3).
#include "desktop/application/SyslogDiagnosticLog.h"

#include <QByteArray>

#include <syslog.h>

using namespace Qt::StringLiterals;

namespace {

constexpr char kProgram[] = "korvale-crash-reporter";

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

} // namespace

SyslogDiagnosticLog::SyslogDiagnosticLog()
{
    openlog(kProgram, LOG_PERROR | LOG_PID, LOG_USER);
}

void SyslogDiagnosticLog::log(const QString &line)
{
    syslog(LOG_NOTICE, "%s", onOneLine(line).toUtf8().constData());
}
