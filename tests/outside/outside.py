"""What the checks in this folder share: an agent on a stage, its own log, and a client of the local channel.

Everything here is written from the pages in docs/ alone; what it expects of the agent stands there.
"""
import contextlib
import csv
import hashlib
import json
import pathlib
import shutil
import socket
import struct
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "script" / "lib"))
import cases  # noqa: E402, F401
from machine import wait_until  # noqa: E402, F401
from stage import Stage  # noqa: E402

FRAME = 4096
LONG = 60  # seconds that a loaded machine may take for what has no bound of its own


class Closed(Exception):
    """The agent has closed the pipe."""


class Client:
    """A client of a local pipe: frames and messages as docs/rpc.md has them."""

    def __init__(self, stage, pipe="korvane-agent"):
        self.path = str(stage.machine.run_dir / f"{pipe}.pipe")
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(LONG)

        def connected():
            with contextlib.suppress(FileNotFoundError, ConnectionRefusedError, BlockingIOError):
                self.socket.connect(self.path)
                return True
        wait_until(connected, LONG, "the local channel")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    @staticmethod
    def frames(message, length=None):
        """The frames of a message; length: what the first one declares instead of the true length."""
        if isinstance(message, str):
            message = message.encode()
        data = b"\xde\xad\xbe\xef" + struct.pack("<I", len(message) if length is None else length) + message
        return data + bytes(-len(data) % FRAME)

    def send(self, message, length=None):
        self.raw(self.frames(message, length))

    def raw(self, data):
        try:
            self.socket.sendall(data)
        except (BrokenPipeError, ConnectionResetError):
            raise Closed from None

    def _take(self, count):
        data = b""
        while len(data) < count:
            try:
                piece = self.socket.recv(count - len(data))
            except ConnectionResetError:
                piece = b""
            if not piece:
                raise Closed
            data += piece
        return data

    def receive(self):
        """The next answer, decoded; Closed when the agent lets go instead."""
        frame = self._take(FRAME)
        assert frame[:4] == b"\xde\xad\xbe\xef", frame[:16]
        length = struct.unpack("<I", frame[4:8])[0]
        data = frame[8:] + self._take(max(0, length + 8 - FRAME + FRAME - 1) // FRAME * FRAME)
        assert not data[length:].strip(b"\0"), "zeros behind the message"
        return json.loads(data[:length])

    def ask(self, method, **params):
        self.send(json.dumps({"jsonrpc": "2.0", "id": 1, "name": method, "params": params}))
        return self.receive()


def with_checksum(text):
    """The text of an ini file, up to [Checksum], with its checksum."""
    return f"{text}[Checksum]\nagentini.checksum={hashlib.sha256(text.encode()).hexdigest()}\n"


class OutsideCase(unittest.TestCase):
    """A case with a stage of its own, on which an agent without a management server is laid out."""
    builds = None
    prefix = None
    service_type = 2

    def setUp(self):
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="korvane-outside-"))
        self.addCleanup(shutil.rmtree, self.work, ignore_errors=True)
        self.stage = Stage(self.builds.build, self.work)
        self.addCleanup(self.stage.close)
        self.listener = socket.create_server(("127.0.0.1", 0))  # nobody is answered, but who came is seen
        self.addCleanup(self.listener.close)
        self.stage.server_port = self.listener.getsockname()[1]
        self.stage.install(self.service_type)
        self.ini, self.fallback = self.stage.ips / "agent.ini", self.stage.ips / "fallback.ini"

    def log(self):
        """The records of the own log, oldest first: type, number, source, text."""
        lines = []
        for path in sorted((self.stage.ips / "logs").glob("korvane-agent-*.log")):
            with open(path, encoding="utf-8", newline="") as file:
                lines += [(row[0], row[3], row[4], row[7]) for row in csv.reader(file) if len(row) > 7]
        return lines

    def logged(self, number="", *texts):
        """The texts of the records with this number (empty: the trace lines) that hold all of these words."""
        return [text for _, at, _, text in self.log() if at == number and all(word in text for word in texts)]

    def call(self, method, **params):
        with Client(self.stage) as client:
            return client.ask(method, **params)

    def settings(self, *keys):
        return self.call("getSettings", keys=list(keys))["result"]["settings"]
