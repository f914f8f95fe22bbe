// The application's main function.
#include "desktop/application/ApplicationMain.h"

#include "desktop/application/DisplayCheck.h"
#include "desktop/application/QtProcessInfo.h"
#include "desktop/application/RunningApplication.h"

#include <QApplication>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

std::unique_ptr<QApplication> startedToolkit(int &argumentCount, char **arguments)
{
    const DisplayCheck displayCheck;
    auto toolkit = std::make_unique<QApplication>(argumentCount, arguments);
    QApplication::setApplicationDisplayName(u"Korvale Crash Reporter"_s);
    QGuiApplication::setDesktopFileName(u"com.korvale.crashreporter"_s);
    // The window's own closing decides; the end of an alert that stands alone at launch does not.
    QApplication::setQuitOnLastWindowClosed(false);
    return toolkit;
}

} // namespace

int applicationMain(int argc, char **argv)
{
    QtProcessInfo processInfo(argc, argv);
    // The toolkit is given the program's name alone: it would take options it knows, and their values, from a command
    // line whose words are not meant for it.
    int toolkitArgumentCount = argc > 0 ? 1 : 0;
    const std::unique_ptr<QApplication> toolkit = startedToolkit(toolkitArgumentCount, argv);
    RunningApplication application(processInfo);
    QMetaObject::invokeMethod(&application, &RunningApplication::launch, Qt::QueuedConnection);
    return QApplication::exec();
}
