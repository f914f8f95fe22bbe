// The start of the toolkit, and a clear end where it cannot start.
#include "desktop/application/ToolkitStart.h"

#include "desktop/application/StandardError.h"

#include <QLocale>
#include <QSessionManager>
#include <QStringList>

#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

/// What the toolkit has said since its start began. A handler of messages is a plain function, so this has to be a
/// global; it is filled during the start alone.
QStringList &messages()
{
    static QStringList list;
    return list;
}

/// The toolkit says why it cannot start before the fatal message at which it aborts when the handler returns.
void collectUpToTheFatalMessage(QtMsgType type, const QMessageLogContext & /*context*/, const QString &message)
{
    messages() += message.simplified();
    if (type != QtFatalMsg) {
        return;
    }
    const QString reason = messages().join(u"; "_s);
    writeToStandardError("korvale-crash-reporter: the report window cannot be shown on this display: " + reason.toUtf8()
                         + '\n');
    std::_Exit(EXIT_FAILURE);
}

} // namespace

std::unique_ptr<QApplication> startedToolkit(int &argumentCount, char **arguments)
{
    const QtMessageHandler previous = qInstallMessageHandler(collectUpToTheFatalMessage);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    auto toolkit = std::make_unique<QApplication>(argumentCount, arguments);
    qInstallMessageHandler(previous);
    QApplication::setLayoutDirection(Qt::LeftToRight);
    QApplication::setApplicationDisplayName(u"Korvale Crash Reporter"_s);
    QGuiApplication::setDesktopFileName(u"com.korvale.crashreporter"_s);
    // The window's own closing decides; the end of an alert that stands alone at launch does not.
    QApplication::setQuitOnLastWindowClosed(false);
    // A session manager would start the program at the next login, without the report.
    QObject::connect(toolkit.get(), &QGuiApplication::saveStateRequest, toolkit.get(),
                     [](QSessionManager &session) { session.setRestartHint(QSessionManager::RestartNever); });
    return toolkit;
}
