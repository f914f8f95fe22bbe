// The addresses of a host, and which of them are still worth a try.
#pragma once

#include <QByteArray>
#include <QElapsedTimer>

#include <chrono>
#include <map>
#include <set>
#include <vector>

/// Keeps which address each open socket belongs to. A host with several addresses is tried at all of them: an address
/// that took too long, or whose connection was lost before the request, is given up and the others are tried again.
class AddressBook
{
public:
    /// The bytes of a socket address (sockaddr).
    using Address = QByteArray;

    bool isGivenUp(const Address &address) const { return givenUp.contains(address); }

    /// Connecting to the address begins, on that socket.
    void opened(int socket, const Address &address);
    /// The socket has become the connection, and the request begins. libcurl has closed the others, and does not tell.
    void connected(int socket);
    void closed(int socket);
    /// The attempt that opened the sockets is given up.
    void forgetSockets() { open.clear(); }

    /// The sockets that were opened; once there is a connection, that of the connection.
    std::vector<int> sockets() const;

    /// Gives up the address whose socket was closed last. False when there is none, or none that was not given up
    /// before.
    bool giveUpLastClosed();
    /// Gives up the addresses to which connecting began that long ago. False when there is none, or none that was not
    /// given up before.
    bool giveUpOverdue(std::chrono::milliseconds limit);

private:
    struct Opened {
        Address address;
        QElapsedTimer since;
    };

    std::map<int, Opened> open; ///< By their sockets.
    Address lastClosed;
    std::set<Address> givenUp;
};
