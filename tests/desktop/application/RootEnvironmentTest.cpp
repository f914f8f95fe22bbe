// What a process of root's takes from the environment that it was started in.
#include "desktop/application/RootEnvironment.h"

#include "support/ScriptedLookups.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

using namespace Qt::StringLiterals;

namespace {

using Variables = std::map<QByteArray, QByteArray>;

/// A user's variables, as sudo with the user's environment would keep them.
const Variables kOfTheUser = {
    {"HOME", "/home/user1"},
    {"PATH", "/home/user1/bin:/usr/bin"},
    {"TZ", ":/home/user1/zone"},
    {"LOCPATH", "/home/user1/locale"},
    {"XDG_CONFIG_HOME", "/home/user1/.config"},
    {"XDG_RUNTIME_DIR", "/run/user/1000"},
    {"XDG_CURRENT_DESKTOP", "GNOME"},
    {"QT_PLUGIN_PATH", "/home/user1/plugins"},
    {"QT_QPA_GENERIC_PLUGINS", "evdevkeyboard"},
    {"QT_QPA_PLATFORMTHEME", "xdgdesktopportal"},
    {"QT_IM_MODULE", "ibus"},
    {"GTK_PATH", "/home/user1/modules"},
    {"OPENSSL_CONF", "/home/user1/openssl.cnf"},
    {"SSLKEYLOGFILE", "/home/user1/keys"},
    {"SESSION_MANAGER", "local/anvil:/tmp/.ICE-unix/1"},
    {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/run/user/1000/bus"},
    {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/user/1000/bus"},
    {"AT_SPI_BUS_ADDRESS", "unixexec:path=/home/user1/command"},
    {"QT_ACCESSIBILITY", "1"},
    {"QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1"},
};

/// What no harm comes from.
const Variables kKept = {
    {"DISPLAY", ":7"},
    {"XAUTHORITY", "/home/user1/.Xauthority"},
    {"WAYLAND_DISPLAY", "/run/user/1000/wayland-1"},
    {"XDG_SESSION_TYPE", "x11"},
    {"XDG_ACTIVATION_TOKEN", "token"},
    {"DESKTOP_STARTUP_ID", "id"},
    {"QT_QPA_PLATFORM", "wayland;xcb"},
    {"QT_SCALE_FACTOR", "2"},
    {"QT_FONT_DPI", "96"},
    {"LANG", "en_US.UTF-8"},
    {"LC_ALL", "C.UTF-8"},
    {"QT_LOGGING_RULES", "korvale.*=true"},
    {"http_proxy", "http://proxy.example.org"},
    {"https_proxy", "http://proxy.example.org"},
    {"all_proxy", "http://proxy.example.org"},
    {"no_proxy", "example.net"},
    {"HTTP_PROXY", "http://proxy.example.org"},
    {"HTTPS_PROXY", "http://proxy.example.org"},
    {"ALL_PROXY", "http://proxy.example.org"},
    {"NO_PROXY", "example.net"},
};

/// What is set, whatever was there.
const Variables kOfRoot = {
    {"HOME", "/root"},
    {"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"},
    {"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
};

Variables together(Variables first, const Variables &second)
{
    first.insert(second.begin(), second.end());
    return first;
}

/// Ends this process, which is one of its own, with 0 if the variables that are kept of these are the expected ones.
[[noreturn]] void endAfterComparing(const Variables &before, const Variables &expected, bool isRoot)
{
    ::clearenv();
    for (const auto &[name, value] : before) {
        qputenv(name.constData(), value);
    }
    ScriptedLookups lookups;
    lookups.homes[u"root"_s] = u"/root"_s;
    if (isRoot) {
        runAsRoot(lookups, u"user1"_s);
    }
    keepOnlyHarmlessVariables(lookups);
    Variables after;
    for (char **variable = environ; variable && *variable; ++variable) {
        const QByteArray text = *variable;
        after[text.left(text.indexOf('='))] = text.mid(text.indexOf('=') + 1);
        std::fprintf(stderr, "%s\n", *variable);
    }
    std::_Exit(after == expected ? 0 : 1);
}

void expectOfRoot(const Variables &before, const Variables &expected)
{
    EXPECT_EXIT(endAfterComparing(before, together(expected, kOfRoot), true), testing::ExitedWithCode(0), "");
}

} // namespace

TEST(RootEnvironment, OfRootKeepsNothingThatNamesCodeSettingsOrABus)
{
    expectOfRoot(together(kOfTheUser, kKept), kKept);
}

TEST(RootEnvironment, OfRootIsOnNoBusThoughNoneWasNamed)
{
    expectOfRoot({}, {});
}

TEST(RootEnvironment, OfRootNamesAWaylandDisplayByItsWholePath)
{
    expectOfRoot({{"WAYLAND_DISPLAY", "wayland-1"}, {"XDG_RUNTIME_DIR", "/run/user/1000"}},
                 {{"WAYLAND_DISPLAY", "/run/user/1000/wayland-1"}});
    expectOfRoot({{"WAYLAND_DISPLAY", ""}, {"XDG_RUNTIME_DIR", "/run/user/1000"}}, {{"WAYLAND_DISPLAY", ""}});
}

TEST(RootEnvironment, OfRootChoosesNoPlatformButThoseOfADesktop)
{
    for (const char *platform : {"xcb", "wayland", "xcb;wayland"}) {
        expectOfRoot({{"QT_QPA_PLATFORM", platform}}, {{"QT_QPA_PLATFORM", platform}});
    }
    for (const char *platform :
         {"", "vnc", "vnc:port=5999", "offscreen:configfile=/root/screens", "xcb;vnc", "xcb:x"}) {
        expectOfRoot({{"QT_QPA_PLATFORM", platform}}, {});
    }
}

TEST(RootEnvironment, OfRootNamesProxiesByTheirAddressesAndNotByScripts)
{
    for (const char *proxy : {"",
                              "proxy.example.org",
                              "proxy-1:9012345678",
                              "aBZz.EXAMPLE:3128",
                              "10.0.0.1:3128/",
                              "proxy:8/",
                              "http://jo:secret@[::1]:3128",
                              "https://proxy.example.org",
                              "socks://proxy",
                              "socks4://proxy",
                              "socks4a://proxy",
                              "socks5://proxy",
                              "socks5h://127.0.0.1:9050",
                              "HTTP://proxy:3128",
                              "Socks5h://proxy",
                              "jo:secret@proxy:3128",
                              "jo@proxy/",
                              "my_proxy:3128",
                              "[2001:db8::1]:3128",
                              "[::1]",
                              "jo:p@ss@[::1]:80",
                              "wpad.example.org:3128",
                              "pacific"}) {
        expectOfRoot({{"http_proxy", proxy}}, {{"http_proxy", proxy}});
    }
    for (const char *proxy : {"pac+file:///home/user1/proxy.pac",
                              "pac+file:/home/user1/proxy.pac",
                              "pac+http://user1.example.org",
                              "wpad://",
                              "wpad:",
                              "wpad:x",
                              "wpad",
                              "WPAD:80",
                              "file:/home/user1/proxy.pac",
                              "/home/user1/proxy.pac",
                              "proxy:",
                              "proxy:80:80",
                              "socks+pac://proxy",
                              "127.0.0.1:1/x",
                              "http:/127.0.0.1:1",
                              "socks6://127.0.0.1:1",
                              "PAC+file:/home/user1/proxy.pac",
                              "pac+file:x@proxy",
                              "wpad:x@proxy",
                              "Wpad:@proxy",
                              "jo/x@proxy:80",
                              "2001:db8::1",
                              "[::1",
                              "[::1]80",
                              "[::1]:",
                              "[/]",
                              "[{]",
                              "[{::1]:80",
                              "x@pro xy",
                              "pro{xy:80",
                              "pro`xy:80",
                              "pro[xy:80",
                              "pro/xy:80"}) {
        // What libcurl does not understand it fails with; by the other two a script would be run.
        expectOfRoot({{"http_proxy", proxy}, {"HTTP_PROXY", proxy}},
                     {{"http_proxy", "refused://not.understood"}, {"HTTP_PROXY", "refused://not.understood"}});
        const Variables toLibcurl = {
            {"https_proxy", proxy}, {"HTTPS_PROXY", proxy}, {"all_proxy", proxy}, {"ALL_PROXY", proxy}};
        expectOfRoot(toLibcurl, toLibcurl);
    }
}

TEST(RootEnvironment, OfRootKeepsEveryHarmlessEntryAndNoneWithoutAName)
{
    std::string entries[] = {"LANG=C", "ACC_PROFLIB=/home/user1/library.so", "LANG", "=LANG", "DISPLAY=:7", "LANG=en"};
    char *environment[] = {entries[0].data(),
                           entries[1].data(),
                           entries[2].data(),
                           entries[3].data(),
                           entries[4].data(),
                           entries[5].data(),
                           nullptr};
    keepOnlyHarmlessEntries(environment);
    EXPECT_EQ(environment[0], entries[0].data());
    EXPECT_EQ(environment[1], entries[4].data());
    EXPECT_EQ(environment[2], entries[5].data());
    EXPECT_EQ(environment[3], nullptr);
}

TEST(RootEnvironment, OfAnotherUserStaysAsItIs)
{
    const Variables variables = together({{"QT_QPA_PLATFORM", "vnc"}}, together(kOfTheUser, kKept));

    EXPECT_EXIT(endAfterComparing(variables, variables, false), testing::ExitedWithCode(0), "");
}
