// The addresses of a host, and which of them are still worth a try.
#include "desktop/transfer/AddressBook.h"

void AddressBook::opened(int socket, const Address &address)
{
    Opened &entry = open[socket];
    entry.address = address;
    entry.since.start();
}

void AddressBook::connected(int socket)
{
    std::erase_if(open, [socket](const auto &entry) { return entry.first != socket; });
}

void AddressBook::closed(int socket)
{
    if (const auto entry = open.find(socket); entry != open.end()) {
        lastClosed = entry->second.address;
        open.erase(entry);
    }
}

std::vector<int> AddressBook::sockets() const
{
    std::vector<int> found;
    for (const auto &[socket, entry] : open) {
        found.push_back(socket);
    }
    return found;
}

bool AddressBook::giveUpLastClosed()
{
    return !lastClosed.isEmpty() && givenUp.insert(lastClosed).second;
}

bool AddressBook::giveUpOverdue(std::chrono::milliseconds limit)
{
    bool any = false;
    for (const auto &[socket, entry] : open) {
        if (entry.since.elapsed() >= limit.count()) {
            any = givenUp.insert(entry.address).second || any;
        }
    }
    return any;
}
