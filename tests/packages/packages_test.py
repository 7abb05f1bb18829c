#!/usr/bin/env python3
"""What refuses a package, an artefact or a source that is not what it should be.

packages_test.py AGENTCTL: script/verify-package and `agentctl verify` give the same verdicts.
"""
import hashlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

AGENTCTL = sys.argv[1]
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
SCRIPT = ROOT / "script"
sys.path.insert(0, str(SCRIPT / "lib"))
import signing  # noqa: E402

OK, MISSING, REFUSED = 0, 1, 4  # as agentctl has them; the script knows 0 and 1
NAME = "korvane-agent-1.0.0-linux-x64.tar.gz"
CODE = """#include <cstring>
#include <vector>
extern "C" char take(const std::vector<char>& from, unsigned at, const char* text) {
  volatile char large[30000];
  char small[20];
  std::strcpy(small, text);
  large[at] = small[at % 20];
  return from[at] + large[at / 2];
}
int main(int count, char** words) { return take({1, 2}, count, words[0]); }
"""
STRONG = ("-O2", "-fPIE", "-pie", "-fstack-protector-strong", "-fcf-protection", "-fstack-clash-protection", "-D_FORTIFY_SOURCE=3",
          "-D_GLIBCXX_ASSERTIONS", "-Wl,-z,relro,-z,now,-z,noexecstack,-z,shstk")
WEAK = {("-fno-stack-protector",): "guards no stack", ("-U_FORTIFY_SOURCE",): "is linked without _FORTIFY_SOURCE",
        ("-fcf-protection=none", "-shared", "-fPIC"): "has functions that are no branch target",
        ("-fno-stack-clash-protection",): "grows its stack by more than a page",
        ("-U_GLIBCXX_ASSERTIONS",): "checks no container", ("-Wl,-z,norelro",): "lets its relocations be written",
        ("-Wl,-z,lazy",): "binds functions late", ("-Wl,-z,execstack",): "has an executable stack",
        ("-Wl,-rpath,/tmp",): "searches libraries in a folder of its own", ("-no-pie", "-fno-pie"): "has a fixed address"}


def output(*command, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=100, check=False, **options)
    return done.returncode, done.stdout + done.stderr


class Case(unittest.TestCase):
    def setUp(self):
        place = tempfile.TemporaryDirectory()
        self.addCleanup(place.cleanup)
        self.work = pathlib.Path(place.name)


class Signed(Case):
    def setUp(self):
        super().setUp()
        self.other = self.work / "other"
        self.other.mkdir()
        signing.make_test_key(self.other)
        key, self.signers = signing.make_test_key(self.work)
        self.package, self.sums = self.work / NAME, self.work / "SHA256SUMS"
        self.package.write_bytes(b"released")
        self.sums.write_text(f"{hashlib.sha256(b'released').hexdigest()}  {NAME}\n")
        signing.sign(self.sums, key, self.signers)

    def flip(self, file):
        content = bytearray(file.read_bytes())
        content[-1] ^= 1
        file.write_bytes(content)

    def rename(self):
        self.package = self.package.rename(self.work / "another.tar.gz")

    def test_verdicts(self):
        both = f"{(self.signers).read_text()}{(self.other / 'test-signer.pem').read_text()}"
        signature = signing.signature_of(self.sums)
        cases = (
            ("as released", lambda: None, OK, "signed"),
            ("one of two signers", lambda: self.signers.write_text(both), OK, "signed"),
            ("another signer", lambda: shutil.copy(self.other / "test-signer.pem", self.signers), REFUSED, "by none of"),
            ("no signers", self.signers.unlink, MISSING, "test-signer.pem"),
            ("no certificate in it", lambda: self.signers.write_text("text\n"), REFUSED, ""),
            ("changed package", lambda: self.flip(self.package), REFUSED, "the signed list says"),
            ("changed list", lambda: self.sums.write_text(self.sums.read_text().replace("a", "b")), REFUSED, "no signature of"),
            ("changed signature", lambda: self.flip(signature), REFUSED, "no signature of"),
            ("signature gone", signature.unlink, MISSING, "SHA256SUMS.p7s is not there"),
            ("not listed", self.rename, REFUSED, "does not list another.tar.gz"),
        )
        kept = {file: file.read_bytes() for file in (self.signers, self.package, self.sums, signature)}
        for name, change, expected, text in cases:
            for program, status in (((SCRIPT / "verify-package",), min(expected, 1)), ((AGENTCTL, "verify"), expected)):
                with self.subTest(name, program=program[0]):
                    for file, content in kept.items():
                        file.write_bytes(content)
                    self.package = self.work / NAME
                    change()
                    result = output(*program, "--signers", self.signers, self.package)
                    self.assertEqual((result[0], text in result[1]), (status, True), result)

    def test_a_key_and_a_certificate_that_are_no_pair_sign_nothing(self):
        with self.assertRaisesRegex(ValueError, "could not be signed"):
            signing.sign(self.sums, self.work / "test-signer.key", self.other / "test-signer.pem")


class Artefacts(Case):
    def check(self, folder):
        status, text = output(SCRIPT / "check-artefacts", "1.0.0", folder)
        return status, text.splitlines()

    def test_each_flag_is_read_back(self):
        source, folder = self.work / "one.cpp", self.work / "bin"
        source.write_text(CODE)
        folder.mkdir()
        for flags, fault in [((), None), *WEAK.items()]:
            with self.subTest(flags):
                status, text = output("g++", source, "-o", folder / "agentctl", *STRONG, *flags)
                self.assertEqual(status, 0, text)
                if not flags:
                    shutil.copy(folder / "agentctl", folder / "korvane-host")
                    shutil.copy(folder / "agentctl", folder / "libkorvane-agent.so")
                status, lines = self.check(folder)
                self.assertEqual((status, [line.startswith(f"agentctl {fault}") for line in lines] if fault else []),
                                 (1, [True]) if fault else (0, []), lines)

    def test_what_is_not_there_is_a_fault(self):
        (self.work / "empty").mkdir()
        for folder in (self.work / "none", self.work / "empty", ROOT / "script"):
            self.assertEqual(self.check(folder)[0], 1)


class Sources(Case):
    @unittest.skipUnless(shutil.which("x86_64-w64-mingw32-g++-posix"), "no compiler for Windows here")
    def test_a_source_that_is_not_the_pinned_one_is_refused(self):
        (self.work / "sources").mkdir()
        pins = (SCRIPT / "windows-sources.txt").read_text().splitlines()
        name = next(line.split()[1] for line in pins if line.endswith(".orig.tar.gz"))
        (self.work / "sources" / name).write_bytes(b"another")
        status, text = output(SCRIPT / "windows-deps", env={**os.environ, "KORVANE_CACHE": str(self.work)})
        refusal = f"{name} has the SHA-256 {hashlib.sha256(b'another').hexdigest()}, script/windows-sources.txt says"
        self.assertEqual((status, refusal in text), (1, True), text)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
