"""What a name service does with a question, as rows of the table tell it (RFC 1035)."""

import socket
import struct
import threading

A, CNAME, AAAA = 1, 5, 28
NO_ERROR, SERVER_FAILURE, NO_SUCH_NAME, REFUSED_TO_ANSWER = 0, 2, 3, 5
RESPONSE, TRUNCATED = 0x8180, 0x0200


class Question:
    def __init__(self, datagram):
        self.identity = datagram[:2]
        end = datagram.index(b"\0", 12) + 1
        self.name = datagram[12:end]
        self.text = datagram[12:end + 4]
        (self.kind,) = struct.unpack("!H", datagram[end:end + 2])


def reply(question, code=NO_ERROR, records=(), flags=0, identity=None):
    counts = struct.pack("!HHHH", 1, len(records), 0, 0)
    return (identity or question.identity) + struct.pack("!H", RESPONSE | flags | code) + counts \
        + question.text + b"".join(records)


def record(name, kind, content):
    return name + struct.pack("!HHIH", kind, 1, 60, len(content)) + content


def address_record(question, address):
    """The address as an answer to the question, or nothing when it asks for the other kind."""
    kind, family = (AAAA, socket.AF_INET6) if ":" in address else (A, socket.AF_INET)
    return [record(question.name, kind, socket.inet_pton(family, address))] if question.kind == kind else []


# Behaviours: what is sent back for a question, if anything


def silent(_question, _clock):
    return None


def says(code):
    return lambda question, _clock: reply(question, code)


def addresses(*known):
    def answer(question, _clock):
        return reply(question, records=[entry for address in known for entry in address_record(question, address)])
    return answer


def late(seconds, *known):
    """The addresses, after so many seconds of the program's clock."""
    def answer(question, clock):
        clock(seconds)
        return addresses(*known)(question, clock)
    return answer


def lame_for_ipv6(*known):
    """The addresses, but no answer at all to a question for IPv6."""
    return lambda question, clock: None if question.kind == AAAA else addresses(*known)(question, clock)


def garbage(_question, _clock):
    return b"\xff" * 40


def forged(*known):
    """The addresses under the number of a question that nobody asked."""
    def answer(question, _clock):
        other = bytes(byte ^ 0xFF for byte in question.identity)
        records = [entry for address in known for entry in address_record(question, address)]
        return reply(question, records=records, identity=other)
    return answer


def truncated(question, _clock):
    return reply(question, flags=TRUNCATED)


def cut(question, _clock):
    return reply(question, records=address_record(question, "127.0.0.1"))[:-2]


def alias_of_itself(question, _clock):
    return reply(question, records=[record(question.name, CNAME, question.name)])


def alias_of(target, *known):
    """Another name, and that one's addresses."""
    name = b"".join(bytes([len(label)]) + label.encode() for label in target.split(".")) + b"\0"

    def answer(question, _clock):
        alias = record(question.name, CNAME, name)
        found = [entry for address in known for entry in address_record(question, address)]
        return reply(question, records=[alias, *(name + entry[len(question.name):] for entry in found)])
    return answer


class NameService:
    """Listens on port 53 of loopback; the questions are answered one beside the other."""

    def __init__(self, world, behaviour):
        self.world = world
        self.behaviour = behaviour
        self.over = threading.Event()
        self.questions = 0
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 53))
        self.listening = threading.Thread(target=self.listen, daemon=True)
        self.listening.start()

    def listen(self):
        while True:
            try:
                datagram, sender = self.socket.recvfrom(4096)
            except OSError:
                return
            if self.over.is_set():
                return
            self.questions += 1
            threading.Thread(target=self.answer, args=(Question(datagram), sender), daemon=True).start()

    def answer(self, question, sender):
        answer = self.behaviour(question, lambda seconds: self.over.wait(seconds / self.world.clock))
        if answer is not None and not self.over.is_set():
            self.socket.sendto(answer, sender)

    def end(self):
        self.over.set()
        # A datagram of its own wakes the one who waits for the next.
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as waker:
            waker.sendto(b"", ("127.0.0.1", 53))
        # The port is taken for as long as somebody waits at it, whoever closes the socket.
        self.listening.join()
        self.socket.close()
