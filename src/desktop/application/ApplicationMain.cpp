// The application's main function.
#include "desktop/application/ApplicationMain.h"

#include "desktop/application/Composition.h"
#include "desktop/application/InheritedState.h"
#include "desktop/application/QtProcessInfo.h"
#include "desktop/application/RootEnvironment.h"
#include "desktop/application/StandardError.h"
#include "desktop/application/ToolkitStart.h"

#include <QApplication>

#include <sys/auxv.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>

namespace {

/// Whether the program's file, by its mode or its capabilities, has lent the process rights that its starter lacks, or
/// a security module has (getauxval(3)).
bool hasLentRights()
{
    return ::getauxval(AT_SECURE) != 0;
}

/// The toolkit lets no exception pass through its event loop. Where memory runs out there, the program says so; any
/// other exception is a mistake of its own.
[[noreturn]] void endWithoutMemory()
{
    try {
        if (const std::exception_ptr exception = std::current_exception()) {
            std::rethrow_exception(exception);
        }
    } catch (const std::bad_alloc &) {
        writeToStandardError("korvale-crash-reporter: there is no memory to go on\n");
        std::_Exit(EXIT_FAILURE);
    } catch (...) {
    }
    std::abort();
}

} // namespace

int applicationMain(int argc, char **argv)
{
    // The reader of standard error may be the crashed application, which is gone; a server may hang up.
    std::signal(SIGPIPE, SIG_IGN);
    if (hasLentRights()) {
        writeToStandardError("korvale-crash-reporter: not to be given rights by its file (set-user-ID, set-group-ID, "
                             "capabilities) or by a security module: whoever starts it would read and send files with "
                             "those rights\n");
        return EXIT_FAILURE;
    }
    std::set_terminate(endWithoutMemory);
    putInheritedStateRight();
    keepOnlyHarmlessVariables(platform::systemLocalLookups());
    writeToolkitMessagesToStandardError();
    // Where files may not grow beyond a bound, the settings are not written; a report is sent all the same.
    std::signal(SIGXFSZ, SIG_IGN);
    QtProcessInfo processInfo(argc, argv);
    // The toolkit is given the program's name alone: it would take options it knows, and their values, from a command
    // line whose words are not meant for it.
    int toolkitArgumentCount = std::min(argc, 1);
    const std::unique_ptr<QApplication> toolkit = startedToolkit(toolkitArgumentCount, argv);
    Composition application(processInfo);
    QMetaObject::invokeMethod(&application, &Composition::launch, Qt::QueuedConnection);
    return QApplication::exec();
}
