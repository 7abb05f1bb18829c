"""A stage for the agent: the reference server, the stand-ins and the agent itself, on loopback.

The demo, the soak and the end-to-end tests set it up alike. Everything lies in one work folder and ends
with it; processes are ended by id. Nothing here needs more than Python's standard library.
"""
import configparser
import json
import os
import pathlib
import random
import signal
import subprocess
import time
import urllib.error
import urllib.request
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
REGISTRY_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\Dalvora\Intrusion Security\agent"
DRIVER_KEY = r"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services"


class StageError(Exception):
    """Something on the stage did not come up or did not answer; the text names it."""


def wait_until(condition, seconds, what):
    """Returns condition()'s first true value; StageError naming `what` when it stays false."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise StageError(f"{what}: not within {seconds} s")
        time.sleep(0.05)


class Program:
    """A child process whose output goes to a file in the work folder."""

    def __init__(self, name, command, log, environment=None):
        self.name = name
        self.log = log
        self.output = open(log, "ab")
        self.process = subprocess.Popen([str(part) for part in command], stdin=subprocess.DEVNULL,
                                        stdout=self.output, stderr=self.output,
                                        env={**os.environ, **(environment or {})})

    @property
    def pid(self):
        return self.process.pid

    def running(self):
        return self.process.poll() is None

    def end(self, how=signal.SIGTERM, limit=10.0):
        """Sends the signal and waits; returns the milliseconds that the end took."""
        started = time.monotonic()
        if self.running():
            self.process.send_signal(how)
            try:
                self.process.wait(limit)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
                raise StageError(f"{self.name} (process {self.pid}) did not end within {limit} s") from None
            finally:
                self.output.close()
        return round((time.monotonic() - started) * 1000)

    def tail(self, lines=15):
        text = pathlib.Path(self.log).read_text(errors="replace").splitlines()
        return "\n".join(f"    {self.name}: {line}" for line in text[-lines:])


class Stage:
    """Folders, certificates and programs of one agent and its surroundings.

    build: the folder of a build (its bin/ holds the programs). work: made when missing, kept afterwards.
    """

    def __init__(self, build, work, seed=1):
        self.build = pathlib.Path(build).resolve()
        self.bin = self.build / "bin"
        self.work = pathlib.Path(work).resolve()
        self.random = random.Random(seed)
        self.install_root = self.work / "root"
        self.ips = self.install_root / "IPS"
        self.ids = self.install_root / "IDS"
        self.run_dir = self.work / "run"
        self.certs = self.work / "certs"
        self.registry = self.work / "registry.reg"
        self.server = self.driver = self.agent = None
        self.server_port = self.admin_port = 0
        self.programs = []
        for folder in (self.ips / "extensions", self.ids / "bin", self.run_dir, self.certs, self.work / "server"):
            folder.mkdir(parents=True, exist_ok=True)
        self.run_dir.chmod(0o700)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        for program in reversed(self.programs):
            if program.running():
                program.process.kill()
                program.process.wait()

    def start(self, name, command, **environment):
        program = Program(name, command, self.work / f"{name}.log", environment)
        self.programs.append(program)
        return program

    def make_certificates(self):
        subprocess.run([ROOT / "script" / "make-certs", self.certs], check=True, stdout=subprocess.DEVNULL)

    def start_server(self, *options):
        """Starts the reference server and waits until it listens."""
        ready = self.work / "server.ready"
        ready.unlink(missing_ok=True)
        self.server = self.start("server", [
            self.bin / "korvane-server", "--data", self.work / "server", "--cert", self.certs / "server.pem",
            "--key", self.certs / "server.key", "--port", self.server_port, "--admin-port", self.admin_port,
            "--ready-file", ready, *options])

        def listening():
            if not self.server.running():
                raise StageError("korvane-server ended at its start:\n" + self.server.tail())
            return ready.exists() and ready.read_text().strip()

        where = json.loads(wait_until(listening, 20, "korvane-server's ready file"))
        self.server_port, self.admin_port = where["port"], where["admin_port"]

    def admin(self, path, body=None, method=None):
        """One request to the server's admin interface; returns the decoded JSON."""
        request = urllib.request.Request(f"http://127.0.0.1:{self.admin_port}{path}",
                                         None if body is None else json.dumps(body).encode(),
                                         {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=30) as answer:
                return json.loads(answer.read() or b"null")
        except urllib.error.HTTPError as error:
            raise StageError(f"admin {path}: status {error.code}: {error.read().decode(errors='replace')}") from None

    def install(self, service_type=1, settings=None):
        """Lays out what an installer would: registry, agent.ini, version file, built-in policy, translator."""
        self.registry.write_text("\r\n".join([
            "Windows Registry Editor Version 5.00", "",
            f"[{REGISTRY_KEY}]", f'"AgentType"="{service_type}"', "",
            f"[{DRIVER_KEY}\\KAVIPSDriver]", '"Start"=dword:00000001', "",
            f"[{DRIVER_KEY}\\KAVIPSDriver\\Parameters]", '"UseBuiltin"="0"', '"Enable"="1"', "",
            f"[{DRIVER_KEY}\\KAVIPSNetFilter]", '"Start"=dword:00000002', ""]))
        (self.ips / "kav-version.properties").write_text("version=1.0.0\nbuild.number=100\n")
        with zipfile.ZipFile(self.ips / "builtin.zip", "w") as archive:
            archive.writestr("policy.txt", "name=Built-in\nversion=1\n")
        library = self.build / "lib" / "libkavipstranslator.so"
        if library.exists():
            (self.ips / "extensions" / library.name).write_bytes(library.read_bytes())
        ini = configparser.RawConfigParser(delimiters="=")
        ini.optionxform = str
        ini.read(ROOT / "packaging" / "agent.ini")
        for section, pairs in [
                ("Agent", {"agent.name": "demo-host",
                           "agent.http.url": f"https://127.0.0.1:{self.server_port}/korvane/agent/"}),
                ("System", {"ssl.trustStore": self.certs / "ca.pem"}),
                *(settings or {}).items()]:
            if not ini.has_section(section):
                ini.add_section(section)
            for key, value in pairs.items():
                ini.set(section, key, str(value))
        with open(self.ips / "agent.ini", "w", encoding="utf-8") as file:
            ini.write(file, space_around_delimiters=False)

    def start_driver(self):
        self.driver = self.start("driver", [self.bin / "korvane-driver-sim", "--run-dir", self.run_dir,
                                            "--registry", self.registry])
        wait_until(lambda: (self.run_dir / "kavips.sock").exists(), 10, "the driver simulator's socket")

    def start_writer(self, *options):
        """Starts the IDS event writer; its last output line tells what it wrote (written())."""
        return self.start("ids-writer", [self.bin / "korvane-ids-writer", "--install-root", self.install_root, *options])

    @staticmethod
    def written(writer):
        """What an ended event writer wrote: the JSON object in its last line."""
        lines = pathlib.Path(writer.log).read_text(errors="replace").splitlines()
        if writer.process.returncode != 0 or not lines:
            raise StageError(f"{writer.name} ended with status {writer.process.returncode}:\n" + writer.tail())
        return json.loads(lines[-1])

    def events(self, first, last):
        """The server's account of the sequence numbers from first to last."""
        return self.admin(f"/events?from={first}&to={last}")

    def start_agent(self):
        self.agent = self.start("agent", [self.bin / "korvane-host", "run", "--install-root", self.install_root,
                                          "--registry", self.registry, "--run-dir", self.run_dir])
        return self.agent

    def setting(self, key):
        """A value of agent.ini as it stands on disk, or an empty text."""
        try:
            text = (self.ips / "agent.ini").read_text(encoding="utf-8", errors="replace")
        except FileNotFoundError:
            return ""
        for line in text.splitlines():
            if line.startswith(key + "="):
                return line[len(key) + 1:]
        return ""

    def memory_kib(self, field):
        """A figure of the agent's /proc status, such as RssAnon, in KiB."""
        with open(f"/proc/{self.agent.pid}/status", encoding="ascii") as status:
            for line in status:
                if line.startswith(field + ":"):
                    return int(line.split()[1])
        return 0

    def cpu_seconds(self):
        """User and system time of all threads of the agent so far."""
        return time.clock_gettime((~self.agent.pid << 3) | 2)
