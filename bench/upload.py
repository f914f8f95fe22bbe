#!/usr/bin/env python3
"""Uploads a large body over TLS on loopback, by the program's transport and by curl in turn, and prints the times."""

import argparse
import os
import socket
import ssl
import statistics
import subprocess
import tempfile
import threading

PROJECT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
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


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("bench", help="the built upload-bench")
    parser.add_argument("--mebibytes", type=int, default=128)
    parser.add_argument("--rounds", type=int, default=5)
    chosen = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([os.path.join(PROJECT, "tools", "make-authority.sh"), folder], check=True)
        trusted = os.path.join(folder, "trusted")
        body = os.path.join(folder, "body")
        with open(body, "wb") as file:
            file.write(os.urandom(1 << 20) * chosen.mebibytes)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(os.path.join(folder, "localhost.pem"), os.path.join(folder, "localhost.key"))
        listener = socket.create_server(("127.0.0.1", 0))
        url = f"https://127.0.0.1:{listener.getsockname()[1]}/"
        threading.Thread(target=drain, args=(listener, context), daemon=True).start()
        ours, curls, turns = [], [], []
        for _ in range(chosen.rounds):
            ours.append(printed(chosen.bench, "time", url, trusted, body))
            curls.append(printed("curl", "--silent", "--capath", trusted, "--form", f"report=<{body}",
                                 "--write-out", "%{time_total}", url))
            turns.append(printed(chosen.bench, "turns", url, trusted, body))
    print(f"{chosen.mebibytes} MiB, median of {chosen.rounds}: ours {statistics.median(ours):.3f} s, "
          f"curl -F {statistics.median(curls):.3f} s, ratio {statistics.median(ours) / statistics.median(curls):.2f}")
    print(f"longest turn of the event loop: {max(turns):.2f} ms of {', '.join(f'{turn:.2f}' for turn in turns)}")


if __name__ == "__main__":
    main()
