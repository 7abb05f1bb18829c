#!/usr/bin/env python3
"""The library in a process of its own host: start, stop and start again, and stops out of every state.

in_process.py --build DIR [CASE ...]

The host is this program again (`--host`): it loads the library, calls startAgent on a thread and stopAgent as it is told,
one line a command, and answers each with one line of JSON.
"""
import ctypes
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time

from outside import LONG, OutsideCase, cases, wait_until, with_checksum

STOP = 2.0  # seconds: the promise for every state
STOPPED = "The agent STOPPED and returned"


def host(library):
    signal.signal(signal.SIGPIPE, signal.SIG_IGN)
    agent = ctypes.CDLL(library)
    agent.startAgent.restype, agent.stopAgent.restype = ctypes.c_void_p, ctypes.c_char_p
    running = None
    for line in sys.stdin:
        begun = time.monotonic()
        answer = {}
        if line.strip() == "start":
            running = threading.Thread(target=agent.startAgent, daemon=True)
            running.start()
        else:
            texts = []
            calls = [threading.Thread(target=lambda: texts.append(agent.stopAgent().decode()), daemon=True)
                     for _ in range(int(line.split()[1]))]
            for call in calls:
                call.start()
            for call in calls:
                call.join()
            while running and running.is_alive() and time.monotonic() - begun < 20:
                running.join(0.05)
                agent.stopAgent()  # one that came before there was an agent is lost
            answer = {"texts": texts, "ended": not (running and running.is_alive())}
        print(json.dumps({**answer, "seconds": time.monotonic() - begun}), flush=True)
    os._exit(0)


class InProcess(OutsideCase):
    def load(self, **environment):
        """A fresh host process."""
        self.host = subprocess.Popen([sys.executable, __file__, "--host", str(self.stage.bin / "libkorvane-agent.so")], text=True,
                                     stdin=subprocess.PIPE, stdout=subprocess.PIPE, env={
                                         **os.environ, "KORVANE_INSTALL_ROOT": str(self.stage.install_root),
                                         "KORVANE_REGISTRY": str(self.stage.machine.registry),
                                         "KORVANE_RUN_DIR": str(self.stage.machine.run_dir), **environment})
        self.addCleanup(self.host.communicate)
        self.addCleanup(self.host.kill)

    def tell(self, command):
        self.host.stdin.write(command + "\n")
        self.host.stdin.flush()
        ready = select.select([self.host.stdout], [], [], 30)[0]
        line = self.host.stdout.readline() if ready else ""
        self.assertTrue(line, f"{command}: no answer within 30 s; the host's status is {self.host.poll()}")
        return json.loads(line)

    def stop(self, callers=1):
        answer = self.tell(f"stop {callers}")
        self.assertEqual((answer["ended"], answer["texts"]), (True, [STOPPED] * callers))
        self.assertLess(answer["seconds"], STOP)

    def test_each_run_tells_once_that_the_driver_is_not_there(self):
        self.load()
        for number in range(1, 5):
            self.tell("start")
            wait_until(lambda: len(self.logged("10106")) == number, LONG, "the start")
            for _ in range(3):
                self.assertEqual(self.call("queryDriver")["result"]["answered"], "false")
            self.stop()
            self.assertEqual((len(self.logged("10112")), len(self.logged("10110"))), (number, number), "once in each run")

    def test_stops_without_a_server_that_answers(self):
        closed = socket.create_server(("127.0.0.1", 0))
        dead = closed.getsockname()[1]
        closed.close()
        hanging = self.listener.getsockname()[1]  # the system takes the connection, nobody speaks
        self.stage.install(1)
        self.load()
        for name, port, seconds in (("dead port", dead, 0), ("dead port, later", dead, 0.7), ("hanging", hanging, 0.7),
                                    ("dead again", dead, 0.2)):
            with self.subTest(name):
                self.ini.write_text(with_checksum(f"[Agent]\nagent.http.url=https://127.0.0.1:{port}/korvane/agent/\n"))
                self.tell("start")
                time.sleep(seconds)  # into whatever state it reaches; none may hold up a stop
                self.stop(callers=1 if seconds else 3)
        self.stop()  # none runs

    def test_stops_of_an_agent_that_misses_something(self):
        """Whatever of its surroundings is wrong, a start and a stop end in time."""
        file, registry = self.work / "file", self.work / "damaged.reg"
        file.write_text("no folder")
        registry.write_text("Windows Registry Editor Version 5.00\n[what\n")
        rows = [("INSTALL_ROOT", self.work / "nowhere"), ("INSTALL_ROOT", file), ("INSTALL_ROOT", "/proc/1"), ("REGISTRY", registry),
                ("REGISTRY", self.work), ("RUN_DIR", self.work / "nowhere"), ("RUN_DIR", self.work / ("x" * 200))]
        for name, path in rows:
            with self.subTest(f"{name}={path}"):
                self.load(**{f"KORVANE_{name}": str(path)})
                self.tell("start")
                time.sleep(0.3)
                self.stop()
        for name in ("agent.ini", "fallback.ini", "logs", "extensions", "builtin.zip", "kav-version.properties", "history", "driver",
                     "lockFile"):
            with self.subTest(f"{name} is a file and not a folder, or a folder and not a file"):
                root = self.work / f"without-{name}"
                shutil.copytree(self.stage.ips, root / "IPS")
                path = root / "IPS" / name
                shutil.rmtree(path) if path.is_dir() else path.unlink(missing_ok=True)
                path.touch() if name in ("logs", "extensions", "history", "driver") else path.mkdir()
                self.load(KORVANE_INSTALL_ROOT=str(root))
                self.tell("start")
                time.sleep(0.3)
                self.stop()


if __name__ == "__main__":
    if sys.argv[1:2] == ["--host"]:
        host(sys.argv[2])
    sys.exit(cases.run(InProcess, __doc__))
