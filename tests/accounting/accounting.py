"""What the groups share: a management server that keeps count of what it was told, and an agent that is counted against it.

Everything is written from the pages in docs/ alone. A case prints its seed (KORVANE_SEED repeats it) and what it counted.
"""
import collections
import contextlib
import csv
import json
import os
import pathlib
import random
import shutil
import signal
import socket
import socketserver
import ssl
import struct
import subprocess
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "hostile"))
from hostile import MEBI, Attack, StageError, stranger_ids, wait_until  # noqa: E402, F401

MADE = "korvane-agent-20251121999"  # own logs with lower names were made by a case
STATUS = ["result.type", "result.errorcode", "result.errormessage", "rid.applied", "rid.group", "policy.name", "policy.path",
          "agent.timezone", "agent.domain.name", "agent.osversion"]


class Malformed(Exception):
    """A request that is not one of the protocol."""


class Request:
    """One request, taken apart as docs/protocol.md has it: lists of pairs, binaries, and what it is about."""

    def __init__(self, word, headers, body):
        self.word, self.guid, self.at = word, headers.get("korvane-guid", ""), time.monotonic()
        self.lists, self.binaries, position = [], [], 0
        while not body.startswith(b"EOF_FLAG\n", position):
            end = body.find(b"\n\n", position)
            head = body[position:end].decode().split("\n") if end >= 0 else []
            if [line.partition("=")[0] for line in head] != ["Data-Format", "Data-Type", "Data-Length"]:
                raise Malformed(f"{word}: no section at {position} of {len(body)}")
            kind, name, length = (line.partition("=")[2] for line in head)
            payload, position = body[end + 2:end + 2 + int(length)], end + 3 + int(length)
            if len(payload) != int(length) or body[position - 1:position] != b"\n":
                raise Malformed(f"{word}: a section of {length} bytes is cut")
            if (kind, name) == ("text/plain", "properties"):
                self.lists.append([line.split("=", 1) for line in payload.decode().split("\n")[:-1]])
            elif (kind, name) == ("binary/zip", "policy"):
                self.binaries.append(payload)
            else:
                raise Malformed(f"{word}: a section {kind} {name}")
        if position + 9 != len(body):
            raise Malformed(f"{word}: {len(body) - position - 9} bytes behind the end")
        self.names = [name for name, _ in self.lists[0]] if self.lists else []
        self.pairs = dict(self.lists[0]) if self.lists else {}
        self.kind = self.pairs.get("result.type", "result") if word == "result" else word
        if self.kind == "policy" and "agent.osversion" in self.pairs:
            self.kind = "status"

    def spans(self):
        """The sequence numbers that a log request carries, each record as (first, last)."""
        return [(int(row["v2"]) - int(row["a5"]) + 1, int(row["v2"])) for row in map(dict, self.lists)]

    def lines(self):
        return [number for first, last in self.spans() for number in range(first, last + 1)]


class Answer:
    """An answer: a code, an HTTP status, pairs. loss: None, "reset" (handled, but the answer is lost), "cut". delay: seconds."""

    def __init__(self, code=0, http=200, pairs=(), loss=None, delay=0.0):
        self.code, self.http, self.pairs, self.loss, self.delay = code, http, list(pairs), loss, delay

    def __repr__(self):
        return f"code {self.code} http {self.http}{' ' + self.loss if self.loss else ''}{f' after {self.delay} s' if self.delay else ''}"

    @property
    def taken(self):
        """Whether the server has taken what was sent, whatever the agent may learn of it."""
        return self.code == 0 and self.http == 200 and self.loss != "cut"

    def text(self):
        def section(name, data):
            return f"Data-Format=text/plain\nData-Type={name}\nData-Length={len(data)}\n\n".encode() + data + b"\n"
        body = section("stacktrace", b"because") if self.code else b""
        if self.pairs:
            body += section("properties", "".join(f"{name}={value}\n" for name, value in self.pairs).encode())
        body += b"EOF_FLAG\n"
        head = f"HTTP/1.1 {self.http} X\r\nContent-Length: {len(body)}\r\n" + (f"Korvane-Error: {self.code}\r\n" if self.code else "")
        return head.encode() + b"\r\n" + (body[:len(body) // 2] if self.loss == "cut" else body)


class Server(socketserver.ThreadingTCPServer):
    """A management server of this test. decide(request) may return an Answer; without one the request is served."""
    daemon_threads, allow_reuse_address, request_queue_size = True, True, 64

    def __init__(self, certs, port=0):
        super().__init__(("127.0.0.1", port), None)
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(certs / "server.pem", certs / "server.key")
        self.lock, self.known, self.malformed, self.closing = threading.RLock(), set(), [], threading.Event()
        self.log = []  # (request, answer), in order of arrival
        self.decide = lambda request: None
        self.offer = ""  # the request for application data that is offered until its last message was taken
        self.configuration = {}
        threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.1}, daemon=True).start()

    @property
    def port(self):
        return self.server_address[1]

    def close(self):
        self.closing.set()
        self.shutdown()
        self.server_close()

    def handle_error(self, *_):
        pass  # who let go in the middle was killed

    def finish_request(self, connection, _):
        connection.settimeout(60)
        with contextlib.suppress(OSError, Malformed), self.context.wrap_socket(connection, server_side=True) as secured:
            buffered = bytearray()
            while not self.closing.is_set():
                head, buffered = self.read(secured, buffered, lambda data: data.find(b"\r\n\r\n") + 4 if b"\r\n\r\n" in data else None)
                lines = head.decode().split("\r\n")
                headers = {name.lower(): value.strip() for name, _, value in (line.partition(":") for line in lines[1:] if line)}
                length = int(headers["content-length"])
                body, buffered = self.read(secured, buffered, lambda data: length if len(data) >= length else None)
                if not self.answer(secured, lines[0].split()[1].rpartition("/")[2], headers, bytes(body)):
                    return

    @staticmethod
    def read(connection, data, enough):
        """The bytes up to where enough(data) says, which is None as long as it is not; and those behind."""
        while (size := enough(data)) is None:
            piece = connection.recv(1 << 18)
            if not piece:
                raise ConnectionError
            data.extend(piece)
        return data[:size], data[size:]

    def answer(self, connection, word, headers, body):
        try:
            request = Request(word, headers, body)
        except (Malformed, ValueError) as error:
            self.malformed.append(str(error))
            raise
        with self.lock:
            answer = self.decide(request) or self.serve(request)
            self.log.append((request, answer))
            if request.kind == "app.data" and answer.taken and request.pairs["application.request.complete"] == "true" \
                    and self.offer == request.pairs["application.requestID"]:
                self.offer = ""
        self.closing.wait(answer.delay)
        if answer.loss == "reset":
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            return False
        connection.sendall(answer.text())
        return answer.loss is None

    def serve(self, request):
        if request.word == "register":
            guid = request.pairs.get("agent.id") or f"{random.getrandbits(128):032x}"
            self.known.add(guid)
            return Answer(pairs=[("agent.id", guid)])
        if request.word == "testConnection":
            return Answer()
        if request.guid not in self.known:
            return Answer(400)
        if request.word == "update" and "update.configuration" in request.pairs and self.configuration:
            pairs, self.configuration = {"mod.time": "1795255200000", "rid.applied": "c", **self.configuration}, {}
            return Answer(pairs=[("update.configuration", "true"), *pairs.items()])
        if request.kind == "status":
            offers = [("send.application.request", "true"), ("send.application.requestID", self.offer)] if self.offer else []
            return Answer(pairs=offers + ([("update.configuration", "true")] if self.configuration else []))
        return Answer()

    def of(self, kind):
        """What arrived of this kind, with its answers."""
        with self.lock:
            return [(request, answer) for request, answer in self.log if request.kind == kind]

    def times(self, decision, kind, count=1, skip=0):
        """The next requests of this kind, after `skip` of them, are answered with the decision: an Answer or a function of the request."""
        seen = collections.Counter()

        def decide(request):
            if request.kind != kind:
                return None
            seen["n"] += 1
            if not skip < seen["n"] <= skip + count:
                return None
            return decision(request) if callable(decision) else decision
        self.decide = decide


class Counted(Attack):
    """A case: an agent of its own, this server, a seed."""

    def setUp(self):
        super().setUp()
        self.seed = int(os.environ.get("KORVANE_SEED") or random.randrange(1 << 32))
        self.random, self.counts = random.Random(self.seed), {}
        self.addCleanup(lambda: print(f"{self.id().rpartition('.')[2]}: seed {self.seed}; "
                                      f"{', '.join(f'{value} {name}' for name, value in self.counts.items())}", file=sys.stderr))
        self.listener.close()
        made, self.stage.certs = self.stage.certs, self.work / "certs"  # which an ordinary account may read
        if (made / "complete").exists():
            shutil.copytree(made, self.stage.certs, dirs_exist_ok=True)
        else:
            self.stage.make_certificates()
        for path in self.stage.certs.iterdir():
            path.chmod(0o644)
        self.server = Server(self.stage.certs)
        self.addCleanup(self.server.close)
        self.stage.server_port = self.server.port
        self.account = None

    def tearDown(self):
        self.assertEqual(self.server.malformed, [], "requests that violate the protocol")

    def count(self, **more):
        for name, value in more.items():
            self.counts[name.replace("_", " ")] = value

    # The agent -------------------------------------------------------------------------------------------------------

    def as_account(self):
        """From now on agents run as an account of their own, to whom installation, registry and run directory belong."""
        self.needs_root()
        self.account = stranger_ids()[0]
        folder = self.work / "registry"
        folder.mkdir()
        self.stage.machine.registry = folder / "registry.reg"
        return self.account

    def own(self, *folders):
        for folder in folders or (self.stage.install_root, self.stage.machine.run_dir, self.stage.machine.registry.parent):
            subprocess.run(["chown", "-R", "-h", f"{self.account}:{self.account}", folder], check=True)

    def run_agent(self, *options, prefix=(), **more):
        begun = self.starts()
        if self.account:
            self.own()
            prefix = ["setpriv", f"--reuid={self.account}", f"--regid={self.account}", "--clear-groups", *prefix]
        self.host(*options, prefix=prefix, **more)

        def runs():
            if not self.stage.agent.running():
                raise StageError("the agent ended:\n" + self.stage.agent.tail())
            return self.starts() > begun and (self.service_type != 1 or self.stage.setting("agent.id"))
        wait_until(runs, 60, "the agent")

    def own_logs(self):
        """The agent's own log, without what a case may have put there (before 2026)."""
        return [path for path in sorted((self.stage.ips / "logs").glob("korvane-agent-*.log")) if path.name > MADE]

    def starts(self):
        """How many starts of the agent its log has, each with event 10106."""
        return sum(path.read_bytes().count(b",10106,") for path in self.own_logs())

    def log(self):
        lines = []
        for path in self.own_logs():
            with contextlib.suppress(FileNotFoundError), open(path, encoding="utf-8", errors="replace", newline="") as file:
                lines += [(row[0], row[3], row[4], row[7]) for row in csv.reader(file) if len(row) > 7]
        return lines

    def kill(self):
        """kill -9, from any thread."""
        with contextlib.suppress(ProcessLookupError):
            os.kill(self.stage.agent.pid, signal.SIGKILL)

    def await_end(self, seconds=20):
        wait_until(lambda: not self.stage.agent.running(), seconds, "the end of the agent")
        self.stage.agent.output.close()

    def stop(self, limit=2000):
        """A stop, which ends at once whatever goes on."""
        self.assertLess(self.stage.agent.stop(), limit, "milliseconds of the stop")

    def alive(self):
        self.assertTrue(self.stage.agent.running(), "the agent has ended:\n" + self.stage.agent.tail())

    def ctl(self, *words):
        """Exit status and decoded output of agentctl --json."""
        status, text = self.agentctl("--json", *words)
        with contextlib.suppress(ValueError):
            return status, json.loads(text[text.index("{"):text.rindex("}") + 1])
        self.fail(f"agentctl {words}: status {status}: {text}")

    def set(self, **settings):
        """Settings through agentctl; two underscores for a dot."""
        status, text = self.agentctl("config", "set", *(f"{key.replace('__', '.')}={value}" for key, value in settings.items()))
        self.assertEqual(status, 0, text)

    def mount(self, folder, size):
        """A file system of its own in the folder, for as long as this program runs (in_namespace)."""
        if os.environ.get("KORVANE_MOUNTS") != "own":
            self.skipTest("needs a mount namespace")
        folder.mkdir(parents=True, exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size},mode=755", "none", folder], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", folder], check=False)

    def bind(self, source, folder):
        if os.environ.get("KORVANE_MOUNTS") != "own":
            self.skipTest("needs a mount namespace")
        subprocess.run(["mount", "--bind", source, folder], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", folder], check=False)


def in_namespace():
    """Starts this program again in a mount namespace of its own, if it may: what it mounts ends with it, and nobody else sees it."""
    prefix = ["unshare", "--mount", "--propagation", "private"]
    if os.environ.get("KORVANE_MOUNTS") or os.geteuid() != 0:
        return
    works = subprocess.run([*prefix, "true"], capture_output=True, check=False).returncode == 0
    os.environ["KORVANE_MOUNTS"] = "own" if works else "none"
    if works:
        os.execvp(prefix[0], [*prefix, sys.executable, *sys.argv])


def polled(look, seconds, steady=1.5):
    """look()'s value once it has stayed the same for `steady` seconds; the last one when time is up."""
    value, since, end = look(), time.monotonic(), time.monotonic() + seconds
    while time.monotonic() < end and time.monotonic() - since < steady:
        time.sleep(0.1)
        fresh = look()
        if fresh != value:
            value, since = fresh, time.monotonic()
    return value
