// What a process of root's takes from the environment that it was started in.
#include "desktop/application/RootEnvironment.h"

#include "support/ScopedVariable.h"
#include "support/ScriptedLookups.h"

#include <QDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

/// A user's variables, as sudo with the user's environment would keep them.
class RootEnvironment : public testing::Test
{
protected:
    const ScopedVariable home{"HOME", "/home/user1"};
    const ScopedVariable path{"PATH", "/home/user1/bin:/usr/bin"};
    const ScopedVariable plugins{"QT_PLUGIN_PATH", "/home/user1/plugins"};
    const ScopedVariable modules{"GTK_PATH", "/home/user1/modules"};
    const ScopedVariable tls{"OPENSSL_CONF", "/home/user1/openssl.cnf"};
    const ScopedVariable configuration{"XDG_CONFIG_HOME", "/home/user1/.config"};
    const ScopedVariable keys{"SSLKEYLOGFILE", "/home/user1/keys"};
    const ScopedVariable display{"DISPLAY", ":7"};
    const ScopedVariable proxy{"https_proxy", "http://proxy.example.org"};
    const ScopedVariable language{"LC_ALL", "C.UTF-8"};
    ScriptedLookups lookups;
};

} // namespace

TEST_F(RootEnvironment, OfRootKeepsNoVariableThatNamesAUsersFolder)
{
    // In a process of its own: what is dropped is gone.
    EXPECT_EXIT(
        {
            runAsRoot(lookups, u"user1"_s);
            lookups.homes[u"root"_s] = u"/root"_s;
            keepOnlyHarmlessVariables(lookups);
            for (char **variable = environ; *variable; ++variable) {
                std::fprintf(stderr, "%s\n", QByteArray(*variable).contains("/home/user1") ? *variable : "clean");
            }
            const bool keeps = qgetenv("DISPLAY") == ":7" && qgetenv("https_proxy") == "http://proxy.example.org"
                && qgetenv("LC_ALL") == "C.UTF-8";
            const bool isRoots = qgetenv("HOME") == "/root" && !qgetenv("PATH").contains("user1");
            std::_Exit(keeps && isRoots ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^(clean\n)*$");
}

TEST_F(RootEnvironment, OfAnotherUserStaysAsItIs)
{
    keepOnlyHarmlessVariables(lookups);

    EXPECT_EQ(qgetenv("QT_PLUGIN_PATH"), "/home/user1/plugins");
    EXPECT_EQ(qgetenv("HOME"), "/home/user1");
}
