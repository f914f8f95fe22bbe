// What the system still holds of the bytes that were written to a connection.
#pragma once

#include <QtGlobal>

/// The bytes of a TCP connection that were handed to the system and that the other side has not acknowledged; 0 where
/// the system does not tell. Takes the descriptor of the socket;
/// for -1 it is 0.
qint64 unsentBytes(int socket);
