"""One agent with everything on, for as long as is asked, and faults drawn from a seed.

soak_everything.py --build FOLDER [--minutes N] [--seed N] [--windows FOLDER] [--rate N] [--keep-work]

Cycles: for a while events are written, logs grow, roll over and are sent in bulk, inventories are asked for, local programs and
notifications come, and one to three faults strike. Then the writer pauses, and once the agent has caught up its account of the
event log must be exactly what was written, and what the server answered, from outside; handles and threads must be those of the
process's earlier quiet moments. In between policies, settings and log rules are replaced, and logs are deleted, replaced or made
unreadable. In the first third of the time the agent is killed and restarted; then one process lives on.

The last line is a JSON object; the exit status is 0 only if all of it holds.
"""
import argparse
import contextlib
import json
import os
import pathlib
import random
import shutil
import signal
import socket
import sys
import tempfile
import threading
import time
import traceback

import soak
from machine import free_port, wait_until
from soak_files import Disk, Logs, in_namespace
from soak_health import Health
from soak_lines import Component, Outcomes
from stage import DRIVER_KEY, Stage, StageError
from updates import Updates

SLOPE_BOUND = 16.0  # KiB of private memory a minute
STOP_BOUND_MS = 5000
CATCH_UP = 120  # seconds without any progress
DISK = 96 << 20
SERVER_FAULTS = [
    *soak.FAULTS, *({"word": word, **fault} for word in ("bulk-log", "update", "result") for fault in (
        {"kind": "error", "code": 200, "text": "later"}, {"kind": "http", "code": 503}, {"kind": "dropAfterRead"},
        {"kind": "dropInAnswer", "bytes": 3}, {"kind": "garbage"}, {"kind": "delay", "delay_ms": 4000})),
    {"word": "bulk-log", "kind": "error", "code": 302, "text": "dropped"},
    {"word": "*", "kind": "http", "code": 500}, {"word": "*", "kind": "slow", "bytes": 4}, {"word": "*", "kind": "garbageBody"}]
DEFINITION = """<?xml version="1.0" encoding="UTF-8"?>
<discovery version="2">
<limits share="30"/>
<applications/><services/><processes/><ports/><shortcuts/>
<files root="{}" pattern="*" depth="4"/>
</discovery>
"""
METHODS = ("getStatus", "getCounters", "getTechStatus", "getSettings", "getLogPointers", "getLedger", "getPolicy", "queryDriver",
           "noSuchMethod")
# Without these root's agent is refused what its own files refuse to anybody.
ORDINARY = ("setpriv", "--bounding-set=-dac_override,-dac_read_search", "--inh-caps=-dac_override,-dac_read_search")


class Everything:
    def __init__(self, stage, arguments, disk):
        self.stage, self.arguments, self.disk = stage, arguments, disk
        self.random = stage.random
        self.windows = bool(arguments.windows)
        self.begun = time.monotonic()
        self.counts, self.problems = {}, []
        self.kills_allowed = True
        self.asked, self.deck, self.full, self.version, self.stop_ms, self.files = [], [], [], 0, 0, 0
        self.ended = threading.Event()
        self.server_up = threading.Event()

    def say(self, text):
        print(f"[{time.monotonic() - self.begun:7.1f}] {text}", flush=True)

    def count(self, what, by=1):
        self.counts[what] = self.counts.get(what, 0) + by

    def wrong(self, text):
        self.problems.append(text)
        self.say("WRONG: " + text)

    # Setting up ------------------------------------------------------------------------------------------------------

    def prepare(self):
        stage = self.stage
        stage.machine.prepare()
        stage.make_certificates()
        stage.start_server("--count-only")
        self.server_up.set()
        self.logs = Logs(stage, random.Random(self.arguments.seed + 1))
        self.grow_tree(400)
        (stage.ips / "discovery.xml").write_text(DEFINITION.format(stage.machine.path(stage.work / "tree")))
        log = stage.machine.path(self.logs.driver_log).replace("\\", "\\\\")
        stage.install(settings={
            "Log": {"log.writer.limit": 1000, "log.reader.limit": 1000, "log.bulktransfer.enabled": "true",
                    "log.bulktransfer.idleinterval": 5, "log.bulktransfer.backloginterval": 1, "log.disk.upperlimit": 0,
                    "log.collectsha256hash": "true", "log.rollover.cause": 2, "log.rollover.value": 1},
            "AgentLog": {"agentlog.log.trace.messages": "true"},
            "ExternalLogs": {"external.log": "app/*.log"},
            "ApplicationData": {"appdata.configV2.file": "discovery.xml", "appdata.max.payload": 1, "appdata.senddata.interval": 0,
                                "appdata.retry.interval": 2, "appdata.max.retries": 30, "appdata.schedule.interval": 60},
            "TCP": {"tcp.enabled": "true", "tcp.port": free_port()}, "AutoRetrans": {"autoretrans.interval": 20},
            "Polling": {"polling.interval": 2}},
            registry=[f"[{DRIVER_KEY}\\KAVIPSDriver\\Parameters]", f'"Log File"="{log}"', ""])
        stage.start_driver()
        self.component = Component(stage, self.arguments.seed + 2, self.arguments.rate)
        self.outcomes = Outcomes(stage)
        self.health = Health(stage)
        self.start_agent()
        guid = wait_until(lambda: stage.setting("agent.id") or not stage.agent.running(), 60, "the registration")
        if guid is True:
            raise StageError("the agent ended at its start")
        self.guid = guid
        self.updates = Updates(stage, guid, self.say)
        for thread in (self.component, self.health, threading.Thread(target=self.clients, daemon=True)):
            thread.start()

    def grow_tree(self, count):
        """Files that the next inventory has and the last one has not."""
        for _ in range(count):
            folder = self.stage.work / "tree" / f"d{self.files % 7}"
            folder.mkdir(parents=True, exist_ok=True)
            (folder / f"f{self.files}.dat").write_bytes(bytes(self.files % 5000))
            self.files += 1

    def start_agent(self):
        stage, machine = self.stage, self.stage.machine
        if self.windows or os.geteuid() != 0:
            stage.start_agent()
        else:
            stage.agent = stage.start("agent", [
                *ORDINARY, machine.bin / "korvane-host", "run", "--install-root", stage.install_root, "--registry", machine.registry,
                "--run-dir", machine.run_dir, *machine.unsafe_options])
        self.count("lives")

    def kill(self):
        soak.check_files(self.stage)
        self.stage.agent.kill()
        soak.check_files(self.stage)
        self.count("kills")

    def stop(self):
        self.stop_ms = max(self.stop_ms, self.stage.agent.stop())
        self.count("orderly_stops")
        if self.stage.agent.exit_status != 0:
            self.wrong(f"the agent ended with status {self.stage.agent.exit_status}")

    # What goes on beside -----------------------------------------------------------------------------------------------

    def clients(self):
        """Local programs and notifications, and those that are up to no good."""
        rng = random.Random(self.arguments.seed + 3)
        while not self.ended.wait(rng.uniform(0.5, 2.5) * (3 if self.windows else 1)):
            with contextlib.suppress(OSError, StageError, AttributeError):
                if rng.random() < 0.5 and self.server_up.is_set():
                    self.stage.admin("/notify", {"agent": self.guid, "byte": rng.choice([1, 2, 4, 8, 16, 32, 64, 128])})
                    self.count("notifications")
                elif self.windows or rng.random() < 0.6:
                    status, _ = self.stage.machine.agentctl("call", rng.choice(METHODS))
                    self.count("calls_answered" if status in (0, 1) else "calls_unanswered")
                else:
                    self.nuisance(rng)

    def nuisance(self, rng):
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(2)
            client.connect(str(self.stage.machine.run_dir / "korvane-agent.pipe"))
            client.sendall(rng.choice([b"", rng.randbytes(3000), bytes(4096), b"\xde\xad\xbe\xef" + rng.randbytes(9000)]))
        self.count("broken_clients")

    # Faults ----------------------------------------------------------------------------------------------------------

    def fault(self):
        """The next fault of a shuffled deck, so that each comes; the agent's end only while it may end."""
        while True:
            if not self.deck:
                self.deck = [self.misbehaving] * 7 + [self.killed] * 5 + [self.restarted] * 2 + [
                    self.hanging_server, self.server_again, self.full_disk, self.slow_driver, self.bulk_refused]
                self.random.shuffle(self.deck)
            drawn = self.deck.pop()
            if self.kills_allowed or drawn not in (self.killed, self.restarted):
                return drawn()

    def misbehaving(self):
        fault = {**self.random.choice(SERVER_FAULTS), "count": self.random.randint(1, 3)}
        self.say(f"fault: the server, {fault}")
        self.stage.admin("/misbehave", fault)

    def hanging_server(self):
        seconds = self.random.uniform(2, 12)
        self.say(f"fault: the server hangs for {seconds:.1f} s")
        self.server_up.clear()
        self.stage.server.process.send_signal(signal.SIGSTOP)
        self.ended.wait(seconds)
        self.stage.server.process.send_signal(signal.SIGCONT)
        self.server_up.set()

    def server_again(self):
        how = self.random.choice(["stop", "kill"])
        self.say(f"fault: the server is started again after a {how}")
        self.server_up.clear()
        getattr(self.stage.server, how)()
        self.ended.wait(self.random.uniform(0.1, 6))
        self.stage.start_server("--count-only")
        self.server_up.set()

    def full_disk(self):
        if not self.disk.own:
            return
        self.count("full_disks")
        seconds, killed = self.random.uniform(3, 8), self.kills_allowed and self.random.random() < 0.5
        self.say(f"fault: the disk is full for {seconds:.1f} s" + (", with a kill" if killed else ""))
        self.full.append(time.time())
        self.disk.fill()
        self.ended.wait(seconds)
        if killed:
            self.stage.agent.kill()
            self.count("kills")
            self.start_agent()
            self.ended.wait(3)
        self.disk.free()

    def slow_driver(self):
        word = self.random.choice([["delay", "700"], ["stall"], ["fail", "31"]])
        self.say(f"fault: the driver, {' '.join(word)}")
        self.stage.machine.driver_control(*word)
        self.ended.wait(self.random.uniform(1, 6))
        self.stage.machine.driver_control("normal")

    def bulk_refused(self):
        """The folder of the bundles may not be written."""
        folder = self.stage.ips / "bulk"
        if self.windows or not folder.exists():
            return
        self.say("fault: the folder of the bundles may not be written")
        folder.chmod(0o500)
        self.ended.wait(self.random.uniform(2, 8))
        folder.chmod(0o755)
        self.count("permissions_taken")

    def killed(self):
        self.say("fault: the agent is killed")
        self.kill()
        self.ended.wait(self.random.choice([0, 0, 2]))
        self.start_agent()

    def restarted(self):
        self.say("fault: the agent is restarted")
        self.stop()
        self.start_agent()

    # What happens to logs, while it is quiet -----------------------------------------------------------------------------

    def log_fault(self, kills):
        component = self.component
        online = [component.gap, component.cut] + ([] if self.windows else [component.deleted])
        offline = [component.gone, component.replaced] if kills else []
        unreadable = [self.unreadable] if kills and not self.windows else []
        fault = self.random.choice(online + offline + unreadable)
        self.say(f"log: {fault.__name__}")
        if component.in_log < 60:
            with component.lock:
                component.write(60)
            self.settle()
        if fault in offline:
            self.stop()
        if fault in unreadable:
            fault()
        else:
            with component.lock:
                fault()
        if fault in offline:
            self.start_agent()
        self.count("log_" + fault.__name__)
        with component.lock:
            component.write(30)
        self.settle()
        self.check()

    def unreadable(self):
        """The agent finds a log that it may not read; later it may."""
        self.stop()
        with self.component.lock:
            self.component.write(20)
        self.component.log.chmod(0)
        self.start_agent()
        self.ended.wait(6)
        self.component.log.chmod(0o644)

    # Quiet moments -----------------------------------------------------------------------------------------------------

    def books(self):
        """The agent's account of the event log, and what was lost by cause; None while it does not answer."""
        status, text = self.stage.machine.agentctl("ledger", "--json")
        try:
            ledger = json.loads(text[text.index("{"):])
        except ValueError:
            return None
        account = next((log for log in ledger["accounts"] if log["log"] == "hidslog1rt"), None)
        return account and (account, {total["cause"]: total for total in ledger["totals"]}, len(ledger["entries"]))

    def settle(self):
        """Waits, as long as it goes on, until the agent has read all and nothing waits."""
        known, moved = None, time.monotonic()
        while True:
            if self.component.failed or not self.stage.agent.running():
                raise StageError(f"component: {self.component.failed}; agent: {self.stage.agent.exit_status}\n" + self.stage.agent.tail())
            books = self.books()
            if books and books[0]["read"] >= self.component.expected and books[0]["waiting"] == 0:
                return
            if books != known:
                known, moved = books, time.monotonic()
            elif time.monotonic() - moved > CATCH_UP:
                raise StageError(f"the agent does not catch up with {self.component.expected} lines: {books}")
            self.ended.wait(1 if self.windows else 0.3)

    def check(self):
        """The account, exactly, against what was written and what the server said. The counts change together with the pointer,
        a moment after the answer."""
        def exact():
            delivered, dropped, rejected = self.outcomes.look(self.component.fates)
            account, causes, _ = self.books()
            lines = {cause: total["lines"] for cause, total in causes.items() if total["lines"]}
            losses = {cause: total["uncounted"] for cause, total in causes.items() if total["uncounted"]}
            wanted = {"line-rejected": self.component.junk, "server-dropped": dropped, "server-rejected": rejected}
            wanted = {cause: count for cause, count in wanted.items() if count}
            self.shown = (f"written {self.component.expected} = delivered {delivered} + ledgered {wanted}, uncounted "
                          f"{self.component.uncounted}; the agent: {account}, {lines}, {losses}; wrong {self.outcomes.wrong}")
            return (account["closed"] and account["read"] == self.component.expected and account["delivered"] == delivered
                    and lines == wanted and losses == self.component.uncounted and self.outcomes.wrong == 0
                    and delivered + sum(wanted.values()) == self.component.expected)
        try:
            wait_until(exact, 15, "an account that closes")
            self.count("accounts_closed")
            return True
        except StageError:
            self.wrong(self.shown)
            return False

    def quiet(self):
        self.component.pause()
        self.server_up.set()
        self.stage.admin("/misbehave", method="DELETE")
        self.settle()
        self.check()
        for request in self.asked:
            wait_until(lambda: self.stage.admin(f"/inventories?type={request}"), 180, f"the inventory {request}")
        self.asked.clear()
        wait_until(lambda: self.stage.setting("appdata.requested") != "true", 120, "the end of the inventories")
        wait_until(lambda: not self.logs.left() or self.busy_driver(), 180, "the logs in bulk")
        self.ended.wait(4)
        pid, age, handles, threads, used = self.health.look()
        self.say(f"quiet: process {pid} of {age} s: {handles} handles, {threads} threads, {used} KiB; {self.shown}")

    def busy_driver(self):
        """Whether all that is left is the driver's log of now."""
        return set(self.logs.left()) <= {self.logs.driver_log.name}

    def replace_rules(self):
        """From now on a kind of event is kept back, or no longer."""
        keeping = not self.component.keeping
        after = self.updates.last_id("results")
        rule = {"Log_rule_1": "TREG:0", "Log_rule_2": "*:1"} if keeping else {"Log_all": "*:1"}
        self.updates.assign("config", until="result", polling_interval=str(self.random.randint(1, 3)),
                            mod_time=str(round(time.time() * 1000)), rid_applied=f"config-{after}", **rule)
        result = self.updates.result("config", after, lambda row: True, "the result of the log rules")
        if result["code"] != 0:
            self.wrong(f"log rules: {result}")
        self.ended.wait(3)  # they take effect with the next reading pass
        self.component.keeping = keeping
        self.count("rules_replaced")

    def replace_policy(self):
        self.version += 1
        version = f"{self.version}.0"
        self.updates.change_policy("Web servers", version, "rule deny file web /srv/www/**\n", lambda row: row["code"] == 0,
                                   "the policy's result")
        wait_until(lambda: self.updates.in_force()[0] == f"Web servers {version}", 60, "the policy in the driver")
        self.count("policies")

    # The whole -------------------------------------------------------------------------------------------------------

    def cycle(self, number):
        self.component.writing.set()
        if number % 3 == 0:
            request = self.stage.admin("/inventory", {"agent": self.guid})["request"]
            self.asked.append(request)
            self.grow_tree(20)
            self.count("inventories_asked")
        end = time.monotonic() + self.random.uniform(15, 30)
        strikes = sorted(self.random.uniform(0, end - time.monotonic()) for _ in range(self.random.randint(1, 3)))
        begun = time.monotonic()
        while time.monotonic() < end:
            if strikes and time.monotonic() - begun >= strikes[0]:
                strikes.pop(0)
                self.fault()
                self.count("faults")
            if self.random.random() < 0.1:
                self.logs.make()
            self.logs.drive()
            if not self.stage.agent.running():
                raise StageError(f"the agent ended by itself with status {self.stage.agent.exit_status}\n" + self.stage.agent.tail())
            self.ended.wait(0.5)
        self.quiet()
        getattr(self, ["replace_rules", "replace_policy"][number % 2])()
        if number % 2:
            self.log_fault(self.kills_allowed)

    def play(self):
        self.say(f"seed {self.arguments.seed}; {self.arguments.minutes} minutes; the full disk is {self.disk.word}")
        self.prepare()
        length, number = self.arguments.minutes * 60, 0
        while (passed := time.monotonic() - self.begun) < length - 30:
            if self.kills_allowed and passed >= length / 3:
                self.kills_allowed = False
                self.logs.fill_a_bundle()
            self.cycle(number)
            number += 1
        return self.finish()

    def answered_well(self, row):
        """An inventory that a full disk keeps from being written is answered with the error."""
        cut_off = any(0 <= row["at_ms"] / 1000 - since <= 120 for since in self.full)
        return row["outcome"] in ("data", "unchanged") or (row["outcome"] == "error" and row["error"] and cut_off)

    def finish(self):
        self.component.pause()
        self.settle()
        closed = self.check()
        wait_until(self.logs.all_sent, 240, "the rest of the logs in bulk")
        inventories = self.stage.admin("/inventories?limit=100000")
        bad = [row for row in inventories if row["fault"] or not self.answered_well(row)]
        if bad:
            self.wrong(f"inventories: {bad}")
        self.health.look()
        self.ended.set()
        self.health.ended.set()
        self.stop()
        # Of a stopped agent, from its files.
        closed = self.check() and closed
        account, causes, entries = self.books()
        slope, seconds = self.health.slope()
        handles, threads = self.health.constant()
        return {"target": self.stage.machine.target, "seed": self.arguments.seed, "minutes": round((time.monotonic() - self.begun) / 60, 1),
                **self.counts, "written": self.component.expected, "kept_back": self.component.fates.count(2), "logs": self.component.logs,
                "delivered": account["delivered"], "ledgered": account["ledgered"], "ledger_entries": entries,
                "uncounted": sum(self.component.uncounted.values()), "accounting_closed": closed, **self.logs.account(),
                "inventories": len(inventories),
                "inventories_scheduled": sum(row["request"].startswith("schedule-") for row in inventories),
                "inventories_with_data": sum(row["outcome"] == "data" for row in inventories), "inventories_bad": len(bad),
                "slope_kib_per_minute": slope, "slope_over_seconds": seconds, "slope_bound": SLOPE_BOUND,
                "most_kib": self.health.most, "quiet_moments": len(self.health.quiet), "lives_compared": len(self.health.lives()),
                "handles_constant": handles, "threads_constant": threads, "stop_ms": self.stop_ms,
                "malformed": self.stage.admin("/state")["malformed"], "full_disk": self.disk.word, "problems": len(self.problems)}


def good(result, long):
    slope = result["slope_kib_per_minute"]
    return (all(result[key] for key in ("accounting_closed", "handles_constant", "threads_constant", "lives_compared"))
            and not any(result[key] for key in ("problems", "malformed", "bulk_twice", "bulk_wrong", "bulk_left", "bulk_faults",
                                                "own_logs_cut", "inventories_bad"))
            and result["bulk_bytes"] == result["bulk_received"] and result["stop_ms"] <= STOP_BOUND_MS
            and (slope is not None and result["inventories_scheduled"] > 0 or not long) and (slope or 0) <= SLOPE_BOUND)


def main():
    parser = argparse.ArgumentParser(description="One agent with everything on.")
    parser.add_argument("--build", required=True)
    parser.add_argument("--minutes", type=float, default=30)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--rate", type=int, default=150, help="events a second")
    parser.add_argument("--windows", help="the Windows build, whose agent then runs under Wine")
    parser.add_argument("--keep-work", action="store_true")
    arguments = parser.parse_args()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    if not arguments.windows:
        in_namespace()
    work = pathlib.Path(tempfile.mkdtemp(prefix="korvane-soak-everything-"))
    (work / "root" / "IPS").mkdir(parents=True)
    disk, well = Disk(work / "root" / "IPS", DISK), False
    try:
        with Stage(arguments.build, work, seed=arguments.seed, windows=arguments.windows) as stage:
            run = Everything(stage, arguments, disk)
            try:
                result = run.play()
                well = good(result, arguments.minutes >= 20)
            except (StageError, OSError, ValueError, LookupError) as error:
                traceback.print_exc()
                result = {"failed": repr(error), "seed": arguments.seed, **run.counts}
                for program in stage.programs[-6:]:
                    print(program.tail())
            finally:
                run.ended.set()
            if not well:
                shutil.copytree(stage.install_root, work / "kept", dirs_exist_ok=True)
        print(json.dumps({**result, "good": well}), flush=True)
        return 0 if well else 1
    finally:
        disk.close()
        if well and not arguments.keep_work:
            shutil.rmtree(work, ignore_errors=True)
        else:
            print(f"files: {work}", file=sys.stderr)


if __name__ == "__main__":
    sys.exit(main())
