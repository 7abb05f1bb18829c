"""A stage for the agent: the reference server, the stand-ins and the agent itself, on loopback.

The demo, the soak and the end-to-end tests set it up alike. Everything lies in one work folder and ends
with it; processes are ended by id. Nothing here needs more than Python's standard library.
"""
import configparser
import contextlib
import json
import pathlib
import random
import shutil
import signal
import subprocess
import time
import urllib.error
import urllib.request
import zipfile

from machine import LinuxMachine, Program, ROOT, StageError, WineMachine, wait_until

REGISTRY_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\Dalvora\Intrusion Security\agent"
DRIVER_KEY = r"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services"


class Stage:
    """Folders, certificates and programs of one agent and its surroundings.

    build: the folder of a native build (its bin/ holds the programs). work: made when missing, kept afterwards.
    windows: the folder of a Windows build; the agent's machine is then one that Wine provides.
    prefix: the Wine prefix to use; one of the stage's own otherwise.
    """

    def __init__(self, build, work, seed=1, windows=None, prefix=None):
        self.bin = pathlib.Path(build).resolve() / "bin"
        self.work = pathlib.Path(work).resolve()
        self.random = random.Random(seed)
        self.install_root = self.work / "root"
        self.ips = self.install_root / "IPS"
        self.ids = self.install_root / "IDS"
        self.certs = self.work / "certs"
        self.server = self.driver = self.agent = None
        self.server_port = self.admin_port = 0
        self.programs = []
        for folder in (self.ips / "extensions", self.ids / "bin", self.certs, self.work / "server"):
            folder.mkdir(parents=True, exist_ok=True)
        self.machine = WineMachine(self, windows, prefix) if windows else LinuxMachine(self, build)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        try:
            self.machine.take_out()
        finally:
            for program in reversed(self.programs):
                if program.running():
                    program.process.kill()
                    program.process.wait()
            self.machine.close()

    def start(self, name, command, stop_signal=signal.SIGTERM, **environment):
        program = Program(name, command, self.work / f"{name}.log", environment, stop_signal)
        self.programs.append(program)
        return program

    def make_certificates(self):
        subprocess.run([ROOT / "script" / "make-certs", self.certs], check=True, stdout=subprocess.DEVNULL)

    def start_server(self, *options):
        """Starts the reference server and waits until it listens."""
        self.server, where = self.server_at("server", self.server_port, "--admin-port", self.admin_port, *options)
        self.server_port, self.admin_port = where["port"], where["admin_port"]

    def start_server_at(self, address, port):
        """Starts a further server on another address of this machine with the same data; returns its admin port."""
        return self.server_at(f"server-{address}", port, "--bind", address)[1]["admin_port"]

    def server_at(self, name, port, *options):
        ready = self.work / f"{name}.ready"
        ready.unlink(missing_ok=True)
        server = self.start(name, [
            self.bin / "korvane-server", "--data", self.work / "server", "--cert", self.certs / "server.pem",
            "--key", self.certs / "server.key", "--port", port, "--ready-file", ready, *options])

        def listening():
            if not server.running():
                raise StageError("korvane-server ended at its start:\n" + server.tail())
            return ready.exists() and ready.read_text().strip()

        return server, json.loads(wait_until(listening, 20, "korvane-server's ready file"))

    @contextlib.contextmanager
    def administered_by(self, admin_port):
        """admin() talks to another server for as long as this lasts."""
        kept, self.admin_port = self.admin_port, admin_port
        try:
            yield
        finally:
            self.admin_port = kept

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

    def install(self, service_type=1, settings=None, registry=()):
        """Lays out what an installer would: registry (and further lines of it), agent.ini, version file, built-in
        policy, translator."""
        self.machine.set_registry("\r\n".join([
            "Windows Registry Editor Version 5.00", "",
            f"[{REGISTRY_KEY}]", f'"AgentType"="{service_type}"', "",
            *registry,
            f"[{DRIVER_KEY}\\KAVIPSDriver]", '"Start"=dword:00000001', "",
            f"[{DRIVER_KEY}\\KAVIPSDriver\\Parameters]", '"UseBuiltin"="0"', '"Enable"="1"', "",
            f"[{DRIVER_KEY}\\KAVIPSNetFilter]", '"Start"=dword:00000002', ""]))
        (self.ips / "kav-version.properties").write_text("version=1.0.0\nbuild.number=100\n")
        with zipfile.ZipFile(self.ips / "builtin.zip", "w") as archive:
            archive.writestr("policy.txt", "name=Built-in\nversion=1\n")
        library = self.machine.build / "lib" / self.machine.translator
        if library.exists():
            (self.ips / "extensions" / library.name).write_bytes(library.read_bytes())
        for program in (self.machine.bin / "translate", self.machine.bin / "translate.exe"):
            if program.exists():
                (self.ips / "bin").mkdir(exist_ok=True)
                shutil.copy(program, self.ips / "bin")
        ini = configparser.RawConfigParser(delimiters="=")
        ini.optionxform = str
        ini.read(ROOT / "packaging" / "agent.ini")
        for section, pairs in [
                ("Agent", {"agent.name": "demo-host",
                           "agent.http.url": f"https://127.0.0.1:{self.server_port}/korvane/agent/"}),
                ("System", {"ssl.trustStore": self.machine.path(self.certs / "ca.pem")}),
                *(settings or {}).items()]:
            if not ini.has_section(section):
                ini.add_section(section)
            for key, value in pairs.items():
                ini.set(section, key, str(value))
        with open(self.ips / "agent.ini", "w", encoding="utf-8") as file:
            ini.write(file, space_around_delimiters=False)

    def source_policy(self, name, rules="", policy_name="Web servers", version="1", identifier="policy-1"):
        """Makes a source policy as the server hands it out; returns its path. rules: lines of the policy's text."""
        text = self.work / f"{name}.pol"
        archive = self.work / f"{name}.sbp.zip"
        text.write_text(f"korvane-policy 1\nname {policy_name}\nversion {version}\nid {identifier}\n{rules}", encoding="utf-8")
        subprocess.run([self.bin / "translate", "--make-policy", text, archive], check=True)
        return archive

    def start_ids(self, *options):
        """Starts the IDS component's stand-in, which answers what the agent hands over until it is stopped."""
        return self.machine.start("ids", "korvane-ids-writer", "--install-root", self.install_root, "--serve",
                                  *(str(option) for option in options))

    def start_driver(self):
        self.machine.start_driver()

    def start_writer(self, *options):
        """Starts the IDS event writer; its last output line tells what it wrote (written())."""
        return self.machine.start("ids-writer", "korvane-ids-writer", "--install-root", self.install_root,
                                  *(str(option) for option in options))

    @staticmethod
    def written(writer):
        """What an ended event writer wrote: the JSON object in its last line."""
        lines = pathlib.Path(writer.log).read_text(errors="replace").splitlines()
        if writer.exit_status != 0 or not lines:
            raise StageError(f"{writer.name} ended with status {writer.exit_status}:\n" + writer.tail())
        return json.loads(lines[-1])

    def ledger(self):
        """What agentctl says of the loss ledger; of a stopped agent, from its files."""
        return json.loads(self.machine.agentctl("ledger", "--json")[1])

    def events(self, first, last):
        """The server's account of the sequence numbers from first to last."""
        return self.admin(f"/events?from={first}&to={last}")

    def await_events(self, first, last, seconds):
        """The server's account once it has all events of the range; gives up, with that account, when none has come
        for `seconds`: however late they are, events that still come are not lost."""
        account, arrived, end = self.events(first, last), -1, 0
        while account["lost"] > 0:
            if account["distinct"] > arrived:
                arrived, end = account["distinct"], time.monotonic() + seconds
            elif time.monotonic() > end:
                logs = sorted(file.name for file in (self.ids / "logs").iterdir())
                raise StageError(f"events {first} to {last}: none came for {seconds} s; {account}; logs left: {logs}")
            time.sleep(0.05)
            account = self.events(first, last)
        return account

    def start_agent(self):
        self.agent = self.machine.start_agent()
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
