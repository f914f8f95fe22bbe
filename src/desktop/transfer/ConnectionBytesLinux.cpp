// What Linux knows of the bytes of a TCP connection.
#include "desktop/transfer/ConnectionBytes.h"

// The C library's own declaration, <netinet/tcp.h>, ends before the bytes.
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

qint64 unsentBytes(int socket)
{
    int count = 0;
    // tcp(7): the amount of unsent data in the socket send queue.
    return ::ioctl(socket, SIOCOUTQ, &count) == 0 ? count : 0;
}

qint64 movedBytes(int socket)
{
    tcp_info known = {};
    socklen_t size = sizeof known;
    const bool isKnown = ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &known, &size) == 0;
    return isKnown ? static_cast<qint64>(known.tcpi_bytes_acked + known.tcpi_bytes_received) : 0;
}
