"""What a server or a proxy does on a connection, told step by step.

A script is a tuple of steps, each a function of the conversation or a text that is sent:

    after_request("HTTP/1.1 200 OK\\r\\nContent-Length: 2\\r\\n\\r\\nNO")
    after_handshake(read(1000), RESET)

Bytes go through TLS from the handshake on. A script that does not say how it ends closes in good order. All times are
those of the program's clock, which may run faster than the server's.
"""

import contextlib
import ctypes
import functools
import os
import re
import socket
import ssl
import struct
import threading
import warnings

PIECE = 1 << 16
# How long a closing server waits for the other side to close too, in seconds of its own clock.
LAST_WORDS = 5.0


class Gone(Exception):
    """The client has closed the connection."""


class HandshakeLeft(Exception):
    """The script leaves the handshake where it is and goes on with its next step."""


# What arrives


class Requests:
    """Takes the bytes of a connection apart into requests, as strictly as the program has to write them."""

    def __init__(self, expected_path):
        self.expected_path = expected_path
        self.pending = bytearray()
        self.head = None
        self.begun = 0
        self.bodies = []
        self.problems = []

    @property
    def whole(self):
        return len(self.bodies)

    def feed(self, data):
        if data and not self.pending and self.head is None:
            self.begun += 1
        self.pending += data
        if self.head is None and b"\r\n\r\n" in self.pending:
            head, _, rest = bytes(self.pending).partition(b"\r\n\r\n")
            self.head, self.pending = head.decode("latin-1").split("\r\n"), bytearray(rest)
            self.check_head()
        if self.head is not None and len(self.pending) >= self.length():
            self.take_body()

    def take_body(self):
        length = self.length()
        if self.head[0].startswith("POST "):
            self.bodies.append((self.header("Content-Type"), bytes(self.pending[:length])))
        rest = bytes(self.pending[length:])
        self.head, self.pending = None, bytearray()
        if rest:
            self.problems.append(f"{len(rest)} bytes follow the request")
            self.feed(rest)

    def check_head(self):
        if self.head[0] != f"POST {self.expected_path} HTTP/1.1":
            self.problems.append(f"the request is {self.head[0]!r}")
        if not self.header("Content-Length").isdigit():
            self.problems.append("the request has no length")
        for name in ("Expect", "Authorization", "Cookie", "Proxy-Authorization"):
            if self.values(name):
                self.problems.append(f"the request has the header {name}")

    def header(self, name):
        values = self.values(name)
        return values[0] if len(values) == 1 else ""

    def values(self, name):
        return [line.partition(":")[2].strip() for line in self.head[1:]
                if line.partition(":")[0].lower() == name.lower()]

    def length(self):
        length = self.header("Content-Length")
        return int(length) if length.isdigit() else 0


def fields_of(content_type, body):
    """Field name to bytes of a form without a closing boundary, or None if the body is no such form."""
    match = re.fullmatch(r"multipart/form-data; boundary=([0-9A-Za-z-]{1,70})", content_type)
    line = b"--" + match[1].encode() + b"\r\n" if match else b""
    if not match or not body.startswith(line) or not body.endswith(b"\r\n"):
        return None
    fields = {}
    for part in body[len(line):-2].split(b"\r\n" + line):
        opening = re.match(rb'Content-Disposition: form-data; name="([^"\r\n]*)"\r\n\r\n', part)
        if not opening or opening[1].decode() in fields:
            return None
        fields[opening[1].decode()] = part[opening.end():]
    return fields


# A connection


class Conversation:
    """One connection, with the steps' means: bytes below TLS, bytes through TLS, and the clock."""

    def __init__(self, peer, connection):
        self.peer = peer
        self.socket = connection
        self.tls = None
        self.carries_another = False
        self.requests = Requests(peer.world.path)
        peer.requests.append(self.requests)

    def wait(self, seconds):
        """Lets the program's clock run on; the end of the row ends the wait."""
        if self.peer.over.wait(seconds / self.peer.world.clock):
            raise Gone

    # Below TLS

    def transmit(self, data):
        self.socket.sendall(data)

    def receive(self):
        data = self.socket.recv(PIECE)
        if not data:
            raise Gone
        return data

    # Through TLS, once there is a handshake

    def secure(self, context, flight):
        self.incoming, self.outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
        self.tls = context.wrap_bio(self.incoming, self.outgoing, server_side=True)
        while True:
            try:
                self.tls.do_handshake()
                break
            except ssl.SSLWantReadError:
                flight(self, self.outgoing.read())
                self.incoming.write(self.receive())
            except ssl.SSLError:
                self.flush()  # the alert that says what was wrong
                raise
        flight(self, self.outgoing.read())
        self.peer.handshakes += 1

    def flush(self):
        if self.outgoing.pending:
            self.transmit(self.outgoing.read())

    def encrypted(self, data):
        self.tls.write(data)
        return self.outgoing.read()

    def send(self, data):
        for start in range(0, len(data), PIECE):
            piece = data[start:start + PIECE]
            self.transmit(self.encrypted(piece) if self.tls else piece)

    def read(self):
        """The next bytes of the client, written down; raises Gone at their end."""
        if not self.tls:
            return self.receive()
        data = self.decrypted()
        if not self.carries_another:
            self.requests.feed(data)
        return data

    def decrypted(self):
        while True:
            try:
                data = self.tls.read(PIECE)
            except ssl.SSLWantReadError:
                self.flush()
                self.incoming.write(self.receive())
                continue
            if not data:
                raise Gone
            return data

    def notify(self):
        # What the client has sent meanwhile is no reason not to say it.
        with contextlib.suppress(ssl.SSLError):
            self.tls.unwrap()
        self.flush()

    # Its end

    def drain(self):
        with contextlib.suppress(ssl.SSLError, Gone):
            while True:
                self.read()
        with contextlib.suppress(Gone):
            while True:
                self.receive()

    def finish(self):
        """Says that nothing more comes, and reads on: what was sent would be lost if unread bytes were left."""
        self.socket.shutdown(socket.SHUT_WR)
        self.socket.settimeout(LAST_WORDS)
        self.drain()

    def reset(self):
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.socket.close()


class Inside(Conversation):
    """A conversation through another one's TLS, as behind a proxy that is spoken to over TLS."""

    def __init__(self, outer):
        super().__init__(outer.peer, outer.socket)
        self.outer = outer

    def transmit(self, data):
        self.outer.send(data)

    def receive(self):
        return self.outer.decrypted()


# Steps: how it ends


def ending(step):
    step.is_ending = True
    return step


@ending
def CLOSE(conversation):
    """close_notify, then the end of the connection."""
    if conversation.tls:
        conversation.notify()
    conversation.finish()


@ending
def CUT(conversation):
    """The end of the connection without a close_notify."""
    conversation.finish()


@ending
def RESET(conversation):
    conversation.reset()


@ending
def HOLD(conversation):
    """Neither reads nor sends, and stays."""
    conversation.peer.over.wait()


@ending
def DRAIN(conversation):
    """Reads whatever comes until the client goes, and stays."""
    conversation.drain()


def sip(count):
    """Reads about so many bytes a second, so that a big report takes its time."""
    @ending
    def step(conversation):
        while True:
            read(count)(conversation)
            conversation.wait(1.0)
    return step


# Steps: reading


def REQUEST(conversation):
    """Reads until the whole request is there."""
    while not conversation.requests.whole:
        conversation.read()


def HEAD(conversation):
    """Reads up to the end of the request's head, and whatever came with it."""
    while conversation.requests.head is None and not conversation.requests.whole:
        conversation.read()


def read(count):
    """Reads at least so many bytes."""
    def step(conversation):
        left = count
        while left > 0:
            left -= len(conversation.read())
    return step


# Steps: sending


def encoded(text):
    return text if isinstance(text, bytes) else text.encode("latin-1")


def send(text):
    return lambda conversation: conversation.send(encoded(text))


def wire(text):
    """Bytes below TLS."""
    return lambda conversation: conversation.transmit(encoded(text))


def part_of_record(text, keep):
    """The text as one TLS record, of which only the first bytes are sent."""
    return lambda conversation: conversation.transmit(conversation.encrypted(encoded(text))[:keep])


def damaged_record(text):
    """The text as one TLS record whose last byte is another."""
    def step(conversation):
        record = bytearray(conversation.encrypted(encoded(text)))
        record[-1] ^= 1
        conversation.transmit(bytes(record))
    return step


def trickle(text, every=1.0):
    """A byte at a time."""
    def step(conversation):
        for byte in encoded(text):
            conversation.wait(every)
            conversation.send(bytes([byte]))
    return step


def wait(seconds):
    return lambda conversation: conversation.wait(seconds)


def forever(text, at_most=1 << 30):
    """The text again and again, until the client goes or that many bytes were sent."""
    content = encoded(text)
    block = content * max(1, PIECE // len(content))

    def step(conversation):
        for _ in range(at_most // len(block)):
            conversation.send(block)
    return step


def drip(text, every=1.0):
    """The text every second until the client goes."""
    def step(conversation):
        while True:
            conversation.wait(every)
            conversation.send(encoded(text))
    return step


def NOTIFY(conversation):
    """close_notify; the connection stays."""
    conversation.notify()


def HALF_CLOSE(conversation):
    """The end of the server's direction; the other one stays."""
    conversation.socket.shutdown(socket.SHUT_WR)


# Steps: the handshake, and how much of the server's part of it arrives


def all_of_it(conversation, data):
    conversation.transmit(data)


def first_bytes(count):
    """Only the first bytes of the server's answer; the script goes on with its next step."""
    def flight(conversation, data):
        conversation.transmit(data[:count])
        raise HandshakeLeft
    return flight


def trickled(count, every=1.0):
    """The first bytes of each flight one at a time, then the rest."""
    def flight(conversation, data):
        for byte in data[:count]:
            conversation.wait(every)
            conversation.transmit(bytes([byte]))
        conversation.transmit(data[count:])
    return flight


def damaged(place):
    """One byte of the server's answer is another."""
    def flight(conversation, data):
        changed = bytearray(data)
        if place < len(changed):
            changed[place] ^= 0xFF
        conversation.transmit(bytes(changed))
    return flight


V = ssl.TLSVersion


def handshake(identity="localhost", versions=(V.TLSv1_2, V.TLSv1_3), flight=all_of_it, **options):
    """TLS with this certificate and these versions. Options: ciphers, alpn, client_certificate."""
    def step(conversation):
        conversation.secure(context_of(conversation.peer.world.authority, identity, versions, **options), flight)
    return step


@functools.cache
def context_of(authority, identity, versions, ciphers=None, alpn=(), client_certificate=ssl.CERT_NONE):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)  # old versions of TLS are what some rows are about
        context.minimum_version, context.maximum_version = versions
    context.load_cert_chain(os.path.join(authority, f"{identity}.pem"), os.path.join(authority, f"{identity}.key"))
    if ciphers:
        context.set_ciphers(ciphers)
    if alpn:
        context.set_alpn_protocols(list(alpn))
    if client_certificate != ssl.CERT_NONE:
        context.load_verify_locations(os.path.join(authority, "authority.pem"))
        context.verify_mode = client_certificate
    return context


def library_call(name, *values):
    """A function of the TLS library that Python does not offer, on the conversation's session."""
    def call(tls):
        library = ctypes.CDLL("libssl.so.3")
        # A session object holds, after its header of two words, its socket and then the library's session.
        session = ctypes.c_void_p.from_address(id(tls._sslobj) + 3 * ctypes.sizeof(ctypes.c_void_p))
        library.SSL_get_version.restype = ctypes.c_char_p
        # Amid a handshake Python names no version.
        if tls.version() and library.SSL_get_version(session).decode() != tls.version():
            raise RuntimeError("this Python keeps its TLS session elsewhere")
        return getattr(library, name)(session, *values)
    return call


def NEW_KEYS(conversation):
    """A key update of TLS 1.3 that asks the client for one too."""
    if library_call("SSL_key_update", 1)(conversation.tls) != 1:
        raise RuntimeError("no key update")


def RENEGOTIATE(conversation):
    """A new handshake of TLS 1.2 on the same connection, to its end."""
    tls = conversation.tls
    if library_call("SSL_renegotiate")(tls) != 1:
        raise RuntimeError("no renegotiation")
    tls.do_handshake()
    conversation.flush()
    while library_call("SSL_renegotiate_pending")(tls):
        conversation.incoming.write(conversation.receive())
        with contextlib.suppress(ssl.SSLWantReadError):
            tls.read(1)
        conversation.flush()


def ASK_FOR_RENEGOTIATION(conversation):
    """Asks for a new handshake of TLS 1.2, and leaves it at that."""
    if library_call("SSL_renegotiate")(conversation.tls) != 1:
        raise RuntimeError("no renegotiation")
    conversation.tls.do_handshake()
    conversation.flush()


def inside(*steps):
    """The steps through TLS of their own; what comes after them goes to the outer one again."""
    def step(conversation):
        inner = Inside(conversation)
        conversation.carries_another = True
        for each in functions(steps):
            each(inner)
    return step


# Scripts


def functions(steps):
    return tuple(send(step) if isinstance(step, (str, bytes)) else step for step in steps)


def script(*steps):
    told = functions(steps)
    ends = told and getattr(told[-1], "is_ending", False)
    return told if ends else (*told, CLOSE)


def after_connect(*steps):
    return script(*steps)


def after_handshake(*steps, **options):
    return script(handshake(**options), *steps)


def after_head(*steps, **options):
    return script(handshake(**options), HEAD, *steps)


def after_request(*steps, **options):
    return script(handshake(**options), REQUEST, *steps)


def CONNECT(conversation):
    """Reads a request for a tunnel, which goes to the proxy and is none of the report's."""
    head = b""
    while b"\r\n\r\n" not in head:
        head += conversation.decrypted() if conversation.tls else conversation.receive()
    conversation.peer.tunnels.append(head.decode("latin-1").split("\r\n"))


def proxy(*steps):
    """A proxy that was asked for a tunnel."""
    return script(CONNECT, *steps)


def tunnel(*steps, **options):
    """A proxy that opens a tunnel, at whose end an endpoint has read the whole request."""
    return script(CONNECT, "HTTP/1.1 200 Connection established\r\n\r\n", handshake(**options), REQUEST, *steps)


def tunnel_in_tls(*steps):
    """The same of a proxy that is spoken to over TLS, which closes in good order after the endpoint's steps."""
    return script(handshake(), CONNECT, "HTTP/1.1 200 Connection established\r\n\r\n",
                  inside(handshake(), REQUEST, *steps))


def SOCKS(conversation):
    """A SOCKS proxy without a password (RFC 1928) that says it has connected."""
    conversation.receive()
    conversation.transmit(b"\x05\x00")
    conversation.peer.tunnels.append([repr(conversation.receive())])
    conversation.transmit(b"\x05\x00\x00\x01" + bytes(6))


DEAD = ("dead",)


# Where it listens


class Peer:
    """Listens at an address and holds the same conversation with everyone who connects."""

    def __init__(self, world, address, port, steps):
        self.world = world
        self.steps = steps
        self.over = threading.Event()
        self.connections = 0
        self.handshakes = 0
        self.requests = []
        self.tunnels = []
        self.notes = []
        self.sockets = []
        self.conversations = []
        self.family = socket.AF_INET6 if ":" in address else socket.AF_INET
        self.listener = self.listening(address, port)
        if steps == DEAD:
            self.fill_queue(address, port)
        else:
            threading.Thread(target=self.accept, daemon=True).start()

    def listening(self, address, port):
        listener = socket.socket(self.family, socket.SOCK_STREAM)
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        if self.family == socket.AF_INET6:
            listener.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
        # A small window, so that a report of some megabytes cannot wait unread in the server's queue.
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, PIECE)
        listener.bind((address, port))
        listener.listen(0 if self.steps == DEAD else 16)
        return listener

    def is_spoken_to(self):
        return any(conversation.is_alive() for conversation in self.conversations)

    def fill_queue(self, address, port):
        """With its queue full a listener drops every further attempt: the address is silent."""
        for _ in range(2):
            waiting = socket.socket(self.family, socket.SOCK_STREAM)
            waiting.setblocking(False)
            waiting.connect_ex((address, port))
            self.sockets.append(waiting)

    def accept(self):
        while not self.over.is_set():
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            self.connections += 1
            self.sockets.append(connection)
            self.conversations.append(threading.Thread(target=self.converse, args=(connection,), daemon=True))
            self.conversations[-1].start()

    def converse(self, connection):
        conversation = Conversation(self, connection)
        try:
            for step in self.steps:
                try:
                    step(conversation)
                except HandshakeLeft:
                    conversation.tls = None
        except Gone:
            self.notes.append("the client closed")
        except (OSError, ssl.SSLError) as error:
            self.notes.append(f"{type(error).__name__}: {error}")
        finally:
            connection.close()

    def end(self):
        self.over.set()
        for used in (self.listener, *self.sockets):
            with contextlib.suppress(OSError):
                used.shutdown(socket.SHUT_RDWR)
            used.close()
