// The process entry.
#include "desktop/ApplicationMain.h"

int main(int argc, char **argv)
{
    return applicationMain(argc, argv);
}
