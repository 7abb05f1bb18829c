"""What the attacks share: an installed agent, the accounts and servers that attack it, and what an operator reads then.

An attack is a test that passes when the agent withstands it and tells the operator so. Positions: the network without the
server's key, an ordinary account of the machine, a management server that was taken over.
"""
import contextlib
import io
import os
import pathlib
import pwd
import re
import shutil
import signal
import subprocess
import sys
import zipfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "outside"))
from outside import LONG, Client, Closed, OutsideCase, cases, wait_until  # noqa: E402, F401
from machine import StageError, free_port  # noqa: E402, F401

MEBI = 1 << 20
LOCAL, CLOUD, EVENTS = "korvane-agent", "korvane-agent-cloud", "korvane-agent-events"
SECONDS = float(os.environ.get("KORVANE_HOSTILE_SECONDS", "5"))  # of an attack that goes on; a full run takes 60


def stranger_ids(count=1):
    """Numbers of accounts that nobody has."""
    taken = {entry.pw_uid for entry in pwd.getpwall()}
    return [uid for uid in range(61234, 62234) if uid not in taken][:count]


def holds(text, *words):
    """Whether the text has all these words (regular expressions, in any case)."""
    return all(re.search(word, text, re.IGNORECASE) for word in words)


def zipped(entries, level=9):
    """A zip archive of (name, content) pairs; a name may come twice."""
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w", zipfile.ZIP_DEFLATED, compresslevel=level) as archive:
        for name, content in entries:
            archive.writestr(zipfile.ZipInfo(name), content, zipfile.ZIP_DEFLATED)
    return data.getvalue()


class Attack(OutsideCase):
    """An agent of its own for each case, and what to attack it with."""
    service_type = 1
    maxDiff = 400

    def setUp(self):
        super().setUp()
        self.stage.certs = pathlib.Path(self.builds.build).resolve() / "test-certs"
        for folder in (self.work, self.stage.machine.run_dir):
            folder.chmod(0o755)

    # The stage -------------------------------------------------------------------------------------------------------

    def install(self, service_type=None, **settings):
        """Lays the agent out as it ships, with these pairs for the sections of agent.ini."""
        for kept in ("agent.ini", "fallback.ini"):  # of an agent that ran before
            (self.stage.ips / kept).unlink(missing_ok=True)
        settings.setdefault("Polling", {}).setdefault("polling.interval", 1)
        settings.setdefault("AgentLog", {}).setdefault("agentlog.log.trace.messages", "true")
        self.stage.install(service_type or self.service_type, settings)

    def serve(self):
        """Starts the reference server; an agent that is installed afterwards is told of it."""
        self.stage.server_port = 0
        self.stage.start_server()

    def host(self, *options, prefix=(), **environment):
        """Starts the host; prefix: a program with its options that runs it."""
        machine = self.stage.machine
        self.stage.agent = self.stage.start("agent", [
            *prefix, machine.bin / "korvane-host", "run", "--install-root", self.stage.install_root, "--registry",
            machine.registry, "--run-dir", machine.run_dir, *machine.unsafe_options, *options], **environment)
        return self.stage.agent

    def run_agent(self, *options, **more):
        """Starts the host and waits until the agent runs; one with a server is then registered."""
        self.host(*options, **more)
        wait_until(lambda: self.logged("10106") and (self.service_type != 1 or self.stage.setting("agent.id")), LONG, "the agent")

    def agentctl(self, *words, prefix=(), **environment):
        """Exit status and output of agentctl; prefix: a program that runs it."""
        machine = self.stage.machine
        done = subprocess.run([str(part) for part in (
            *prefix, machine.bin / "agentctl", "--install-root", self.stage.install_root, "--registry", machine.registry,
            "--run-dir", machine.run_dir, *words)], check=False, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, timeout=120, env={**os.environ, **environment})
        return done.returncode, done.stdout.decode("utf-8", "surrogateescape")

    def told(self, *words):
        """Whether the operator can read all these words in one line: an event (trace lines do not count), or what the host says."""
        return any(holds(line, *words) for line in self.what_was_said())

    def await_word(self, *words, seconds=20):
        """Fails unless the operator is told."""
        with contextlib.suppress(StageError):
            wait_until(lambda: self.told(*words), seconds, "the word")
        said = self.what_was_said()
        self.assertTrue(self.told(*words), f"no event and no line of the host has {words}:\n" + "\n".join(said[-12:]))

    def what_was_said(self):
        """Events, and the host's own lines; libcurl's trace goes the same way."""
        log = self.work / "agent.log"
        lines = log.read_text(errors="replace").splitlines() if log.exists() else []
        return [text for _, number, _, text in self.log() if number] + [line for line in lines if line.startswith("korvane-host")]

    def forget_what_was_said(self):
        shutil.rmtree(self.stage.ips / "logs", ignore_errors=True)
        (self.work / "agent.log").unlink(missing_ok=True)

    def ask(self, pipe, method, **params):
        with Client(self.stage, pipe) as client:
            return client.ask(method, **params)

    # The server that was taken over ----------------------------------------------------------------------------------

    def served(self, name, data):
        folder = self.work / "server" / "served"
        folder.mkdir(parents=True, exist_ok=True)
        (folder / name).write_bytes(data)
        return name

    def last(self, what):
        rows = self.stage.admin(f"/{what}?limit=100000")
        return rows[-1]["id"] if rows else 0

    def assign(self, kind, result, file=None, **properties):
        """Hands the agent something; returns the result that it sends, as the server has it."""
        after = self.last("results")
        self.stage.admin("/assign", {"kind": kind, "until": "result", "properties": properties, **({"file": file} if file else {})})
        return wait_until(lambda: next(iter(self.stage.admin(f"/results?type={result}&after={after}")), None), LONG,
                          f"the result of {kind}")

    def configure(self, **settings):
        """A configuration from the server; returns its result. A dot in a key is written as two underscores."""
        return self.assign("config", "config", **{"mod.time": "1795255200000", "rid.applied": "config-1"},
                           **{key.replace("__", "."): value for key, value in settings.items()})

    # The ordinary account --------------------------------------------------------------------------------------------

    def needs_root(self, why="root, to become an ordinary account"):
        if os.geteuid() != 0:
            self.skipTest(f"needs {why}")

    def stranger(self, act, uid=None):
        """Runs act() in a process of an account that nobody has, until the end of the case; gives a function that waits for it."""
        self.needs_root()
        uid = uid or stranger_ids()[0]
        child = os.fork()
        if child == 0:
            status = 1
            try:
                signal.signal(signal.SIGTERM, signal.SIG_DFL)
                os.setgroups([])
                os.setresgid(uid, uid, uid)
                os.setresuid(uid, uid, uid)
                status = act() or 0
            except Exception as error:
                print(f"the stranger: {error!r}", file=sys.stderr)
            finally:
                os._exit(status)
        ended = []

        def wait(end=False):
            if not ended:
                if end:
                    os.kill(child, signal.SIGKILL)
                ended.append(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
            return ended[0]
        self.addCleanup(wait, True)
        return wait

    def as_stranger(self, act, uid=None):
        """The exit status of act() in such a process: what it returns, or 0."""
        return self.stranger(act, uid)()

    # A world of its own ----------------------------------------------------------------------------------------------

    def namespace(self, *mounts):
        """What a program is to be started with to see other files: each mount is the words of a mount command. Root's alone: in
        another account's namespace everything of the system belongs to nobody."""
        self.needs_root("root, for a mount namespace")
        script = " && ".join("mount " + " ".join(f"'{word}'" for word in mount) for mount in mounts)
        prefix = ["unshare", "--mount", "--propagation", "private", "sh", "-c", f'{script} && exec "$@"', "sh"]
        tried = subprocess.run([*prefix, "true"], capture_output=True, text=True, check=False)
        if tried.returncode != 0:
            self.skipTest(f"no mount namespace here: {tried.stderr.strip()}")
        return prefix
