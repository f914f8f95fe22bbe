// A pipe or socket that takes no more.
#pragma once

#include <fcntl.h>
#include <unistd.h>

/// Writes until the descriptor takes no more; from then on a write to it waits, as it does by default.
inline void fillDescriptor(int descriptor)
{
    ::fcntl(descriptor, F_SETFL, O_NONBLOCK);
    while (::write(descriptor, "x", 1) == 1) {}
    ::fcntl(descriptor, F_SETFL, 0);
}
