#!/usr/bin/env python3
"""What an ordinary account can do to the pipes: nothing that others notice.

pipes.py --build DIR [CASE ...]      KORVANE_HOSTILE_SECONDS: how long each siege lasts (5)
"""
import contextlib
import json
import os
import pathlib
import socket
import sys
import threading
import time

from hostile import CLOUD, EVENTS, LOCAL, MEBI, SECONDS, Attack, Client, cases, stranger_ids, wait_until

FRAME = 4096
BOUND = 5.0  # seconds in which an administrator is served
SHARE = 0.05  # of a core, for all ordinary callers together
EVERYBODYS = ("getTechStatus", "getTechNames", "getAgentVersion", "getStatus", "getSettings", "getPolicy", "queryDriver",
              "getLogPointers", "getCounters")


def connect(path, pause=0.05):
    """A connection to a pipe, once there is room for one."""
    while True:
        client = socket.socket(socket.AF_UNIX)
        client.settimeout(20)
        try:
            client.connect(path)
            return client
        except (BlockingIOError, ConnectionRefusedError, FileNotFoundError, PermissionError, TimeoutError):
            client.close()
            time.sleep(pause)


def request(method, **params):
    return Client.frames(json.dumps({"jsonrpc": "2.0", "id": 1, "name": method, "params": params}))


def talk(client, data):
    """Sends these bytes and reads an answer as long as one comes."""
    client.sendall(data)
    while client.recv(65536):
        client.sendall(data)


def idle(client):
    client.recv(1)


def half(client):
    client.sendall(request("getStatus")[:2000])
    client.recv(1)


def noise(client):
    while True:
        client.sendall(bytes(FRAME))


def nothing(client):
    pass


def deaf(client):
    while True:
        client.sendall(request("getSettings"))


HUGE = Client.frames(json.dumps({"jsonrpc": "2.0", "id": 1, "name": "getTechNames", "params": {"x": ["1"] * 49_000}}))
LONGEST = Client.frames(json.dumps({"jsonrpc": "2.0", "id": 1, "name": "getTechNames", "params": {"x": "y" * ((8 << 20) - 200)}}))
NOT_JSON = Client.frames("[" * 64 + "1," * 49_000 + "]" * 64)


def asks(method):
    return lambda client: talk(client, request(method))


SIEGE = [idle, half, noise, nothing, deaf, asks("getStatus"), asks("getLogPointers"), lambda client: talk(client, HUGE)]


class Pipes(Attack):
    service_type = 2

    def path(self, pipe):
        return str(self.stage.machine.run_dir / f"{pipe}.pipe")

    def start(self, **settings):
        self.install(AgentLog={"agentlog.log.trace.messages": "false"}, **settings)
        self.stage.start_driver()
        self.run_agent()
        for pipe in (LOCAL, CLOUD, EVENTS):
            wait_until(lambda pipe=pipe: os.path.exists(self.path(pipe)), 20, pipe)

    def siege(self, acts, pipes, clients=100, uids=1):
        """So many clients of ordinary accounts do these things to these pipes, again and again, until the case ends."""
        def besiege():
            def go_on(number):
                while True:
                    with contextlib.suppress(OSError), connect(self.path(pipes[number % len(pipes)])) as client:
                        acts[number // len(pipes) % len(acts)](client)
            for number in range(clients // uids):
                threading.Thread(target=go_on, args=(number,), daemon=True).start()
            time.sleep(600)
        return [self.stranger(besiege, uid) for uid in stranger_ids(uids)]

    def administrators_wait(self, seconds, command=("status",)):
        """The longest that an administrator waits for agentctl while these seconds pass."""
        longest, end = 0.0, time.monotonic() + seconds
        while time.monotonic() < end:
            begun = time.monotonic()
            status, text = self.agentctl(*command)
            longest = max(longest, time.monotonic() - begun)
            self.assertIn(status, (0, 4), text)
        return longest

    def test_the_system_itself_keeps_ordinary_accounts_off_two_pipes(self):
        self.start()

        def how_many_open():
            opened = 0
            for number, pipe in enumerate((CLOUD, EVENTS)):
                with contextlib.suppress(PermissionError), socket.socket(socket.AF_UNIX) as client:
                    client.connect(self.path(pipe))
                    opened += 1 << number
            return opened
        self.assertEqual(self.as_stranger(how_many_open), 0, "pipes (1 cloud, 2 events) that an ordinary account can open")
        self.assertEqual([oct(os.stat(self.path(pipe)).st_mode & 0o777) for pipe in (CLOUD, EVENTS)], ["0o600"] * 2)
        uid = stranger_ids()[0]
        status, text = self.agentctl("call", "getTechNames", prefix=("setpriv", f"--reuid={uid}", f"--regid={uid}", "--clear-groups"))
        self.assertEqual(status, 0, f"the local pipe is for everybody: {text}")

    def test_idle_connections_keep_no_administrator_waiting(self):
        self.start()
        for name, acts, uids in (("of one account", [idle], 1), ("of 27 accounts", [idle], 27), ("half a request", [half], 1)):
            with self.subTest(name):
                besiegers = self.siege(acts, [LOCAL], 27, uids)
                time.sleep(1)
                self.assertLess(self.administrators_wait(0.1), BOUND)
                for end in besiegers:
                    end(True)

    def test_a_siege_of_all_pipes_stops_neither_events_nor_administrators(self):
        self.start(Log={"log.writer.limit": 100, "log.reader.limit": 1000, "log.consolidate": "false"})
        self.siege(SIEGE, [LOCAL, CLOUD, EVENTS])
        carried = self.work / "carried"
        switch = ("call", "policyBuffer", '{"value":"true"}', "--pipe", CLOUD, "--timeout", "60000")
        begun = time.monotonic()
        self.assertEqual(self.agentctl(*switch)[0], 0, "the switch")
        self.assertLess(time.monotonic() - begun, BOUND)
        self.stage.machine.start("carrier", "korvane-event-carrier", "--run-dir", self.stage.machine.run_dir, "--out", carried)
        writer = self.stage.start_writer("--events", round(40 * SECONDS), "--rate", 50)
        self.assertLess(self.administrators_wait(SECONDS), BOUND)
        wait_until(lambda: not writer.running(), 60, "the writer's end")
        last = self.stage.written(writer)["lastSequence"]

        def there():
            lines = carried.read_text().split("\n")[:-1] if carried.exists() else []
            return {int(line.split()[0]) for line in lines} >= set(range(1, last + 1))
        wait_until(there, 20, f"the {last} events at the carrier")

    def test_ordinary_callers_cost_little(self):
        """Each mix of calls, for some seconds: what the agent spends beyond its idle share."""
        self.start(Log={"log.reader.limit": 1, "log.writer.limit": 1})
        self.stage.start_writer("--events", 60_000, "--dont-wait")
        wait_until(lambda: self.backlog() > 4 * MEBI, 60, "a backlog")
        before = self.stage.cpu_seconds()
        time.sleep(3)
        resting = (self.stage.cpu_seconds() - before) / 3
        mixes = {**{method: [asks(method)] for method in EVERYBODYS}, "all methods": [asks(method) for method in EVERYBODYS],
                 "many values": [lambda client: talk(client, HUGE)], "the longest message": [lambda client: talk(client, LONGEST)],
                 "not JSON": [lambda client: talk(client, NOT_JSON)], "no message": [noise], "come and go": [nothing],
                 "what is not for them": [asks("getDiagnostics"), asks("setSettings")]}
        seconds = max(1.5, SECONDS / 4)
        for name, acts in mixes.items():
            with self.subTest(name):
                besiegers = self.siege(acts, [LOCAL], 8)
                time.sleep(0.5)
                before, begun = self.stage.cpu_seconds(), time.monotonic()
                time.sleep(seconds)
                share = (self.stage.cpu_seconds() - before) / (time.monotonic() - begun) - resting
                for end in besiegers:
                    end(True)
                print(f"{name}: {100 * share:.1f} % of a core", flush=True)
                self.assertLess(share, SHARE)

    def backlog(self):
        return sum(path.stat().st_size for path in (self.stage.ids / "logs").glob("*"))


class Impostor(Attack):
    """A program of an ordinary account serves the pipe in the agent's place."""
    service_type = 2

    def test_agentctl_says_nothing_to_a_pipe_that_an_ordinary_account_serves(self):
        self.install()
        folder = self.stage.machine.run_dir
        folder.chmod(0o777)
        heard = self.work / "heard"
        heard.write_bytes(b"")
        heard.chmod(0o666)
        listening = pathlib.Path(folder) / "korvane-agent.pipe"

        def serve():
            with socket.socket(socket.AF_UNIX) as listener:
                listener.bind(str(listening))
                listener.listen(8)
                while True:
                    client = listener.accept()[0]
                    client.settimeout(2)
                    with contextlib.suppress(OSError), open(heard, "ab", buffering=0) as file:
                        file.write(client.recv(FRAME))
        self.stranger(serve)
        wait_until(listening.exists, 10, "the impostor")
        for words in (("status",), ("call", "getStatus", "--timeout", "1000"), ("retranslate",), ("trace", "on"),
                      ("diagnose", "-o", self.work / "d.zip", "--no-connection-test")):
            with self.subTest(words[0]):
                said = self.agentctl(*words)[1]
                self.assertEqual(heard.read_bytes()[:80], b"", "it was told something")
                self.assertRegex(said.lower(), "account|owner|served by|not the agent")


if __name__ == "__main__":
    sys.exit(cases.run(Attack, __doc__))
