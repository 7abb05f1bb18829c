"""Kills the agent again and again while events are written, logs rotate and the server misbehaves.

soak.py --build FOLDER [--rounds N] [--lanes N] [--seed N] [--keep-work]

Each lane is a stage of its own (server, driver, writer, agent); the rounds are shared out over the lanes,
which run at the same time. A round: the agent is started, lives for a random while, is killed with
SIGKILL. At random the server refuses, delays, drops connections or cuts answers. At the end every
sequence number that was written must have arrived (those of requests that the server answered with 302 or
600 aside), what came twice must fit one batch for each kill or lost answer, and the agent's own account must close: every
line written is read once, and delivered or in the ledger.

The last line is a JSON object; the exit status is 0 when nothing was lost and no bound was passed.
"""
import pathlib
import shutil
import sys
import tempfile
import time

import lanes
from stage import Stage, StageError

BATCH_LIMIT = 500
# What the server is asked to do wrong, and whether the answer is then lost to the agent.
FAULTS = [
    {"word": "log", "kind": "error", "code": 200, "text": "later"},
    {"word": "log", "kind": "error", "code": 302, "text": "dropped"},
    {"word": "log", "kind": "error", "code": 600, "text": "unknown"},
    {"word": "log", "kind": "error", "code": 301, "text": "bad, \"really\""},
    {"word": "log", "kind": "http", "code": 500},
    {"word": "log", "kind": "delay", "delay_ms": 700},
    {"word": "log", "kind": "dropBeforeRead"},
    {"word": "log", "kind": "dropAfterRead"},
    {"word": "log", "kind": "dropInAnswer", "bytes": 3},
    {"word": "log", "kind": "garbage"},
    {"word": "result", "kind": "error", "code": 300, "text": "database"},
    {"word": "result", "kind": "dropAfterRead"},
    {"word": "connect", "kind": "drop"},
]


def lane(arguments, number, rounds):
    """Runs one lane; returns its account."""
    work = pathlib.Path(tempfile.mkdtemp(prefix=f"korvane-soak-{number}-"))
    with Stage(arguments.build, work, seed=arguments.seed * 1000 + number, windows=arguments.windows) as stage:
        try:
            account = play(stage, rounds, number)
        except StageError as error:
            account = {"lane": number, "failed": str(error) + "\n" + "\n".join(p.tail() for p in stage.programs[:6])}
    if not arguments.keep_work and "failed" not in account:
        shutil.rmtree(work, ignore_errors=True)
    elif "failed" in account or arguments.keep_work:
        account["work"] = str(work)
    return account


def prepare(stage):
    stage.machine.prepare()
    stage.make_certificates()
    stage.start_server()
    stage.install(settings={"Log": {"log.writer.limit": BATCH_LIMIT, "log.reader.limit": BATCH_LIMIT},
                            "Polling": {"polling.interval": 1}})
    stage.start_driver()


def play(stage, rounds, number):
    started = time.monotonic()
    prepare(stage)
    writer = stage.start_writer("--events", 0, "--rate", 200, "--rotate", 900, "--repeat", 20, "--torn", 10, "--junk", 97,
                                "--seed", number + 1, "--finish", "--encoding", "utf-16" if number % 2 else "utf-8")
    for _ in range(rounds):
        if stage.random.random() < 0.6:
            stage.admin("/misbehave", {**stage.random.choice(FAULTS), "count": stage.random.randint(1, 3)})
        stage.start_agent()
        time.sleep(stage.random.uniform(0.05, 7.0))
        if not stage.agent.running():
            raise StageError(f"the agent ended by itself with status {stage.agent.exit_status}")
        check_files(stage)
        stage.agent.kill()
        check_files(stage)
    writer.stop()
    written = stage.written(writer)
    stage.admin("/misbehave", method="DELETE")
    return {**finish(stage, written, rounds), "lane": number, "seconds": round(time.monotonic() - started)}


def check_files(stage):
    """The state files load at every instant: the settings whole, the read pointer of its one size."""
    for name in ("agent.ini", "fallback.ini"):
        path = stage.ips / name
        if path.exists() and "\0" in path.read_text(encoding="utf-8"):
            raise StageError(f"{name} holds NUL bytes")
    pointer = stage.ips / "hidslog1rtfilepointer"
    if pointer.exists() and pointer.stat().st_size not in (0, 4365):
        raise StageError(f"the read pointer has {pointer.stat().st_size} bytes")


def finish(stage, written, rounds):
    """Lets the agent run undisturbed until all has arrived, then draws up the account."""
    stage.start_agent()
    first, last = written["firstSequence"], written["lastSequence"]

    # A backlog takes its time; what has not come when nothing has for a minute is missing.
    sums, newest = stage.events(first, last), time.monotonic()
    while sums["lost_unexplained"] and time.monotonic() - newest < 60:
        time.sleep(1)
        known, sums = sums, stage.events(first, last)
        if sums != known:
            newest = time.monotonic()
    time.sleep(3)
    sums = stage.events(first, last)
    stop_ms = stage.agent.stop()
    books = accounts(stage, written, sums)
    damaged = [path.name for path in stage.ips.glob("agent.ini.*") if "corrupt" in path.name or "damaged" in path.name]
    requests = stage.admin("/requests?word=log&limit=100000")
    unanswered = sum(1 for request in requests if request["stored"] and request["answered"] != "full")
    return {"rounds": rounds, "written": written["events"], "files": written["files"], "received": sums["distinct"],
            "answered_302_or_600": sums["dropped_by_server"], "lost": sums["lost_unexplained"],
            "sent_again": sums["duplicated"], "lost_answers": unanswered, "stop_ms": stop_ms, "damaged_files": damaged,
            "bound": BATCH_LIMIT * (rounds + unanswered), **books}


def accounts(stage, written, sums):
    """The agent's account of its log, from its files, against what was written and what arrived. What was dropped by the server in
    an exchange that a kill cut off may have been sent again and taken, or the other way round."""
    books = stage.ledger()
    account = next((log for log in books["accounts"] if log["log"] == "hidslog1rt"), {})
    lost = {total["cause"]: total["lines"] for total in books["totals"]}
    dropped = lost.get("server-dropped", 0) + lost.get("server-rejected", 0)
    exact = (account and account["closed"] and account["read"] == written["events"] + written["junk"] and account["waiting"] == 0
             and account["uncounted"] == 0 and lost.get("line-rejected", 0) == written["junk"]
             and account["delivered"] <= sums["distinct"] and dropped >= sums["dropped_by_server"])
    return {"ledgered": account.get("ledgered", 0), "ledger_entries": len(books["entries"]), "accounting_closed": bool(exact),
            "account": account, "lost_by_cause": lost}


def main():
    arguments = lanes.parse_arguments("Kills the agent again and again and counts events.")
    return lanes.run(arguments, lane, lambda account: account["lost"] == 0 and account["sent_again"] <= account["bound"]
                     and not account["damaged_files"] and account["accounting_closed"],
                     ("rounds", "written", "received", "answered_302_or_600", "lost", "sent_again", "lost_answers", "bound", "ledgered",
                      "ledger_entries"),
                     batch_limit=BATCH_LIMIT)


if __name__ == "__main__":
    sys.exit(main())
