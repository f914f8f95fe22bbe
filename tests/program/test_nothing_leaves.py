"""What reaches a network: nothing before the button, and then the submission server, or the proxy, alone."""

import contextlib
import os
import re
import socket
import sys
import threading

from support import (ADDRESS, CONNECTION_FAILED, ORDINARY_USER, PROJECT, ProgramTest, UPLOAD_FAILED, cases,
                     without_leak_detection)
from trial.waiting import wait_until

sys.path.append(os.path.join(PROJECT, "tests", "faults"))
import names  # noqa: E402 (found through the path above)

NAMED_HOST = "endpoint.test"
SERVER = "127.0.0.1:443"
SERVER_IPV6 = "[::1]:443"
PROXY = "127.0.0.1:3128"
NAME_SERVICE = "127.0.0.1:53"

# All that can open a way out, name an address on it, or begin a program that would; files, because to look a name up is
# first of all to read these.
CALLS = "socket,connect,bind,sendto,sendmsg,sendmmsg,open,openat,openat2,execve,execveat,io_uring_setup"
LOOKUP_FILES = ("/etc/hosts", "/etc/resolv.conf", "/etc/host.conf", "/etc/gai.conf")
# Where a program speaks to its own desktop, and to the services that know the accounts of this machine.
DESKTOP_SOCKETS = re.compile(r"@?/tmp/\.X11-unix/X\d+|.*/program-desktop-\w+/bus|/dev/log|/(var/)?run/nscd/socket"
                             r"|/run/systemd/(userdb|journal)/\S+|/run/dbus/system_bus_socket")


class Trace:
    """The system calls of a program and of all that it starts, as strace(1) has written them so far."""

    def __init__(self, path):
        self.path = path

    def prefix(self):
        # The tracer is a grandchild, so that the process keeps its ID. A sanitizer cannot look for leaks in a process
        # that is traced.
        return ("strace", "-D", "-f", "-qq", "-s", "512", "-e", f"trace={CALLS}", "-o", self.path,
                "env", without_leak_detection())

    def lines(self):
        with open(self.path, encoding="utf-8", errors="replace") as file:
            return file.read().splitlines()


def families(lines):
    return {family for line in lines for family in re.findall(r"\bsocket\((AF_\w+)", line)}


def local_sockets(lines):
    return {path for line in lines for path in re.findall(r'sun_path=(@?"[^"]*)"', line)}


def addresses(lines):
    """Where anything was sent or connected to, as address:port."""
    text = "\n".join(lines)
    found = re.findall(r'sin_port=htons\((\d+)\), sin_addr=inet_addr\("([^"]+)"\)', text)
    found6 = re.findall(r'sin6_port=htons\((\d+)\).*?inet_pton\(AF_INET6, "([^"]+)"', text)
    return {f"{address}:{port}" for port, address in found} | {f"[{address}]:{port}" for port, address in found6}


def lookup_files(lines):
    return {path for path in LOOKUP_FILES if any(f'"{path}"' in line for line in lines)}


class Proxy:
    """An HTTP proxy that opens a tunnel to the server, whoever asks for whatever."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", int(PROXY.rpartition(":")[2])))
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                threading.Thread(target=self.tunnel, args=self.listener.accept()[:1], daemon=True).start()

    def tunnel(self, client):
        head = b""
        while b"\r\n\r\n" not in head:
            head += client.recv(4096)
        server = socket.create_connection(("127.0.0.1", 443))
        client.sendall(b"HTTP/1.1 200 Connection established\r\n\r\n")
        threading.Thread(target=self.pass_on, args=(server, client), daemon=True).start()
        self.pass_on(client, server)

    @staticmethod
    def pass_on(source, target):
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)

    def end(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()


class NamesAsked:
    """A name service that knows every name as loopback, and remembers which were asked for."""

    clock = 1

    def __init__(self):
        self.asked = set()
        self.service = names.NameService(self, self.answer)

    def answer(self, question, clock):
        labels = re.findall(rb"[\x01-\x3f]([^\x00-\x20]+)", question.name)
        self.asked.add(b".".join(labels).decode())
        return names.addresses("127.0.0.1")(question, clock)

    def end(self):
        self.service.end()


class NothingLeaves(ProgramTest):
    def launch_traced(self, *environment, named=False):
        self.trace = Trace(os.path.join(self.subfolder("trace"), "calls"))
        if named:
            self.binary = self.named
        prefix = (*ORDINARY_USER, *self.trace.prefix(), *environment)
        program = self.start("-remotename", "anvil", "-log", self.crash_log, prefix=prefix)
        return program.wait_for_window()

    def answer_names(self):
        """The resolver of this namespace asks a name service of the test's own, until its end."""
        service = NamesAsked()
        self.addCleanup(service.end)
        with open("/etc/resolv.conf", encoding="ascii") as file:
            former = file.read()
        self.addCleanup(self.resolve_by, former)
        self.resolve_by(f"nameserver {NAME_SERVICE.partition(':')[0]}\n")
        return service

    @staticmethod
    def resolve_by(configuration):
        with open("/etc/resolv.conf", "w", encoding="ascii") as file:
            file.write(configuration)

    def use_window(self, program):
        """What a person does before deciding."""
        program.click("Report details")
        wait_until(lambda: program.screen.is_shown("Report"), "the report pane")
        program.fill_in("jo@example", "It froze at http://www.example.org/ and \\\\files.example.org\\share.")

    def assert_silent(self):
        """Nothing but what belongs to the desktop was spoken to so far, and no name was looked up."""
        lines = self.trace.lines()
        self.assertTrue(any("execve(" in line and self.binary in line for line in lines), "the program was not traced")
        # That the trace sees sockets is shown by the display's.
        self.assertEqual(families(lines), {"AF_UNIX"})
        self.assertEqual(addresses(lines), set())
        self.assertEqual(lookup_files(lines), set())
        strangers = {path for path in local_sockets(lines) if not DESKTOP_SOCKETS.fullmatch(path.replace('"', ""))}
        self.assertEqual(strangers, set())
        self.assertFalse(any("io_uring_setup(" in line for line in lines), "calls that a trace does not show")

    def assert_reached(self, *allowed):
        """Of the network, these were spoken to, all of them, and nothing else."""
        self.assertEqual(addresses(self.trace.lines()), set(allowed))

    # Before the button

    def test_before_the_button_nothing_does(self):
        program = self.launch_traced()
        self.use_window(program)
        self.assert_silent()

    def test_before_the_button_nothing_does_for_a_host_with_a_name(self):
        service = self.answer_names()
        program = self.launch_traced(named=True)
        self.use_window(program)
        self.assert_silent()
        self.assertEqual(service.asked, set())

    def test_before_the_button_nothing_does_with_a_proxy(self):
        program = self.launch_traced("https_proxy=http://proxy.test:3128", "all_proxy=http://proxy.test:3128")
        self.use_window(program)
        self.assert_silent()

    @cases(closing=("close_window",), declining=("decline",))
    def test_a_report_that_is_never_sent_reaches_nobody_by(self, way):
        self.serve()
        program = self.launch_traced()
        self.use_window(program)
        if way == "decline":
            program.press("Don't Send")
        else:
            program.close_window()
        self.assertEqual(program.exit_status(), 0)
        self.assert_silent()

    def test_a_malformed_address_reaches_nobody(self):
        program = self.submitted(self.launch_traced(), "jo@example")
        self.assertEqual(program.dismiss_alert()[0], "Invalid email format.")
        self.assert_silent()

    # After it

    @cases(accepted=("accept",), redirected=("redirect-to-nothing",), redirected_within=("redirect-302",),
           refused=("refuse",), cut=("close-after-request",))
    def test_only_the_server_is_reached_when(self, answer):
        server = self.serve(answer)
        program = self.launch_traced()
        self.assert_silent()
        self.submitted(program)
        if answer == "accept":
            self.assert_accepted(program, server)
        else:
            self.assertIn(program.dismiss_alert(), (CONNECTION_FAILED, UPLOAD_FAILED))
            program.end()
        self.assert_reached(SERVER)

    def test_only_the_servers_addresses_are_reached_when_nothing_listens(self):
        program = self.launch_traced()
        self.submitted(program)
        self.assertEqual(program.dismiss_alert(), CONNECTION_FAILED)
        self.assert_reached(SERVER, SERVER_IPV6)

    def test_only_the_servers_name_is_looked_up(self):
        server = self.serve()
        service = self.answer_names()
        program = self.launch_traced(named=True)
        self.assert_silent()
        self.assert_accepted(self.submitted(program), server)
        self.assertEqual(service.asked, {NAMED_HOST})
        self.assert_reached(SERVER, NAME_SERVICE)
        self.assertIn("/etc/resolv.conf", lookup_files(self.trace.lines()))

    def test_only_the_proxy_is_reached_and_asked_for_the_servers_address(self):
        server = self.serve()
        service = self.answer_names()
        proxy = Proxy()
        self.addCleanup(proxy.end)
        program = self.launch_traced(f"https_proxy=http://{PROXY}", named=True)
        self.assert_silent()
        self.assert_accepted(self.submitted(program), server)
        self.assertEqual(service.asked, set())
        self.assert_reached(PROXY)

    def test_only_the_proxys_name_is_looked_up(self):
        server = self.serve()
        service = self.answer_names()
        proxy = Proxy()
        self.addCleanup(proxy.end)
        program = self.launch_traced("https_proxy=http://proxy.test:3128", named=True)
        self.assert_silent()
        self.assert_accepted(self.submitted(program, ADDRESS), server)
        self.assertEqual(service.asked, {"proxy.test"})
        self.assert_reached(PROXY, NAME_SERVICE)
