#!/usr/bin/env python3
"""Packs the dev package of what lies in BUILD, makes the outside program of its headers and library alone, and runs it.

outside_test.py SOURCE_ROOT BUILD [--windows]: for Windows it is cross-built and runs under Wine, in a prefix of its own.
"""
import os
import pathlib
import subprocess
import sys
import tarfile
import tempfile
import unittest
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT, BUILD, WINDOWS = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), "--windows" in sys.argv
sys.path.insert(0, str(ROOT / "script" / "lib"))
import outside  # noqa: E402

SECONDS = 120
PARAMETERS = r"SYSTEM\CurrentControlSet\Services\KAVIPSDriver\Parameters"
REGISTRY = f'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\{PARAMETERS}]\n"UseBuiltin"="0"\n'
EXPORTED = ("AgentConfig", "HttpsHandler", "UpdateThread", "UtilThread", "DriverConfig", "FileLogPointer", "Section", "Thread")


def output(*command, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, errors="replace", timeout=SECONDS,
                          check=False, **options)
    return done.returncode, done.stdout + done.stderr


class Outside(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        place = tempfile.TemporaryDirectory()
        cls.addClassCleanup(place.cleanup)
        cls.work = pathlib.Path(place.name)
        status, text = output(ROOT / "script/package", "--no-build", "--dev", "--only", "windows" if WINDOWS else "linux", "--build", BUILD,
                              "--version", "1.0.0", "--out", cls.work)
        if status != 0:
            raise RuntimeError(text)
        cls.dev = cls.work / ("korvane-agent-1.0.0-dev-" + ("windows-x64" if WINDOWS else "linux-x64"))
        packed = pathlib.Path(f"{cls.dev}{'.zip' if WINDOWS else '.tar.gz'}")
        with zipfile.ZipFile(packed) if WINDOWS else tarfile.open(packed) as archive:
            archive.extractall(cls.work)

    def test_program_of_the_package_alone(self):
        program = self.work / ("outside.exe" if WINDOWS else "outside")
        outside.build(sorted(HERE.glob("*.cpp")), self.dev / "include", self.dev / "lib", "korvane-agent", program, WINDOWS)
        for folder in ("root/IPS", "run"):
            (self.work / folder).mkdir(parents=True)
        registry = self.work / "registry.reg"
        registry.write_text(REGISTRY)
        environment = {**os.environ, "KORVANE_INSTALL_ROOT": str(self.work / "root")}
        if WINDOWS:
            (self.dev / "bin/korvane-agent.dll").rename(self.work / "korvane-agent.dll")
            wine = ROOT / "script/wine-run"
            # Wine tells of no sticky bit: to it everybody may change what lies in /tmp.
            environment.update(KORVANE_WINE_PREFIX=str(self.work / "wine"), KORVANE_ALLOW_UNSAFE="1",
                               KORVANE_INSTALL_ROOT="Z:" + str(self.work / "root").replace("/", "\\"))
            self.addCleanup(output, wine, "--end", env=environment)
            output(wine, "reg", "add", "HKLM\\" + PARAMETERS, "/v", "UseBuiltin", "/d", "0", "/f", env=environment)
            status, text = output(wine, program, "Z:" + str(self.work).replace("/", "\\") + "\\", env=environment)
        else:
            environment.update(KORVANE_REGISTRY=str(registry), KORVANE_RUN_DIR=str(self.work / "run"))
            status, text = output(program, f"{self.work}/", env=environment)
        self.assertEqual((status, [line for line in text.splitlines() if "not hold" in line]), (0, ["0 do not hold"]), text)

    @unittest.skipIf(WINDOWS, "its compiler exports the inline operations of an exported class by itself")
    def test_no_inline_operation_without_a_symbol(self):
        one = self.work / "one.cpp"
        one.write_text(f"#include <{outside.ENTRY}>\n")
        inline = outside.inline_symbols([one], self.dev / "include", self.work)
        exported = output("nm", "-DC", "--defined-only", BUILD / "bin/libkorvane-agent.so")[1]
        missing = [name for name in inline if name.startswith(tuple(f"korvane::{c}::" for c in EXPORTED)) and f" {name}\n" not in exported]
        self.assertEqual(missing, [])

    @unittest.skipIf(WINDOWS, "there it is one archive")
    def test_both_packages_hold_the_same(self):
        with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", f"{self.dev}.deb"], stdout=subprocess.PIPE) as unpacked:
            with tarfile.open(fileobj=unpacked.stdout, mode="r|") as archive:
                held = {entry.name.removeprefix("./usr/").replace("include/korvane-agent/", "include/").replace("x86_64-linux-gnu/", "")
                        for entry in archive if entry.isfile()}
        self.assertEqual(held, {file.relative_to(self.dev).as_posix() for file in self.dev.rglob("*") if file.is_file()})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
