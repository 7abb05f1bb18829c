"""The Windows agent under Wine, against the reference server: what the story of the demo does not show.

wine_test.py --windows FOLDER --build FOLDER [CASE ...]

All cases share one Wine prefix in a temporary folder; each has an installation, a server and a service of its
own, below a folder whose name has blanks and letters beyond ASCII.
"""
import pathlib
import shutil
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "script" / "lib"))
import cases  # noqa: E402
from machine import wait_until  # noqa: E402
from stage import Stage  # noqa: E402

BATCH_LIMIT = 500  # a batch every other second: more than the writer's rate
LONG = 90  # seconds that a loaded machine may take


class Installed(unittest.TestCase):
    """A stage with the server running and the agent installed, not started."""

    builds = None
    prefix = None

    def setUp(self):
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="korvane e2e Ünïcode ж "))
        self.addCleanup(shutil.rmtree, self.work, ignore_errors=True)
        self.stage = Stage(self.builds.build, self.work, windows=self.builds.windows, prefix=self.prefix)
        self.addCleanup(self.stage.close)
        self.stage.make_certificates()
        self.stage.start_server()
        self.stage.machine.prepare()
        self.stage.install(settings={"Log": {"log.writer.limit": BATCH_LIMIT, "log.reader.limit": BATCH_LIMIT},
                                     "Polling": {"polling.interval": 5}, "AgentLog": {"agentlog.log.trace.messages": "true"}})

    def own_log(self):
        """The records of the agent's own log, each as its fields."""
        text = "".join(file.read_text(encoding="utf-8", errors="replace")
                       for file in sorted((self.stage.ips / "logs").glob("korvane-agent-*.log")))
        return [line.split(",") for line in text.splitlines()]

    def count(self, event):
        return sum(1 for record in self.own_log() if len(record) > 3 and record[3] == str(event))

    def logged(self, text):
        wait_until(lambda: any(text in ",".join(record) for record in self.own_log()), LONG, f"'{text}' in the own log")

    def registered(self):
        wait_until(lambda: self.stage.setting("agent.id"), LONG, "the registration")
        return self.stage.setting("agent.id")

    def arrived(self, written):
        return self.stage.await_events(written["firstSequence"], written["lastSequence"], LONG)

    def stop(self):
        """Stops the agent, promptly and without a complaint."""
        self.assertLess(self.stage.agent.stop(), 5000)
        self.assertEqual(self.stage.agent.exit_status, 0)
        self.assertEqual(self.count(10110), 1)

    def write(self, *options):
        writer = self.stage.start_writer(*options)
        wait_until(lambda: not writer.running(), LONG, "the event writer's end")
        return self.stage.written(writer)


class Forwarding(Installed):
    def test_a_utf16_log_that_stays_open_arrives_exactly_through_kills(self):
        self.stage.start_agent()
        self.registered()
        events, kills = 2000, 2
        writer = self.stage.start_writer("--events", 0, "--rate", 200, "--rotate", 700, "--repeat", 10, "--torn", 10,
                                         "--encoding", "utf-16")
        for kill in range(1, kills + 1):
            wait_until(lambda: self.stage.events(1, events)["distinct"] >= kill * 100, LONG, "events before the kill")
            self.stage.agent.kill()
            self.stage.start_agent()
        self.stage.await_events(1, events, LONG)
        self.assertTrue(writer.running())
        writer.stop()
        last = self.stage.written(writer)["lastSequence"]
        # Repeats of the last event wait for another one, or for the end of the consolidation period.
        other = self.write("--events", 1, "--start-sequence", last + 1, "--encoding", "utf-16")
        sums = self.stage.await_events(1, other["lastSequence"], LONG)
        self.assertLessEqual(sums["duplicated"], kills * BATCH_LIMIT)
        self.assertEqual(len(self.stage.admin("/agents")), 1, "the identity survives")
        self.stop_counted(kills)

    def stop_counted(self, kills):
        self.assertLess(self.stage.agent.stop(), 5000)
        self.assertEqual(self.stage.agent.exit_status, 0)
        self.assertEqual((self.count(10106), self.count(10110)), (kills + 1, 1))


class HeldSettings(Installed):
    """Another program has agent.ini open and lets nobody else in, as a scanner or an editor may."""

    def hold(self):
        holder = self.stage.machine.start("holder", "korvane-machine", "hold", self.stage.ips / "agent.ini")
        wait_until(lambda: "held" in holder.tail(), LONG, "the holder")
        return holder

    def test_the_agent_goes_on_and_saves_when_it_can(self):
        self.stage.start_agent()
        first = self.registered()
        self.arrived(self.write("--events", 300))
        holder = self.hold()
        self.stage.admin(f"/agents/{first}", method="DELETE")
        self.logged("Could not write")
        self.assertTrue(self.stage.agent.running())
        self.arrived(self.write("--events", 300, "--start-sequence", 301))
        self.assertEqual(self.stage.setting("agent.id"), first, "on disk nothing has changed")
        known = [agent["guid"] for agent in self.stage.admin("/agents")]
        holder.kill()
        wait_until(lambda: self.stage.setting("agent.id") in known, LONG, "the new identity in agent.ini")
        self.assertNotEqual(self.stage.setting("agent.id"), first)

        holder = self.hold()
        self.stop()
        self.stage.start_agent()
        self.arrived(self.write("--events", 100, "--start-sequence", 601))
        self.assertEqual([agent["guid"] for agent in self.stage.admin("/agents")], known)
        self.assertEqual(self.stage.events(1, 700)["duplicated"], 0)
        holder.kill()
        self.stage.agent.stop()


if __name__ == "__main__":
    sys.exit(cases.run(Installed, "End-to-end tests under Wine.", required=True))
