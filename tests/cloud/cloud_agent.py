#!/usr/bin/env python3
"""Agents without a management server, from their start to their stop: types 0, 2 and 3.

cloud_agent.py --build DIR [--windows DIR] [CASE ...]

The connector is `agentctl call` on the cloud pipe, the component that carries events is its stand-in. A listener at the URL
of the settings hears whether the agent contacts a server after all.
"""
import base64
import json
import pathlib
import select
import shutil
import socket
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "script" / "lib"))
import cases  # noqa: E402
from machine import LinuxMachine, wait_until  # noqa: E402
from stage import Stage  # noqa: E402

CLOUD_PIPE = "korvane-agent-cloud"
BATCH_LIMIT = 200
EVENTS = 2000
LONG = 90  # seconds that a loaded machine may take


class CloudAgent(unittest.TestCase):
    builds = None
    prefix = None

    def set_up(self, service_type):
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="korvane-cloud-"))
        self.addCleanup(shutil.rmtree, self.work, ignore_errors=True)
        self.stage = Stage(self.builds.build, self.work, windows=self.builds.windows, prefix=self.prefix)
        self.addCleanup(self.stage.close)
        self.server = socket.create_server(("127.0.0.1", 0))  # nobody is let in, but who came is seen
        self.addCleanup(self.server.close)
        self.stage.machine.prepare()
        self.stage.install(service_type, settings={
            "Agent": {"agent.http.url": f"https://127.0.0.1:{self.server.getsockname()[1]}/korvane/agent/"},
            "Log": {"log.writer.limit": BATCH_LIMIT, "log.reader.limit": BATCH_LIMIT}})
        (self.stage.ids / "ids.properties").write_text("ids.service.eventfile.name=events.csv\n")
        self.stage.start_driver()
        self.start_agent()

    def start_agent(self):
        self.stage.start_agent()
        wait_until(lambda: self.ask("getState")[0] == 0, LONG, "the agent's command channel")

    def ask(self, method, pipe=CLOUD_PIPE, **params):
        """A command's exit status and its answer: the result, or the error."""
        status, text = self.stage.machine.agentctl("call", method, json.dumps(params), "--pipe", pipe, "--timeout", "60000")
        start = text.find("{")
        return status, json.JSONDecoder().raw_decode(text[start:])[0] if start >= 0 else text

    def done(self, method, **params):
        status, answer = self.ask(method, **params)
        self.assertEqual(status, 0, f"{method}: {answer}")
        return answer

    def refused(self, code, method, **params):
        """The reason of an error."""
        status, answer = self.ask(method, **params)
        self.assertNotEqual(status, 0, f"{method}: {answer}")
        self.assertEqual(answer["error"]["code"], str(code), answer)
        return answer["error"]["data"]

    def base(self, name, version, rules):
        archive = self.stage.source_policy(name, rules, policy_name=name, version=version, identifier=f"{name}-{version}")
        return {"name": name, "path": "/policies/base", "bytes": base64.b64encode(archive.read_bytes()).decode()}

    def application(self, name, rules):
        text, archive = self.work / f"{name}.pol", self.work / f"{name}.zip"
        text.write_text("korvane-application 1\n" + rules, encoding="utf-8")
        subprocess.run([self.stage.bin / "translate", "--make-policy", text, archive], check=True)
        return {"name": name, "bytes": base64.b64encode(archive.read_bytes()).decode()}

    def translated(self):
        """The policy that the driver has been given, as it lies on disk."""
        folder = self.stage.ips / "driver"
        base = self.done("getState")["policy"]["plusFile"].replace("\\", "/").rsplit("/", 1)[1][:-len("sbp.zip")]
        return (folder / f"{base}.conf").read_text(encoding="utf-8")

    def in_driver(self):
        return self.stage.machine.driver_control("state")["id"]

    def write_events(self, first):
        writer = self.stage.start_writer("--events", EVENTS // 2, "--start-sequence", first)
        wait_until(lambda: not writer.running(), LONG, "the event writer's end")
        return self.stage.written(writer)

    def start_carrier(self):
        out = self.work / "carried"
        options = ["--out", out]
        if isinstance(self.stage.machine, LinuxMachine):
            options += ["--run-dir", self.stage.machine.run_dir]
        self.stage.machine.start("carrier", "korvane-event-carrier", *options)
        return lambda: [int(line.split()[0]) for line in out.read_text().splitlines()] if out.exists() else []

    def play_policies(self):
        """Policies as they come over the channel: good ones, bad ones, and those of applications."""
        self.assertIn("no base policy", self.refused(-32021, "applicationPolicy.set", **self.application("web", "rule deny file web /w\n")))
        self.assertEqual(self.done("policy", **self.base("Base", "1", "rule deny file base /b\n"))["policy"]["id"], "Base-1")
        self.assertEqual(self.in_driver(), "Base-1")
        for trouble in ("stand-in fail 7 It clashes", "rule refuse It clashes"):
            self.assertIn("It clashes", self.refused(-32020, "policy", **self.base("Bad", "1", trouble + "\n")))
            state = self.done("getState")["policy"]
            self.assertEqual((state["id"], state["errorCode"], self.in_driver()), ("Base-1", "66", "Base-1"))
        self.done("applicationPolicy.set", **self.application("web", "rule deny file web /w\n"))
        self.done("applicationPolicy.set", **self.application("mail", "rule log file mail /m\n"))
        refusal = self.refused(-32020, "applicationPolicy.set", **self.application("ftp", "rule what\n"))
        self.assertIn("applications/ftp/policy.txt", refusal)
        self.done("policy", **self.base("Base", "2", "rule deny file base /b\n"))
        self.done("applicationPolicy.remove", name="mail")
        self.assertEqual(self.in_driver(), "Base-2")
        self.assertTrue(self.translated().endswith("rule deny file base /b\nrule deny file web /w\n"), self.translated())
        self.assertEqual(self.done("getState")["policy"]["errorCode"], "0")

    def check_what_lasts(self):
        """What play_policies() and the configuration have left, before and after a start."""
        policy = self.done("getState")["policy"]
        self.assertEqual((policy["name"], policy["id"], policy["path"]), ("Base 2", "Base-2", "/policies/base"))
        self.assertEqual(self.in_driver(), "Base-2")
        applications = self.done("applicationPolicy.list")["applications"]
        self.assertEqual([(one["name"], one["stored"], one["inForce"]) for one in applications], [("web", "true", "true")])
        self.assertEqual(self.stage.setting("log.consolidate"), "false")

    def configure(self):
        settings = {"log.consolidate": "false", "polling.interval": "x"}
        self.assertIn("polling.interval", self.refused(-32602, "configuration", settings=settings))
        self.assertEqual(self.stage.setting("log.consolidate"), "true")
        self.assertEqual(self.done("configuration", settings={"log.consolidate": "false"}), {"changed": "1"})
        self.done("retranslate")
        wait_until(lambda: self.stage.setting("autoretrans.now") == "false", LONG, "the retranslation")

    def stop(self):
        """Stops the agent; on Linux while a silent client is connected to its command channel."""
        linux = isinstance(self.stage.machine, LinuxMachine)
        with socket.socket(socket.AF_UNIX) as silent:
            if linux:
                silent.connect(str(self.stage.machine.run_dir / f"{CLOUD_PIPE}.pipe"))
            self.assertLess(self.stage.agent.stop(), 2000 if linux else 5000)
        self.assertEqual(self.stage.agent.exit_status, 0)

    def play(self, service_type, kills):
        self.set_up(service_type)
        carried = self.start_carrier()
        written = self.write_events(1)
        self.play_policies()
        self.configure()
        self.check_what_lasts()
        self.assertEqual(carried(), [], "no event leaves before the switch is on")
        self.assertEqual(self.done("getState")["counters"]["read"], "0")
        self.done("policyBuffer", value="true")
        names = self.ask("getTechStatus", pipe="korvane-agent")[1]["status"]
        self.assertEqual("AGENT_FRAMEWORK" in names, service_type == 3, names)
        if service_type == 0:
            self.stop()
            self.assertEqual(carried(), [], "agents of type 0 forward nothing")
        else:
            self.forward(written, carried, kills)
            self.stop()
        self.start_agent()
        self.check_what_lasts()
        self.assertEqual(self.done("getState")["policyBuffer"], "false")
        self.stop()
        self.assertEqual(select.select([self.server], [], [], 0)[0], [], "nothing goes to a management server")

    def forward(self, written, carried, kills):
        wait_until(lambda: len(set(carried())) >= EVENTS // 4, LONG, "events before the kill")
        for _ in range(kills):
            self.stage.agent.kill()
            self.start_agent()
            self.done("policyBuffer", value="true")
        more = self.write_events(written["lastSequence"] + 1)
        everything = set(range(written["firstSequence"], more["lastSequence"] + 1))
        wait_until(lambda: set(carried()) == everything, LONG, f"{EVENTS} events at the carrier")
        self.assertLessEqual(len(carried()) - len(everything), kills * BATCH_LIMIT)

    def test_type_0(self):
        self.play(0, kills=0)

    def test_type_2(self):
        self.play(2, kills=1)

    def test_type_3(self):
        self.play(3, kills=0)


if __name__ == "__main__":
    sys.exit(cases.run(CloudAgent, __doc__))
