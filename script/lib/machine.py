"""The two machines that a stage's agent can run on: this Linux system, and a Windows one that Wine provides.

Both have the same operations, so that whatever is played on a stage is written once. The reference server
always runs on Linux; what belongs to the agent's machine (the agent, the driver, the event writer) runs here.
"""
import fcntl
import json
import os
import pathlib
import random
import signal
import socket
import subprocess
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
WINE_RUN = ROOT / "script" / "wine-run"
HOST_IMAGE = "korvane-host.exe"
SERVICE = "KorvaneAgent"


class StageError(Exception):
    """Something on the stage did not come up or did not answer; the text names it."""


def free_port():
    """A port for a listener of the agent's, below those that the system gives to connections while the agent starts."""
    while True:
        port = random.randrange(20000, 32000)
        with socket.socket() as probe:
            try:
                probe.bind(("", port))
                return port
            except OSError:
                continue


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


def tail_of(name, log, lines):
    log = pathlib.Path(log)
    text = log.read_text(errors="replace").splitlines() if log.exists() else []
    return "\n".join(f"    {name}: {line}" for line in text[-lines:])


class Program:
    """A child process in a session of its own, so that Ctrl-C ends the stage and not it; its output goes to a file."""

    def __init__(self, name, command, log, environment=None, stop_signal=signal.SIGTERM):
        self.name = name
        self.log = log
        self.stop_signal = stop_signal
        self.output = open(log, "ab")
        self.process = subprocess.Popen([str(part) for part in command], stdin=subprocess.DEVNULL,
                                        stdout=self.output, stderr=self.output, start_new_session=True,
                                        env={**os.environ, **(environment or {})})

    @property
    def pid(self):
        return self.process.pid

    @property
    def exit_status(self):
        return self.process.poll()

    def running(self):
        return self.process.poll() is None

    def stop(self, limit=10.0):
        """Asks it to end and waits; returns the milliseconds that the end took."""
        return self._end(self.stop_signal, limit)

    def kill(self):
        self._end(signal.SIGKILL, 10.0)

    def _end(self, how, limit):
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
        return tail_of(self.name, self.log, lines)


class LinuxMachine:
    """The stand-in driver is a process behind a socket, the registry a file."""

    target = "linux"
    system = "Linux"
    translator = "libkavipstranslator.so"
    how_it_stops = "SIGTERM"

    def __init__(self, stage, build):
        self.stage = stage
        self.build = pathlib.Path(build).resolve()
        self.bin = self.build / "bin"
        self.run_dir = stage.work / "run"
        self.registry = stage.work / "registry.reg"
        self.run_dir.mkdir(exist_ok=True)
        self.run_dir.chmod(0o700)

    def prepare(self):
        """Makes the machine ready, before anything is installed."""

    def take_out(self):
        """Takes out what was put into the system, while the stage's programs still run."""

    def close(self):
        """Ends what is left of the machine, after the stage's programs."""

    def path(self, path):
        """The name that programs of this machine have for a path."""
        return str(path)

    def start(self, name, program, *arguments):
        return self.stage.start(name, [self.bin / program, *arguments])

    def set_registry(self, text):
        self.registry.write_text(text)

    def start_driver(self):
        self.stage.driver = self.start("driver", "korvane-driver-sim", "--run-dir", self.run_dir, "--registry", self.registry)
        wait_until(lambda: (self.run_dir / "kavips.sock").exists(), 10, "the driver simulator's socket")

    def driver_control(self, *words):
        """A command to the stand-in driver; returns its state."""
        done = subprocess.run([self.bin / "korvane-driver-sim", "ctl", "--run-dir", self.run_dir, *words], check=False,
                              capture_output=True, text=True)
        if done.returncode != 0:
            raise StageError(f"driver, {' '.join(words)}: {done.stderr}")
        return json.loads(done.stdout)

    def remove_registry_value(self, key, name):
        """Removes a value below HKEY_LOCAL_MACHINE, as another program would."""
        with open(f"{self.registry}.lock", "ab") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            fresh = self.registry.with_suffix(".new")
            fresh.write_text(self.registry.read_text() + f'\r\n[HKEY_LOCAL_MACHINE\\{key}]\r\n"{name}"=-\r\n')
            fresh.replace(self.registry)

    @property
    def unsafe_options(self):
        """Root's programs in a developer's tree are that account's to change: the host is told that this is known."""
        tree = self.bin.stat()
        others = tree.st_uid not in (0, os.geteuid()) or tree.st_mode & 0o002
        return ("--allow-unsafe",) if others else ()

    def start_agent(self):
        return self.start("agent", "korvane-host", "run", "--install-root", self.stage.install_root,
                          "--registry", self.registry, "--run-dir", self.run_dir, *self.unsafe_options)

    @property
    def run_options(self):
        """Where the programs of this machine find each other."""
        return "--run-dir", self.run_dir

    def kill(self, running, _program):
        running.kill()

    def agentctl(self, *words):
        """The exit status of agentctl for this agent, and what it wrote."""
        done = subprocess.run([self.bin / "agentctl", "--install-root", self.stage.install_root, "--registry", self.registry,
                               "--run-dir", self.run_dir, *words], check=False, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8", timeout=120)
        return done.returncode, done.stdout


class WinePrefix:
    """A Windows installation of its own in a folder, made at the first use; what runs in it ends with close()."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder).resolve()
        self.environment = {"KORVANE_WINE_PREFIX": str(self.folder)}

    def outcome(self, program, *arguments, limit=120):
        """Runs a program to its end; returns its exit status and what it wrote."""
        log = self.folder.parent / f"{self.folder.name}-{threading.get_native_id()}.log"
        for _ in range(3):
            with open(log, "wb") as output:
                status = subprocess.run([WINE_RUN, program, *arguments], stdin=subprocess.DEVNULL, stdout=output,
                                        stderr=output, start_new_session=True, timeout=limit,
                                        env={**os.environ, **self.environment}, check=False).returncode
            text = log.read_text(errors="replace")
            if status != 1 or text:
                break  # with 1 and no word Wine has not started it (script/wine-run)
        return status, text

    def run(self, program, *arguments, limit=120):
        """What a program writes, which must end well. Wine's own programs go by their names."""
        status, text = self.outcome(program, *arguments, limit=limit)
        if status != 0:
            raise StageError(f"{pathlib.Path(program).name} {' '.join(arguments)}: status {status}: {text}")
        return text

    def close(self):
        if not self.folder.exists():
            return
        subprocess.run([WINE_RUN, "--end"], env={**os.environ, **self.environment}, check=False, start_new_session=True,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for pid in self.processes():
            os.kill(pid, signal.SIGKILL)

    def processes(self, image=""):
        """The Linux process ids of all that runs in the prefix, or of the programs of that name."""
        wanted = f"WINEPREFIX={self.folder}".encode()
        found = []
        for entry in pathlib.Path("/proc").iterdir():
            try:
                if entry.name.isdigit() and wanted in (entry / "environ").read_bytes().split(b"\0") \
                        and image.encode() in (entry / "cmdline").read_bytes():
                    found.append(int(entry.name))
            except OSError:
                pass  # it has ended, or is not ours
        return found


class WineService:
    """The agent as a service of a Wine machine; it has what a Program has."""

    name = "agent"

    def __init__(self, machine, log):
        self.machine = machine
        self.log = log
        self.exit_status = None
        self.machine.tell("start", SERVICE)

    @property
    def pid(self):
        """The Linux process id, for what Linux counts of it; 0 when it does not run."""
        found = self.machine.prefix.processes(HOST_IMAGE)
        return found[0] if found else 0

    def running(self):
        return self.pid != 0

    def stop(self):
        """Stops the service; returns the milliseconds until its process had ended."""
        answer = self.machine.tell("stop", SERVICE)
        self.exit_status = answer["exit_status"]
        return answer["ms"]

    def kill(self):
        self.machine.tell("kill", SERVICE)

    def tail(self, lines=15):
        return tail_of(self.name, self.log, lines)


class WineMachine:
    """A Windows machine in a Wine prefix: the one given, or one of the stage's own that ends with it."""

    target = "windows"
    system = "Windows (Wine)"
    translator = "kavipstranslator.dll"
    how_it_stops = "The service manager's stop"

    def __init__(self, stage, build, prefix=None):
        self.stage = stage
        self.build = pathlib.Path(build).resolve()
        self.bin = self.build / "bin"
        self.owns_prefix = prefix is None
        self.prefix = prefix or WinePrefix(stage.work / "wine")
        self.serves = False
        self.installed = []  # what takes out again what was put into the system

    def prepare(self):
        self.prefix.run("winecfg", "-v", "win10")
        # Wine ends its services when no other program runs.
        self.start("session", "korvane-machine", "stay")

    def take_out(self):
        for program, *arguments in reversed(self.installed):
            self.prefix.run(str(self.bin / program), *arguments)
        self.installed.clear()

    def close(self):
        if self.owns_prefix:
            self.prefix.close()

    def path(self, path):
        """The name that programs of this machine have for a path."""
        return "Z:" + str(path).replace("/", "\\")

    def start(self, name, program, *arguments):
        return self.stage.start(name, [WINE_RUN, self.bin / f"{program}.exe", *self.native(arguments)], signal.SIGINT,
                                **self.prefix.environment)

    run_options = ()

    def kill(self, running, program):
        """Ends a program as a crash would; what started it ends with it."""
        for pid in self.prefix.processes(f"{program}.exe"):
            os.kill(pid, signal.SIGKILL)
        running.kill()

    def run(self, program, *arguments):
        return self.prefix.run(str(self.bin / f"{program}.exe"), *self.native(arguments))

    def agentctl(self, *words):
        """The exit status of agentctl for this agent, and what it wrote."""
        words = self.native(("--install-root", self.stage.install_root, *words))
        return self.prefix.outcome(str(self.bin / "agentctl.exe"), *words)

    def native(self, arguments):
        return [self.path(part) if isinstance(part, pathlib.Path) else str(part) for part in arguments]

    def set_registry(self, text):
        file = self.stage.work / "registry.reg"
        file.write_text(text, encoding="utf-16")
        self.prefix.run("regedit", "/S", self.path(file))

    def tell(self, *words):
        """What korvane-machine.exe answers."""
        return json.loads(self.run("korvane-machine", *words).splitlines()[-1])

    def driver_control(self, *words):
        """A command to the stand-in driver; returns its state."""
        return json.loads(self.run("kavips-install", *words).splitlines()[-1])

    def start_driver(self):
        self.run("kavips-install", "load", self.bin / "kavips.sys")
        self.installed.append(("kavips-install.exe", "remove"))
        self.run("kavips-install", "prevention", "on")
        self.installed.append(("kavips-install.exe", "prevention", "off"))

    def remove_registry_value(self, key, name):
        self.prefix.run("reg", "delete", f"HKLM\\{key}", "/v", name, "/f")

    def start_agent(self):
        if not self.serves:
            # Its folders lie below others' of the Unix system, whose sticky bit Wine's access lists do not show.
            self.run("korvane-host", "install", "--install-root", self.stage.install_root, "--start", "demand", "--allow-unsafe")
            self.installed.append(("korvane-host.exe", "uninstall"))
            self.serves = True
        return WineService(self, self.stage.ips / "logs" / "korvane-host.log")
