#!/usr/bin/env python3
"""What a server that was taken over, or a program on a pipe, can make of the settings: nothing about trust, paths, scheme and
pipes, and nothing outside InstallRoot.

server_settings.py --build DIR [CASE ...]
"""
import os
import sys
import time

from hostile import CLOUD, LOCAL, Attack, cases, wait_until, zipped

# What agent.ini ships in settings.local.only, at the least. {out}: a folder outside InstallRoot, {in}: one inside.
LOCAL_ONLY = {
    "settings.local.only": "polling.interval",
    "ssl.trustStore": "{out}/evil.pem", "ssl.server.names": "evil.example", "update.signing.keys": "{out}/evil.pem",
    "agent.http.url": "https://127.0.0.9:9/evil/", "agent.http.plain.enabled": "true", "server.list": "127.0.0.9",
    "fips.enabled": "true", "tcp.enabled": "true", "tcp.port": "4444",
    "agent.update": "{out}", "agentlog.logfile": "{out}/log", "driverlog.logfile": "{out}/log",
    "driverlog.profile.logfile": "{out}/log", "agentlog.file.pointer": "{out}/p", "driverlog.file.pointer": "{out}/p",
    "external.log": "{out}/secret", "appdata.config.file": "{out}/secret", "appdata.configV2.file": "{out}/secret",
    "qel.vt.flpkg.path": "{out}/qel", "ferrolyn.revo.flpkg.path": "{out}/revo", "ferrolyn.settings.flpkg.path": "{out}/set",
    "ferrolyn.vt.flpkg.path": "{out}/vt"}
PIPES_TOO = {"ids.plus.policy.file": "{out}/ids"}  # a server's names that begin with ids. are the IDS component's
# Those that a server chooses, in ordinary operation, when nothing is kept local: they are no file, trust or scheme.
MAY_BE_THE_SERVERS = ("fips.enabled", "tcp.enabled", "tcp.port", "server.list")
THE_POLICYS = ("plus.policy.file", "policy.name", "policy.id", "policy.path")
FILES = [key for key, value in LOCAL_ONLY.items() if value.startswith("{out}") and key not in ("ssl.trustStore", "update.signing.keys")]
WRONG = {("Log", "log.priority"): "warp", ("Log", "log.disk.upperlimit"): "900", ("Log", "log.disk.lowerlimit"): "-5",
         ("Log", "log.rollover.cause"): "99", ("TCP", "tcp.port"): "70000", ("Polling", "polling.enabled"): "maybe",
         ("Agent", "agent.http.url"): "gopher://127.0.0.1/", ("Agent", "agent.name"): "a\u009b31mb\u202e",
         ("Agent", "server.list"): "ann:hunter2@127.0.0.1"}


class Settings(Attack):
    def setUp(self):
        super().setUp()
        self.out = self.work / "outside"
        self.out.mkdir()
        (self.out / "secret").write_text("ROOT-SECRET\n" * 20)

    def value(self, text):
        return text.format(out=self.out, **{"in": self.stage.ips})

    def start(self, **settings):
        self.serve()
        self.install(**settings)
        self.run_agent()
        wait_until(lambda: self.pairs().get("agentlog.logfile"), 20, "what the agent itself records")

    def pairs(self):
        return dict(line.split("=", 1) for line in (self.stage.ips / "agent.ini").read_text().splitlines() if "=" in line)

    def refused_from_the_server(self, rows):
        """One configuration with all these pairs: it is taken but for them; each is named in the result or in events."""
        before = self.pairs()
        result = self.configure(**rows, polling__interval="2")
        wait_until(lambda: self.pairs()["polling.interval"] == "2", 20, "the good setting")
        after = self.pairs()
        self.assertEqual([key for key in rows if after.get(key, "") != before.get(key, "")], [], "changed by the server")
        self.assertEqual(result["code"], 1004, result["message"])
        self.assertEqual([key for key in rows if key not in result["message"]], [], f"not named in {result['message']}")
        self.assertEqual([key for key in rows if not self.told("refused|local", key)], [], "not named in an event")

    def in_parts(self, rows, size=8):
        """The same of many pairs; a message names ten."""
        for start in range(0, len(rows), size):
            with self.subTest(part=list(rows)[start:start + size]):
                self.refused_from_the_server({key: self.value(value) for key, value in list(rows.items())[start:start + size]})

    def test_the_shipped_settings_keep_what_is_local(self):
        self.install()
        kept = {key.strip() for key in self.pairs().get("settings.local.only", "").split(",")}
        self.assertEqual([key for key in LOCAL_ONLY if key not in kept and key not in MAY_BE_THE_SERVERS], [], "not kept local")
        self.start()
        self.in_parts({key: value for key, value in LOCAL_ONLY.items() if key in kept or key not in MAY_BE_THE_SERVERS})

    def test_and_a_pipe_changes_none_of_it_either(self):
        self.start()
        for pipe, method in ((LOCAL, "setSettings"), (CLOUD, "configuration")):
            if pipe == CLOUD:
                self.stage.agent.stop()
                self.service_type = 2
                self.install(2)
                self.run_agent()
                wait_until(lambda: os.path.exists(self.stage.machine.run_dir / f"{CLOUD}.pipe"), 20, "the cloud pipe")
            before, taken = self.pairs(), []
            for key, value in {**LOCAL_ONLY, **PIPES_TOO}.items():
                answer = self.ask(pipe, method, settings={key: self.value(value)})
                if key not in MAY_BE_THE_SERVERS and (answer.get("error", {}).get("code") != "-32602"
                                                      or key not in answer["error"]["data"]):
                    taken.append(key)
            with self.subTest(method):
                self.assertEqual(taken, [], "taken or refused without their name")
                self.assertEqual([key for key in LOCAL_ONLY if key not in MAY_BE_THE_SERVERS
                                  and self.pairs().get(key, "") != before.get(key, "")], [], "changed")
        self.assertTrue(self.told("agent.http.url", "refused|local"), "no event")

    def test_any_key_can_be_kept_local(self):
        self.start(System={"settings.local.only": "agent.name, log.reader.limit"})
        self.refused_from_the_server({"agent.name": "evil", "log.reader.limit": "1"})

    def test_paths_from_a_server_stay_below_the_root_whatever_is_kept_local(self):
        self.start(System={"settings.local.only": ""})
        for name, place in (("absolute", "{out}/x"), ("climbing", "../../outside/x"), ("through the root", "{in}/../../outside/x"),
                            ("a share", "//127.0.0.1/share/x"), ("a drive", "C:\\Windows\\x")):
            with self.subTest(name):
                self.in_parts(dict.fromkeys(FILES, place))

    def test_a_link_inside_does_not_lead_outside(self):
        self.start(System={"settings.local.only": ""})
        (self.stage.ips / "link").symlink_to(self.out)
        self.refused_from_the_server({"qel.vt.flpkg.path": str(self.stage.ips / "link" / "qel"), "appdata.config.file":
                                      str(self.stage.ips / "link" / "secret")})

    def test_nothing_outside_is_read_or_written(self):
        """The effect, whatever the settings say: packages into a folder outside, and root's files to the server."""
        self.start(System={"settings.local.only": ""})
        (self.stage.ids / "ids.properties").touch()
        self.configure(**{key: str(self.out / ("secret" if "file" in key or key == "external.log" else "folder")) for key in FILES})
        self.assign("qel", "qel", self.served("qel.zip", zipped([("rules.dat", "x" * 100)])))
        self.assign("policy", "policy", self.served("p.zip", self.stage.source_policy("p").read_bytes()),
                    **{"policy.name": "P 1", "policy.path": "/p", "plus.policy.file": str(self.out / "secret")})
        self.assertFalse(str(self.out) in self.pairs()["plus.policy.file"], "the policy's file is outside")
        self.stage.admin(f"/agents/{self.stage.setting('agent.id')}", method="DELETE")
        begun = time.time() * 1000
        wait_until(lambda: any(row["word"] == "register" and row["at_ms"] > begun for row in self.stage.admin("/requests?limit=100000")),
                   60, "a registration")
        self.assertEqual(sorted(path.name for path in self.out.rglob("*")), ["secret"], "written outside")
        for row in self.stage.admin("/binaries?limit=1000"):
            self.assertNotIn("ROOT-SECRET", str(row), "read from outside")
        self.assertEqual((self.out / "secret").read_text(), "ROOT-SECRET\n" * 20)

    def test_values_are_judged_as_config_check_judges_them(self):
        """What `agentctl config check` has a word against is not taken from a server."""
        self.start(System={"settings.local.only": ""})
        probe = self.work / "probe.ini"
        for (section, key), value in WRONG.items():
            with self.subTest(key, value=value):
                probe.write_text(f"[{section}]\n{key}={value}\n")
                self.assertRegex(self.agentctl("config", "check", probe)[1], f"(error|warning): {key}", "config check has no word")
                self.refused_from_the_server({key: value})


if __name__ == "__main__":
    sys.exit(cases.run(Attack, __doc__))
