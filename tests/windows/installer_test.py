#!/usr/bin/env python3
"""Installs, upgrades and removes the MSI with Wine's installer, in a Wine prefix of its own.

installer_test.py SOURCE_ROOT BUILD: packages what lies in the folder of the Windows build.
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = BUILD = WORK = None
OLD, NEW = "1.0.0", "1.0.1"
AGENT_KEY = r"HKLM\SOFTWARE\Dalvora\Intrusion Security\agent"
SERVICE_KEY = r"HKLM\SYSTEM\CurrentControlSet\Services\KorvaneAgent"
SOURCE_KEY = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Korvane Agent"
INSTALLED = r"C:\Program Files\Dalvora\Korvane Agent"
CERTIFICATE = "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n"
STEP_SECONDS = 120


def wine(*command):
    """Exit status and output of a Windows program."""
    done = subprocess.run([ROOT / "script" / "wine-run", *map(str, command)], capture_output=True, text=True,
                          errors="replace", timeout=STEP_SECONDS, check=False)
    return done.returncode, done.stdout


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def installer(action, version, *properties):
    log = WORK / "msi.log"
    return wine("msiexec", action, windows_path(WORK / f"korvane-agent-{version}-x64.msi"), "/qn", "/l*v",
                windows_path(log), *properties)


def value(key, name):
    """A registry value as text; None when it is not there."""
    status, text = wine("reg", "query", key, "/v", name)
    lines = [line.split("    ") for line in text.splitlines() if line.startswith(f"    {name}    ")]
    return lines[0][3].strip() if status == 0 and lines else None


def within(condition, seconds=60):
    end = time.monotonic() + seconds
    while not (found := condition()) and time.monotonic() < end:
        time.sleep(0.2)
    return found


def service_is(state):
    return f": {state} " in wine("sc", "query", "KorvaneAgent")[1].replace("  ", " ")


def package(version, out):
    subprocess.run([ROOT / "script" / "package", "--no-build", "--only", "windows", "--build", BUILD, "--version", version,
                    "--out", out], check=True, stdout=subprocess.DEVNULL)


class Installer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.home = pathlib.Path(os.environ["KORVANE_WINE_PREFIX"]) / "drive_c/Program Files/Dalvora/Korvane Agent"
        cls.ips = cls.home / "IPS"
        package(OLD, WORK)
        package(NEW, WORK)
        (WORK / "ca.pem").write_text(CERTIFICATE)

    def files(self):
        return sorted(str(file.relative_to(self.home)) for file in self.home.rglob("*") if file.is_file())

    def log_text(self):
        return "".join(file.read_text(errors="replace") for file in self.ips.glob("logs/korvane-agent-*.log"))

    def settings(self):
        return (self.ips / "agent.ini").read_text().splitlines()

    def test_1_same_bytes_again(self):
        again = WORK / "again"
        package(OLD, again)
        for file in again.glob("korvane-agent-*"):
            self.assertEqual(file.read_bytes(), (WORK / file.name).read_bytes(), file.name)

    def test_2_refused_settings(self):
        (WORK / "no.pem").write_text("no certificate")
        certificate = f"CERTIFICATE={windows_path(WORK / 'no.pem')}"
        for text, settings in (("contains no PEM certificate", ["SERVERURL=https://127.0.0.1:1/", certificate]),
                               ("does not begin with https://", ["SERVERURL=http://127.0.0.1:1/"])):
            status, said = installer("/i", OLD, *settings)
            self.assertNotEqual(status, 0)
            self.assertIn(text, said)
            self.assertIsNone(value(SERVICE_KEY, "ImagePath"))

    def test_3_install(self):
        status, text = installer("/i", OLD, "SERVERURL=https://127.0.0.1:1/agent", f"CERTIFICATE={windows_path(WORK / 'ca.pem')}")
        self.assertEqual(status, 0, text)
        self.assertEqual(value(SERVICE_KEY, "ImagePath"),
                         rf'"{INSTALLED}\korvane-host.exe" service --install-root "{INSTALLED}"')
        self.assertEqual(value(AGENT_KEY, "InstallRoot"), INSTALLED)
        self.assertEqual(value(AGENT_KEY, "AgentType"), "1")
        self.assertEqual(value(SOURCE_KEY, "EventMessageFile"), rf"{INSTALLED}\korvane-agent.dll")
        self.assertEqual((self.ips / "server-ca.pem").read_text(), CERTIFICATE)
        for line in ("agent.http.url=https://127.0.0.1:1/agent/", rf"ssl.trustStore={INSTALLED}\IPS\server-ca.pem",
                     "log.reader.limit=20000"):
            self.assertIn(line, self.settings())
        self.assertTrue(within(lambda: service_is("4")), wine("sc", "query", "KorvaneAgent"))
        self.assertTrue(within(lambda: f"The agent started, version {OLD}.0." in self.log_text()), self.log_text())
        self.assertRegex(wine(rf"{INSTALLED}\agentctl.exe", "version")[1], rf"running +{OLD}\.0")

    def test_4_upgrade_keeps_settings(self):
        wine("sc", "stop", "KorvaneAgent")
        self.assertTrue(within(lambda: service_is("1")))
        (self.ips / "agent.ini").write_text("agent.name=changed\n")
        (self.ips / "fallback.ini").unlink(missing_ok=True)
        (self.ips / "agentfilepointer").write_bytes(b"position")
        status, text = installer("/i", NEW, "SERVERURL=https://127.0.0.1:2/agent")
        self.assertEqual(status, 0, text)
        self.assertIn("agent.name=changed", self.settings())
        self.assertNotIn("agent.http.url=https://127.0.0.1:2/agent/", self.settings())
        self.assertEqual((self.ips / "agentfilepointer").read_bytes(), b"position")
        self.assertTrue(within(lambda: service_is("4")))
        self.assertTrue(within(lambda: f"The agent started, version {NEW}.0." in self.log_text()), self.log_text())
        self.assertIsNone(value(AGENT_KEY, "Upgrading"))

    def test_5_older_version_is_refused(self):
        self.assertNotEqual(installer("/i", OLD)[0], 0)
        self.assertIn("agent.name=changed", self.settings())
        self.assertTrue(service_is("4"))

    def test_6_uninstall_leaves_the_logs(self):
        status, text = installer("/x", NEW)
        self.assertEqual(status, 0, text)
        left = self.files()
        self.assertTrue(left and all(name.startswith("IPS/logs/") for name in left), left)
        for key, name in ((SERVICE_KEY, "ImagePath"), (AGENT_KEY, "InstallRoot"), (SOURCE_KEY, "EventMessageFile")):
            self.assertIsNone(value(key, name), key)


def main():
    global ROOT, BUILD, WORK
    ROOT, BUILD = (pathlib.Path(name).resolve() for name in sys.argv[1:3])
    with tempfile.TemporaryDirectory() as place:
        WORK = pathlib.Path(place).resolve()
        prefix = WORK / "wine"
        os.environ["KORVANE_WINE_PREFIX"] = str(prefix)
        try:
            result = unittest.TextTestRunner(verbosity=2, failfast=True).run(
                unittest.defaultTestLoader.loadTestsFromTestCase(Installer))
        finally:
            subprocess.run([ROOT / "script" / "wine-run", "--end"], check=False)
            shutil.rmtree(prefix, ignore_errors=True)
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
