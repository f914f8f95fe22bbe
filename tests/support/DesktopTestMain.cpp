// Runs the tests that need a QApplication: without a display or a proxy, in a home of their own, heeding every signal.
#include "support/RunTests.h"

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>

#include <csignal>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

void moveInto(const QTemporaryDir &home)
{
    qputenv("HOME", home.path().toUtf8());
    for (const char *variable :
         {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_RUNTIME_DIR", "TMPDIR"}) {
        const QString folder = home.filePath(QString::fromLatin1(variable).toLower());
        QDir().mkpath(folder);
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv(variable, folder.toUtf8());
    }
    for (const char *variable : {"XDG_CONFIG_DIRS", "XDG_DATA_DIRS"}) {
        qputenv(variable, home.filePath(u"nowhere"_s).toUtf8());
    }
}

/// What a person may have set for the toolkit, or for the way to a server.
void forgetPreferences()
{
    for (const char *variable :
         {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY",
          "QT_FONT_DPI", "QT_SCALE_FACTOR", "QT_SCREEN_SCALE_FACTORS", "QT_STYLE_OVERRIDE", "QT_LOGGING_RULES",
          "QT_QPA_PLATFORMTHEME", "DBUS_SESSION_BUS_ADDRESS"}) {
        qunsetenv(variable);
    }
}

/// The program goes on ignoring what its starter ignores, as a shell does for what it starts in the background.
void heedTerminationSignals()
{
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        std::signal(number, SIG_DFL);
    }
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    const QTemporaryDir home;
    if (!home.isValid()) {
        qFatal("No temporary folder: %s", qPrintable(home.errorString()));
    }
    moveInto(home);
    forgetPreferences();
    heedTerminationSignals();
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    return runTests();
}
