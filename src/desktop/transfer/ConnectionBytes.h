// What the system knows of the bytes of a TCP connection. The functions take the descriptor of the socket; for -1,
// and where the system does not tell, they return 0.
#pragma once

#include <QtGlobal>

/// The bytes that were handed to the system and that the other side has not acknowledged.
qint64 unsentBytes(int socket);

/// The bytes that the other side has acknowledged.
qint64 acknowledgedBytes(int socket);

/// The bytes that have moved: those that the other side has acknowledged and those that have come from it.
qint64 movedBytes(int socket);
