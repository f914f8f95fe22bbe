"""Uploads a large body over TLS on loopback, by the program's transport and by curl in turn."""

import os
import socket
import ssl
import subprocess
import tempfile
import threading

ACCEPTED = b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"


def drain(listener, context):
    buffer = bytearray(1 << 20)
    while True:
        connection, _ = listener.accept()
        with context.wrap_socket(connection, server_side=True) as secured:
            head = b""
            while b"\r\n\r\n" not in head:
                head += secured.recv(1)
            missing = next(int(line.split(b":")[1]) for line in head.split(b"\r\n")
                           if line.lower().startswith(b"content-length:"))
            if b"100-continue" in head:
                secured.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
            while missing:
                missing -= secured.recv_into(buffer)
            secured.sendall(ACCEPTED)


def printed(*command):
    return float(subprocess.run(command, check=True, stdout=subprocess.PIPE, timeout=120).stdout.split()[-1])


def measured(bench, authority, mebibytes, rounds):
    """Seconds of our transport and of curl, and the milliseconds of the event loop's longest turns in further runs."""
    with tempfile.TemporaryDirectory() as folder:
        trusted = os.path.join(authority, "trusted")
        body = os.path.join(folder, "body")
        with open(body, "wb") as file:
            file.write(os.urandom(1 << 20) * mebibytes)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(os.path.join(authority, "localhost.pem"), os.path.join(authority, "localhost.key"))
        listener = socket.create_server(("127.0.0.1", 0))
        url = f"https://127.0.0.1:{listener.getsockname()[1]}/"
        threading.Thread(target=drain, args=(listener, context), daemon=True).start()
        ours, curls, turns = [], [], []
        for _ in range(rounds):
            ours.append(printed(bench, "time", url, trusted, body))
            curls.append(printed("curl", "--silent", "--capath", trusted, "--form", f"report=<{body}",
                                 "--write-out", "%{time_total}", url))
            turns.append(printed(bench, "turns", url, trusted, body))
    return ours, curls, turns
