// Prints who the class of paths takes for the user, for the tests that give a process a console of their own.
#include "paths/KVLocalPaths.h"

#include <QString>

#include <cstdio>
#include <optional>

namespace {

void print(const char *name, const std::optional<QString> &answer)
{
    std::printf("%s=%s\n", name, answer ? answer->toUtf8().constData() : "(nothing)");
}

} // namespace

int main()
{
    print("currentConsoleUser", KVLocalPaths::currentConsoleUser());
    print("username", KVLocalPaths::username());
    print("userDirectory", KVLocalPaths::userDirectory());
    print("logDirectory", KVLocalPaths::logDirectory(true));
    print("trashDirectory", KVLocalPaths::trashDirectory());
    return 0;
}
