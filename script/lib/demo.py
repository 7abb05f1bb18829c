"""The demo: the real agent against the reference server, narrated in plain lines.

demo.py --build FOLDER [--windows FOLDER] [--events N] [--seconds S] [--kills K] [--keep]
"""
import argparse
import json
import pathlib
import shutil
import signal
import sys
import tempfile
import time

import updates
from machine import free_port
from stage import Stage, StageError, wait_until

BATCH_LIMIT = 2000
# What the agent's inventory is to hold.
DEFINITION = """<?xml version="1.0" encoding="UTF-8"?>
<discovery version="1">
  <applications/>
  <services/>
  <processes/>
  <ports/>
</discovery>
"""


def say(text):
    print(text, flush=True)


def step(title):
    say(f"\n-- {title}")


def install_and_start(stage):
    step("Setting up (everything on loopback)")
    stage.machine.prepare()
    stage.make_certificates()
    stage.start_server()
    say(f"The management server listens on 127.0.0.1:{stage.server_port} over TLS, with a freshly made test CA.")
    stage.install(settings={"Log": {"log.writer.limit": BATCH_LIMIT, "log.reader.limit": BATCH_LIMIT,
                                    "log.bulktransfer.enabled": "true", "log.bulktransfer.idleinterval": 2},
                            "TCP": {"tcp.enabled": "true", "tcp.port": free_port()},
                            "ApplicationData": {"appdata.config.file": "discovery.xml"}, **updates.SETTINGS},
                  registry=updates.REGISTRY)
    (stage.ips / "discovery.xml").write_text(DEFINITION)
    stage.start_driver()
    say("The stand-in driver is up; agent.ini names the server, a second one on 127.0.0.2, the CA and a few short intervals.")


def register(stage):
    step("The agent starts and registers")
    stage.start_agent()
    guid = wait_until(lambda: stage.setting("agent.id") or not stage.agent.running(), 30, "the registration")
    if guid is True:
        raise StageError("the agent ended at its start")
    # The second status is the first poll's: from then on the agent hears notifications.
    state = wait_until(lambda: (words := stage.admin("/state")["words"]).get("result", 0) > 1 and words, 30, "the first poll")
    policy = [part for part in stage.admin("/binaries") if part["role"] == "registration"]
    say(f"It tested the connection ({state.get('testConnection', 0)} request), then registered"
        f" ({state.get('register', 0)} request) with its built-in policy of {policy[0]['size'] if policy else 0} bytes.")
    say(f"The server assigned the identity {guid}; agent.ini has it, with a new checksum.")
    agent = stage.admin("/agents")[0]
    shown = ", ".join(f"{key}={agent['status'][key]}" for key in sorted(agent["status"]) if agent["status"][key])
    say(f"Its first status: {shown}.")
    return guid


def forward(stage, events, seconds, kills):
    """Lets events be written and kills the agent in the middle; returns the writer's account."""
    step(f"{events} events are written, the log rotates, and the agent is killed {kills} times in the middle")
    writer = stage.start_writer("--events", events, "--rate", events // seconds, "--rotate", events // 4, "--repeat", 20,
                                "--junk", events // 6, "--finish")
    arrived = 0
    for kill in range(1, kills + 1):
        wait_until(lambda: stage.events(1, events)["distinct"] > arrived, 60, "more events")
        time.sleep(stage.random.random() * 2)
        stage.agent.kill()
        arrived = stage.events(1, events)["distinct"]
        stage.start_agent()
        say(f"Kill {kill}: the server had {arrived} of {events}; restarted, it continues at its read pointer.")
    wait_until(lambda: not writer.running(), 120, "the end of the event writer")
    written = stage.written(writer)
    say(f"The writer is done: {written['events']} events in {written['files']} files.")
    return written


def settle(stage, written):
    """Waits until nothing more comes; returns the server's account."""
    first, last = written["firstSequence"], written["lastSequence"]
    try:
        stage.await_events(first, last, 90)
    except StageError as error:
        say(str(error))
    time.sleep(3)
    return stage.events(first, last)


def inventory(stage, guid):
    """The server asks the agent for its inventory; returns the figures."""
    step("The server asks for an inventory of the machine")
    request = stage.admin("/inventory", {"agent": guid})["request"]
    found = wait_until(lambda: stage.admin(f"/inventories?type={request}"), 120, "the inventory")[0]
    if found["outcome"] != "data" or found["fault"]:
        raise StageError(f"the inventory did not come: {found['outcome']} {found['error']} {found['fault']}")
    pieces = len(stage.admin(f"/application-data?type={request}"))
    say(f"It collected {found['rows']} rows (applications, services, processes, ports), could not read"
        f" {found['skipped']} things, and sent {found['size']} bytes, zipped, in {pieces} piece{'s' * (pieces > 1)}.")
    again = stage.admin("/inventory", {"agent": guid})["request"]
    told = wait_until(lambda: stage.admin(f"/inventories?type={again}"), 120, "the second inventory")[0]
    say(f"Asked once more it said: {told['outcome']}.")
    return {"inventory_rows": found["rows_found"], "inventory_whole": found["rows_found"] == found["rows"]}


def ask(stage):
    """An operator asks the agent over its local channel; returns the figures."""
    step("An operator queries the agent")
    status, screen = stage.machine.agentctl("status")
    say("\n".join("  " + line for line in screen.splitlines()))
    tested, report = stage.machine.agentctl("test-connection")
    say("The connection to the server, stage by stage:\n" + "\n".join("  " + line for line in report.splitlines()))
    return {"operator_answered": status == 0, "connection_tested": tested == 0}


def send_logs(stage):
    """Finished logs are sent in bulk; returns the figures."""
    step("Finished logs are sent in bulk")
    paths = [stage.ips / "logs" / f"korvane-agent-20250101{number:09}-1.log" for number in range(3)]
    for path in paths:
        aside = path.with_suffix(".new")
        aside.write_text("".join(f"AINF,{line},2025-01-01 00:00:00.000,an earlier line\n" for line in range(20000)))
        aside.rename(path)
    size = sum(path.stat().st_size for path in paths)
    wait_until(lambda: not any(path.exists() for path in paths), 60, "the removal of the logs that were sent")
    account = stage.admin("/bulk-logs")
    state = (stage.ips / "bulk" / "bulk.state").read_text(encoding="utf-8")
    sent = int(state.splitlines()[1].split()[1])
    whole = not account["faults"] and not account["twice"] and all(log["complete"] for log in account["logs"])
    say(f"{len(paths)} finished logs of {size} bytes went in zip archives of {account['file_bytes']} bytes and were removed once the"
        f" server had them. Sent: {sent} bytes; received: {account['log_bytes']}; twice: {account['twice']}.")
    return {"bulk_bytes_sent": sent, "bulk_bytes_received": account["log_bytes"],
            "bulk_logs_whole": whole and sent == account["log_bytes"] >= size}


def accounts(stage, written):
    """What of the log could not be read is in the ledger, and the server knows of it; returns the figures."""
    step("What was lost, and whether the accounts close")
    say("\n".join("  " + line for line in stage.machine.agentctl("ledger")[1].splitlines()))

    def told():
        logs = stage.admin("/accounting")[0]["logs"]
        return next((log for log in logs if log["ledgered"] == written["junk"]), None)
    log = wait_until(told, 30, "the server's account")
    causes = ", ".join(sorted({loss["cause"] for loss in log["missing"]}))
    say(f"{written['junk']} lines were no events. The server knows of {log['log']}: read {log['read']}, delivered {log['delivered']},"
        f" ledgered {log['ledgered']} ({causes}).")
    books = stage.ledger()
    account = books["accounts"][0]
    return {"ledger_entries": len(books["entries"]),
            "accounting_closed": account["closed"] and log["closed"] and log["short"] == 0
            and account["read"] == written["events"] + written["junk"] and account["ledgered"] == written["junk"]}


def stop(stage):
    step("The agent stops")
    took = stage.agent.stop()
    status = stage.agent.exit_status
    say(f"{stage.machine.how_it_stops}, {took} ms, exit status {status}.")
    return took, status


def play(stage, arguments):
    say(f"Korvane agent core: the agent on {stage.machine.system}, against the reference server.")
    install_and_start(stage)
    guid = register(stage)
    step("The server changes policies and settings")
    obeyed = updates.obey(stage, guid, say)
    written = forward(stage, arguments.events, arguments.seconds, arguments.kills)
    sums = settle(stage, written)
    say(f"Received: {sums['distinct']} of {written['events']}; lost: {sums['lost']};"
        f" sent again: {sums['duplicated']} (at most one batch of {BATCH_LIMIT} for each kill).")
    step("The server goes down and comes back")
    obeyed.update(updates.fail_over(stage, guid, say))
    obeyed.update(inventory(stage, guid))
    obeyed.update(ask(stage))
    obeyed.update(accounts(stage, written))
    obeyed.update(send_logs(stage))
    memory = {"rss_anon_kib": stage.memory_kib("RssAnon"), "rss_kib": stage.memory_kib("VmRSS")}
    if arguments.keep:
        keep(stage)
    malformed = stage.admin("/state")["malformed"]
    took, status = stop(stage)
    return {"target": stage.machine.target, "guid": guid, "registered": bool(guid), "events_written": written["events"],
            "events_received": sums["distinct"], "events_lost": sums["lost"], "events_duplicated": sums["duplicated"],
            "batch_limit": BATCH_LIMIT, "requests_malformed": malformed, "kills": arguments.kills,
            "stop_ms": took, "exit_status": status, **memory, **obeyed}


def keep(stage):
    step("Everything stays up until Ctrl-C")
    say(f"All files are in {stage.work}. To look around:")
    say(f"  curl -s http://127.0.0.1:{stage.admin_port}/state     what the server has received")
    say(f"  curl -s http://127.0.0.1:{stage.admin_port}/agents    the agent as the server sees it")
    say(f"  tail -f {stage.ips}/logs/*                            the agent's own log")
    if stage.machine.target == "linux":
        say(f"  {stage.bin}/agentctl --install-root {stage.install_root} --registry {stage.machine.registry}"
            f" --run-dir {stage.machine.run_dir} status    the agent as it sees itself")
    say(f"  {stage.bin}/korvane-ids-writer --help                 writes more events")
    try:
        while stage.agent.running():
            time.sleep(0.5)
    except KeyboardInterrupt:
        say("")


def well(result):
    """The expected results; anything else is a failure of the demo."""
    return (result["registered"] and result["events_lost"] == 0 and result["requests_malformed"] == 0
            and result["exit_status"] == 0
            and result["events_duplicated"] <= result["kills"] * result["batch_limit"] and result["stop_ms"] <= 2000
            and all(result[key] for key in ("policy_loaded", "policy_rolled_back", "retranslation_identical", "setting_changed",
                                            "software_package", "signatures_checked", "failed_over", "failed_back", "operator_answered",
                                            "connection_tested", "accounting_closed", "bulk_logs_whole",
                                            "inventory_rows", "inventory_whole"))
            and result["ledger_entries"] >= 1
            and result["content_packages"] == 4)


def main():
    parser = argparse.ArgumentParser(description="Plays the demo's story.")
    parser.add_argument("--build", required=True)
    parser.add_argument("--windows", help="a Windows build, to be run under Wine")
    parser.add_argument("--events", type=int, default=60000)
    parser.add_argument("--seconds", type=int, default=12, help="for how long they are written")
    parser.add_argument("--kills", type=int, default=2)
    parser.add_argument("--keep", action="store_true")
    arguments = parser.parse_args()
    # What is asked to end leaves nothing running.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    work = pathlib.Path(tempfile.mkdtemp(prefix="korvane-demo-"))
    try:
        with Stage(arguments.build, work, windows=arguments.windows) as stage:
            try:
                result = play(stage, arguments)
            except StageError as error:
                say(f"\nThe demo failed: {error}")
                for program in stage.programs:
                    say(program.tail())
                return 1
        if not well(result):
            say("\nThe results are not as expected.")
        print(json.dumps(result), flush=True)
        return 0 if well(result) else 1
    except KeyboardInterrupt:
        say("\nEnded on request.")
        return 130
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
