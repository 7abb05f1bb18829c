"""Notifications to the real agent: how long until the request that follows, and what a burst of them does.

The agent talks to a server made for it here, which notes when the first bytes of each request arrive. Used by
script/bench; by itself: notify.py --build DIR [--samples N] [--burst N] prints one JSON object.
"""
import argparse
import json
import pathlib
import random
import socket
import ssl
import statistics
import sys
import tempfile
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import stage as stages  # noqa: E402
from machine import free_port  # noqa: E402

SECTION = "Data-Format=text/plain\nData-Type=properties\nData-Length={}\n\n{}\nEOF_FLAG\n"


def answer(word):
    body = "EOF_FLAG\n"
    if word == "register":
        body = SECTION.format(len("agent.id=bench\n"), "agent.id=bench\n")
    return f"HTTP/1.1 200 OK\r\nContent-Length: {len(body)}\r\n\r\n{body}".encode()


class TimedServer:
    """Answers the agent's exchanges; `arrivals` holds (word, moment of the first byte) of each request."""

    def __init__(self, certificates):
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(certificates / "server.pem", certificates / "server.key")
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.arrivals = []
        self.arrived = threading.Condition()
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self.serve, args=(connection,), daemon=True).start()

    def serve(self, connection):
        try:
            with self.context.wrap_socket(connection, server_side=True) as tls:
                tls.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                while self.exchange(tls):
                    pass
        except (OSError, ssl.SSLError):
            pass

    def exchange(self, tls):
        data = tls.recv(65536)
        moment = time.monotonic()
        while data and b"\r\n\r\n" not in data:
            data += tls.recv(65536)
        if not data:
            return False
        head, body = data.split(b"\r\n\r\n", 1)
        lines = head.decode().split("\r\n")
        length = next(int(line.split(":")[1]) for line in lines if line.lower().startswith("content-length:"))
        while len(body) < length:
            body += tls.recv(65536)
        word = lines[0].split()[1].rsplit("/", 1)[1]
        with self.arrived:
            self.arrivals.append((word, moment))
            self.arrived.notify_all()
        tls.sendall(answer(word))
        return True

    def count(self, word):
        with self.arrived:
            return sum(1 for one, _ in self.arrivals if one == word)

    def await_after(self, word, moment, limit):
        """The moment of the first such request after that moment; None when there is none within the limit."""
        end = time.monotonic() + limit
        with self.arrived:
            while True:
                for one, when in reversed(self.arrivals):
                    if when < moment:
                        break
                    if one == word:
                        return when
                if not self.arrived.wait(max(end - time.monotonic(), 0)):
                    return None


class NotifiedAgent:
    """The real agent, idle but for what is sent to its notification port."""

    def __init__(self, build, work, polling=3600):
        self.stage = stages.Stage(build, work)
        self.stage.make_certificates()
        self.server = TimedServer(self.stage.certs)
        self.stage.server_port = self.server.port
        self.port = free_port()
        self.stage.install(settings={"TCP": {"tcp.enabled": "true", "tcp.port": self.port},
                                     "Polling": {"polling.interval": polling}})
        self.stage.start_driver()
        self.agent = self.stage.start_agent()
        stages.wait_until(lambda: self.server.count("result"), 60, "the agent's first status")
        time.sleep(3)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.listener.close()
        self.stage.close()

    def send(self, payload):
        """One connection with these bytes; False when it is not taken at once."""
        try:
            with socket.create_connection(("127.0.0.1", self.port), 0.02) as client:
                client.sendall(payload)
            return True
        except OSError:
            return False

    def open_sockets(self):
        return len(list(pathlib.Path(f"/proc/{self.agent.pid}/fd").iterdir()))


def latency(build, work, samples):
    """Milliseconds from a connection's begin to the request's first byte at the server, the agent idle."""
    with NotifiedAgent(build, work) as agent:
        taken = []
        for _ in range(samples):
            time.sleep(random.uniform(0.05, 1.2))
            began = time.monotonic()
            agent.send(b"\x01")
            arrived = agent.server.await_after("update", began, 10)
            if arrived is None:
                raise stages.StageError("a notification was followed by no request within 10 s")
            taken.append((arrived - began) * 1000)
        return {"samples": samples, "median ms": statistics.median(taken),
                "99th percentile ms": sorted(taken)[max(0, -(-samples * 99 // 100) - 1)], "longest ms": max(taken)}


def burst(build, work, connections):
    """Many connections as fast as they are taken: notifications, garbage, closed at once, and ten that never speak."""
    with NotifiedAgent(build, work, polling=20) as agent:
        before = {"sockets": agent.open_sockets(), "memory": agent.stage.memory_kib("RssAnon")}
        statuses, began = agent.server.count("result"), time.monotonic()
        payloads = (b"\x20", b"\xff", b"", b"\x80\x01", b"\x00")
        taken = sum(agent.send(payloads[i % len(payloads)]) for i in range(connections))
        silent = [socket.create_connection(("127.0.0.1", agent.port), 5) for _ in range(3)]
        seconds = time.monotonic() - began
        updates = agent.server.count("update")
        stages.wait_until(lambda: agent.server.count("result") > statuses, 120, "a status after the burst")
        for client in silent:
            client.close()
        stages.wait_until(lambda: agent.open_sockets() <= before["sockets"], 120, "the burst's sockets to be closed")
        return {"connections": connections, "taken": taken, "seconds": seconds, "updates asked for": updates,
                "RssAnon KiB before": before["memory"], "RssAnon KiB after": agent.stage.memory_kib("RssAnon"),
                "sockets before": before["sockets"], "sockets after": agent.open_sockets()}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True, type=pathlib.Path)
    parser.add_argument("--samples", type=int, default=200)
    parser.add_argument("--burst", type=int, default=100000)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="korvane-notify-") as work:
        report = {}
        if arguments.samples:
            report["latency"] = latency(arguments.build, pathlib.Path(work) / "latency", arguments.samples)
        if arguments.burst:
            report["burst"] = burst(arguments.build, pathlib.Path(work) / "burst", arguments.burst)
    print(json.dumps(report))
    return 0


if __name__ == "__main__":
    sys.exit(main())
