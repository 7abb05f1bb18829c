#!/usr/bin/env python3
"""An inventory is what is there, arrives whole and once, and a request for one is always answered.

inventory.py --build DIR [CASE ...]
"""
import base64
import calendar
import configparser
import hashlib
import io
import os
import pathlib
import re
import socket
import subprocess
import sys
import time
import xml.etree.ElementTree as etree
import zipfile

from accounting import MEBI, Answer, Counted, in_namespace, wait_until
from hostile import cases

ROOT = pathlib.Path(__file__).resolve().parents[2]
XS = "{http://www.w3.org/2001/XMLSchema}"
ORDER = ["result.type", "application.requestID", "application.request.complete", "application.data.outcome", "application.data.size",
         "application.data.offset", "application.data.sha256", "application.data.rows", "application.data.skipped",
         "application.data.complete", "application.data.applications.checksum", "application.data.files.checksum",
         "application.data.error"]
ROWS = {  # the attributes that a row always has, and those that it may have
    "application": ("name", "version publisher architecture location installed"),
    "service": ("name start", "displayName account program"),
    "process": ("id parent name", "image commandLine"),
    "port": ("protocol address port", "process image"),
    "shortcut": ("path", "name target arguments directory"),
    "file": ("path size modified", "created version signer sha256 pathBytes"),
    "registry": ("key name type value", ""),
    "skip": ("what reason", ""),
    "result": ("complete rows skipped", "reason applicationsChecksum filesChecksum")}
ODD = ["plain", " leading", "trailing ", "-dash", "a&b<c>d\"e'f", "tab\there", "line\nfeed", "return\rhere", "..dots",
       "\u00fc\u4e2d\U0001f600", "\u202eright",
       "x" * 255, "%00", "]]>", "&#10;", "back\\slash", "\u0085next", "\u2028sep", "*?", "nul.txt", "\ufeffmark"]
RAW = [b"bad\xff\xfe", b"\xc3(", b"control\x01\x1b[31m", b"\xed\xa0\x80", b"\xef\xbf\xbf", b"\x7f"]


def definition(*elements, version=2, share=100):
    limits = f'<limits share="{share}"/>' if version == 2 else ""
    return f'<?xml version="1.0" encoding="UTF-8"?>\n<discovery version="{version}">\n{limits}{"".join(elements)}\n</discovery>\n'


def files(root, **more):
    return f'<files root="{root}"{"".join(f" {name}={chr(34)}{value}{chr(34)}" for name, value in more.items())}/>'


class Schema:
    """Reads docs/discovery.xsd as far as that file goes: says whether a document is what it describes."""

    def __init__(self, path):
        self.root = etree.parse(path).getroot()
        self.types = {node.get("name"): node for node in self.root if node.tag in (XS + "simpleType", XS + "complexType")}

    def accepts(self, text):
        try:
            document = etree.fromstring(text)
        except etree.ParseError:
            return False
        return any(self.element(declared, document) for declared in self.root.findall(XS + "element"))

    def element(self, declared, node):
        kind = self.types.get(declared.get("type"), declared.find(XS + "complexType"))
        allowed = {entry.get("name"): entry for entry in kind.findall(XS + "attribute")}
        group = next((entry for entry in kind if entry.tag in (XS + "choice", XS + "sequence", XS + "all")), ())
        children = {entry.get("name"): entry for entry in group}
        return (declared.get("name") == node.tag and not (node.text or "").strip()
                and all(name in allowed and self.value(allowed[name], value) for name, value in node.attrib.items())
                and all(name in node.attrib for name, entry in allowed.items() if entry.get("use") == "required")
                and all(child.tag in children and not (child.tail or "").strip() and self.element(children[child.tag], child)
                        for child in node)
                and all(len(node.findall(name)) <= float(entry.get("maxOccurs", "inf").replace("unbounded", "inf"))
                        for name, entry in children.items()))

    def value(self, declared, text):
        kind = declared.find(XS + "simpleType")
        return self.simple(self.types[declared.get("type")] if kind is None else kind, text)

    def simple(self, kind, text):
        rules = kind.find(XS + "restriction")
        base = rules.get("base")
        if base in self.types and not self.simple(self.types[base], text):
            return False
        if base == "xs:long" and not (text.strip().lstrip("+-").isdigit() and -2**63 <= int(text) < 2**63):
            return False
        one_of = [rule.get("value") for rule in rules.findall(XS + "enumeration")]
        checks = {"minLength": lambda value: len(text) >= int(value), "minInclusive": lambda value: int(text) >= int(value),
                  "maxInclusive": lambda value: int(text) <= int(value), "pattern": lambda _: text.isascii() and text.isdigit()}
        return (not one_of or text in one_of) and all(
            checks[rule.tag[len(XS):]](rule.get("value")) for rule in rules if rule.tag != XS + "enumeration")


class Inventory(Counted):
    def setUp(self):
        super().setUp()
        self.asked = 0
        self.definition = self.stage.ips / "discovery.xml"
        self.tree = self.work / "tree"
        self.tree.mkdir()

    def start(self, *elements, text=None, **settings):
        self.define(*elements, text=text)
        self.install(ApplicationData={"appdata.configV2.file": self.definition, "appdata.max.payload": 1, "appdata.senddata.interval": 0,
                                      "appdata.retry.interval": 1, "appdata.max.retries": 3, **settings})
        self.run_agent()

    def define(self, *elements, text=None):
        fresh = self.definition.with_suffix(".new")
        fresh.write_bytes((text if isinstance(text, bytes) else (text or definition(*elements)).encode()))
        fresh.replace(self.definition)

    def ask(self, seconds=60, identifier=None):
        """The server asks for an inventory; returns the messages of the answer, with what the server said to each."""
        self.asked += 1
        identifier = identifier or f"r-{self.seed}-{self.asked}"
        self.server.offer = identifier
        wait_until(lambda: not self.server.offer, seconds, "the answer to the request")
        wait_until(lambda: self.stage.setting("appdata.requested") != "true", 20, "the end of the request")
        return self.messages(identifier)

    def messages(self, identifier):
        return [(request, answer) for request, answer in self.server.of("app.data") if request.pairs["application.requestID"] == identifier]

    # What arrives ----------------------------------------------------------------------------------------------------

    def put_together(self, messages, payload=MEBI):
        """The archive that the messages carry, each of which is as the page says; pieces that came twice had the same bytes."""
        last = messages[-1][0].pairs
        size, pieces = int(last["application.data.size"]), {}
        for request, answer in messages:
            self.assertEqual(request.names, [name for name in ORDER if name in request.pairs], "the order of the properties")
            self.assertEqual(set(ORDER[:-1]) - set(request.names), set(), "properties that are missing")
            self.assertEqual({**request.pairs, "application.data.offset": "", "application.request.complete": ""},
                             {**last, "application.data.offset": "", "application.request.complete": ""}, "messages of one inventory")
            offset, (piece,) = int(request.pairs["application.data.offset"]), request.binaries
            self.assertEqual(len(piece), min(payload, size - offset), f"the piece at {offset} of {size}")
            self.assertEqual(request.pairs["application.request.complete"], "true" if offset + len(piece) == size else "false")
            self.assertEqual(pieces.setdefault(offset, piece), piece, "a piece came twice, with other bytes")
        self.assertEqual(sorted(pieces), list(range(0, size, payload)), "the places of the pieces")
        data = b"".join(pieces[offset] for offset in sorted(pieces))
        self.assertEqual((len(data), hashlib.sha256(data).hexdigest()), (size, last["application.data.sha256"]))
        self.count(pieces=len(pieces), messages=len(messages), bytes=size)
        return data, last

    def rows(self, messages, payload=MEBI):
        """The rows of the inventory, by their names, after every rule of the page about them."""
        data, pairs = self.put_together(messages, payload)
        with zipfile.ZipFile(io.BytesIO(data)) as archive:
            self.assertIsNone(archive.testzip())
            self.assertEqual([name for name in archive.namelist() if name != "shortcuts.txt"], ["inventory.xml"])
            text = archive.read("inventory.xml")
            self.shortcuts = archive.read("shortcuts.txt").decode() if "shortcuts.txt" in archive.namelist() else None
        root = etree.fromstring(text)
        self.assertEqual((root.tag, root.get("version")), ("inventory", "1"))
        found = {name: [] for name in ROWS}
        for row in root:
            always, sometimes = (names.split() for names in ROWS[row.tag])
            self.assertEqual([name for name in always if name not in row.attrib], [], f"missing in {row.tag} {row.attrib}")
            self.assertEqual([name for name in row.attrib if name not in always + sometimes], [], f"unknown in {row.tag} {row.attrib}")
            self.assertEqual([name for name in sometimes if row.get(name) == "" and row.tag != "result"], [], f"{row.tag} {row.attrib}")
            found[row.tag].append(row.attrib)
        self.assertEqual(root[-1].tag, "result")
        result = found["result"][0]
        count = len(root) - 1 - len(found["skip"])
        self.assertEqual((result["rows"], pairs["application.data.rows"]), (str(count), str(count)))
        self.assertEqual((result["skipped"], result["complete"]), (pairs["application.data.skipped"], pairs["application.data.complete"]))
        self.assertEqual(len(found["skip"]), min(100, int(result["skipped"])))
        self.count(rows=count, skipped=result["skipped"])
        return found

    @staticmethod
    def path_of(row):
        return bytes.fromhex(row["pathBytes"]) if "pathBytes" in row else row["path"].encode()

    def walked(self, root, hash_limit=None):
        """Independently of the agent: path -> (size, digest, milliseconds) of what lies below the root and is a plain file."""
        found = {}
        root, device = os.fsencode(root), os.stat(root).st_dev
        for folder, folders, names in os.walk(root):
            folders[:] = [name for name in folders if not os.path.islink(os.path.join(folder, name))
                          and not os.path.ismount(os.path.join(folder, name)) and os.lstat(os.path.join(folder, name)).st_dev == device]
            for path in (os.path.join(folder, name) for name in names):
                about = os.lstat(path)
                if os.path.isfile(path) and not os.path.islink(path):
                    digest = None
                    if hash_limit is None or about.st_size <= hash_limit:
                        with open(path, "rb") as file:
                            digest = hashlib.sha256(file.read()).hexdigest()
                    found[path] = (about.st_size, digest, about.st_mtime_ns // 1000000)
        return found

    def same_files(self, rows, expected):
        found = {}
        for row in rows:
            day, _, fraction = row["modified"].partition(".")
            seconds = calendar.timegm(time.strptime(day, "%Y-%m-%dT%H:%M:%S"))
            self.assertNotIn(self.path_of(row), found, "a file twice")
            found[self.path_of(row)] = (int(row["size"]), row.get("sha256"), seconds * 1000 + int(fraction.rstrip("Z")))
        self.assertEqual(sorted(expected.keys() - found.keys())[:5], [], "missing")
        self.assertEqual(sorted(found.keys() - expected.keys())[:5], [], "nothing that should be there")
        self.assertEqual([(path, found[path], expected[path]) for path in found if found[path] != expected[path]][:5], [])

    def plant(self, count):
        """A tree with everything that a walk can stumble over."""
        for number in range(count):
            folder = self.tree / f"d{number // 250}" / f"e{number % 5}"
            folder.mkdir(parents=True, exist_ok=True)
            (folder / f"file-{number}.{'jar' if number % 3 else 'txt'}").write_bytes(self.random.randbytes(number % 40))
        odd = os.fsencode(self.tree / "odd")
        os.mkdir(odd)
        for name in [name.encode()[:255] for name in ODD] + RAW:
            with open(os.path.join(odd, name), "wb") as file:
                file.write(name)
        for size in (4095, 4096, 4097):
            (self.tree / f"size-{size}").write_bytes(bytes(size))
        deep = self.tree
        for level in range(70):
            deep = deep / f"n{level}"
        deep.mkdir(parents=True)
        for level in (63, 64, 65):  # levels of folders below the root
            pathlib.Path(*deep.parts[:len(self.tree.parts) + level], "deep").write_text("x")
        (self.tree / "links").mkdir()
        for name, target in (("up", ".."), ("self", "."), ("root", "/"), ("gone", "nowhere"), ("file", "../size-4096"), ("loop", "loop"),
                             ("etc", "/etc"), ("outside", self.work / "outside")):
            (self.tree / "links" / name).symlink_to(target)
        (self.work / "outside").mkdir()
        (self.work / "outside" / "secret").write_text("secret")
        os.link(self.tree / "size-4096", self.tree / "hard")
        os.mkfifo(self.tree / "pipe")
        with socket.socket(socket.AF_UNIX) as end:
            end.bind(str(self.tree / "socket"))
        for number, stamp in enumerate((0, 1, -1, 10**9 + 999999999 / 10**9, 4102444800, 7258118400)):
            path = self.tree / f"time-{number}"
            path.write_text("x")
            os.utime(path, ns=(0, int(stamp * 10**9)))
        with open(self.tree / "sparse", "wb") as file:
            file.truncate(3 << 30)

    # The cases -------------------------------------------------------------------------------------------------------

    def test_files_are_those_that_a_walk_finds(self):
        self.plant(10000)
        (self.work / "way in").symlink_to(self.tree)
        self.start(files(self.tree, hashLimit=4096), files("/proc/self/nothing"))
        found = self.rows(self.ask())
        expected = self.walked(self.tree, 4096)
        below = {path for path in expected if path.count(b"/") - os.fsencode(self.tree).count(b"/") > 65}
        self.assertEqual(len(below), 1)
        expected = {path: row for path, row in expected.items() if path not in below}
        self.same_files(found["file"], expected)
        self.define(f'<files root="{self.tree}" pattern="*.jar;size-?09*" depth="2" minSize="3" maxSize="4096" hash="false">'
                    '<exclude pattern="d1*"/><exclude pattern="d2/e3"/><exclude pattern="*-7?.jar"/></files>',
                    files(self.work / "way in", depth=0))
        paths = {self.path_of(row): row for row in self.rows(self.ask())["file"]}
        root = os.fsencode(self.tree)
        inside = {path: row for path, row in paths.items() if row["path"].endswith(".jar") or path.count(b"/") == root.count(b"/") + 1}
        self.assertEqual(paths, inside, "deeper than asked")
        wanted = {path for path, (size, _, _) in expected.items() if 3 <= size <= 4096
                  and (path.endswith(b".jar") and b"/d1" not in path and b"/d2/e3/" not in path and not path[-7:-5] == b"-7"
                       or os.path.basename(path) in (b"size-4095", b"size-4096", b"size-4097"))}
        top = {os.path.basename(path) for path in expected if path.count(b"/") == root.count(b"/") + 1}
        self.assertEqual(wanted - paths.keys(), set(), "missing")
        self.assertEqual({os.path.basename(path) for path in paths.keys() - wanted} - top, set(), "left out by the definition")
        self.assertFalse([row for path, row in paths.items() if path in wanted and path.endswith(b".jar") and "sha256" in row])

    def test_what_is_mounted_below_a_root_is_not_entered(self):
        """Another file system, a folder of elsewhere on this one, and the root itself once more below it."""
        (self.work / "outside").mkdir()
        for folder in (self.tree, self.work / "outside"):
            (folder / "file").write_text("x")
        for name, bound in (("tmpfs", None), ("elsewhere", self.work / "outside"), ("itself", self.tree)):
            (self.tree / name).mkdir()
            self.bind(bound, self.tree / name) if bound else self.mount(self.tree / name, MEBI)
            (self.tree / "tmpfs" / "file").write_text("x")
        (self.tree / "single").write_text("x")
        self.bind("/etc/passwd", self.tree / "single")
        self.start(files(self.tree), files(self.tree / "elsewhere"))
        paths = sorted(row["path"] for row in self.rows(self.ask())["file"])
        self.assertEqual(paths, [str(self.tree / "elsewhere" / "file"), str(self.tree / "file")])

    def test_what_may_not_be_read_is_told(self):
        """An agent of an ordinary account: what that may not read is counted and named, and all the rest is there."""
        self.as_account()
        for number in range(150):
            (self.tree / f"closed-{number}").write_text("x")
            (self.tree / f"closed-{number}").chmod(0)
        (self.tree / "locked").mkdir()
        (self.tree / "locked" / "hidden").write_text("x")
        (self.tree / "locked").chmod(0o700)
        (self.tree / "open").write_text("x")
        self.start(files(self.tree))
        found = self.rows(self.ask())
        names = {os.path.basename(row["path"]): row for row in found["file"]}
        self.assertIn("open", names)
        self.assertNotIn("hidden", names)
        self.assertEqual(int(found["result"][0]["skipped"]), 151)
        self.assertFalse([name for name, row in names.items() if name.startswith("closed") and "sha256" in row])
        self.assertRegex(found["skip"][0]["reason"], r"Permission denied \(13\)")

    def machine(self):
        """What /proc says now: process -> (parent, name, image), and the ports that somebody listens on."""
        processes, ports = {}, set()
        for entry in pathlib.Path("/proc").iterdir():
            try:
                if entry.name.isdigit():
                    head, _, tail = (entry / "stat").read_bytes().rpartition(b")")
                    image = os.readlink(entry / "exe") if (entry / "cmdline").read_bytes() else ""
                    processes[entry.name] = (tail.split()[1].decode(), head.partition(b"(")[2].decode(errors="replace"), image)
            except OSError:
                pass
        for name, states in (("tcp", "0A"), ("tcp6", "0A"), ("udp", "07"), ("udp6", "07")):
            for line in pathlib.Path("/proc/net", name).read_text().splitlines()[1:]:
                parts = line.split()
                if parts[3] == states:
                    address, port = parts[1].split(":")
                    raw = b"".join(bytes.fromhex(address[at:at + 8])[::-1] for at in range(0, len(address), 8))
                    text = socket.inet_ntop(socket.AF_INET if len(raw) == 4 else socket.AF_INET6, raw)
                    ports.add((name[:3], text, str(int(port, 16))))
        return processes, ports

    def test_the_machine_is_what_the_system_says(self):
        odd = [b"\xff\xfe not text", "<&>\"'".encode(), b"line\nfeed", b"", b"x" * 40000]
        with subprocess.Popen(["/bin/sh", "-c", "read x", *odd], stdin=subprocess.PIPE) as child, \
                socket.create_server(("127.0.0.1", 0)) as tcp, socket.create_server(("::1", 0), family=socket.AF_INET6) as tcp6, \
                socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as udp:
            udp.bind(("127.0.0.1", 0))
            self.start("<applications/><services/><processes/><ports/><shortcuts/>")
            before = self.machine()
            found = self.rows(self.ask())
            after = self.machine()
            mine = {("tcp", "127.0.0.1", str(tcp.getsockname()[1])), ("tcp", "::1", str(tcp6.getsockname()[1])),
                    ("udp", "127.0.0.1", str(udp.getsockname()[1]))}
            child.stdin.close()
        processes = {row["id"]: (row["parent"], row["name"], row.get("image", "")) for row in found["process"]}
        lasting = {pid: row for pid, row in before[0].items() if after[0].get(pid) == row and row[2]}  # the kernel's own change names
        self.assertEqual({pid: processes.get(pid) for pid in lasting}, lasting)
        self.assertEqual(len(processes), len(found["process"]), "a process twice")
        line = next(row for row in found["process"] if row["id"] == str(child.pid))["commandLine"]
        self.assertTrue(line.startswith("/bin/sh -c read x ") and "<&>\"'" in line, line[:100])
        self.assertLessEqual(len(line.encode()), 32768)
        ports = {(row["protocol"], row["address"], row["port"]): row for row in found["port"]}
        self.assertEqual(((before[1] & after[1]) | mine) - ports.keys(), set(), "ports that are missing")
        self.assertEqual(ports.keys() - (before[1] | after[1]), set(), "ports that nobody has")
        self.assertEqual({ports[port].get("process") for port in mine}, {str(os.getpid())})
        self.assertEqual(sorted((row["name"], row["version"], row["architecture"]) for row in found["application"]), self.packages())
        self.same_services(found["service"])
        self.count(processes=len(processes), ports=len(ports), packages=len(found["application"]), services=len(found["service"]))

    @staticmethod
    def packages():
        """The packages that are installed, from the package database."""
        found = []
        for block in pathlib.Path("/var/lib/dpkg/status").read_text(errors="replace").split("\n\n"):
            fields = dict(line.split(": ", 1) for line in block.splitlines() if ": " in line and not line.startswith(" "))
            if fields.get("Status", "").split(" ")[-1] == "installed":
                found.append((fields["Package"], fields["Version"], fields["Architecture"]))
        return sorted(found)

    def same_services(self, rows):
        """Each unit file once, in the order of the folders; masked, or static when it has nothing to enable."""
        units = {}
        for folder in ("/etc/systemd/system", "/run/systemd/system", "/usr/local/lib/systemd/system", "/usr/lib/systemd/system",
                       "/lib/systemd/system"):
            for path in sorted(pathlib.Path(folder).glob("*.service")):
                other = os.path.basename(os.path.realpath(path)) not in (path.name, "null")  # a second name of a unit
                if (path.is_file() or path.is_symlink()) and not other:
                    units.setdefault(path.name, path)
        found = {row["name"]: row for row in rows}
        self.assertEqual(len(found), len(rows), "a service twice")
        self.assertEqual(sorted(found), sorted(units))
        for name, path in units.items():
            masked = os.path.realpath(path) == "/dev/null"
            unit = configparser.RawConfigParser(strict=False, allow_no_value=True, interpolation=None)
            unit.optionxform = str
            unit.read_string("" if masked else path.read_text())
            with self.subTest(name):
                expected = {"masked"} if masked else {"enabled", "disabled"} if unit.has_section("Install") else {"static", "enabled"}
                self.assertIn(found[name]["start"], expected)
                if not masked:
                    self.assertEqual(found[name]["account"], unit.get("Service", "User", fallback=None) or "root")

    def test_a_package_database_and_shortcuts_of_an_attacker(self):
        """Lines of a megabyte, blocks without a name, fields that go on, entries that are links, loops and no text."""
        shortcuts, packages = self.work / "shortcuts", self.work / "dpkg"
        for folder in (shortcuts, packages):
            folder.mkdir()
        (packages / "status").write_bytes(
            b"Package: good\nStatus: install ok installed\nVersion: 1:2-3\nArchitecture: amd64\nDescription: x\n Package: evil\n\n"
            b"Status: install ok installed\nVersion: 1\n\nPackage: held\nStatus: hold ok installed\nVersion: 7\nArchitecture: all\n\n"
            b"Package: gone\nStatus: deinstall ok config-files\nVersion: 1\n\nnonsense\n\n\n\nPackage: long\nStatus: install ok installed\n"
            b"Version: " + b"9" * MEBI + b"\nArchitecture: all\n\nPackage: \xff<&\nStatus: install ok installed\nVersion: 0\n"
            b"Architecture: all\n\nPackage: last\nStatus: install ok installed\nVersion: 5\nArchitecture: all")
        (shortcuts / "a.desktop").write_text("[Desktop Entry]\nName=A\tb<&\nExec=/bin/a \"x y\" %F\nPath=/tmp\n[Other]\nName=Not\n")
        (shortcuts / "loop.desktop").symlink_to("loop.desktop")
        (shortcuts / "b.desktop").write_bytes(b"\xff\xfe\x00" * 1000)
        (shortcuts / "c.desktop").mkdir()
        (shortcuts / "d.desktop").write_bytes(b"[Desktop Entry]\nName=" + b"n" * MEBI)
        pathlib.Path("/usr/share/applications").is_dir() or self.skipTest("no folder of shortcuts here")
        self.bind(packages, "/var/lib/dpkg")
        self.bind(shortcuts, "/usr/share/applications")
        self.start("<applications/><shortcuts/>")
        found = self.rows(self.ask())
        rows = {row["name"]: row for row in found["application"]}
        self.assertEqual({"good", "held", "long", "last"} - rows.keys(), set())
        self.assertEqual({"gone", "evil"} & rows.keys(), set())
        self.assertTrue(32700 < len(rows["long"]["version"]) <= 32768, "a text that is cut off")
        self.assertEqual((rows["good"]["version"], rows["good"]["architecture"], rows["last"]["version"]), ("1:2-3", "amd64", "5"))
        shortcut = {row["path"]: row for row in found["shortcut"]}["/usr/share/applications/a.desktop"]
        self.assertEqual((shortcut["name"], shortcut["target"], shortcut["directory"]), ("A\tb<&", "/bin/a", "/tmp"))
        line = next(line for line in self.shortcuts.split("\n") if "/a.desktop" in line).split("\t")
        self.assertEqual(line, [shortcut["path"], "/bin/a", shortcut["arguments"], "/tmp"])

    # Delivery --------------------------------------------------------------------------------------------------------

    def crowd(self, mebi=4):
        """Processes whose command lines make an archive of so many MiB, and hardly change."""
        for _ in range(int(mebi * 48)):
            noise = base64.b64encode(self.random.randbytes(22000))
            child = subprocess.Popen(["/bin/sh", "-c", "read x", noise], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
            self.addCleanup(lambda child=child: (child.stdin.close(), child.wait()))
        return "<processes/>"

    def give_up(self, identifier, answer, place=0, count=1):
        """Asks, and answers so from that piece on; the messages that came until the request was given up."""
        before = len(self.logged("10714"))

        def refuse(_):
            self.server.offer = ""
            return answer
        self.server.times(refuse, "app.data", count, place)
        self.server.offer = identifier
        wait_until(lambda: not self.server.offer and self.stage.setting("appdata.requested") != "true", 40, "the request is given up")
        wait_until(lambda: not list((self.stage.ips / "appdata").glob("*")), 10, "the end of what was collected")
        wait_until(lambda: self.stage.setting("agent.id"), 60, "an identity")
        self.server.decide = lambda request: None
        self.assertTrue(answer.code == 400 or len(self.logged("10714")) == before + 1, "the event")
        return self.messages(identifier)

    def test_each_answer_to_a_piece(self):
        """What the server says to a piece, the first, one in the middle or the last: more pieces, the same again, or no more."""
        self.start(self.crowd(2.6))
        pieces = len(self.ask())
        self.assertGreaterEqual(pieces, 3)
        for answer in (Answer(loss="reset"), Answer(200), Answer(300), Answer(http=503), Answer(loss="cut"), Answer(delay=2.5)):
            place = self.random.randrange(pieces)
            with self.subTest(place=place, answer=answer):
                self.server.times(answer, "app.data", skip=place)
                messages = self.ask()
                self.put_together(messages)
                self.assertEqual([int(request.pairs["application.data.offset"]) // MEBI for request, _ in messages],
                                 sorted([*range(pieces), *([] if answer.delay else [place])]))
        for code in (302, 600, 400):
            place = self.random.randrange(pieces)
            with self.subTest(place=place, code=code):
                self.assertEqual(len(self.give_up(f"refused-{code}", Answer(code), place)), place + 1, "sent on")
        self.assertEqual(len(self.give_up("never", Answer(300), 0, 1 << 30)), 4, "once, and three times again")
        self.assertTrue(self.logged("10713"))
        self.rows(self.ask())
        self.alive()

    def test_killed_at_each_piece(self):
        """kill -9 before and after the answer to each piece: the next start goes on with that piece or the one behind it."""
        self.start(self.crowd(2.6))
        pieces = len(self.ask())
        for place in range(pieces):
            for how in ("before the answer", "after the answer", "a stop"):
                with self.subTest(place=place, how=how):
                    identifier, killed = f"k-{place}-{how}", []

                    def strike(request):
                        if len(killed) or int(request.pairs["application.data.offset"]) != place * MEBI:
                            return None
                        killed.append(1)
                        if how == "before the answer":
                            self.kill()
                            return Answer(loss="reset")
                        return Answer(delay=3 if how == "a stop" else 0)
                    self.server.times(strike, "app.data", 1 << 30)
                    self.server.offer = identifier
                    wait_until(lambda: killed, 30, "the piece")
                    if how == "a stop":
                        self.stop()
                    else:
                        time.sleep(self.random.uniform(0, 0.02))  # how far the agent gets with the answer
                        self.kill()
                    self.await_end()
                    first = len(self.messages(identifier))
                    self.run_agent()
                    wait_until(lambda: self.stage.setting("appdata.requested") != "true", 30, "the end of the request")
                    messages = self.messages(identifier)
                    self.put_together(messages)
                    offsets = [int(request.pairs["application.data.offset"]) // MEBI for request, _ in messages]
                    self.assertIn(offsets[first:], [list(range(offsets[first - 1] + more, pieces)) for more in (0, 1)], offsets)
                    self.assertLessEqual(len(messages), pieces + 1, "more than one piece twice")
        self.count(pieces=pieces, lives=3 * pieces)

    def test_a_second_request_is_answered_afterwards(self):
        self.start(self.crowd(2.2), **{"appdata.senddata.interval": 3})
        self.server.offer = "first"
        wait_until(lambda: self.messages("first"), 30, "the first piece")
        for identifier in ("second", "third"):
            self.server.offer = identifier
            wait_until(lambda: self.stage.setting("appdata.request.next") == identifier, 20, f"{identifier} waits")
        if self.random.random() < 0.5:
            self.kill()
            self.await_end()
            self.run_agent()
        wait_until(lambda: not self.server.offer and self.stage.setting("appdata.requested") != "true", 60, "both answers")
        for identifier in ("first", "third"):
            self.rows(self.messages(identifier))
        self.assertEqual(self.messages("second"), [], "a later one takes its place")

    def test_an_unchanged_inventory_is_told_and_not_sent(self):
        for number in range(50):
            (self.tree / str(number)).write_text(str(number))
        self.start("<applications/><processes/>" + files(self.tree))
        self.rows(self.ask())
        stored = [self.stage.setting(f"{name}.checksum") for name in ("applications", "files")]
        self.assertTrue(all(stored))
        for change, outcome in (
                (lambda: None, "unchanged"), (lambda: os.utime(self.tree / "7", (1, 1)), "unchanged"),
                (lambda: (self.tree / "7").write_text("eight"), "data"), (lambda: None, "unchanged"),
                (lambda: (self.tree / "8").rename(self.tree / "eight"), "data"), (lambda: (self.tree / "9").unlink(), "data"),
                (lambda: (self.stop(), self.run_agent()), "unchanged"),
                (lambda: self.server.configuration.update({"applications.checksum": "", "files.checksum": ""}), "data")):
            change()
            if self.server.configuration:
                wait_until(lambda: self.server.of("config"), 30, "the configuration is in force")
            messages = self.ask()
            self.assertEqual([request.pairs["application.data.outcome"] for request, _ in messages], [outcome])
            if outcome == "unchanged":
                (request, _), = messages
                self.assertEqual((request.binaries, request.pairs["application.request.complete"]), ([], "true"))
                self.assertEqual([request.pairs[f"application.data.{name}.checksum"] for name in ("applications", "files")], stored)
            else:
                self.rows(messages)
                stored = [self.stage.setting(f"{name}.checksum") for name in ("applications", "files")]

    def test_over_the_local_channel(self):
        """An agent without a server hands its inventory out in pieces, again after a kill, until it is released."""
        self.service_type = 2
        self.start(self.crowd(1))

        def collected():
            result = self.call("getApplicationData").get("result", {})
            return result.get("state") == "none" and result.get("request") == request and result
        for life in range(2):
            if not life:
                request = self.call("collectApplicationData")["result"]["request"]
            about = wait_until(collected, 30, "the inventory")
            answers = [self.call("getApplicationData", piece=number, snapshot=about["snapshot"]) for number in range(int(about["pieces"]))]
            text = "".join(answer["appdata"] for answer in answers)
            self.assertEqual([answer["moredata"] for answer in answers], ["true"] * (len(answers) - 1) + ["false"])
            self.assertEqual([int(answer["datalen"]) for answer in answers], [len(answer["appdata"]) for answer in answers])
            data = base64.b64decode(text, validate=True)
            self.assertEqual((hashlib.sha256(data).hexdigest(), len(data)), (about["snapshot"], int(about["totalBytes"])))
            with zipfile.ZipFile(io.BytesIO(data)) as archive:
                self.assertEqual(etree.fromstring(archive.read("inventory.xml"))[-1].get("rows"), about["rows"])
            self.kill()
            self.await_end()
            self.run_agent()
        self.assertEqual(self.call("releaseApplicationData")["result"], {"released": "true"})
        self.assertEqual(self.call("getApplicationData", piece=0, snapshot=about["snapshot"])["error"]["code"], "-32005")
        self.count(pieces=len(answers))

    # Definitions -----------------------------------------------------------------------------------------------------

    def failed(self, messages):
        """The reason, when the answer is one message of outcome error."""
        (request, _), = messages
        self.assertEqual((request.pairs["application.data.outcome"], len(request.binaries)), ("error", 0), request.pairs)
        self.assertEqual(request.pairs["application.request.complete"], "true")
        return request.pairs["application.data.error"]

    def test_a_broken_definition_is_refused_with_its_place_and_answered(self):
        head = '<?xml version="1.0"?>\n'
        bomb = "".join(f'<!ENTITY a{n} "{f"&a{n - 1};" * 10 if n else "lol"}">\n' for n in range(10))
        (self.work / "secret").write_text("root-secret")
        with socket.create_server(("127.0.0.1", 0)) as listener:
            url = f"http://127.0.0.1:{listener.getsockname()[1]}/x"
            broken = {  # what is wrong -> text, line (0: none to blame)
                "a bomb": (f'{head}<!DOCTYPE discovery [\n{bomb}]>\n<discovery version="2">&a9;</discovery>', range(2, 15)),
                "a DTD": (f'{head}<!DOCTYPE discovery SYSTEM "{url}">\n<discovery version="2"/>', [2]),
                "an empty DTD": (f'{head}\n<!DOCTYPE discovery>\n<discovery version="2"/>', [3]),
                "an external file": (f'{head}<!DOCTYPE d [<!ENTITY e SYSTEM "file://{self.work}/secret">]>\n<discovery version="2">&e;'
                                     "</discovery>", range(2, 4)),
                "an unknown entity": (f'{head}<discovery version="2">\n<files root="&nothing;"/></discovery>', [3]),
                "a wrong element": (f'{head}<discovery version="2">\n<processes/>\n  <command run="/bin/sh"/>\n</discovery>', [4]),
                "an include": (f'{head}<discovery version="2" xmlns:xi="http://www.w3.org/2001/XInclude">\n<xi:include href="{url}"/>'
                               "</discovery>", range(2, 4)),
                "a schema elsewhere": (f'{head}<discovery version="2" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"\n'
                                       f'xsi:noNamespaceSchemaLocation="{url}"><x/></discovery>', [3]),
                "text": (f'{head}<discovery version="2">\n\n text </discovery>', range(2, 5)),
                "a wrong attribute": (f'{head}<discovery version="2"><files root="/x"\n command="x"/></discovery>', range(2, 4)),
                "a wrong value": (f'{head}<discovery version="2">\n<files root="/x" depth="65"/></discovery>', [3]),
                "no root": (f'{head}<discovery version="2">\n<files pattern="*"/></discovery>', [3]),
                "twice": (f'{head}<discovery version="2">\n<ports/>\n<ports/></discovery>', [4]),
                "cut": (definition(files(self.tree))[:-8], range(3, 6)),
                "not closed": (f'{head}<discovery version="2">\n<processes>\n</discovery>', [4]),
                "no XML": ("[discovery]\nfiles=/\n", [1]),
                "empty": ("", range(0, 2)),
                "another format": (definition("<processes/>", version=1), [2]),
                "UTF-16": (definition("<processes/>").replace("UTF-8", "UTF-16").encode("utf-16"), range(0, 2)),
                "no text": (b'<?xml version="1.0"?>\n<discovery version="2">\n<files root="/\xff\xfe"/></discovery>', [3]),
                "10 MiB": (definition("<!--" + "x" * (10 << 20) + "-->"), [0])}
            self.start(text=broken["cut"][0])
            idle = self.stage.memory_kib("RssAnon")
            for what, (text, lines) in broken.items():
                with self.subTest(what):
                    self.define(text=text or b" ")
                    if not text:
                        self.definition.write_bytes(b"")
                    begun = time.monotonic()
                    messages = self.ask()
                    if messages[-1][0].pairs["application.data.outcome"] != "error":
                        self.stop()
                        self.run_agent()  # the next one is not to be judged by what was accepted
                    reason = self.failed(messages)
                    self.assertLess(time.monotonic() - begun, 15)
                    self.assertIn("discovery.xml", reason)
                    place = re.search(r": line (\d+), column (\d+): \S", reason)
                    self.assertIn(int(place[1]) if place else 0, lines, reason)
                    self.assertTrue(not place or int(place[2]) >= 1, reason)
                    self.assertNotIn("root-secret", reason)
                    self.assertTrue(self.logged("10712"), "no event")
            self.assertLess(self.stage.memory_kib("RssAnon") - idle, 24 << 10, "KiB that stay")
            listener.settimeout(0.01)
            with self.assertRaises(TimeoutError):
                listener.accept()
        self.definition.unlink()
        self.assertIn("discovery.xml", self.failed(self.ask()))
        self.define("<processes/>")
        self.rows(self.ask())
        self.define(text=broken["cut"][0])  # from now on the one that was accepted counts
        messages = self.ask()
        self.assertRegex(messages[-1][0].pairs["application.data.error"], "discovery.xml: line")
        self.assertTrue(self.rows(messages)["process"])
        self.count(refused=len(broken) + 1)

    def test_schema_and_agent_agree(self):
        """Each of these is taken if the schema, as it stands in docs/, says so, and refused otherwise."""
        schema, verdicts = Schema(ROOT / "docs" / "discovery.xsd"), []
        numbers = ("0", "1", "64", "65", "32", "33", "-1", "+1", "", "1.0", "9223372036854775807", "9223372036854775808", "1" * 30)
        texts = [f'<files root="{self.tree}" {name}="{value}"/>' for name in ("depth", "minSize", "hashLimit", "hash", "signer", "pattern")
                 for value in (*numbers, "true", "false", "TRUE", "*")]
        texts += [f'<registry key="{key}" depth="{depth}"/>' for key, depth in (("a", "32"), ("a", "33"), ("", "0"), ("a", ""))]
        texts += [f'<limits {name}="{value}"/>' for name in ("share", "rows", "seconds")
                  for value in ("0", "1", "100", "101", "604801", "10000001", "")]
        texts += [f'<files root="{self.tree}">' + '<exclude pattern="x"/>' * 64 + "</files>",
                  f'<files root="{self.tree}">' + '<exclude pattern="x"/>' * 65 + "</files>", '<exclude pattern="x"/>', "<files/>", "",
                  f'<files root="{self.tree}"><processes/></files>', "<processes x='1'/>", "<Processes/>", "<registry/>"]
        self.start(text=definition("<processes/>"))
        self.rows(self.ask())  # from now on a refusal is told beside the data of the one that was accepted
        texts = self.random.sample(texts, 30)  # all of them in some runs
        for text in texts:
            document = f'<discovery version="2">\n{text}</discovery>'
            self.define(text=document)
            error = self.ask()[-1][0].pairs.get("application.data.error", "")
            verdicts.append(not error)
            with self.subTest(text):
                self.assertEqual(not error, schema.accepts(document), error)
        self.count(definitions=len(texts), accepted=sum(verdicts))

    # Bounds and faults -----------------------------------------------------------------------------------------------

    def test_a_share_of_one_core_and_a_stop_in_the_middle(self):
        for number in range(600):
            with open(self.tree / str(number), "wb") as file:
                file.truncate(16 << 20)
        self.define(text=definition(files(self.tree), share=10))
        self.start(text=definition(files(self.tree), share=10))
        self.server.offer = "long"
        wait_until(lambda: (self.stage.ips / "appdata").is_dir() and list((self.stage.ips / "appdata").iterdir()), 20, "the collection")
        began, used = time.monotonic(), self.stage.cpu_seconds()
        wait_until(lambda: time.monotonic() > began + 5, 10, "five seconds")
        share = (self.stage.cpu_seconds() - used) / (time.monotonic() - began)
        self.assertLess(share, 0.10 + 0.05, "of a core")  # what the other threads do included
        self.assertEqual(self.messages("long"), [], "too quick to measure")
        self.stop()
        self.assertEqual((self.stage.setting("appdata.requested"), self.stage.setting("appdata.request.id")), ("true", "long"))
        self.define(text=definition(files(self.tree, hash="false"), share=100))
        self.server.offer = ""
        self.run_agent()
        wait_until(lambda: self.stage.setting("appdata.requested") != "true", 40, "the request goes on")
        self.assertEqual(len(self.rows(self.messages("long"))["file"]), 600)
        self.count(percent_of_a_core=round(100 * share))

    def test_limits_and_a_schedule(self):
        for number in range(300):
            (self.tree / str(number)).write_text("x")
        self.start(text=f'<discovery version="2"><limits rows="100" share="100"/>{files(self.tree)}</discovery>')
        result = self.rows(self.ask())["result"][0]
        self.assertEqual((result["complete"], result["reason"], result["rows"]), ("false", "rows", "100"))
        self.assertEqual((result.get("filesChecksum", ""), self.stage.setting("files.checksum")), ("", ""))
        self.define(files(self.tree))
        self.set(appdata__schedule__interval=60)
        wait_until(lambda: self.server.of("app.data")[-1][0].pairs["application.requestID"].startswith("schedule-"), 30, "the schedule")
        self.assertEqual(len(self.rows(self.server.of("app.data")[-1:])["file"]), 300)

    def test_state_that_was_damaged(self):
        self.start(self.crowd(2.2))
        for how in ("cut", "a flipped bit", "empty", "a folder", "no archive", "a short archive"):
            with self.subTest(how):
                identifier = f"damaged-{how}"
                self.server.times(lambda request: self.kill() or Answer(loss="reset"), "app.data", skip=1)
                self.server.offer = identifier
                wait_until(lambda: len(self.messages(identifier)) == 2, 30, "the second piece")
                self.await_end()
                self.server.offer = ""
                state, archive = (self.stage.ips / "appdata" / name for name in ("delivery.state", "inventory.zip"))
                data = bytearray(state.read_bytes())
                if how == "cut":
                    del data[self.random.randrange(1, len(data)):]
                elif how == "a flipped bit":
                    data[self.random.randrange(len(data))] ^= 1 << self.random.randrange(7)
                elif how == "empty":
                    data.clear()
                state.write_bytes(data)
                if how == "a folder":
                    state.unlink()
                    state.mkdir()
                elif how == "no archive":
                    archive.unlink()
                elif how == "a short archive":
                    os.truncate(archive, archive.stat().st_size - 1)
                before = len(self.messages(identifier))
                self.run_agent()
                wait_until(lambda: self.stage.setting("appdata.requested") != "true", 60, "the request goes on")
                self.rows(self.messages(identifier)[before:])

    def test_a_full_disk(self):
        self.mount(self.stage.ips / "appdata", 256 << 10)
        self.start(self.crowd(1.5))
        self.failed(self.ask())
        self.assertTrue(self.logged("10712"))
        subprocess.run(["mount", "-o", "remount,size=64m", self.stage.ips / "appdata"], check=True)
        self.rows(self.ask())

    def test_messages_of_other_sizes(self):
        self.start(self.crowd(5))
        for setting, payload in ((3, 3), (0, 1), (99, 16), (-5, 1)):
            self.set(appdata__max__payload=setting)
            wait_until(lambda: self.settings("appdata.max.payload")["appdata.max.payload"] == str(setting), 10, "the setting")
            self.rows(self.ask(), payload * MEBI)


if __name__ == "__main__":
    in_namespace()
    sys.exit(cases.run(Counted, __doc__))
