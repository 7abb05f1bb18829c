#!/usr/bin/env python3
"""What the own log tells of the first load of the settings, and what the agent does after it.

first_load.py --build DIR [CASE ...]
"""
import contextlib
import fcntl
import sys
import threading
import time

from outside import LONG, OutsideCase, cases, wait_until, with_checksum

GOOD = "[AgentLog]\nagentlog.log.trace.messages=true\n[Polling]\npolling.interval=77\n"
LOADED = "Agent Configuration Updated from disk"
FELL_BACK = "Agent.ini is corrupt, reading from Fallback.ini"


class FirstLoad(OutsideCase):
    def load(self, ini, fallback=None):
        """Starts the agent on these two files (None: not there) and waits until it runs."""
        for path, data in (self.ini, ini), (self.fallback, fallback):
            path.unlink(missing_ok=True)
            if data is not None:
                path.write_bytes(data if isinstance(data, bytes) else data.encode())
        for path in [*(self.stage.ips / "logs").glob("*"), *self.stage.ips.glob("*.damaged-*")]:
            path.unlink()
        self.stage.start_agent()
        self.runs()

    def runs(self):
        wait_until(lambda: self.logged("10106"), LONG, "event 10106")

    def stop(self):
        self.assertLess(self.stage.agent.stop(), 2000)
        self.assertEqual(self.stage.agent.exit_status, 0)

    def told_before_the_start(self, **expected):
        """The numbers of the configuration's events before the one of the start. expected: e10520="agent.ini" is a warning or an
        error of that number with this word."""
        records = self.log()
        told = records[:[number for _, number, _, _ in records].index("10106")]
        for number, word in expected.items():
            self.assertTrue(any(kind in ("AWRN", "AERR") and at == number[1:] and word in text for kind, at, _, text in told),
                            f"{number} before 10106 with {word}: {told}")
        return [number for _, number, _, _ in told if "10520" <= number <= "10529"]

    def traced(self, *expected):
        """The trace lines of the first load, in this order, all of them before event 10106."""
        records = self.log()
        started = [number for _, number, _, _ in records].index("10106")
        place = 0
        for source, begin in expected:
            found = next((at for at in range(place, started) if records[at][1] == "" and records[at][2] == source
                          and records[at][3].startswith(begin)), None)
            self.assertIsNotNone(found, f"{source}: {begin}: not behind record {place} of {records[:started]}")
            place = found + 1

    def kept_aside(self):
        return {path.name.split(".damaged-")[0]: path.read_bytes() for path in self.stage.ips.glob("*.damaged-*")}

    def test_a_good_file_is_told_by_trace_lines_alone(self):
        self.load(with_checksum(GOOD))
        self.assertEqual(self.settings("polling.interval")["polling.interval"], "77")
        self.stop()
        self.assertEqual((self.told_before_the_start(), self.kept_aside()), ([], {}))
        self.traced(("AgentConfig::loadIniFile", LOADED), ("AgentConfig::loadIniFile", "WalkLogChain returned : "))

    def test_a_damaged_file_and_a_good_second_copy(self):
        text = GOOD.replace("77", "55")
        for name, damaged in {"checksum": with_checksum(text).replace("55", "56").encode(), "none": text.encode(),
                              "NUL": with_checksum(text + "[Other]\nx=\0\n").encode(), "not UTF-8": text.encode() + b"x=\xff\n",
                              "torn": with_checksum(text).encode()[:-9], "large": b"#" * (4 << 20) + text.encode()}.items():
            with self.subTest(name):
                self.load(damaged, with_checksum(GOOD))
                self.assertEqual(self.settings("polling.interval")["polling.interval"], "77")
                self.stop()
                self.assertEqual(self.kept_aside(), {"agent.ini": damaged[:4 << 20]})
                self.traced(("AgentConfig::loadIniFile", FELL_BACK))
                self.told_before_the_start(e10520="agent.ini", e10521="fallback.ini")

    def test_no_file_that_can_be_used(self):
        bad = with_checksum(GOOD).replace("77", "78").encode()
        for name, fallback, damaged in ("both damaged", bad, ("agent.ini", "fallback.ini")), ("no second copy", None, ("agent.ini",)):
            with self.subTest(name):
                self.load(bad, fallback)
                self.assertEqual(self.settings("polling.interval")["polling.interval"], "300")
                self.stop()
                self.assertEqual(set(self.kept_aside().items()), {(file, bad) for file in damaged})
                for file in damaged:
                    self.told_before_the_start(e10520=file, e10522=file)

    def test_a_missing_file_and_a_good_second_copy(self):
        self.load(None, with_checksum(GOOD))
        self.assertEqual(self.settings("polling.interval")["polling.interval"], "77")
        self.stop()
        self.told_before_the_start(e10521="fallback.ini")

    def test_a_fips_switch_that_fails(self):
        self.load(with_checksum(GOOD + "[FIPS]\nfips.enabled=true\n"))  # there is no FIPS module beside the library
        self.assertEqual(self.settings("fips.enabled", "polling.interval"), {"fips.enabled": "true", "polling.interval": "77"})
        self.stop()
        self.assertTrue(self.logged("", "Failed to set the FIPS mode = "), "the trace line of the switch")
        self.told_before_the_start(e10524="FIPS")

    def test_values_of_the_wrong_type(self):
        wrong = {"polling.enabled": ("perhaps", "true"), "tcp.port": ("many", "2222"), "ids.signal.timeout": ("2147483648", "10"),
                 "failback.interval": ("-1", "3600")}
        lines = "".join(f"{key}={value}\n" for key, (value, _) in wrong.items())
        self.load(with_checksum(f"{GOOD}[Other]\n{lines}"))
        self.assertEqual(self.settings("polling.interval", *wrong),
                         {"polling.interval": "77", **{key: true for key, (_, true) in wrong.items()}})
        self.stop()
        for key in wrong:
            self.told_before_the_start(e10525=key)

    @contextlib.contextmanager
    def locked(self):
        """Another program has the lock file, in both ways of this system."""
        with open(self.stage.ips / "lockFile", "ab") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            fcntl.lockf(file, fcntl.LOCK_EX)
            yield

    def test_a_lock_file_that_is_held_for_a_while(self):
        free = threading.Event()
        with self.locked():
            threading.Timer(2.5, free.set).start()
            self.ini.write_text(with_checksum(GOOD))
            self.stage.start_agent()
            free.wait()
            self.assertFalse(self.logged("10106"), "the load waits for the lock file")
        self.runs()
        self.assertEqual(self.settings("polling.interval")["polling.interval"], "77")
        self.stop()
        self.traced(*[("AgentConfig::loadIniFile", "Waiting to open lock file")] * 2, ("AgentConfig::loadIniFile", LOADED))

    def test_a_stop_while_the_lock_file_is_held(self):
        with self.locked():
            self.stage.start_agent()
            time.sleep(1)
            self.stop()

    def test_a_lock_file_that_stays_held(self):
        text = with_checksum(GOOD)
        with self.locked():
            begun = time.monotonic()
            self.load(text)
            self.assertGreater(time.monotonic() - begun, 8.5, "ten attempts, a second apart")
            self.assertEqual(self.settings("polling.interval")["polling.interval"], "300")
        wait_until(lambda: self.settings("polling.interval")["polling.interval"] == "77", 20, "the settings of the file, after the lock")
        self.stop()
        self.assertEqual((self.stage.setting("polling.interval"), self.stage.setting("agentlog.log.trace.messages")), ("77", "true"))
        self.told_before_the_start(e10523="lockFile")


if __name__ == "__main__":
    sys.exit(cases.run(FirstLoad, __doc__))
