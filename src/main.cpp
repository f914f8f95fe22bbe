// The process entry.
#include "desktop/application/ApplicationMain.h"
#include "desktop/application/RootEnvironment.h"

#include <unistd.h>

#ifdef __ELF__
namespace {

void beforeTheLibraries(int /*argc*/, char ** /*argv*/, char **environment)
{
    if (::getuid() == 0) {
        keepOnlyHarmlessEntries(environment);
    }
}

/// Called before the initialization of any library (System V ABI, "Initialization and Termination Functions").
[[gnu::section(".preinit_array"), gnu::used]] constexpr auto kBeforeTheLibraries = &beforeTheLibraries;

} // namespace
#endif

int main(int argc, char **argv)
{
    return applicationMain(argc, argv);
}
