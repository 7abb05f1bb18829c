"""Kills an agent without a server, and the carrier of its events, again and again while events are written and logs
rotate.

soak_carrier.py --build FOLDER [--rounds N] [--lanes N] [--seed N] [--keep-work]

Each lane is a stage of its own (driver, writer, agent, carrier) without a management server. A round: agent and
carrier run for a random while; then the agent is killed or stopped, or the carrier is killed, or both. In between the
carrier misbehaves at random: it throttles, refuses, mixes up identifiers, goes at every stage, answers garbage. At
the end every sequence number that was written must have been carried, and whatever came twice must be of the notice
that was in flight: no notice may begin before the one that was carried before it.

The last line is a JSON object; the exit status is 0 when nothing was lost and nothing further back came again.
"""
import json
import pathlib
import shutil
import sys
import tempfile
import time

import lanes
from stage import Stage, StageError, wait_until

BATCH_LIMIT = 500  # a batch every other second: more than the writer's rate, pauses and all
STOP_LIMIT_MS = 5000


class Lane:
    """One lane; the account is what run() returns."""

    def __init__(self, arguments, number):
        self.number = number
        self.work = pathlib.Path(tempfile.mkdtemp(prefix=f"korvane-soak-carrier-{number}-"))
        self.stage = Stage(arguments.build, self.work, seed=arguments.seed * 1000 + number, windows=arguments.windows)
        self.random = self.stage.random
        self.carrier = None
        self.carriers = 0
        self.kills = {"agent": 0, "agent_stopped": 0, "carrier": 0}
        self.stop_ms = 0

    def run(self, rounds):
        started = time.monotonic()
        with self.stage as stage:
            stage.machine.prepare()
            stage.install(service_type=2, settings={
                "Log": {"log.writer.limit": BATCH_LIMIT, "log.reader.limit": 2 * BATCH_LIMIT, "log.consolidate": "false"}})
            stage.start_driver()
            writer = stage.start_writer("--events", 0, "--rate", 100, "--rotate", 500, "--torn", 10, "--seed", self.number + 1,
                                        "--finish", "--encoding", "utf-16" if self.number % 2 else "utf-8")
            self.start_agent()
            for _ in range(rounds):
                self.round()
            writer.stop()
            written = stage.written(writer)
            return {"lane": self.number, "rounds": rounds, **self.kills, **self.finish(written["lastSequence"]),
                    "files": written["files"], "seconds": round(time.monotonic() - started)}

    def start_agent(self):
        self.stage.start_agent()
        switch = ("call", "policyBuffer", '{"value":"true"}', "--pipe", "korvane-agent-cloud")
        wait_until(lambda: self.stage.machine.agentctl(*switch)[0] == 0, 60, "the switch policyBuffer")

    def start_carrier(self, percent):
        machine = self.stage.machine
        self.carriers += 1
        self.carrier = machine.start("carrier", "korvane-event-carrier", *machine.run_options, "--out",
                                     self.work / f"carried-{self.carriers:04}", "--random", percent, "--seed", self.carriers,
                                     "--delay", 300, "--slow", self.random.choice([0, 300, 1500]))

    def round(self):
        if self.carrier is None or not self.carrier.running():
            self.start_carrier(self.random.choice([0, 20, 40]))
        time.sleep(self.random.uniform(0.2, 9.0))
        if not self.stage.agent.running():
            raise StageError(f"the agent ended by itself with status {self.stage.agent.exit_status}")
        victim = self.random.choice(["agent", "agent", "agent_stopped", "carrier", "both"])
        if victim in ("carrier", "both"):
            self.stage.machine.kill(self.carrier, "korvane-event-carrier")
            self.kills["carrier"] += 1
        if victim == "agent_stopped":
            self.stop_ms = max(self.stop_ms, self.stage.agent.stop())
            self.kills["agent_stopped"] += 1
        elif victim != "carrier":
            self.stage.agent.kill()
            self.kills["agent"] += 1
        if victim != "carrier":
            self.start_agent()

    def notices(self):
        """The sequence numbers of each notice that was carried, in order."""
        notices, last = [], None
        for path in sorted(self.work.glob("carried-*")):
            for line in path.read_text(encoding="utf-8").splitlines(keepends=True):
                if not line.endswith("\n"):
                    continue  # the carrier was killed in it and has not acknowledged it
                sequence, _, notice = line.split(" ")
                if notice != last:
                    notices.append([])
                    last = notice
                notices[-1].append(int(sequence))
        return notices

    def faults(self):
        """How many things the carriers did wrong."""
        right = {"attached", "notice", "acknowledged"}
        lines = pathlib.Path(self.carrier.log).read_text(encoding="utf-8").splitlines()
        told = [line for line in lines if line.startswith("{") and line.endswith("}")]
        return sum(1 for line in told if json.loads(line)["did"] not in right)

    def finish(self, last):
        """Lets both run undisturbed until all has been carried, then draws up the account."""
        self.carrier.stop()
        self.start_carrier(0)
        carried, end = set(), time.monotonic() + 90
        while len(carried) < last:
            now = set().union(*self.notices())
            if len(now) > len(carried):
                carried, end = now, time.monotonic() + 90
            elif time.monotonic() > end:
                break  # the account tells what is missing
            time.sleep(0.2)
        notices = self.notices()
        faults = self.faults()
        again = sum(len(notice) for notice in notices) - len(carried)
        further_back = sum(1 for before, notice in zip(notices, notices[1:]) if notice[0] < before[0])
        unordered = sum(1 for notice in notices if notice != list(range(notice[0], notice[0] + len(notice))))
        # The last answer, and the pointer behind it.
        time.sleep(3)
        stop_ms = max(self.stop_ms, self.stage.agent.stop())
        self.carrier.stop()
        books = next(iter(self.stage.ledger()["accounts"]), {})
        closed = bool(books) and books["closed"] and books["read"] == books["delivered"] == last
        return {"accounting_closed": closed, "account": books, "written": last, "carried": len(carried),
                "lost": last - len(carried), "notices": len(notices), "faults": faults,
                "sent_again": again, "further_back": further_back, "unordered": unordered, "stop_ms": stop_ms}


def lane(arguments, number, rounds):
    play = Lane(arguments, number)
    try:
        account = play.run(rounds)
    except StageError as error:
        return {"lane": number, "failed": str(error), "work": str(play.work)}
    if account["lost"] or account["further_back"] or account["unordered"] or arguments.keep_work:
        account["work"] = str(play.work)
    else:
        shutil.rmtree(play.work, ignore_errors=True)
    return account


def main():
    arguments = lanes.parse_arguments("Kills an agent without a server and its carrier again and again.")
    return lanes.run(arguments, lane, lambda account: not (account["lost"] or account["further_back"] or account["unordered"])
                     and account["accounting_closed"] and account["stop_ms"] <= STOP_LIMIT_MS,
                     ("rounds", "agent", "agent_stopped", "carrier", "written", "carried", "lost", "notices", "faults", "sent_again",
                      "further_back"), batch_limit=BATCH_LIMIT)


if __name__ == "__main__":
    sys.exit(main())
