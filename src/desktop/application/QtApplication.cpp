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
}

void QtApplication::terminate(const platform::Object * /*sender*/)
{
    // From the event loop: the caller's next steps still run, and launching may ask before the loop has begun, when
    // quitting at once would have no effect.
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
}
