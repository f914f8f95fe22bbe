// Bringing the application to the front, and ending it.
#include "desktop/application/DesktopApplication.h"

#include <QApplication>

DesktopApplication::DesktopApplication(QWidget *reportWindow)
    : window(reportWindow)
{
}

void DesktopApplication::activate(platform::OtherApplications others)
{
    if (!window) {
        return;
    }
    if (others == platform::OtherApplications::Respect && !QApplication::activeWindow()) {
        QApplication::alert(window);
        return;
    }
    window->raise();
    window->activateWindow();
}

void DesktopApplication::terminate(const platform::Object * /*sender*/)
{
    // From the event loop: the caller's next steps still run, and launching may ask before the loop has begun, when
    // quitting at once would have no effect.
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
}
