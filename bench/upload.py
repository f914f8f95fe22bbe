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
    return [float(figure) for figure in
            subprocess.run(command, check=True, stdout=subprocess.PIPE, timeout=120).stdout.split()]


def measured(bench, authority, mebibytes, rounds):
    """Figures by name.

    The seconds of our transport ("ours"), of curl with a form, which reads the file as it sends it ("form"), and of
    curl with a body that it has read before ("body"); and of further runs of ours the milliseconds of the event
    loop's longest turns, by the clock ("turns") and of the processor's time ("busy").
    """
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
        curl = ["curl", "--silent", "--capath", trusted, "--write-out", "%{time_total}", url]
        figures = {"ours": [], "form": [], "body": [], "turns": [], "busy": []}
        for _ in range(rounds):
            figures["ours"] += printed(bench, "time", url, trusted, body)
            figures["form"] += printed(*curl, "--form", f"report=<{body}")
            figures["body"] += printed(*curl, "--data-binary", f"@{body}")
            turn, busy = printed(bench, "turns", url, trusted, body)
            figures["turns"].append(turn)
            figures["busy"].append(busy)
    return figures
