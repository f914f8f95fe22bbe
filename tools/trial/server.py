"""The trial endpoint as a trial sees it: started with an answer, asked for what it received."""

import glob
import json
import os
import re
import sys

from trial.home import read
from trial.processes import Started

TOOLS = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
ENDPOINT = os.path.join(TOOLS, "endpoint")


class Received:
    """One request that the endpoint recorded."""

    def __init__(self, json_path):
        self.entry = json.loads(read(json_path))
        self.body = read(json_path.removesuffix(".json") + ".body")
        self.method = self.entry["method"]
        self.path = self.entry["path"]
        self.problem = self.entry.get("problem")

    def header(self, name):
        return [value for key, value in self.entry["headers"] if key.lower() == name.lower()]

    def fields(self):
        """Field name to bytes; each field's place in the body follows from the lengths that the endpoint found."""
        content = {}
        end = 0
        for field in self.entry.get("fields", []):
            start = self.body.index(b"\r\n\r\n", end) + 4
            end = start + field["bytes"]
            content[field["name"]] = self.body[start:end]
        return content


class Server:
    """The endpoint on port 443 of the namespace."""

    def __init__(self, folder, authority, answer, identity="localhost"):
        self.records = os.path.join(folder, "requests")
        os.makedirs(self.records)
        self.process = Started(
            [sys.executable, ENDPOINT,
             "--certificate", os.path.join(authority, f"{identity}.pem"),
             "--key", os.path.join(authority, f"{identity}.key"),
             "--record", self.records, "--answer", answer],
            folder, "endpoint")
        self.process.wait_for_output("listening on")

    def requests(self):
        return [Received(path) for path in sorted(glob.glob(os.path.join(self.records, "*.json")))]

    def posts(self):
        return [request for request in self.requests() if request.method == "POST"]

    def handshakes(self):
        return len(re.findall(r"^handshake ", self.process.output(), re.MULTILINE))

    def end(self):
        self.process.end()
