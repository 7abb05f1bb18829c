#!/usr/bin/env python3
"""No line of a log is lost without a word: read = delivered + waiting + ledgered, exactly, whatever server, disk and logs do.

ledger.py --build DIR [CASE ...]
"""
import collections
import os
import shutil
import sys
import time

from accounting import STATUS, Answer, Counted, in_namespace, polled, wait_until
from hostile import cases

STREAM = "hidslog1rt"
LIMIT = 69631  # bytes of a line
LOST = ("line-rejected", "server-dropped", "server-rejected")  # the causes whose lines are counted as lost
Line = collections.namedtuple("Line", "kind number log begin end type")


class Component:
    """Writes real-time logs as the IDS component does, and knows each line that it wrote."""

    def __init__(self, stage, rng):
        self.folder, self.random, self.lines, self.number = stage.ids / "logs", rng, [], 0
        self.properties, self.log = stage.ids / "ids.properties", None
        self.kept_back = None  # a type of event
        self.folder.mkdir(exist_ok=True)

    def path(self, name):
        return self.folder / name

    def name(self, name):
        """The settings name this log from now on."""
        fresh = self.properties.with_suffix(".new")
        fresh.write_text(f"ids.service.eventfile.name=\nids.service.rteventfile.name={self.path(name)}\n")
        fresh.replace(self.properties)

    def begin(self, name, named=True):
        self.log = self.path(name)
        self.append("MSOF,0,2026-11-21 03:28:17.123\n")
        if named:
            self.name(name)

    def end(self, successor=""):
        self.append(f"MEOF,0,2026-11-21 03:28:17.123,{successor}\n")

    def rotate(self):
        """The next log, and then the end of this one."""
        before, name = self.log, f"KAV-{self.number:06}.csv"
        self.begin(name)
        self.append(f"MEOF,0,2026-11-21 03:28:17.123,{name}\n", log=before)

    def append(self, text, kind=None, number=0, log=None, event=""):
        data = text if isinstance(text, bytes) else text.encode()
        log = log or self.log
        with open(log, "ab") as file:
            begin = file.tell()
            file.write(data)
        if kind:
            self.lines.append(Line(kind, number, log, begin, begin + len(data), event))

    def write(self, kind):
        """A line, or a few of a run; each has a number of its own."""
        first = self.number + 1  # runs differ, so that one is never folded with the next behind lines that are no events
        for _ in range(self.random.randrange(2, 6) if kind == "run" else 1):
            self.number += 1
            time_of = f"2026-11-21 03:28:17.{self.number % 1000:03}"
            tail = f"same {first}" if kind == "run" else f"alice {self.number}"
            fields = [self.random.choice(["TFIL", "TREG", "TNET", "PSET", "ACRE", "DNET"]) if kind != "run" else "TFIL",
                      str(self.number), time_of, tail, *["x"] * 16]
            if kind == "type":
                fields[0] = self.random.choice(["XFIL", "TFI", "TFILE", "tfil", "", "\u00e4FIL"])
            elif kind == "fields":
                fields += ["y"] * 30
            elif kind == "bytes":
                fields[0] = "\x00\xff\xfe"
            text = ",".join(fields).encode("latin-1" if kind == "bytes" else "utf-8")
            if kind == "long":
                text += b"z" * self.random.choice([LIMIT - len(text) + 1, LIMIT, 3 * LIMIT])
            elif kind == "limit":  # the longest one that is not cut
                text += b"z" * (LIMIT - len(text) - 1)
            end = b"\n" if kind == "limit" else self.random.choice([b"\n", b"\r\n"])
            fate = "rejected" if kind in ("type", "fields", "bytes") else "long" if kind == "long" else "good"
            self.append(text + end, fate, self.number, event=fields[0])

    def feed(self, count, kinds=("good",) * 24 + ("run",) * 2 + ("run", "type", "fields", "bytes", "long", "limit", "empty")):
        """`count` lines of these kinds; ends with one that ends a run."""
        for kind in self.random.choices(kinds, k=count):
            if kind == "empty":
                self.append("\r\n")
            else:
                self.write(kind)
        self.write("good")

    def counted(self):
        """All but those that the server's rules keep back."""
        return [line for line in self.lines if line.kind == "rejected" or line.type != self.kept_back]

    def numbers(self, *kinds):
        return {line.number for line in self.lines if line.kind in kinds}


class Ledger(Counted):
    def setUp(self):
        super().setUp()
        self.component = Component(self.stage, self.random)
        self.lives = 0

    def start(self, **settings):
        """An agent that reads the first log; a later start goes on with what is there."""
        if not self.lives:
            if not self.component.log:
                self.component.begin("KAV-000001.csv")
            self.install(**settings)
        self.lives += 1
        self.run_agent()

    # What is counted -------------------------------------------------------------------------------------------------

    def look(self):
        """The ledger, whose accounts close at every moment."""
        ledger = self.ctl("ledger")[1]
        for row in ledger["accounts"]:
            self.assertEqual(row["read"], row["delivered"] + row["waiting"] + row["ledgered"], row)
            self.assertTrue(row["closed"], row)
            causes = {total["cause"]: total["lines"] for total in ledger["totals"]}
            lost = sum(causes.get(cause, 0) for cause in LOST)  # entered first, and then counted in the account
            self.assertTrue(row["ledgered"] <= lost and (row["waiting"] or row["ledgered"] == lost), f"{row} but {ledger['totals']}")
        return ledger

    def settle(self, seconds=40):
        """Waits, as long as it goes on, until every line was read and none is waiting; the ledger of then."""
        row, known, end = self.row(), None, time.monotonic() + seconds
        while not (row and row["read"] >= len(self.component.counted()) and row["waiting"] == 0):
            if row != known:
                known, end = row, time.monotonic() + seconds
            elif time.monotonic() > end:
                self.stuck(row)
            time.sleep(0.1)
            row = self.row()
        return self.look()

    def stuck(self, row):
        logs = {path.name: path.stat().st_size for path in sorted(self.component.folder.iterdir())}
        self.fail(f"{len(self.component.lines)} lines are not all read and settled: {row}; logs left: {logs}; events: "
                  f"{[line[:200] for line in self.what_was_said()[-8:]]}")

    def row(self):
        return next((row for row in self.look()["accounts"] if row["log"] == STREAM), None)

    def words(self):
        """What the server was told of each line: the numbers that it took, those that it dropped and those that it refused."""
        taken, dropped, refused = set(), set(), set()
        for request, answer in self.server.of("log"):
            into = {0: taken, 302: dropped, 600: refused}.get(answer.code) if answer.http == 200 and answer.loss != "cut" else None
            if into is not None:
                into.update(request.lines())
        return taken, dropped, refused

    def closes(self, ledger, uncounted=0):
        """Compares the account with the lines that were written and with what the server was told and said; exact but for lines to
        which the server gave different answers."""
        row = next(row for row in ledger["accounts"] if row["log"] == STREAM)
        causes = collections.Counter({total["cause"]: total["lines"] for total in ledger["totals"]})
        taken, dropped, refused = self.words()
        good, rejected = self.component.numbers("good", "long"), self.component.numbers("rejected")
        several = (taken & dropped) | (taken & refused) | (dropped & refused)
        self.count(lines=len(self.component.lines), delivered=row["delivered"], ledgered=row["ledgered"], uncounted=row["uncounted"],
                   lives=self.lives, entries=len(ledger["entries"]), answered_twice_otherwise=len(several))
        self.assertEqual(sorted(good - (taken | dropped | refused))[:10], [], f"never sent, of {len(good)}")
        self.assertEqual(sorted((taken | dropped | refused) - good)[:10], [], "sent, but not written as events")
        self.assertEqual(row["read"], len(self.component.lines), "read")
        self.assertEqual(causes["line-rejected"], len(rejected), "rejected")
        self.assertEqual(causes["line-too-long"], len(self.component.numbers("long")), "cut")
        for what, number, numbers in (("delivered", row["delivered"], taken), ("dropped", causes["server-dropped"], dropped),
                                      ("refused", causes["server-rejected"], refused)):
            self.assertTrue(len(numbers - several) <= number <= len(numbers), f"{what}: {number}, the server says {len(numbers)}")
        self.assertEqual(row["delivered"] + causes["server-dropped"] + causes["server-rejected"], len(good), "delivered or dropped")
        self.assertEqual(row["uncounted"], uncounted, ledger)
        self.counted_by_entries(ledger, causes)
        return row

    def counted_by_entries(self, ledger, causes):
        """The entries add up to the totals, and each rejected line lies in one of its cause, unless those lost their places."""
        sums = collections.Counter()
        for entry in ledger["entries"]:
            if entry["counted"]:
                sums[entry["cause"]] += entry["count"]
        self.assertEqual(sums, +causes, "the entries and the totals")
        rows = [entry for entry in ledger["entries"] if entry["cause"] == "line-rejected"]
        if all(entry["path"] and entry["lastPosition"] for entry in rows):
            for line in self.component.lines:
                self.assertTrue(line.kind != "rejected" or any(
                    entry["path"].endswith(line.log.name) and entry["firstPosition"] <= line.begin and line.end <= entry["lastPosition"]
                    for entry in rows), f"{line} is in no entry of {rows}")

    # The cases -------------------------------------------------------------------------------------------------------

    def test_every_kind_of_line_under_every_answer(self):
        answers = [Answer(302), Answer(), Answer(600), Answer(302, loss="reset"), Answer(300), Answer(), Answer(http=503), Answer(600),
                   Answer(loss="reset"), Answer(302)]
        self.random.shuffle(answers)
        self.server.times(lambda request: answers.pop() if answers else None, "log", 1 << 30)
        self.start()
        while answers:
            before = len(answers)
            self.component.feed(self.random.randrange(5, 60))
            wait_until(lambda: len(answers) < before, 40, "the next batch")
        self.component.feed(20)
        self.closes(self.settle())
        self.stop()
        self.assertEqual(self.ctl("ledger")[0], 3)
        self.closes(self.look())

    def test_killed_at_random_moments(self):
        answers = [None] * 6 + [Answer(302), Answer(600), Answer(loss="reset"), Answer(302, loss="reset")]
        self.server.times(lambda request: self.random.choice(answers), "log", 1 << 30)
        for life in range(14):
            self.start()
            if not life:  # a log that was rotated before the agent's first look would never be found
                wait_until(self.row, 30, "the first look")
            end = time.monotonic() + self.random.uniform(0.1, 4)
            while time.monotonic() < end:
                self.component.feed(self.random.randrange(1, 8))
                if self.random.random() < 0.015 and life:
                    self.component.rotate()
                self.look()
            if self.random.random() < 0.85:
                self.kill()
                self.await_end()
            else:
                self.stop()
            self.look()
        self.server.decide = lambda request: None
        self.start()
        self.component.feed(10)
        self.closes(self.settle())

    def test_a_thousand_losses_in_a_bounded_file(self):
        self.start()
        for _ in range(1000):
            self.component.feed(1, ("type", "fields", "bytes"))
        ledger = self.settle()
        self.closes(ledger)
        self.assertLessEqual(len(ledger["entries"]), 64)
        self.assertEqual((self.stage.ips / "lossledger").stat().st_size, 131072)

    def lossy(self):
        """More lines, of which some are lost; settled."""
        self.component.feed(30)
        return self.settle()

    def damage(self, how):
        """Does that to the ledger file of a stopped agent."""
        file = self.stage.ips / "lossledger"
        data = bytearray(file.read_bytes())
        self.assertEqual(len(data), 131072)
        newest = max((0, 65536), key=lambda at: int((data[at:at + 65536].split(b"generation ") + [b"0\n"])[1].split(b"\n")[0] or 0))
        if how == "torn":
            data[newest + 60:newest + 65536] = bytes(65536 - 60)
        elif how == "a flipped bit":
            data[newest + self.random.randrange(200)] ^= 1 << self.random.randrange(8)
        elif how == "noise":
            data[:] = self.random.randbytes(len(data))
        elif how == "cut":
            del data[self.random.randrange(len(data)):]
        elif how == "empty":
            data.clear()
        file.write_bytes(data)
        if how in ("missing", "a folder", "a link"):
            file.unlink()
        if how == "a folder":
            (file / "x").mkdir(parents=True)
        elif how == "a link":
            (self.work / "precious").write_text("precious")
            file.symlink_to(self.work / "precious")

    def test_a_ledger_file_that_was_damaged(self):
        """The read pointer has the sums: whatever becomes of the ledger file, totals stay and the accounts close."""
        self.start()
        for how in ("torn", "a flipped bit", "noise", "cut", "empty", "missing", "a link", "a folder"):
            with self.subTest(how):
                self.lossy()
                (self.stop if self.random.random() < 0.5 else lambda: (self.kill(), self.await_end()))()
                self.forget_what_was_said()
                self.damage(how)
                self.start()
                row = self.lossy()
                if how in ("noise", "a folder", "a link"):
                    self.await_word("ledger")
                self.assertTrue(next(account for account in row["accounts"] if account["log"] == STREAM)["read"] ==
                                len(self.component.lines), how)
                self.sums_hold(row)
                if how == "a link":  # it stays, and is not written through
                    self.stop()
                    (self.stage.ips / "lossledger").unlink()
                    self.start()
        self.assertEqual((self.work / "precious").read_text(), "precious", "written through a link")
        self.stop()
        shutil.rmtree(self.stage.ips / "lossledger")
        self.start()
        self.sums_hold(self.lossy())
        self.assertEqual((self.stage.ips / "lossledger").stat().st_size, 131072)

    def sums_hold(self, ledger):
        causes = collections.Counter({total["cause"]: total["lines"] for total in ledger["totals"]})
        row = next(row for row in ledger["accounts"] if row["log"] == STREAM)
        rejected = len(self.component.numbers("rejected"))
        self.assertEqual((row["read"], row["ledgered"], causes["line-rejected"], causes["line-too-long"]),
                         (len(self.component.lines), rejected, rejected, len(self.component.numbers("long"))))
        self.assertEqual(sum(entry["count"] for entry in ledger["entries"] if entry["cause"] == "line-rejected"), rejected)
        self.count(lines=row["read"], ledgered=rejected, lives=self.lives)

    # What the server and the operator are told -----------------------------------------------------------------------

    def reports(self):
        """The ledger's part of each status that the server has taken, in order; each well-formed."""
        found = []
        for request, answer in self.server.of("status"):
            self.assertEqual(request.names[:10], STATUS)
            rest = [f"{name}={value}" for name, value in request.lists[0][10:]]
            accounts, entries = int(request.pairs.get("ledger.accounts", 0)), int(request.pairs.get("ledger.entries", 0))
            names = ["ledger.accounts", *(f"ledger.account.{n + 1}" for n in range(accounts)), "ledger.entries",
                     *(f"ledger.entry.{n + 1}" for n in range(entries))]
            self.assertIn(request.names[10:], ([], names))
            if rest and answer.taken:
                found.append("\n".join(rest))
        return found

    def same_on_the_wire(self, report, ledger):
        """The report and agentctl's JSON say the same."""
        pairs = dict(line.split("=", 1) for line in report.split("\n"))
        self.assertEqual([pairs[f"ledger.account.{n + 1}"].split(" ") for n in range(int(pairs["ledger.accounts"]))],
                         [[row["log"], row["since"], *(str(row[name]) for name in (
                             "read", "delivered", "waiting", "ledgered", "uncounted"))] for row in ledger["accounts"]])
        self.assertEqual([pairs[f"ledger.entry.{n + 1}"].split(" ", 9) for n in range(int(pairs["ledger.entries"]))],
                         [[entry["stream"] or "-", entry["cause"], "counted" if entry["counted"] else "uncounted",
                           *(str(entry[name]) for name in ("count", "parts", "firstPosition", "lastPosition", "firstAt", "lastAt")),
                           entry["path"] or "-"] for entry in ledger["entries"]])

    def test_the_server_is_told_once_for_each_change(self):
        self.start()
        wait_until(lambda: len(self.server.of("status")) >= 3, 20, "statuses")
        self.assertEqual(self.reports(), [], "nothing was read or lost")
        last = None
        for round_number in range(4):
            self.component.feed(10)
            if round_number == 2:  # a report that was not taken is made again
                self.server.times(Answer(300), "status", 2)
            ledger = self.settle()
            report = wait_until(lambda: (self.reports() or [None])[-1] != last and self.told_of(ledger), 30, "the report")
            self.same_on_the_wire(report, ledger)
            last = report
        told, statuses = len(self.reports()), len(self.server.of("status"))
        wait_until(lambda: len(self.server.of("status")) >= statuses + 4, 30, "further statuses")
        reports = self.reports()
        self.assertEqual(len(reports), told, "told again although nothing changed")
        self.assertEqual([n for n in range(1, told) if reports[n] == reports[n - 1]], [], "told twice")
        status = self.ctl("status")[1]["ledger"]
        self.assertEqual((status["entries"], status["lines"], status["uncounted"], status["closed"]), (
            len(ledger["entries"]), sum(row["ledgered"] for row in ledger["accounts"]), 0, True))
        self.stop()
        self.start()
        wait_until(lambda: len(self.reports()) > told, 30, "the report after a start")
        self.assertEqual(polled(self.reports, 20, 4)[told:], [last], "told again after a start, once")
        self.count(reports=len(self.reports()), statuses=len(self.server.of("status")))

    def told_of(self, ledger):
        row = next(row for row in ledger["accounts"] if row["log"] == STREAM)
        found = [report for report in self.reports()[-1:] if f" {row['read']} {row['delivered']} 0 {row['ledgered']} " in report]
        return found and found[0]

    def test_the_reference_server_says_what_is_missing(self):
        self.serve()
        self.start()
        ledger = self.lossy()
        row = next(row for row in ledger["accounts"] if row["log"] == STREAM)

        def told():
            agents = self.stage.admin("/accounting")
            logs = [log for agent in agents for log in agent["logs"] if log["log"] == STREAM]
            return logs and logs[0]["read"] == row["read"] and logs[0]["waiting"] == 0 and logs[0]
        log = wait_until(told, 30, "the account")
        self.assertEqual({name: log[name] for name in ("delivered", "ledgered", "uncounted", "closed", "short", "complete")},
                         {**{name: row[name] for name in ("delivered", "ledgered", "uncounted")}, "closed": True, "short": 0,
                          "complete": not ledger["entries"]})
        self.assertEqual([(entry["cause"], entry["count"], entry["from"], entry["to"], entry["path"]) for entry in log["missing"]],
                         [(entry["cause"], entry["count"], entry["firstPosition"], entry["lastPosition"], entry["path"])
                          for entry in ledger["entries"]])

    def test_lines_that_a_rule_keeps_back(self):
        """What the server's own rules keep back is no part of the account, and no loss; what else is counted stays as it is."""
        self.start()
        self.server.configuration = {"Log.rule.1": "TNET:0"}
        wait_until(lambda: self.server.of("config"), 30, "the result")
        self.component.kept_back = "TNET"
        self.component.feed(60)
        while self.component.lines[-1].type == "TNET":  # which would end no run
            self.component.write("good")
        row = next(row for row in self.settle()["accounts"] if row["log"] == STREAM)
        self.assertEqual((row["read"], row["ledgered"]), (len(self.component.counted()), len(self.component.numbers("rejected"))))
        self.assertFalse(any(dict(pairs)["v1"] == "TNET" for request, _ in self.server.of("log") for pairs in request.lists))

    # What becomes of logs --------------------------------------------------------------------------------------------

    def uncounted(self, ledger):
        """(cause, name of the log, first position) of the losses that nobody can count."""
        return [(entry["cause"], os.path.basename(entry["path"]), entry["firstPosition"])
                for entry in ledger["entries"] if not entry["counted"]]

    def test_logs_that_go_or_change_while_nobody_reads(self):
        """The agent is stopped at the end of what it read; the log then loses its rest, which nobody can count."""
        self.start()
        expected = []
        for number, (how, cause) in enumerate((("removed", "log-gone"), ("shorter", "log-replaced"), ("another", "log-replaced"),
                                               ("longer", None), ("renamed over", "log-replaced"))):
            with self.subTest(how):
                self.component.feed(20, ("good", "run"))
                self.settle()
                (self.stop if number % 2 else lambda: (self.kill(), self.await_end()))()
                log = self.component.log
                place = log.stat().st_size
                lost = self.component.lines[:]
                self.component.feed(7, ("good",))  # never to be read
                if how != "longer":
                    self.component.lines = lost
                    expected.append((cause, log.name, place))
                if how == "removed":
                    log.unlink()
                    self.component.begin("KAV-000002.csv")
                elif how == "shorter":
                    log.write_bytes(b"")
                    self.component.append("MSOF,0,2026-11-21 03:28:17.123\n")
                elif how == "another":  # the same file with other content that is longer
                    log.write_bytes(b"")
                    self.component.feed(200, ("good",))
                elif how == "renamed over":
                    self.component.log = self.component.path("fresh")
                    self.component.feed(200, ("good",))
                    self.component.log.replace(log)
                    self.component.lines = [line._replace(log=log) for line in self.component.lines]
                    self.component.log = log
                self.component.feed(5, ("good",))
                self.start()
                ledger = self.settle()
                self.assertEqual(self.uncounted(ledger), expected)
                self.closes(ledger, len(expected))

    def test_logs_that_go_or_change_while_they_are_read(self):
        self.start()
        self.component.feed(20)
        self.settle()
        self.component.feed(15)
        self.component.log.unlink()  # it is open, and read to its end
        self.component.begin("KAV-000002.csv")
        self.component.feed(15)
        self.closes(self.settle())
        self.component.log.write_bytes(b"")  # shorter than what was read
        self.component.append("MSOF,0,2026-11-21 03:28:17.123\n")
        self.component.feed(3, ("good",))
        self.closes(self.settle(), 1)

    def test_a_gap_between_logs_and_its_end(self):
        """A log that an end mark names and that never appears is a gap, until it appears all the same."""
        self.start()
        self.component.feed(10)
        self.component.end("KAV-000002.csv")
        self.component.begin("KAV-000003.csv")
        self.component.feed(10)
        ledger = self.settle()
        self.assertEqual([(cause, log) for cause, log, _ in self.uncounted(ledger)], [("log-gap", "KAV-000002.csv")])
        self.closes(ledger, 1)
        third = self.component.log
        self.component.begin("KAV-000002.csv", named=False)
        self.component.feed(10)
        self.component.log = third
        ledger = self.settle()
        wait_until(lambda: not self.uncounted(self.look()), 20, "the end of the gap")
        self.closes(self.look())

    def test_permission_taken_away(self):
        self.as_account()
        self.start()
        self.component.feed(20)
        self.settle()
        self.stop()
        self.component.feed(20)
        self.component.log.chmod(0)
        self.start()
        polled(self.row, 8, 6)
        self.assertEqual(self.uncounted(self.look()), [], "what can be read again is not lost")
        self.component.log.chmod(0o644)
        self.closes(self.settle())
        self.stop()
        (self.stage.ips / "lossledger").chmod(0)
        self.start()
        self.closes(self.lossy())

    def test_a_full_disk(self):
        self.mount(self.stage.ips, 64 << 20)
        (self.stage.ips / "extensions").mkdir()
        self.start()
        self.lossy()
        filler = self.stage.ips / "filler"
        with open(filler, "wb", buffering=0) as file:
            for size in (1 << 16, 1 << 12, 1):
                try:
                    while file.write(bytes(size)) == size:
                        pass
                except OSError:
                    pass
        self.closes(self.lossy())
        self.kill()
        self.await_end()
        self.component.feed(30)
        filler.unlink()
        self.start()
        self.closes(self.settle())
        self.closes(self.lossy())
        self.stop()
        self.closes(self.look())

    def test_the_ledger_cannot_be_made(self):
        """Neither a full disk nor a folder in its place keeps events back; what is lost meanwhile is entered later."""
        (self.stage.ips / "lossledger").mkdir()
        self.start()
        self.closes(self.lossy())
        self.await_word("ledger")
        (self.stage.ips / "lossledger").rmdir()
        self.lossy()
        self.stop()
        ledger = self.look()
        self.closes(ledger)
        self.assertTrue(all(entry["path"] for entry in ledger["entries"]), "entered without a place")

    def test_a_clock_that_jumps(self):
        self.skipTest("needs a clock of its own for a process, which this system does not give")


if __name__ == "__main__":
    in_namespace()
    sys.exit(cases.run(Counted, __doc__))
