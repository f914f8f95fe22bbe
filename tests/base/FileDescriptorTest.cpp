// Who closes an open file, and when.
#include "base/FileDescriptor.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace {

int openFolder()
{
    return ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

bool isOpen(int number)
{
    return ::fcntl(number, F_GETFD) >= 0;
}

} // namespace

TEST(FileDescriptor, IsClosedWithItsOwner)
{
    const int number = openFolder();
    {
        const FileDescriptor file(number);
        EXPECT_TRUE(file.isOpen());
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptor, IsNoneWhereNothingCouldBeOpened)
{
    EXPECT_FALSE(FileDescriptor().isOpen());
    EXPECT_FALSE(FileDescriptor(::open("/nowhere/nothing", O_RDONLY | O_CLOEXEC)).isOpen());
}

TEST(FileDescriptor, GoesOverToTheOneThatIsMadeOfIt)
{
    const int number = openFolder();
    FileDescriptor first(number);
    {
        const FileDescriptor second(std::move(first));
        EXPECT_EQ(second.get(), number);
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptor, GoesOverToTheOneThatItIsAssignedTo)
{
    const int number = openFolder();
    const int former = openFolder();
    {
        FileDescriptor second(former);
        {
            FileDescriptor first(number);
            second = std::move(first);
        }
        EXPECT_EQ(second.get(), number);
        EXPECT_TRUE(isOpen(number));
        EXPECT_FALSE(isOpen(former));
    }
    EXPECT_FALSE(isOpen(number));
}
