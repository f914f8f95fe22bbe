// Runs the tests that need no toolkit.
#include "support/RunTests.h"

#include <QCoreApplication>

// The sanitizers would end the program where an allocation merely fails; they read their options from this function.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    const QCoreApplication application(argc, argv);
    return runTests();
}
