// Bringing the application to the front, and ending it.
#include "desktop/application/QtApplication.h"

#include <QApplication>

QtApplication::QtApplication(QWidget &reportWindow)
    : window(reportWindow)
{
}

void QtApplication::activateIgnoringOtherApps()
{
    window.raise();
    window.activateWindow();
    // The launcher's word was for this window, and the programs that are run from here would inherit it
    // (freedesktop.org's Startup Notification Protocol and xdg-activation-v1). The toolkit unsets the one it has used.
    for (const char *variable : {"XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID"}) {
        qunsetenv(variable);
    }
}

void QtApplication::terminate(const platform::Object * /*sender*/)
{
    // From the event loop: the caller's next steps still run, and launching may ask before the loop has begun, when
    // quitting at once would have no effect.
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
}
