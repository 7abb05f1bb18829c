"""The logs of a soak that are sent in bulk, each known by its bytes, and a disk that can be filled."""
import contextlib
import hashlib
import io
import os
import subprocess
import sys
import urllib.request
import zipfile

BLOCK = 1 << 16


def name_of(path):
    return path.replace("\\", "/").rpartition("/")[2]


class Logs:
    """Finished logs of the agent and of the IDS component; the driver's, which grow until they are rolled; external ones, which grow."""

    def __init__(self, stage, rng):
        self.stage, self.random, self.made = stage, rng, 0
        self.contents = {}  # name -> [bytes, hash]
        self.driver_folder, self.external = stage.work / "driver", stage.ips / "app"
        for folder in (self.driver_folder, self.external, stage.ips / "logs", stage.ids / "logs"):
            folder.mkdir(exist_ok=True)
        self.driver_log = self.driver_folder / "driver.csv"
        (stage.ids / "logs" / "KAVEvent-900000.csv").write_text("MSOF,0,2026-11-21 03:28:17.123\n")
        self.grow(self.driver_log, 1)

    def noise(self, lines):
        return "".join(f"{n},{self.random.getrandbits(64):x},TNET,198.51.100.{n % 250},connection {self.random.random()}\n"
                       for n in range(lines)).encode()

    def know(self, name, data):
        known = self.contents.setdefault(name, [0, hashlib.sha256()])
        known[0] += len(data)
        known[1].update(data)

    def grow(self, path, lines):
        data = self.noise(lines)
        with open(path, "ab") as file:
            file.write(data)
        self.know(path.name, data)

    def finish(self, folder, name, lines):
        data = self.noise(lines)
        aside = folder / (name + ".new")
        aside.write_bytes(data)
        self.know(name, data)
        aside.rename(folder / name)

    def make(self):
        """Some of each kind."""
        self.made += 1
        for i in range(self.random.randint(1, 3)):
            self.finish(self.stage.ips / "logs", f"korvane-agent-20250101{self.made:06}{i:03}-1.log", self.random.randint(1, 12000))
        self.finish(self.stage.ids / "logs", f"KAVEvent-{self.made:06}.csv", self.random.randint(1, 3000))
        self.drive()
        self.grow(self.external / f"app-{self.made % 3}.log", self.random.randint(1, 2000))

    def fill_a_bundle(self):
        """Logs for a bundle of the largest size: the allocator keeps room for the largest one that there was, which is no leak."""
        for i in range(4):
            data = b"".join(self.random.randbytes(60).hex().encode() + b"\n" for _ in range(45000))
            name = f"korvane-agent-20250101999999{i:03}-1.log"
            (self.stage.ips / "logs" / (name + ".new")).write_bytes(data)
            self.know(name, data)
        for i in range(4):
            name = f"korvane-agent-20250101999999{i:03}-1.log"
            (self.stage.ips / "logs" / (name + ".new")).rename(self.stage.ips / "logs" / name)

    def drive(self):
        """The driver writes to the log that it was pointed at."""
        rolled = name_of(self.stage.setting("driverlog.logfile"))
        if rolled:
            self.driver_log = self.driver_folder / rolled
        self.grow(self.driver_log, self.random.randint(1, 300))

    def left(self):
        """Finished logs that are still to be sent; the driver's newest is, as long as it holds something."""
        found = []
        for folder in (self.stage.ips / "logs", self.stage.ids / "logs", self.driver_folder):
            for path in folder.iterdir():
                with contextlib.suppress(FileNotFoundError):  # just removed
                    if path.name in self.contents and path.stat().st_size:
                        found.append(path.name)
        return found

    def all_sent(self):
        """Nothing is left, and the server has all that was written to the external logs."""
        here = {path.name for path in self.external.iterdir()}
        logs = self.stage.admin("/bulk-logs")["logs"]
        sent = sum(log["bytes"] for log in logs if name_of(log["path"]) in here)
        return not self.left() and sent == sum(self.contents[name][0] for name in here)

    def total(self):
        return sum(size for size, _ in self.contents.values())

    def arrived(self):
        """What the bundles make of each log, by its name: parts that follow one another from the first byte on, log by log."""
        parts, after = {}, 0
        while files := self.stage.admin(f"/bulk-files?after={after}&limit=20"):
            for file in files:
                after = file["id"]
                url = f"http://127.0.0.1:{self.stage.admin_port}/binaries/{file['binary']}"
                with urllib.request.urlopen(url) as answer, zipfile.ZipFile(io.BytesIO(answer.read())) as bundle:
                    for part in file["parts"]:
                        name = name_of(part["path"])
                        if name in self.contents:
                            parts.setdefault(name, {}).setdefault(part["log"], []).append((part["from"], bundle.read(part["entry"])))
        return {name: b"".join(piece for pieces in logs.values() for _, piece in sorted(pieces)) for name, logs in parts.items()}

    def account(self):
        """Every byte of every log against what arrived."""
        sums, arrived = self.stage.admin("/bulk-logs"), self.arrived()
        wrong = [name for name, (size, digest) in self.contents.items()
                 if (len(data := arrived.get(name, b"")), hashlib.sha256(data).digest()) != (size, digest.digest())]
        return {"bulk_logs": len(self.contents), "bulk_bytes": self.total(), "bulk_received": sum(map(len, arrived.values())),
                "bulk_twice": sums["twice"], "bulk_faults": sums["faults"], "bulk_wrong": wrong, "bulk_left": self.left(),
                "bundles": sums["files"], "bundles_again": sums["repeated"],
                "own_logs_sent": sum(name_of(log["path"]) not in self.contents for log in sums["logs"]),
                "own_logs_cut": sum(bool(log["missing"]) for log in sums["logs"])}


class Disk:
    """A disk of its own for a folder, where this account may mount one. (To a Windows program a mounted folder is a link.)"""

    def __init__(self, folder, size):
        self.folder, self.filler = folder, folder / "filler"
        self.own = os.environ.get("KORVANE_MOUNTS") == "own"
        if self.own:
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size},mode=755", "none", folder], check=True)
        self.word = "on a file system of its own" if self.own else "left out: needs Linux, root and a mount namespace"

    def fill(self):
        with open(self.filler, "wb", buffering=0) as file:
            for size in (1 << 20, BLOCK, 1 << 12, 1):
                with contextlib.suppress(OSError):
                    while file.write(bytes(size)) == size:
                        pass

    def free(self):
        self.filler.unlink(missing_ok=True)

    def close(self):
        if self.own:
            subprocess.run(["umount", "-l", self.folder], check=False)


def in_namespace():
    """Starts this program again in a mount namespace of its own, if it may: what it mounts ends with it, and nobody else sees it."""
    prefix = ["unshare", "--mount", "--propagation", "private"]
    if os.environ.get("KORVANE_MOUNTS") or os.geteuid() != 0:
        return
    works = subprocess.run([*prefix, "true"], capture_output=True, check=False).returncode == 0
    os.environ["KORVANE_MOUNTS"] = "own" if works else "none"
    if works:
        os.execvp(prefix[0], [*prefix, sys.executable, *sys.argv])
