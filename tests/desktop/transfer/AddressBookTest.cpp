// Which addresses of a host are still worth a try.
#include "desktop/transfer/AddressBook.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

TEST(AddressBook, KnowsItsOpenSockets)
{
    AddressBook book;
    EXPECT_TRUE(book.sockets().empty());
    book.opened(7, "first");
    book.opened(8, "second");
    book.closed(7);
    EXPECT_EQ(book.sockets(), std::vector<int>{8});
    book.closed(8);
    EXPECT_TRUE(book.sockets().empty());
}

TEST(AddressBook, GivesUpTheAddressClosedLastAndEachOnce)
{
    AddressBook book;
    EXPECT_FALSE(book.giveUpLastClosed());
    book.opened(7, "winner");
    book.opened(8, "loser");
    book.closed(8);
    book.closed(7);
    EXPECT_TRUE(book.giveUpLastClosed());
    EXPECT_TRUE(book.isGivenUp("winner"));
    EXPECT_FALSE(book.isGivenUp("loser"));
    EXPECT_FALSE(book.giveUpLastClosed());
}

TEST(AddressBook, GivesUpWhatTakesTooLongAndEachOnce)
{
    AddressBook book;
    book.opened(7, "slow");
    EXPECT_FALSE(book.giveUpOverdue(1h));
    EXPECT_FALSE(book.isGivenUp("slow"));
    EXPECT_TRUE(book.giveUpOverdue(0ms));
    EXPECT_TRUE(book.isGivenUp("slow"));
    EXPECT_FALSE(book.giveUpOverdue(0ms));
}

TEST(AddressBook, ForgetsTheOtherSocketsOnceOneIsConnected)
{
    AddressBook book;
    book.opened(7, "first");
    book.opened(8, "second");
    book.connected(8);
    EXPECT_EQ(book.sockets(), std::vector<int>{8});
    book.forgetSockets();
    EXPECT_TRUE(book.sockets().empty());
}

TEST(AddressBook, HasNothingOverdueWhenNothingIsOpen)
{
    AddressBook book;
    book.opened(7, "closed");
    book.closed(7);
    EXPECT_FALSE(book.giveUpOverdue(0ms));
}
