#!/usr/bin/env python3
"""What lies in the agent's way: links planted where it writes, and files that strangers may write where it reads and loads.

rights.py --build DIR [CASE ...]
"""
import os
import pathlib
import shutil
import sys

from hostile import LONG, Attack, cases, holds, stranger_ids, wait_until

WRITES = [f"IPS/{name}{end}" for name in ("agent.ini", "fallback.ini", "kav-version.properties", "history_ips.csv")
          for end in (".new", ".tmp", "~")] + ["IPS/agent.ini.unpacking", "IPS/.agent.ini.new"]
OWN = b"root's own\n"
SAID = "owner|writable|writ(e|ten) by|permission|mode|rights"


class Planted(Attack):
    """Links of an ordinary account lead to root's file; root's programs do not go there."""

    def setUp(self):
        super().setUp()
        self.victim, self.absent = self.work / "victim", self.work / "absent"
        self.victim.write_bytes(OWN)

    def plant(self, path, where=None):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.unlink(missing_ok=True)
        path.symlink_to(where or self.victim)

    def unharmed(self):
        found = self.victim.read_bytes() == OWN, not self.absent.exists()
        self.victim.write_bytes(OWN)
        self.absent.unlink(missing_ok=True)
        self.assertEqual(found, (True, True), "a planted link was followed: to root's file, to one that was not there")

    def test_the_agent_writes_beside_its_files_without_following_links(self):
        self.serve()
        self.install()
        for number, name in enumerate(WRITES):
            self.plant(self.stage.install_root / name, self.victim if number % 2 == 0 else self.absent)
        for name in ("registry.reg.new", "registry.reg.tmp"):
            self.plant(self.work / name)
        self.stage.start_driver()
        self.run_agent()
        self.configure(polling__interval="3")
        wait_until(lambda: self.stage.setting("polling.interval") == "3", LONG, "the setting")
        self.agentctl("config", "set", "polling.interval=4")
        self.stage.agent.stop()
        self.unharmed()
        self.assertEqual(self.stage.setting("polling.interval"), "4")

    def test_a_lock_file_is_no_link(self):
        for name, target in (("to a file that is not there", self.absent), ("to root's file", self.victim)):
            for lock in (self.stage.ips / "lockFile", self.work / "registry.reg.lock",
                         self.stage.machine.run_dir / "korvane-agent.pipe.lock"):
                with self.subTest(name, lock=lock.name):
                    self.forget_what_was_said()
                    self.install()
                    self.plant(lock, target)
                    self.host()
                    wait_until(lambda: self.logged("10106") or not self.stage.agent.running(), LONG, "the start")
                    status, text = self.agentctl("config", "set", "polling.interval=7")
                    self.stage.agent.stop()
                    lock.unlink()
                    self.unharmed()
                    if lock.name == "lockFile":
                        self.assertEqual((status, "lockFile" in text), (1, True), text)
                    if lock.name != "registry.reg.lock":  # which an agent at rest does not take
                        self.assertTrue(self.told("lockFile|channel|pipe"), self.what_was_said())

    def test_agentctl_overwrites_no_file_through_a_link(self):
        self.install()
        folder = self.work / "shared"
        folder.mkdir()
        folder.chmod(0o777)
        out = folder / "d.zip"
        rows = [((name, target), force) for target in (self.victim, self.absent) for force in ((), ("--force",))
                for name in ("d.zip", "d.zip.new", "d.zip.tmp", ".d.zip.new")]
        for (name, target), force in rows:
            with self.subTest(name, target=target.name, force=force):
                self.plant(folder / name, target)
                status, text = self.agentctl("diagnose", "-o", out, "--no-connection-test", *force)
                self.unharmed()
                if status == 0:
                    self.assertTrue(out.is_file() and not out.is_symlink(), "it was made, and is no link")
                else:
                    self.assertRegex(text, "d.zip")
                for path in folder.iterdir():
                    path.unlink()

    def test_a_guess_of_the_new_files_name_gains_nothing(self):
        """The name beside the file is random: none of the names that a first run used comes again."""
        self.install()
        names = []
        for _ in range(2):
            traced = self.work / "trace"
            status, text = self.agentctl("config", "set", f"polling.interval={100 + len(names)}",
                                         prefix=("strace", "-f", "-o", str(traced), "-e", "trace=openat,rename,renameat,renameat2")) \
                if shutil.which("strace") else (None, "")
            if status is None:
                self.skipTest("needs strace")
            self.assertEqual(status, 0, text)
            lines = [line for line in traced.read_text().splitlines() if "O_CREAT" in line and "agent.ini" in line]
            self.assertTrue(lines and all("O_EXCL" in line and "O_NOFOLLOW" in line for line in lines), lines)
            names.append({line.split('"')[1] for line in lines})
        self.assertEqual(names[0] & names[1], set())


class Writable(Attack):
    """A file or folder that an ordinary account may change is not used: the operator reads its name."""

    def setUp(self):
        super().setUp()
        self.needs_root()
        self.uid = stranger_ids()[0]
        self.parent = self.work / "parent"
        self.parent.mkdir()
        self.library = self.parent / "bin" / "libkorvane-agent.so"

    def lay_out(self):
        """An installation with programs of its own below a folder of its own."""
        for path in self.parent.iterdir():
            shutil.rmtree(path)
        self.parent.chmod(0o755)
        os.chown(self.parent, 0, 0)
        stage = self.stage
        shutil.rmtree(stage.install_root, ignore_errors=True)
        stage.install_root = self.parent / "root"
        stage.ips, stage.ids = stage.install_root / "IPS", stage.install_root / "IDS"
        for folder in (stage.ips / "extensions", stage.ids / "bin"):
            folder.mkdir(parents=True)
        shutil.rmtree(stage.machine.run_dir)
        stage.machine.run_dir.mkdir(0o755)
        self.install(Agent={"agent.http.url": "https://127.0.0.1:1/korvane/"})
        self.library.parent.mkdir()
        for name in ("korvane-host", "libkorvane-agent.so", "korvane-events.txt"):
            shutil.copy(self.stage.machine.bin / name, self.library.parent)

    def start(self, *options):
        machine, stage = self.stage.machine, self.stage
        self.forget_what_was_said()
        stage.agent = stage.start("agent", [self.library.parent / "korvane-host", "run", "--install-root", stage.install_root,
                                            "--registry", machine.registry, "--run-dir", machine.run_dir, *options])
        wait_until(lambda: not stage.agent.running() or self.logged("10106"), LONG, "the start or its refusal")

    def rows(self):
        stage = self.stage
        yield "the root's parent", self.parent
        yield "the root", stage.install_root
        yield "IPS", stage.ips
        yield "the settings", stage.ips / "agent.ini"
        yield "the extensions' folder", stage.ips / "extensions"
        yield "the translator's library", stage.ips / "extensions" / stage.machine.translator
        yield "the translator's folder", stage.ips / "bin"
        yield "the translator", stage.ips / "bin" / "translate"
        yield "the agent's library", self.library
        yield "the registry file", stage.machine.registry
        yield "the run directory", stage.machine.run_dir

    def test_what_strangers_may_write_is_not_used(self):
        self.lay_out()
        self.start()
        self.assertTrue(self.stage.agent.running(), "a clean installation starts: " + self.stage.agent.tail())
        self.stage.agent.stop()
        modes = {"for everybody": lambda path: path.chmod(path.stat().st_mode | 0o002),
                 "for a group": lambda path: (os.chown(path, 0, self.uid), path.chmod(path.stat().st_mode | 0o020)),
                 "owned by a stranger": lambda path: os.chown(path, self.uid, self.uid)}
        for number in range(len(list(self.rows()))):
            for how, spoil in modes.items():
                self.lay_out()
                name, path = list(self.rows())[number]
                spoil(path)
                with self.subTest(name, how=how):
                    self.start()
                    if self.stage.agent.running():  # what is loaded later may be refused later
                        loaded = pathlib.Path(f"/proc/{self.stage.agent.pid}/maps").read_text(encoding="utf-8")
                        self.stage.agent.stop()
                        later = self.stage.ips in path.parents and path.suffix != ".ini"
                        self.assertTrue(later, "it started")
                        self.assertFalse("extensions" in str(path) and "/extensions/" in loaded, "it was loaded")
                    self.assertTrue(self.told(path.name, SAID), self.what_was_said()[-5:])
                    if how == "for everybody":
                        self.start("--allow-unsafe")
                        self.assertTrue(self.stage.agent.running(), self.stage.agent.tail())
                        self.assertTrue([text for _, at, _, text in self.log() if at and path.name in text], "no event")
                        self.stage.agent.stop()

    def test_a_translator_that_strangers_may_write_does_not_run(self):
        """Its mode changes while the agent runs: it is looked at each time."""
        self.lay_out()
        self.serve()
        self.install()
        self.stage.start_driver()
        self.start()
        mark = self.work / "ran"
        translator = self.stage.ips / "bin" / "translate"
        for how, spoil in (("for everybody", lambda: translator.chmod(0o777)),
                           ("owned by a stranger", lambda: (translator.chmod(0o755), os.chown(translator, self.uid, self.uid)))):
            with self.subTest(how):
                translator.write_text(f"#!/bin/sh\ntouch {mark}\nexit 1\n")
                os.chown(translator, 0, 0)
                spoil()
                after = self.last("results")
                self.served("p.zip", self.stage.source_policy("p").read_bytes())
                self.stage.admin("/assign", {"kind": "policy", "file": "p.zip",
                                             "properties": {"policy.name": f"P {len(how)}", "policy.path": f"/p/{len(how)}"}})

                def refused():
                    return any(holds(row["message"], SAID) for row in self.stage.admin(f"/results?type=policy&after={after}"))
                wait_until(lambda: mark.exists() or refused(), 30, "the policy")
                self.assertFalse(mark.exists(), "the translator of a stranger ran")
                mark.unlink(missing_ok=True)


if __name__ == "__main__":
    sys.exit(cases.run(Attack, __doc__))
