// What a process of root's takes from the environment that it was started in.
#include "desktop/application/RootEnvironment.h"

#include <QByteArray>
#include <QList>

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

constexpr std::string_view kHarmless[] = {
    // the display, and the launcher's word that the window may come to the front
    "DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_SESSION_TYPE", "XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID",
    "QT_QPA_PLATFORM", "QT_SCALE_FACTOR", "QT_FONT_DPI",
    // how texts are written, and what is logged; the C library takes no path for a language
    "LANG", "QT_LOGGING_RULES",
    // proxies
    "http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"};

/// A bus address (D-Bus Specification, "Server Addresses") of no known transport: it opens and launches nothing. With
/// none at all the bus's library would look for a bus, or launch one.
constexpr const char *kNoBus = "disabled:";

/// Other platforms of the toolkit serve the window to a network or are written to files; what may follow a name after a
/// colon names files to read.
bool isDesktop(const QByteArray &platform)
{
    return platform == "xcb" || platform == "wayland";
}

bool isHarmless(const QByteArray &name)
{
    if (name == "QT_QPA_PLATFORM") {
        return std::ranges::all_of(qgetenv("QT_QPA_PLATFORM").split(';'), isDesktop);
    }
    return name.startsWith("LC_") || std::ranges::find(kHarmless, name.toStdString()) != std::end(kHarmless);
}

QList<QByteArray> variableNames()
{
    QList<QByteArray> names;
    for (char **variable = environ; variable && *variable; ++variable) {
        names += QByteArray(*variable).split('=').first();
    }
    return names;
}

/// A relative name lies in a folder that the toolkit would use for more than the display.
void makeWaylandDisplayAbsolute()
{
    const QByteArray display = qgetenv("WAYLAND_DISPLAY");
    if (!display.isEmpty() && !display.startsWith('/')) {
        qputenv("WAYLAND_DISPLAY", qgetenv("XDG_RUNTIME_DIR") + '/' + display);
    }
}

} // namespace

void keepOnlyHarmlessVariables(const platform::LocalLookups &lookups)
{
    if (lookups.realUserId() != platform::kRootUserId) {
        return;
    }
    makeWaylandDisplayAbsolute();
    const QList<QByteArray> names = variableNames();
    for (const QByteArray &name : names) {
        if (!isHarmless(name)) {
            qunsetenv(name.constData());
        }
    }
    if (const auto home = lookups.homeDirectoryForUser(lookups.userName())) {
        qputenv("HOME", home->toUtf8());
    }
    qputenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin");
    qputenv("DBUS_SESSION_BUS_ADDRESS", kNoBus);
}
