"""Kills the agent again and again while it sends logs in bulk.

soak_bulk.py --build FOLDER [--rounds N] [--lanes N] [--seed N] [--keep-work] [--mebibytes N]

Each round puts its share of the logs into the folder of the agent's own log, starts the agent, and kills it with SIGKILL
after a random while; at random the server refuses, drops connections or loses answers. At the end every byte of every log
must have arrived, none twice in the server's account, and each log must be gone from the disk.

The last line is a JSON object; the exit status is 0 when that holds and the memory stayed within its bound.
"""
import hashlib
import io
import pathlib
import shutil
import sys
import tempfile
import threading
import time
import urllib.request
import zipfile

import lanes
from stage import Stage, StageError

MEMORY_BOUND_KIB = 24 * 1024
LOGS_OF_A_ROUND = 3
FAULTS = [
    {"kind": "error", "code": 300, "text": "database"},
    {"kind": "error", "code": 302, "text": "dropped"},
    {"kind": "http", "code": 500},
    {"kind": "dropBeforeRead"},
    {"kind": "dropAfterRead"},
    {"kind": "dropInAnswer", "bytes": 3},
]


class Memory(threading.Thread):
    """Follows the largest private memory of the agents that run one after another."""

    def __init__(self, stage):
        super().__init__(daemon=True)
        self.stage, self.most, self.ended = stage, 0, threading.Event()

    def run(self):
        while not self.ended.wait(0.02):
            try:
                self.most = max(self.most, self.stage.memory_kib("RssAnon"))
            except (OSError, AttributeError):
                pass


def put_logs(stage, number, count, written):
    """New finished logs with about `count` bytes in all."""
    for i in range(LOGS_OF_A_ROUND):
        size = stage.random.randint(1, 2 * count // LOGS_OF_A_ROUND)
        lines = [f"{n},{stage.random.getrandbits(64):x},TNET,198.51.100.{n % 250},connection {stage.random.random()}\n"
                 for n in range(8000)]
        block = "".join(lines).encode()
        content = (block * (size // len(block) + 1))[:size]
        name = f"korvane-agent-20250101{number:06}{i:03}-1.log"
        aside = stage.ips / "logs" / (name + ".new")
        aside.write_bytes(content)
        aside.rename(stage.ips / "logs" / name)
        written[name] = (size, hashlib.sha256(content).hexdigest())


def lane(arguments, number, rounds):
    work = pathlib.Path(tempfile.mkdtemp(prefix=f"korvane-soak-bulk-{number}-"))
    with Stage(arguments.build, work, seed=arguments.seed * 1000 + number, windows=arguments.windows) as stage:
        try:
            account = play(stage, rounds, arguments)
        except StageError as error:
            account = {"failed": str(error) + "\n" + "\n".join(p.tail() for p in stage.programs[:6])}
    if not arguments.keep_work and "failed" not in account:
        shutil.rmtree(work, ignore_errors=True)
    else:
        account["work"] = str(work)
    return {"lane": number, **account}


def play(stage, rounds, arguments):
    stage.machine.prepare()
    stage.make_certificates()
    stage.start_server("--count-only")
    stage.install(settings={"Log": {"log.bulktransfer.enabled": "true", "log.bulktransfer.idleinterval": 1,
                                    "log.bulktransfer.backloginterval": 0, "log.disk.upperlimit": 0},
                            "Polling": {"polling.interval": 1}})
    stage.start_driver()
    (stage.ips / "logs").mkdir(exist_ok=True)
    stage.start_agent()
    time.sleep(6)
    idle = stage.memory_kib("RssAnon")
    memory, written = Memory(stage), {}
    memory.start()
    share = arguments.mebibytes * 1024 * 1024 // max(1, min(arguments.lanes, arguments.rounds)) // rounds
    for i in range(rounds):
        put_logs(stage, i, share, written)
        if stage.random.random() < 0.4:
            stage.admin("/misbehave", {"word": "bulk-log", **stage.random.choice(FAULTS), "count": 1})
        time.sleep(stage.random.uniform(0.05, 6.0))
        if not stage.agent.running():
            raise StageError(f"the agent ended by itself with status {stage.agent.exit_status}")
        stage.agent.kill()
        stage.start_agent()
    stage.admin("/misbehave", method="DELETE")
    until = time.monotonic() + 300
    while any((stage.ips / "logs" / name).exists() for name in written):
        if time.monotonic() > until:
            break
        time.sleep(0.5)
    memory.ended.set()
    memory.join()
    return {**finish(stage, written), "rounds": rounds, "kills": rounds, "idle_kib": idle,
            "above_idle_kib": memory.most - idle, "stop_ms": stage.agent.stop()}


def finish(stage, written):
    account = stage.admin("/bulk-logs")
    arrived = {}
    after = 0
    while files := stage.admin(f"/bulk-files?after={after}&limit=20"):
        for file in files:
            after = file["id"]
            url = f"http://127.0.0.1:{stage.admin_port}/binaries/{file['binary']}"
            with urllib.request.urlopen(url) as answer, zipfile.ZipFile(io.BytesIO(answer.read())) as bundle:
                for part in file["parts"]:
                    name = part["path"].replace("\\", "/").rsplit("/", 1)[1]
                    arrived.setdefault(name, []).append((part["from"], bundle.read(part["entry"])))
    wrong = []
    for name, (size, digest) in written.items():
        content = b"".join(piece for _, piece in sorted(arrived.pop(name, [])))
        if len(content) != size or hashlib.sha256(content).hexdigest() != digest:
            wrong.append(name)
    state = (stage.ips / "bulk" / "bulk.state").read_text(encoding="utf-8").splitlines()
    return {"logs": len(written), "written": sum(size for size, _ in written.values()), "received": account["log_bytes"],
            "twice": account["twice"], "repeated": account["repeated"], "faults": account["faults"],
            "file_bytes": account["file_bytes"], "bundles": account["files"], "sent": int(state[1].split()[1]),
            "wrong": wrong, "left": sum((stage.ips / "logs" / name).exists() for name in written)}


def main():
    def more(parser):
        parser.add_argument("--mebibytes", type=int, default=1024)
    arguments = lanes.parse_arguments("Kills the agent while it sends logs in bulk.", more)
    return lanes.run(arguments, lane,
                     lambda a: a["written"] == a["received"] == a["sent"] and not a["twice"] and not a["wrong"] and
                     not a["left"] and not a["faults"] and a["above_idle_kib"] <= MEMORY_BOUND_KIB,
                     ("kills", "logs", "written", "received", "twice", "repeated", "bundles", "file_bytes"),
                     bound_kib=MEMORY_BOUND_KIB)


if __name__ == "__main__":
    sys.exit(main())
