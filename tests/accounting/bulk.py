#!/usr/bin/env python3
"""A finished log arrives whole, byte for byte, and is removed only after the server has said that it has it.

bulk.py --build DIR [CASE ...]
"""
import collections
import contextlib
import datetime
import hashlib
import io
import os
import pathlib
import re
import subprocess
import sys
import threading
import time
import zipfile

from accounting import MEBI, Answer, Counted, StageError, in_namespace, polled, wait_until
from hostile import cases
from stage import DRIVER_KEY

PART = re.compile(r"part=(?P<entry>\S+) (?P<kind>agent|driver|profile|ids|external) (?P<log>[0-9a-z]{12}) (?P<begin>0|[1-9]\d*) "
                  r"(?P<end>[1-9]\d*) (?P<size>\d+) (?P<modified>-?\d+) (?P<digest>-|[0-9a-f]{64}) (?P<path>/.{0,4095})")
Part = collections.namedtuple("Part", "bundle kind log begin end size path data")


class Shelf:
    """What the server has: bundles by name, each taken apart and checked, and what of each log they add up to."""

    def __init__(self, case):
        self.case, self.bundles, self.parts, self.wrong, self.accepted = case, {}, [], [], set()
        self.digests = False  # whether the parts are to have digests

    def arrive(self, request):
        """Looks at a bundle before it is answered: every log in it must still be there."""
        name, (data,) = request.pairs["file.name"], request.binaries
        try:
            known = self.bundles.setdefault(name, data)
            self.case.assertEqual(hashlib.sha256(data).digest(), hashlib.sha256(known).digest(), f"{name} came with other bytes")
            if known is data:
                self.parts += self.open(name, data)
            if name not in self.accepted:
                for part in self.parts:
                    if part.bundle == name and part.path in self.case.kept:
                        self.still_there(part.path)
        except Exception as error:  # in a thread of the server: for the case to raise
            self.wrong.append(f"{name}: {error!r}")

    def still_there(self, path):
        there = pathlib.Path(path).read_bytes() if os.path.exists(path) else None
        if path in self.case.kept:  # the case itself may have taken it away meanwhile
            self.case.assertEqual(self.case.kept[path], there, "before it was accepted")

    def open(self, name, data):
        """The parts of a bundle, after every rule of the page about it."""
        case = self.case
        case.assertRegex(name, r"^bulk-\d{17}-[0-9a-z]{12}\.zip$")
        case.assertLessEqual(len(data), 9 * MEBI)
        archive = zipfile.ZipFile(io.BytesIO(data))
        case.assertIsNone(archive.testzip())
        lines = archive.read("manifest.txt").decode().split("\n")
        case.assertEqual((archive.namelist()[-1], lines[:2], lines[-2:]), (
            "manifest.txt", ["korvane-bulk 1", f"bundle={name}"], [f"end={len(lines) - 4}", ""]))
        parts = []
        for number, line in enumerate(lines[2:-2], 1):
            found = PART.fullmatch(line)
            case.assertTrue(found, line)
            part = Part(name, found["kind"], found["log"], int(found["begin"]), int(found["end"]), int(found["size"]), found["path"],
                        archive.read(found["entry"]))
            base = re.sub(r"[^A-Za-z0-9._-]", "_", os.path.basename(part.path).encode()[-200:].decode("latin-1"))
            case.assertRegex(found["entry"], rf"^{part.kind}/0*{number}-")
            case.assertTrue(found["entry"].endswith(base[-100:]), found["entry"])
            case.assertEqual(part.end - part.begin, len(part.data), line)
            case.assertLessEqual(part.end, part.size, line)
            whole = part.data.endswith(b"\n") or part.end == part.size or b"\n" not in part.data[-65536:]
            case.assertTrue(whole, f"cut in a line: {line}")
            case.assertEqual(found["digest"], hashlib.sha256(part.data).hexdigest() if self.digests else "-")
            date = datetime.datetime.fromtimestamp(int(found["modified"]) // 1000, datetime.timezone.utc).timetuple()[:5]
            case.assertEqual(archive.getinfo(found["entry"]).date_time[:5], date, line)
            parts.append(part)
        case.assertEqual(len(archive.namelist()), len(parts) + 1)
        case.assertLessEqual(len(parts), case.open_files)
        case.assertLessEqual(sum(len(part.data) for part in parts), 64 * MEBI)
        case.assertEqual(len({part.log for part in parts}), len(parts), "a log twice in a bundle")
        return parts

    def logs(self):
        """What the accepted bundles make of each log, by its identifier: its paths and its bytes without holes from the first on."""
        found, paths = {}, collections.defaultdict(set)
        for part in sorted((part for part in self.parts if part.bundle in self.accepted), key=lambda part: part.begin):
            data = found.setdefault(part.log, bytearray())
            self.case.assertEqual(part.begin, len(data), f"{part.path} to {part.end}: a hole, or bytes that came twice")
            data += part.data
            paths[part.log].add(part.path)
        return {log: (paths[log], bytes(data)) for log, data in found.items()}


class Bulk(Counted):
    def setUp(self):
        super().setUp()
        self.kept, self.open_files, self.lives = {}, 16, 0  # kept: path -> bytes of the logs that must not change before they are accepted
        self.shelf, self.say = Shelf(self), lambda request: None
        self.server.decide = self.decide
        self.logs, self.ids_logs = self.stage.ips / "logs", self.stage.ids / "logs"
        for folder in (self.logs, self.ids_logs):
            folder.mkdir(exist_ok=True)
        self.ids_current = self.ids_logs / "KAVEvent-900.csv"
        self.ids_current.write_text("MSOF,0,2026-11-21 03:28:17.123\n")
        (self.stage.ids / "ids.properties").write_text(f"ids.service.eventfile.name={self.ids_current}\nids.service.rteventfile.name=\n")

    def tearDown(self):
        super().tearDown()
        self.assertEqual(self.shelf.wrong, [])

    def decide(self, request):
        if request.kind != "bulk-log":
            return None
        self.shelf.arrive(request)
        answer = self.say(request) or Answer()
        if answer.taken:
            self.shelf.accepted.add(request.pairs["file.name"])
        return answer

    # Logs ------------------------------------------------------------------------------------------------------------

    def noise(self, size):
        """Lines that hardly shrink."""
        text = b"".join(self.random.randbytes(120).replace(b"\n", b" ") + b"\n" for _ in range(size // 121 + 1))
        return text[:size]

    def finished(self, number, size, kind="agent"):
        """A rolled log with that much in it, older the lower the number."""
        path = self.logs / f"korvane-agent-20251121{number:09}-1.log" if kind == "agent" else self.ids_logs / f"KAVEvent-{number}.csv"
        data = self.noise(size)
        path.write_bytes(data)
        os.utime(path, (1700000000 + number, 1700000000 + number))
        self.kept[str(path)] = data
        return path

    def start(self, **settings):
        self.lives += 1
        if self.lives == 1:
            (self.logs / "korvane-agent-20251121999999999-1.log").touch()  # the newest, which the agent goes on writing
            self.install(AgentLog={"agentlog.log.trace.messages": "false"}, **{"ExternalLogs": {}, **settings, "Log": {
                "log.bulktransfer.enabled": "true", "log.bulktransfer.idleinterval": 2, "log.bulktransfer.backloginterval": 0,
                "log.consolidate": "false", "log.disk.upperlimit": 0, **settings.get("Log", {})}})
        self.run_agent()

    def everything(self, paths, seconds=60, gone=True):
        """Waits until the server has each of these logs whole, and they are removed (or not)."""
        def have():
            logs = self.shelf.logs().values()
            return all(any(path in names and data == self.kept[path] for names, data in logs) for path in map(str, paths))

        def state():
            return [(min(names), len(data)) for names, data in self.shelf.logs().values() if self.kept.get(min(names)) != data]
        try:
            wait_until(have, seconds, "the logs at the server")
            wait_until(lambda: all(path.exists() != gone for path in paths), seconds, "their end" if gone else "them")
        except StageError:
            raise AssertionError(f"{len(paths)} logs wanted; not equal: {state()}; left: {[path.name for path in paths if path.exists()]}; "
                                 f"wrong: {self.shelf.wrong}") from None
        self.assertEqual(self.shelf.wrong, [])
        self.count(logs=len(paths), bundles=len(self.shelf.accepted), bundles_sent=len(self.server.of("bulk-log")),
                   bytes=sum(len(data) for _, data in self.shelf.logs().values()), lives=self.lives)

    # The cases -------------------------------------------------------------------------------------------------------

    def test_finished_logs_arrive_whole_and_are_removed(self):
        self.shelf.digests = True
        paths = [self.finished(number, size) for number, size in enumerate((0, 1, 70000, 5 * MEBI, 20 * MEBI, 100, 3))]
        paths += [self.finished(number, size, "ids") for number, size in ((1, 3000), (2, 9 * MEBI), (3, 0))]
        long_line = self.finished(50, 0)
        long_line.write_bytes(self.random.randbytes(12 * MEBI).replace(b"\n", b" "))
        self.kept[str(long_line)] = long_line.read_bytes()
        odd = self.logs / "korvane-agent-20251121000000000-2.log"
        odd.symlink_to(self.work / "secret")
        (self.work / "secret").write_text("SECRET\n")
        (self.ids_logs / "KAVEvent-7.csv").mkdir()
        (self.logs / "another.txt").write_text("x\n")
        self.start(Log={"log.collectsha256hash": "true"})
        full = [path for path in [*paths, long_line] if self.kept[str(path)]]
        self.everything(full, 90)
        wait_until(lambda: not any(path.exists() for path in paths), 20, "the end of the empty ones")
        self.assertTrue(odd.is_symlink() and (self.logs / "another.txt").exists() and self.ids_current.exists())
        sent = {path for names, _ in self.shelf.logs().values() for path in names}
        self.assertEqual(sent - {str(path) for path in paths} - {str(long_line)}, set(), "sent, but no finished log")
        self.assertFalse(any(b"SECRET" in part.data for part in self.shelf.parts))
        order = list(dict.fromkeys(part.path for part in self.shelf.parts if part.kind == "agent"))
        self.assertEqual(order, sorted(order), "the oldest first")
        self.stop()

    def test_many_logs_within_the_limit_of_open_files(self):
        self.open_files = 5
        paths = [self.finished(number, self.random.randrange(1, 3000)) for number in range(60)]
        self.start(Log={"log.bulktransfer.openfilelimit": 5})
        self.everything(paths)
        self.assertEqual(len(self.shelf.bundles), 12)

    def test_an_own_log_that_is_rolled_meanwhile(self):
        """The log being written is not sent; once it is rolled it arrives with every record, none missing."""
        self.start(Log={"log.rollover.cause": 2, "log.rollover.value": 1, "log.bulktransfer.idleinterval": 1})
        self.set(agentlog__log__trace__messages="true")
        begun = time.monotonic()
        while len(self.shelf.logs()) < 2 and time.monotonic() < begun + 60:
            with contextlib.suppress(OSError):
                self.ask("korvane-agent", "getStatus")
        self.stop()
        logs = {str(path): path.read_bytes() for path in self.own_logs()}
        logs.update((min(names), data) for names, data in self.shelf.logs().values())
        self.assertTrue(self.shelf.logs(), "none was rolled")
        numbers = [int(line.split(b",")[1]) for name in sorted(logs) for line in logs[name].split(b"\n")[:-1]]
        self.assertEqual(numbers, list(range(1, len(numbers) + 1)), "records of the own log")
        self.count(records=len(numbers), logs=len(self.shelf.logs()))

    def test_no_answer_but_success_removes_a_log(self):
        paths = [self.finished(number, 1000) for number in range(3)]
        answers = [Answer(302), Answer(600), Answer(loss="reset"), Answer(http=500), Answer(400), Answer(300), Answer(loss="cut")]
        self.random.shuffle(answers)
        self.count(first_answer=repr(answers[0]))
        answers = answers[:5]
        seen = []

        def say(request):
            seen.append((request.pairs["file.name"], [path.exists() for path in paths], request.at))
            return answers.pop() if answers else None
        self.say = say
        self.start()
        self.everything(paths, 90)
        self.assertEqual({name for name, _, _ in seen}, {seen[0][0]}, "the same bundle again")
        self.assertTrue(all(all(there) for _, there, _ in seen), "removed before it was accepted")
        self.assertTrue(self.logged("10720") and self.logged("10721"))
        gaps = [later[2] - former[2] for former, later in zip(seen, seen[1:])]
        self.assertTrue(all(gap >= 4.5 or gap < 0.5 for gap in gaps), f"at least 5 seconds between, but for libcurl's own: {gaps}")

    def test_killed_at_random_moments(self):
        """Each byte arrives and counts once, whatever moment the agent is killed at."""
        paths = [self.finished(number, self.random.randrange(1, 3 * MEBI)) for number in range(24)]
        killer = []

        def say(_):
            if self.random.random() < 0.5:
                killer.append(threading.Timer(self.random.uniform(0, 0.03), self.kill))
                killer[-1].start()
            return Answer(loss=self.random.choice([None, None, "reset"]))
        self.say = say
        for _ in range(16):
            self.start()
            end = time.monotonic() + self.random.uniform(0.02, 1.2)
            wait_until(lambda: time.monotonic() > end or not self.stage.agent.running(), 10, "the moment")
            self.kill()
            self.await_end()
            for timer in killer:
                timer.join()
        self.say = lambda request: None
        self.start()
        self.everything(paths, 90)
        leftovers = [path.name for path in (self.stage.ips / "bulk").iterdir() if path.name != "bulk.state"]
        self.assertEqual(leftovers, [], "left behind by a kill")

    def test_logs_that_are_kept(self):
        """log.delete.enabled=false: all of it is sent once and stays; switched on it goes."""
        paths = [self.finished(number, 5000) for number in range(5)]
        self.start(Log={"log.delete.enabled": "false"})
        self.everything(paths, gone=False)
        sent = len(self.server.of("bulk-log"))
        self.kill()
        self.await_end()
        self.start()
        more = self.finished(7, 5000)
        self.everything([*paths, more], gone=False)
        self.assertEqual({part.path for part in self.shelf.parts if part.bundle not in list(self.shelf.bundles)[:sent]}, {str(more)})
        self.set(log__delete__enabled="true")
        wait_until(lambda: not any(path.exists() for path in [*paths, more]), 20, "their end")
        self.assertEqual(self.ctl("ledger")[1]["entries"], [])

    def ledger(self, cause):
        return [(os.path.basename(entry["path"]), entry["firstPosition"], entry["lastPosition"])
                for entry in self.ctl("ledger")[1]["entries"] if entry["cause"] == cause]

    def test_logs_that_change_before_they_are_sent(self):
        """Grown, renamed, replaced, cut or removed while the server does not take the bundle, which has them: nothing is lost."""
        self.say = lambda request: Answer(300)
        grown, renamed, replaced, cut, gone = paths = [self.finished(number, 4000) for number in range(5)]
        moved = renamed.with_name("korvane-agent-20251121000000001-9.log")
        self.start()
        wait_until(lambda: self.shelf.bundles, 20, "a bundle")
        old, self.kept = self.kept, {}
        with open(grown, "ab") as file:
            file.write(b"more\n")
            file.flush()
            renamed.rename(moved)
            (self.logs / "new").write_bytes(b"new\n")
            (self.logs / "new").replace(replaced)
            cut.write_bytes(b"cut\n")
            gone.unlink()
            self.say = lambda request: None
            wait_until(lambda: not any(path.exists() for path in [*paths, moved]), 60, "the end of all of them")
        contents = [data for _, data in self.shelf.logs().values()]
        for data in (old[str(grown)] + b"more\n", old[str(renamed)], b"new\n", b"cut\n"):
            self.assertIn(data, contents)
        for path in (replaced, cut, gone):  # the bundle had all of them
            self.assertIn(old[str(path)], contents)
        self.assertEqual(self.ctl("ledger")[1]["entries"], [], "nothing was lost")

    def test_logs_that_are_lost_before_they_are_packed(self):
        """A log of many bundles goes, or is replaced, after the first one: the range that nobody has is an event and an entry."""
        for how, cause in (("gone", "log-gone"), ("replaced", "log-replaced")):
            with self.subTest(how):
                log = self.finished(1 if how == "gone" else 2, 20 * MEBI)
                self.say = lambda request: Answer(delay=3)
                self.start() if self.lives == 0 else None
                wait_until(lambda: any(part.path == str(log) for part in self.shelf.parts), 30, "the first bundle")
                sent = [part for part in self.shelf.parts if part.path == str(log)][-1].end
                self.kept.pop(str(log))
                log.unlink()
                if how == "replaced":
                    log.write_bytes(b"new\n")
                self.say = lambda request: None
                wait_until(lambda: self.logged("10724", log.name), 30, "the event")
                wait_until(lambda: (log.name, sent, 20 * MEBI) in self.ledger(cause), 20, f"the entry; {self.ctl('ledger')[1]['entries']}")
        wait_until(lambda: any(data == b"new\n" for _, data in self.shelf.logs().values()), 30, "the new log")

    def test_external_logs(self):
        outside = self.work / "app"
        (outside / "open").mkdir(parents=True)
        (outside / "open").chmod(0o777)
        for folder in (outside, outside / "open"):
            (folder / "app-1.log").write_text("one\ntwo\n")
        (outside / "app-2.log").write_text("whole\nunfinished")
        (outside / "app-link.log").symlink_to("/etc/passwd")
        (outside / "other.txt").write_text("no\n")
        (self.stage.ips / "inside").mkdir()
        (self.stage.ips / "inside" / "rel.log").write_text("relative\n")
        (self.work / "x*y").mkdir()
        (self.work / "x*y" / "a.log").write_text("pattern\n")
        entries = [f" {outside}/app-?.log", "inside/*.log ", f"{outside}/open/*.log", f"{self.work}/x*y/*.log", f"{outside}/a,b.log",
                   f"{outside}/app-link.log", f"{outside}/absent.log"]
        self.start(ExternalLogs={"external.log": ";".join(entries)})

        def external():
            return {os.path.basename(min(names)): data for names, data in self.shelf.logs().values() if "/logs/korvane" not in min(names)}
        wait_until(lambda: {"app-1.log", "rel.log"} <= external().keys(), 30, "the logs")
        self.assertEqual(external()["app-1.log"], b"one\ntwo\n")
        with open(outside / "app-2.log", "a", encoding="ascii") as file:
            file.write(" line\nand ")
        with open(outside / "app-1.log", "a", encoding="ascii") as file:
            file.write("three\n")
        wait_until(lambda: external().get("app-2.log", b"").startswith(b"whole\nunfinished line\n"), 30, "the line that was finished")
        wait_until(lambda: external()["app-1.log"] == b"one\ntwo\nthree\n", 30, "what was new")
        for part in self.shelf.parts:
            self.assertFalse(b"root:" in part.data or b"no\n" == part.data or "/open/" in part.path or "x*y" in part.path, part.path)
        complaints = self.logged("10727")
        for word in ("open", "x*y", "a,b"):
            self.assertEqual(len([text for text in complaints if word in text]), 1, f"{word}: {complaints}")
        self.assertTrue(all((outside / name).exists() for name in ("app-1.log", "app-2.log")), "another program's log was removed")
        self.count(external=len(external()), complaints=len(complaints))

    def test_external_logs_of_a_server_stay_inside(self):
        (self.work / "out").mkdir()
        (self.work / "out" / "secret.log").write_text("SECRET\n")
        (self.stage.ips / "in").symlink_to(self.work / "out")
        self.start(System={"settings.local.only": ""})
        for value in (f"{self.work}/out/*.log", "../../out/secret.log", "in/secret.log", f"ok/*.log;{self.work}/out/secret.log"):
            before = len(self.server.of("config"))
            self.server.configuration = {"external.log": value}
            wait_until(lambda: len(self.server.of("config")) > before, 30, "the result")
            result = self.server.of("config")[-1][0].pairs
            self.assertEqual(result["result.errorcode"], "1004", value)
            self.assertIn("external.log", result["result.errormessage"])
        bundles = polled(lambda: len(self.shelf.bundles), 5, 3)
        self.assertFalse(any(b"SECRET" in part.data for part in self.shelf.parts), f"one of {bundles} bundles")

    def test_state_that_was_damaged(self):
        """A damaged state counts as missing: all is sent again under other identifiers, and nothing goes before it was accepted."""
        state = self.stage.ips / "bulk" / "bulk.state"
        for how in ("cut", "a flipped bit", "empty", "missing", "a folder", "no bundle", "another bundle"):
            with self.subTest(how):
                self.say = lambda request: Answer(300)
                path = self.finished(self.lives, 3000)
                begun = len(self.shelf.bundles)
                self.start()
                wait_until(lambda: len(self.shelf.bundles) > begun, 30, "a bundle")
                self.kill()
                self.await_end()
                data = bytearray(state.read_bytes())
                (bundle,) = state.parent.glob("bulk-*.zip")
                if how == "cut":
                    del data[self.random.randrange(1, len(data)):]
                elif how == "a flipped bit":
                    data[self.random.randrange(len(data))] ^= 1 << self.random.randrange(7)
                elif how == "empty":
                    data.clear()
                state.write_bytes(data)
                if how in ("missing", "a folder"):
                    state.unlink()
                if how == "a folder":
                    (state / "x").mkdir(parents=True)
                elif how == "no bundle":
                    bundle.unlink()
                elif how == "another bundle":
                    bundle.write_bytes(b"PK" + bytes(bundle.stat().st_size - 2))
                self.say = lambda request: None
                self.start()
                if how == "a folder":
                    wait_until(lambda: self.logged("10726"), 20, "an event")
                    self.assertTrue(path.exists(), "removed although the state cannot be written")
                    (state / "x").rmdir()
                    state.rmdir()
                self.everything([path])
                self.stop()

    def test_a_stop_in_the_middle(self):
        paths = [self.finished(number, 7 * MEBI) for number in range(2)]
        self.say = lambda request: Answer(delay=20)
        self.start()
        wait_until(lambda: self.shelf.bundles, 20, "a bundle")
        self.stop()
        self.assertTrue(all(path.exists() for path in paths))
        self.say = lambda request: None
        self.start()
        self.everything(paths)

    def test_memory_of_a_long_transfer(self):
        paths = [self.finished(number, 12 * MEBI) for number in range(8)]
        self.start(Log={"log.bulktransfer.enabled": "false"})
        polled(lambda: self.stage.memory_kib("RssAnon"), 10, 2)
        idle, most = self.stage.memory_kib("RssAnon"), [0]
        self.set(log__bulktransfer__enabled="true")

        def done():
            most[0] = max(most[0], self.stage.memory_kib("RssAnon"))
            return not any(path.exists() for path in paths)
        wait_until(done, 90, "the transfer")
        self.everything(paths)
        self.count(KiB_above_idle=most[0] - idle)
        self.assertLess(most[0] - idle, 24 << 10, "KiB above idle")

    def test_the_drivers_logs_are_rolled_first(self):
        folder = self.work / "driver logs"
        folder.mkdir()
        paths = {"Log File": folder / "driver.csv", "Profile File": folder / "profile-20251121000000000.csv"}
        for path in paths.values():
            path.write_bytes(self.noise(5000))
            self.kept[str(path)] = path.read_bytes()
        self.stage.start_driver()
        install = self.stage.install
        self.stage.install = lambda kind, settings: install(kind, settings, [
            f"[{DRIVER_KEY}\\KAVIPSDriver\\Parameters]", *(f'"{name}"="{path}"' for name, path in paths.items()), ""])
        self.stage.driver_control = self.stage.machine.driver_control
        self.stage.driver_control("fail", "31")
        self.start()
        wait_until(lambda: self.logged("10728"), 40, "the driver refuses")
        self.assertTrue(all(path.exists() for path in paths.values()))
        self.stage.driver_control("normal")
        self.everything(list(paths.values()), 90)
        self.assertEqual({part.kind for part in self.shelf.parts}, {"driver", "profile"})
        for setting, shape in (("driverlog.logfile", r"driver-\d{17}\.csv"), ("driverlog.profile.logfile", r"profile-\d{17}\.csv")):
            self.assertRegex(self.stage.setting(setting), re.escape(str(folder)) + "/" + shape)
        registry = self.stage.machine.registry.read_text(errors="replace")
        self.assertIn(self.stage.setting("driverlog.logfile"), registry.replace("\\\\", "\\"))

    # Disks -----------------------------------------------------------------------------------------------------------

    def test_disk_limits(self):
        """Kept copies first, then the oldest logs, each with an event and an entry, until the lower limit; not the one being written."""
        self.mount(self.logs, 20 << 20)
        paths = [self.finished(number, 1500000) for number in range(11)]
        self.say = lambda request: Answer(300)
        self.start(Log={"log.disk.upperlimit": 70, "log.disk.lowerlimit": 50, "log.delete.enabled": "false"})

        def used():
            about = os.statvfs(self.logs)
            return 100 * (1 - about.f_bavail / about.f_blocks)
        wait_until(lambda: used() < 51, 30, "room")
        left = [path for path in paths if path.exists()]
        lost = [path for path in paths if not path.exists()]
        self.assertGreater(used(), 50 - 8, "more than one log too many")
        under_way = {part.path for part in self.shelf.parts}
        self.assertEqual(lost, [path for path in paths if str(path) not in under_way][:len(lost)], "the oldest first")
        self.assertEqual(sorted(self.ledger("disk-limit")), sorted((path.name, 0, 1500000) for path in lost))
        self.assertEqual(len(self.logged("10723")), len(lost))
        self.say = lambda request: None
        self.everything(left, 60, gone=False)
        new = self.finished(100, 6 * MEBI)
        wait_until(lambda: used() < 71, 30, "room")
        self.everything([new], gone=False)
        self.assertEqual(len(self.ledger("disk-limit")), len(lost), "a copy that the server has is no loss")
        self.count(lost=len(lost), left=len(left))

    def test_a_full_disk(self):
        """Bundles cannot be packed, nor the state written: nothing is removed; with room again all goes on."""
        self.mount(self.stage.ips / "bulk", 1 << 20)
        paths = [self.finished(number, 3 * MEBI) for number in range(2)]
        self.start()
        wait_until(lambda: self.logged("10722") or self.logged("10726"), 20, "an event")
        self.assertEqual((len(self.shelf.bundles), [path.exists() for path in paths]), (0, [True, True]))
        wait_until(lambda: not list((self.stage.ips / "bulk").glob("*.part")), 10, "the end of what was begun")
        subprocess.run(["mount", "-o", "remount,size=64m", self.stage.ips / "bulk"], check=True)
        self.everything(paths)

    def test_a_folder_that_may_not_be_written(self):
        """An agent of an ordinary account, whose logs and folder are taken away from it and given back."""
        self.as_account()
        paths = [self.finished(number, 3000) for number in range(3)]
        self.own()
        paths[0].chmod(0)
        self.start()
        self.everything(paths[1:])
        self.assertTrue(paths[0].exists())
        paths[0].chmod(0o600)
        self.everything(paths)
        os.chown(self.stage.ips / "bulk", 0, 0)
        (self.stage.ips / "bulk").chmod(0o755)
        more = self.finished(9, 3000)
        os.chown(more, self.account, self.account)
        wait_until(lambda: self.logged("10722") or self.logged("10726"), 20, "an event")
        self.assertTrue(more.exists())
        os.chown(self.stage.ips / "bulk", self.account, self.account)
        self.everything([more])


if __name__ == "__main__":
    in_namespace()
    sys.exit(cases.run(Counted, __doc__))
