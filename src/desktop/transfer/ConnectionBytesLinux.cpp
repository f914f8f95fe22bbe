// What Linux knows of the bytes of a TCP connection.
#include "desktop/transfer/ConnectionBytes.h"

// The C library's own declaration, <netinet/tcp.h>, ends before the bytes.
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

/// All zero where the system does not tell.
tcp_info infoOf(int socket)
{
    tcp_info known = {};
    socklen_t size = sizeof known;
    ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &known, &size);
    return known;
}

} // namespace

qint64 unsentBytes(int socket)
{
    int count = 0;
    // tcp(7): the amount of unsent data in the socket send queue.
    return ::ioctl(socket, SIOCOUTQ, &count) == 0 ? count : 0;
}

qint64 acknowledgedBytes(int socket)
{
    return static_cast<qint64>(infoOf(socket).tcpi_bytes_acked);
}

qint64 movedBytes(int socket)
{
    const tcp_info known = infoOf(socket);
    return static_cast<qint64>(known.tcpi_bytes_acked + known.tcpi_bytes_received);
}
