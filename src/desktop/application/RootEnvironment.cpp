// What a process of root's takes from the environment that it was started in.
#include "desktop/application/RootEnvironment.h"

#include <QByteArray>

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

constexpr std::string_view kHarmless[] = {
    // the display, and the launcher's word that the window may come to the front
    "DISPLAY", "WAYLAND_DISPLAY", "XDG_RUNTIME_DIR", "XAUTHORITY", "XDG_SESSION_TYPE", "XDG_ACTIVATION_TOKEN",
    "DESKTOP_STARTUP_ID", "QT_QPA_PLATFORM", "QT_SCALE_FACTOR", "QT_FONT_DPI",
    // how texts are written, and what is logged; the C library takes no path for a language
    "LANG", "QT_LOGGING_RULES",
    // the proxy, and what needs none; libcurl, which goes by the first four, fails with what it does not understand
    "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "http_proxy", "HTTP_PROXY", "no_proxy", "NO_PROXY"};

/// A proxy that libproxy passes on and that libcurl refuses.
constexpr const char *kRefusedProxy = "refused://not.understood";

/// A bus address (D-Bus Specification, "Server Addresses") of no known transport: it opens and launches nothing. With
/// none at all the bus's library would look for a bus, or launch one.
constexpr const char *kNoBus = "disabled:";

/// Other platforms of the toolkit serve the window to a network or are written to files; what may follow a name after a
/// colon names files to read.
bool isDesktop(const QByteArray &platform)
{
    return platform == "xcb" || platform == "wayland";
}

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

template<size_t count>
bool isAmong(const std::string_view (&names)[count], std::string_view name)
{
    return std::ranges::find(names, name) != std::end(names);
}

bool isOfName(char character)
{
    const bool isLetter = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
    return isLetter || isDigit(character) || character == '.' || character == '-' || character == '_';
}

/// A name, or an IP address, with a port or without (RFC 3986, 3.2.2 and 3.2.3).
bool isHostAndPort(std::string_view value)
{
    const bool isInBrackets = value.starts_with('[');
    const size_t end = value.find(isInBrackets ? ']' : ':');
    if (isInBrackets && end == std::string_view::npos) {
        return false;
    }
    const std::string_view host = value.substr(0, end);
    const std::string_view port = value.substr(std::min(end, value.size())).substr(isInBrackets ? 1 : 0);
    return std::ranges::all_of(host.substr(isInBrackets ? 1 : 0),
                               [&](char one) { return isOfName(one) || (isInBrackets && one == ':'); })
        && (port.empty() || (port.size() > 1 && port.front() == ':' && std::ranges::all_of(port.substr(1), isDigit)));
}

/// Of characters in the other case as well. The value has to end with a NUL.
bool beginsWith(std::string_view value, std::string_view beginning)
{
    return ::strncasecmp(value.data(), beginning.data(), beginning.size()) == 0;
}

/// Something that can be nothing but an address: with the scheme of a proxy, or without one. Of what libproxy takes,
/// "pac+file" names a script to run, and "wpad" has one looked for; it needs no "//" behind either.
bool isAddressOfAProxy(std::string_view value)
{
    constexpr std::string_view kSchemes[] = {"http://",    "https://",  "socks://",  "socks4://",
                                             "socks4a://", "socks5://", "socks5h://"};
    if (std::ranges::any_of(kSchemes, [&](std::string_view scheme) { return beginsWith(value, scheme); })) {
        return true;
    }
    if (beginsWith(value, "pac+") || beginsWith(value, "wpad:") || (beginsWith(value, "wpad") && value.size() == 4)) {
        return false;
    }
    const std::string_view authority = value.substr(0, value.size() - (value.ends_with('/') ? 1 : 0));
    // Before the last "@" is a user, and maybe a password.
    return authority.find('/') == std::string_view::npos && isHostAndPort(authority.substr(authority.rfind('@') + 1));
}

/// Of a name and its value, with "=" between them.
bool isHarmless(std::string_view entry)
{
    const size_t end = entry.find('=');
    if (end == std::string_view::npos) {
        return false;
    }
    const std::string_view name = entry.substr(0, end);
    return name.starts_with("LC_") || isAmong(kHarmless, name);
}

/// A relative name lies in a folder that the toolkit would use for more than the display.
void makeWaylandDisplayAbsolute()
{
    const QByteArray display = qgetenv("WAYLAND_DISPLAY");
    if (!display.isEmpty() && !display.startsWith('/')) {
        qputenv("WAYLAND_DISPLAY", qgetenv("XDG_RUNTIME_DIR") + '/' + display);
    }
    qunsetenv("XDG_RUNTIME_DIR");
}

void dropOtherPlatforms()
{
    if (!std::ranges::all_of(qgetenv("QT_QPA_PLATFORM").split(';'), isDesktop)) {
        qunsetenv("QT_QPA_PLATFORM");
    }
}

/// By these libproxy would run scripts. What may name one is refused: without the variable the report would be sent
/// past the proxy that the script names. Of an address libproxy makes what it makes for any user, which may be none.
void refuseScriptsForProxies()
{
    for (const char *name : {"http_proxy", "HTTP_PROXY"}) {
        const QByteArray proxy = qgetenv(name);
        if (!isAddressOfAProxy({proxy.constData(), static_cast<size_t>(proxy.size())})) {
            qputenv(name, kRefusedProxy);
        }
    }
}

} // namespace

void keepOnlyHarmlessEntries(char **entries)
{
    char **kept = entries;
    for (; *entries; ++entries) {
        if (isHarmless(*entries)) {
            *kept++ = *entries;
        }
    }
    *kept = nullptr;
}

void keepOnlyHarmlessVariables(const platform::LocalLookups &lookups)
{
    if (lookups.realUserId() != platform::kRootUserId) {
        return;
    }
    if (environ) {
        keepOnlyHarmlessEntries(environ);
    }
    makeWaylandDisplayAbsolute();
    dropOtherPlatforms();
    refuseScriptsForProxies();
    if (const auto home = lookups.homeDirectoryForUser(lookups.userName())) {
        qputenv("HOME", home->toUtf8());
    }
    qputenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin");
    qputenv("DBUS_SESSION_BUS_ADDRESS", kNoBus);
}
