"""A display of its own with a window manager and an accessibility bus."""

import os
import subprocess
import sys

from trial.processes import Started
from trial.waiting import WaitedInVain, wait_until

# Whoever reaches the socket may speak: it lies in a private folder, and to a bus, a program one user namespace
# deeper is somebody else than who it says it is.
BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <auth>ANONYMOUS</auth>
  <allow_anonymous/>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">134217728</limit>
</busconfig>
"""
ACCESSIBILITY_SERVICE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "accessibility_service.py")
REGISTRY = "/usr/libexec/at-spi2-registryd"
REGISTRY_NAME = "org.a11y.atspi.Registry"
SCREEN = "1280x1024x24"


class AccessibilityBus:
    """The bus on which the program shows its controls."""

    def __init__(self, folder):
        socket = os.path.join(folder, "bus")
        configuration = os.path.join(folder, "bus.conf")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(BUS_CONFIGURATION.format(socket=socket))
        self.address = f"unix:path={socket}"
        self.daemon = Started(
            ["dbus-daemon", f"--config-file={configuration}", "--nofork", "--print-address=1"], folder, "bus")
        self.daemon.wait_for_output(self.address)
        self.service = Started([sys.executable, ACCESSIBILITY_SERVICE, self.address], folder, "accessibility")
        self.service.wait_for_output("accessibility is on")
        self.registry = None

    def environment(self):
        return {
            "DBUS_SESSION_BUS_ADDRESS": self.address,
            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
        }

    def start_registry(self, folder, environment):
        # On a busy machine it was seen once in some hundred starts not to come up at all.
        for name in ("registry", "registry-again"):
            self.registry = Started([REGISTRY], folder, name, environment)
            try:
                # It says that it is running a moment before it can be found.
                wait_until(lambda: self.has_owner(REGISTRY_NAME), "the registry of accessible programs")
                return
            except WaitedInVain as failure:
                state = "runs" if self.registry.is_running() else "has ended"
                failed = WaitedInVain(f"{failure}, which {state}: {self.registry.errors()}")
                self.registry.end()
        raise failed

    def has_owner(self, name):
        asked = subprocess.run(
            ["dbus-send", f"--bus={self.address}", "--print-reply=literal", "--dest=org.freedesktop.DBus", "/",
             "org.freedesktop.DBus.NameHasOwner", f"string:{name}"],
            check=True, capture_output=True, text=True, timeout=30)
        return "true" in asked.stdout

    def end(self):
        if self.registry:
            self.registry.end()
        self.service.end()
        self.daemon.end()


class Desktop:
    """Xvfb, a window manager, and the bus; environment() is what a program on it is started with."""

    def __init__(self, folder):
        self.folder = folder
        self.display_server, self.display = start_display(folder)
        self.bus = AccessibilityBus(folder)
        self.bus.start_registry(folder, self.environment())
        self.window_manager = self.start_window_manager()

    def environment(self):
        return {
            "PATH": "/usr/local/bin:/usr/bin:/bin",
            "HOME": self.folder,
            "LANG": "C.UTF-8",
            "XDG_RUNTIME_DIR": self.folder,
            "DISPLAY": self.display,
            **self.bus.environment(),
        }

    def start_window_manager(self):
        ready = os.path.join(self.folder, "window-manager-is-ready")
        window_manager = Started(
            ["openbox", "--startup", f"touch {ready}"], self.folder, "window-manager", self.environment())
        wait_until(lambda: os.path.exists(ready), "the window manager")
        return window_manager

    def end(self):
        self.window_manager.end()
        self.bus.end()
        self.display_server.end()

    def save_screenshot(self, path):
        """All windows, without the empty screen around them."""
        self.tool("import", "-window", "root", "-trim", path)

    def tool(self, *command):
        """What a command-line tool on this display prints."""
        return subprocess.run(
            command, env=self.environment(), check=True, capture_output=True, text=True, timeout=30).stdout


def start_display(folder, *options):
    """An Xvfb with these further options on a display number of its own choice, and its DISPLAY."""
    reader, writer = os.pipe()
    os.set_inheritable(writer, True)
    server = Started(
        ["Xvfb", "-displayfd", str(writer), "-screen", "0", SCREEN, "-nolisten", "tcp", *options],
        folder, "display", pass_fds=[writer])
    os.close(writer)
    with os.fdopen(reader) as numbers:
        number = numbers.readline().strip()
    if not number:
        raise RuntimeError(f"Xvfb did not start: {server.errors()}")
    return server, f":{number}"
