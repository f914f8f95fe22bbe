// What a process of root's takes from the environment that it was started in.
#include "desktop/application/RootEnvironment.h"

#include <QByteArray>
#include <QList>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr std::array<std::string_view, 25> kHarmless = {
    // the display, and the launcher's word that the window may come to the front
    "DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_RUNTIME_DIR", "XDG_SESSION_TYPE", "XDG_ACTIVATION_TOKEN",
    "DESKTOP_STARTUP_ID", "QT_QPA_PLATFORM", "QT_SCALE_FACTOR", "QT_FONT_DPI",
    // assistive technology
    "DBUS_SESSION_BUS_ADDRESS", "AT_SPI_BUS_ADDRESS", "QT_ACCESSIBILITY", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON",
    // how texts are written, and what is logged
    "LANG", "TZ", "QT_LOGGING_RULES",
    // proxies
    "http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"};

bool isHarmless(std::string_view name)
{
    return name.starts_with("LC_") || std::ranges::find(kHarmless, name) != kHarmless.end();
}

QList<QByteArray> variableNames()
{
    QList<QByteArray> names;
    for (char **variable = environ; variable && *variable; ++variable) {
        names += QByteArray(*variable).split('=').first();
    }
    return names;
}

} // namespace

void keepOnlyHarmlessVariables(const platform::LocalLookups &lookups)
{
    if (lookups.realUserId() != platform::kRootUserId) {
        return;
    }
    const QList<QByteArray> names = variableNames();
    for (const QByteArray &name : names) {
        if (!isHarmless(name.toStdString())) {
            qunsetenv(name.constData());
        }
    }
    if (const auto home = lookups.homeDirectoryForUser(lookups.userName())) {
        qputenv("HOME", home->toUtf8());
    }
    qputenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin");
}
