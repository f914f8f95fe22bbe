// The process entry.
#include "desktop/application/ApplicationMain.h"

int main(int argc, char **argv)
{
    return applicationMain(argc, argv);
}
