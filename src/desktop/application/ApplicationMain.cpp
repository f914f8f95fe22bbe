// The application's main function.
#include "desktop/application/ApplicationMain.h"

#include "desktop/application/Composition.h"
#include "desktop/application/QtProcessInfo.h"
#include "desktop/application/ToolkitStart.h"

#include <QApplication>

#include <csignal>
#include <memory>

int applicationMain(int argc, char **argv)
{
    // The reader of standard error may be the crashed application, which is gone; a server may hang up.
    std::signal(SIGPIPE, SIG_IGN);
    QtProcessInfo processInfo(argc, argv);
    // The toolkit is given the program's name alone: it would take options it knows, and their values, from a command
    // line whose words are not meant for it.
    int toolkitArgumentCount = argc > 0 ? 1 : 0;
    const std::unique_ptr<QApplication> toolkit = startedToolkit(toolkitArgumentCount, argv);
    Composition application(processInfo);
    QMetaObject::invokeMethod(&application, &Composition::launch, Qt::QueuedConnection);
    return QApplication::exec();
}
