// What Linux still holds of the bytes that were written to a connection.
#include "desktop/transfer/UnsentBytes.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

qint64 unsentBytes(int socket)
{
    int count = 0;
    // tcp(7): the amount of unsent data in the socket send queue.
    return ::ioctl(socket, SIOCOUTQ, &count) == 0 ? count : 0;
}
