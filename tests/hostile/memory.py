#!/usr/bin/env python3
"""What hostile input may cost: 64 MiB of memory above an idle agent, its peak counted, and no disk that is not there.

memory.py --build DIR [CASE ...]
"""
import base64
import json
import os
import sys
import time
import zipfile

from hostile import CLOUD, LOCAL, LONG, MEBI, Attack, Client, cases, wait_until, zipped

CEILING = 64 * MEBI


def bomb(entries=1):
    """About half a megabyte that unpacks, within the limits, to half a gigabyte."""
    return zipped([(f"big-{number}.dat", bytes(500 * MEBI // entries)) for number in range(entries)])


class Memory(Attack):
    def quiet(self):
        """The peak's count begins anew; gives the memory in use."""
        time.sleep(0.5)
        with open(f"/proc/{self.stage.agent.pid}/clear_refs", "w", encoding="ascii") as file:
            file.write("5")
        return self.stage.memory_kib("VmRSS") * 1024

    def costs(self, name, act):
        """Runs act(), which waits for what the agent makes of it; the peak stays below the ceiling."""
        with self.subTest(name):
            idle = self.quiet()
            try:
                act()
            finally:
                peak = self.stage.memory_kib("VmHWM") * 1024 - idle
                print(f"{name}: {peak / MEBI:.0f} MiB above idle", flush=True)
            self.assertTrue(self.stage.agent.running(), "the agent ended")
            self.assertLess(peak, CEILING, "bytes above idle")

    def answered(self, word="result", more=2):
        """Waits until so many further requests of a kind have come."""
        after = self.last("requests")
        wait_until(lambda: len(self.stage.admin(f"/requests?word={word}&after={after}&limit=100")) >= more, LONG, word)

    def misbehave(self, kind, word="result", **keys):
        def act():
            self.stage.admin("/misbehave", {"kind": kind, "word": word, "count": 1, **keys})
            self.answered(more=3)
        return act

    def package(self, kind, data, result=None, **properties):
        return lambda: self.assign(kind, result or kind, self.served(f"{kind}.zip", data), **properties)

    def content(self, kind, data):
        """It is reported when it is unpacked; then the component gets it, or an event says why not."""
        def act():
            said = len(self.what_was_said())
            self.assign(kind, kind, self.served(f"{kind}.zip", data))
            wait_until(lambda: any("content" in text or "package" in text for text in self.what_was_said()[said:]), LONG, "the hand-over")
        return act

    def policy(self, data):
        """Results of policies come with every status; what counts is that the package was fetched."""
        def act():
            self.served("policy.zip", data)
            self.stage.admin("/assign", {"kind": "policy", "file": "policy.zip",
                                         "properties": {"policy.name": "Bomb 1", "policy.path": "/bomb"}})
            self.answered("update", 1)
            self.answered(more=3)
        return act

    def test_answers_and_packages_of_a_server(self):
        self.serve()
        self.install()
        (self.stage.ids / "ids.properties").touch()
        self.stage.start_driver()
        self.run_agent()
        self.answered(more=2)
        text = "x" * (63 * MEBI)
        packed, pairs = bomb(), {f"k{number:06}": "v" * 60 for number in range(99_000)}
        many = zipped([(f"d{number % 50}/f{number}", b"x" * 500) for number in range(4000)])
        self.costs("an error text of 63 MiB", self.misbehave("error", code=700, text=text))
        self.costs("the same in UTF-16", self.misbehave("error", code=700, text=text[:31 * MEBI], wide=True))
        self.costs("properties of 63 MiB", self.misbehave("oversized", bytes=63 * MEBI))
        self.costs("properties beyond the limit", self.misbehave("oversized", bytes=200 * MEBI))
        self.costs("endless headers", self.misbehave("endlessHeaders", bytes=64 * MEBI))
        self.costs("99,000 settings", lambda: self.configure(**pairs))
        self.costs("a software package", self.package("software", packed, **{"software.name": "bomb"}))
        large = zipped([("a", os.urandom(60 * MEBI))], 0)
        self.costs("a software package of 60 MiB", self.package("software", large, **{"software.name": "large"}))
        self.costs("4,000 files", self.package("software", many, **{"software.name": "many"}))
        self.costs("a policy", self.policy(packed))
        self.costs("a policy whose text is large", self.policy(zipped([("policy.txt", b"korvane-policy 1\n" + bytes(400 * MEBI))])))
        self.costs("content of one file", self.content("qel", packed))
        self.costs("content of many", self.content("ferrolyn.settings", bomb(40)))

    def test_frames_of_the_pipes(self):
        self.service_type = 2
        self.install()
        self.stage.start_driver()
        self.run_agent()
        wait_until(lambda: os.path.exists(self.stage.machine.run_dir / f"{CLOUD}.pipe"), 20, "the cloud pipe")

        def asks(pipe, method, **params):
            def act():
                with Client(self.stage, pipe) as client:
                    client.ask(method, **params)
            return act
        tiny = "\\u0001" * ((8 * MEBI - 200) // 6)
        longest = json.dumps({"jsonrpc": "2.0", "id": 1, "name": "getTechNames", "params": {"x": "TEXT"}}).replace("TEXT", tiny)

        def escaped():
            with Client(self.stage, LOCAL) as client:
                client.send(longest)
                client.receive()
        coded = base64.b64encode(bomb()).decode()
        self.costs("the longest text", asks(LOCAL, "getTechNames", x="y" * (8 * MEBI - 200)))
        self.costs("the longest of escapes", escaped)
        self.costs("49,000 values", asks(LOCAL, "getTechNames", x=["y" * 150] * 49_000))
        self.costs("a base policy", asks(CLOUD, "policy", name="Bomb", path="/bomb", bytes=coded))
        self.costs("one that unpacks to its text", asks(CLOUD, "policy", name="Bomb", path="/bomb", bytes=base64.b64encode(
            zipped([("policy.txt", b"korvane-policy 1\n" + bytes(400 * MEBI))])).decode()))
        self.costs("a policy of an application", asks(CLOUD, "applicationPolicy.set", name="web", bytes=coded))

    def test_files(self):
        """What lies in the agent's folders, from whomever: a log without line ends, settings, and what other components leave."""
        self.serve()
        self.install()
        self.run_agent()

        def current():
            return max((self.stage.ids / "logs").glob("*.csv"), key=lambda path: path.stat().st_mtime)

        def events():
            """What any account can cause: events with texts as long as they get, more than one batch takes."""
            first = self.stage.events(1, 10)["covered"]
            with open(current(), "ab") as file:
                for number in range(11, 3011):
                    file.write(f"TLOG,{number},2026-11-22 06:44:31.568,host-6,{'x' * 60_000}{number},y\n".encode())
            wait_until(lambda: self.stage.events(1, 3010)["covered"] >= first + 3000, 3 * LONG, "the events")

        def log():
            """One line of 1 GiB."""
            with open(current(), "r+b") as file:
                file.truncate(current().stat().st_size + 1024 * MEBI)
                file.seek(0, os.SEEK_END)
                file.write(b"\n")
            self.answered(more=8)

        def settings():
            with open(self.stage.ips / "agent.ini", "a", encoding="utf-8") as file:
                file.write("[Other]\n" + "".join(f"k{number}={'v' * 3000}\n" for number in range(1300)))
            self.answered(more=4)
        writer = self.stage.start_writer("--events", 10)
        wait_until(lambda: not writer.running() and self.stage.events(1, 10)["covered"] >= 10, LONG, "the first events")
        self.costs("3,000 events of 60 KB", events)
        self.costs("a log of one line", log)
        self.costs("settings of 4 MiB", settings)

    def test_free_disk_is_asked_before_unpacking(self):
        """The folder of updates lies on a disk of 48 MiB; what would take 200 is refused before the disk is full."""
        self.serve()
        self.install()
        updates = self.stage.ips / "update"
        updates.mkdir()
        self.run_agent(prefix=self.namespace(("-t", "tmpfs", "-o", "size=48m", "tmpfs", updates)))
        seen = [0]

        def used():
            disk = os.statvfs(f"/proc/{self.stage.agent.pid}/root{updates}")
            seen[0] = max(seen[0], (disk.f_blocks - disk.f_bfree) * disk.f_frsize)
            return seen[0]
        data = zipped([(f"f{number}", bytes(10 * MEBI)) for number in range(20)])
        self.stage.admin("/assign", {"kind": "software", "file": self.served("s.zip", data), "properties": {"software.name": "s"}})
        row = wait_until(lambda: used() and self.stage.admin("/results?type=software"), LONG, "the result")[0]
        self.assertEqual(row["code"], 10, row["message"])
        self.assertLess(seen[0], 4 * MEBI, "bytes that were unpacked all the same")
        self.await_word("disk|space", "MiB|bytes|free")

    def test_a_zip_that_lies_about_its_sizes_costs_no_more(self):
        self.serve()
        self.install()
        self.run_agent()
        folder = self.work / "lies.zip"
        with zipfile.ZipFile(folder, "w", zipfile.ZIP_DEFLATED) as archive:
            for number in range(4):
                archive.writestr(f"f{number}", bytes(100 * MEBI))
        data = folder.read_bytes().replace((100 * MEBI).to_bytes(4, "little"), (1000).to_bytes(4, "little"))
        self.costs("declares 1,000 bytes and holds 100 MiB", self.package("software", data, **{"software.name": "lies"}))


if __name__ == "__main__":
    sys.exit(cases.run(Attack, __doc__))
