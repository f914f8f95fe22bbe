"""A Wayland compositor without a screen, and a client that speaks a few words of the protocol by itself."""

import glob
import json
import os
import socket
import struct
import subprocess

from trial.processes import ORDINARY_USER, Started
from trial.waiting import wait_until

CONFIGURATION = """
xwayland disable
default_border none
for_window [app_id=".*"] floating enable
for_window [app_id="drag-source"] move position 0 0
"""
SCREEN = (1280, 1024)


class WaylandDesktop:
    """A compositor beside the accessibility bus of another desktop; environment() is what a program on it gets."""

    def __init__(self, folder, desktop):
        self.folder = folder
        self.outer = desktop.environment()
        configuration = os.path.join(folder, "compositor.conf")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(CONFIGURATION + f"output * resolution {SCREEN[0]}x{SCREEN[1]} position 0 0\n")
        # It refuses to run as root.
        self.compositor = Started(
            ["sway", "--config", configuration], folder, "compositor",
            {**self.outer_without_display(), "WLR_BACKENDS": "headless", "WLR_LIBINPUT_NO_DEVICES": "1",
             "WLR_RENDERER": "pixman"},
            prefix=ORDINARY_USER)
        self.control = wait_until(self.is_ready, "the compositor")

    def is_ready(self):
        if not self.compositor.is_running():
            raise RuntimeError(f"the compositor did not start: {self.compositor.errors()}")
        return (glob.glob(os.path.join(self.folder, "wayland-1"))
                and next(iter(glob.glob(os.path.join(self.folder, "sway-ipc.*.sock"))), None))

    def outer_without_display(self):
        environment = {**self.outer, "XDG_RUNTIME_DIR": self.folder}
        del environment["DISPLAY"]
        return environment

    def environment(self):
        return {**self.outer_without_display(), "WAYLAND_DISPLAY": "wayland-1", "QT_QPA_PLATFORM": "wayland"}

    def client(self):
        return Client(os.path.join(self.folder, "wayland-1"))

    def tool(self, *command):
        """What a command-line tool on this display prints."""
        return subprocess.run(
            command, env={**self.environment(), "SWAYSOCK": self.control}, check=True, capture_output=True, text=True,
            timeout=30).stdout

    def windows(self):
        """The windows on screen, as the compositor describes them."""
        def below(node):
            for child in node["nodes"] + node["floating_nodes"]:
                if "app_id" in child:
                    yield child
                yield from below(child)
        return list(below(json.loads(self.tool("swaymsg", "--type", "get_tree"))))

    def window_of(self, pid):
        """The first window of a process; None while it has none."""
        return next((window for window in self.windows() if window["pid"] == pid), None)

    def close_window(self, pid):
        """Asks the window of a process to close, as a button in its frame does."""
        self.tool("swaymsg", f"[pid={pid}] kill")

    def end(self):
        self.compositor.end()


class Client:
    """A connection of its own to a compositor. Of each interface the requests are called that a trial needs, by their
    places in the interface's description, as the protocol numbers them."""

    DISPLAY, REGISTRY, BIND = 1, 2, 0

    def __init__(self, path):
        self.connection = socket.socket(socket.AF_UNIX)
        self.connection.connect(path)
        self.connection.settimeout(20)
        self.last_id = self.REGISTRY
        self.request(self.DISPLAY, 1, struct.pack("=I", self.REGISTRY))
        self.globals = {}
        self.wait_for_roundtrip()

    def request(self, target, opcode, arguments=b""):
        self.connection.sendall(struct.pack("=II", target, (8 + len(arguments)) << 16 | opcode) + arguments)

    def new_id(self):
        self.last_id += 1
        return self.last_id

    def event(self):
        """The next event: its sender, its number and its arguments."""
        sender, word = struct.unpack("=II", self.receive(8))
        return sender, word & 0xFFFF, self.receive((word >> 16) - 8)

    def receive(self, size):
        data = self.connection.recv(size, socket.MSG_WAITALL)
        if len(data) < size:
            raise ConnectionError("the compositor has gone")
        return data

    def wait_for(self, wanted):
        """The arguments of the next event of this sender and number; what the registry tells meanwhile is noted."""
        while True:
            sender, opcode, arguments = self.event()
            if sender == self.DISPLAY and opcode == 0:
                raise RuntimeError(f"the compositor says: {text_of(arguments[8:])}")
            if sender == self.REGISTRY and opcode == 0:
                name, = struct.unpack_from("=I", arguments)
                self.globals[text_of(arguments[4:])] = name
            if (sender, opcode) == wanted:
                return arguments

    def wait_for_roundtrip(self):
        callback = self.new_id()
        self.request(self.DISPLAY, 0, struct.pack("=I", callback))
        self.wait_for((callback, 0))

    def bind(self, interface):
        """The ID of an object of the first version of this interface."""
        bound = self.new_id()
        self.request(self.REGISTRY, self.BIND,
                     struct.pack("=I", self.globals[interface]) + text(interface) + struct.pack("=II", 1, bound))
        return bound

    def activation_token(self):
        """A token with which another program may come to the front (xdg-activation-v1)."""
        activation, token = self.bind("xdg_activation_v1"), self.new_id()
        self.request(activation, 1, struct.pack("=I", token))
        self.request(token, 3)
        return text_of(self.wait_for((token, 0)))

    def pointer(self):
        return Pointer(self)

    def end(self):
        self.connection.close()


class Pointer:
    """A mouse, on the desk for as long as its client is connected (wlr-virtual-pointer-unstable-v1)."""

    LEFT_BUTTON = 0x110  # BTN_LEFT of linux/input-event-codes.h

    def __init__(self, client):
        self.client = client
        manager, self.pointer = client.bind("zwlr_virtual_pointer_manager_v1"), client.new_id()
        client.request(manager, 0, struct.pack("=II", 0, self.pointer))

    def move(self, x, y):
        self.client.request(self.pointer, 1, struct.pack("=IIIII", 0, x, y, *SCREEN))
        self.complete()

    def press(self):
        self.client.request(self.pointer, 2, struct.pack("=III", 0, self.LEFT_BUTTON, 1))
        self.complete()

    def release(self):
        self.client.request(self.pointer, 2, struct.pack("=III", 0, self.LEFT_BUTTON, 0))
        self.complete()

    def complete(self):
        self.client.request(self.pointer, 4)
        self.client.wait_for_roundtrip()


def text(value):
    """A text as the protocol writes it: its length with the NUL, and both filled up to whole words."""
    data = value.encode() + b"\0"
    return struct.pack("=I", len(data)) + data + bytes(-len(data) % 4)


def text_of(data):
    length, = struct.unpack_from("=I", data)
    return data[4:4 + length - 1].decode()
