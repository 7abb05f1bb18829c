#!/usr/bin/env python3
"""Signed packages for the tests, made with the openssl program: make_samples.py FOLDER. Quiet; what is complete is kept."""
import argparse
import dataclasses
import io
import pathlib
import shutil
import subprocess
import sys
import zipfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "script" / "lib"))
import signed_content  # noqa: E402
from signed_content import Claim, date_of, package, sign, statement  # noqa: E402

START, END = date_of("2026-01-01T00:00:00Z"), date_of("2027-01-01T00:00:00Z")
ENTRIES = {"policy.txt": b"korvane-policy 1\nname Base\nversion 7\nid base-7\nrule deny file web /srv/*\n",
           "rules/more.txt": b"rule\n" * 200}
APPLICATION = {"policy.txt": b"korvane-application 1\nrule deny file web /srv/web/*\n"}


def archive(entries, comment=b""):
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as made:
        for name, content in entries.items():
            made.writestr(zipfile.ZipInfo(name, (2026, 1, 1, 0, 0, 0)), content)
        made.comment = comment
    return out.getvalue()


class Samples:
    def __init__(self, folder):
        self.folder = folder
        self.work = folder / "work"
        self.work.mkdir()
        for name in ("a", "b", "c", "stranger"):
            self.key(name)
        # The same key under another certificate is no second signer.
        shutil.copy(self.work / "a.key", self.work / "again.key")
        self.certificate("again", "a")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-sha256", "-days", "3650", "-subj", "/CN=Signer rsa",
                        "-keyout", self.work / "rsa.key", "-out", self.work / "rsa.pem"], check=True, capture_output=True)
        self.signers("trusted", "a", "b", "again", "rsa")
        self.signers("only-a", "a")
        self.signers("nobody")

    def key(self, name):
        subprocess.run(["openssl", "ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", self.work / f"{name}.key"],
                       check=True, capture_output=True)
        self.certificate(name, name)

    def certificate(self, name, key):
        # A day alone: whether a certificate has expired does not count.
        subprocess.run(["openssl", "req", "-x509", "-new", "-key", self.work / f"{key}.key", "-sha256", "-days", "1",
                        "-subj", f"/CN=Signer {name}", "-out", self.work / f"{name}.pem"], check=True, capture_output=True)

    def pem(self, *names):
        return "".join((self.work / f"{name}.pem").read_text() for name in names)

    def signers(self, name, *of):
        self.write(f"{name}.pem", self.pem(*of).encode())

    def write(self, name, content):
        (self.folder / name).write_bytes(content)

    def signed(self, text, *by):
        return statement(text, sign(text, [(self.work / f"{name}.pem", self.work / f"{name}.key") for name in by], self.work))

    def new_signers(self, version, of, by, **changed):
        claim = dataclasses.replace(Claim("signers", "signers", version, START, END), **changed)
        return self.signed(signed_content.signers_manifest(claim, self.pem(*of)), *by)

    def make(self, file, by=("a",), entries=None, content=None, before=(), edit=None, delivered=None, **changed):
        """One package: NAME.signed, and what is in it."""
        claim = dataclasses.replace(Claim("policy", "Base", 2, START, END), **changed)
        content = archive(entries or ENTRIES) if content is None else content
        text = signed_content.manifest(claim, content)
        text = edit(text) if edit else text
        self.write(f"{file}.signed", package([*before, self.signed(text, *by)], content if delivered is None else delivered))


def flipped(data, at):
    return data[:at] + bytes([data[at] ^ 1]) + data[at + 1:]


def make_all(samples):
    make, plain = samples.make, archive(ENTRIES)
    samples.write("plain.zip", plain)
    for version in (1, 2, 3):
        make(f"version-{version}", version=version)
    for kind, name in (("ids-policy", "Base"), ("content", "qel"), ("software", "agent"), ("policy", "Other")):
        make(f"{kind}-{name}", kind=kind, name=name)
    make("application-policy-web", kind="application-policy", name="web", entries=APPLICATION)
    make("rsa", by=("rsa",))
    make("no-archive", content=b"policy in plain text\n")
    make("late", not_before=date_of("2026-12-01T00:00:00Z"))
    make("short", not_after=date_of("2026-02-01T00:00:00Z"), version=3)
    make("by-stranger", by=("stranger",))
    make("by-a-and-stranger", by=("a", "stranger"))
    make("two-asked-one", minimum_signers=2)
    make("two-asked-two", by=("a", "b"), minimum_signers=2)
    make("two-asked-same-key", by=("a", "again"), minimum_signers=2)
    # Entries that are not those of the manifest.
    make("added", delivered=archive({**ENTRIES, "added.txt": b"x"}))
    make("missing", delivered=archive({"policy.txt": ENTRIES["policy.txt"]}))
    make("of-another", delivered=archive({**ENTRIES, "policy.txt": ENTRIES["policy.txt"].replace(b"deny", b"many")}))
    make("of-another-size", delivered=archive({**ENTRIES, "policy.txt": b"another"}))
    make("around", delivered=archive(ENTRIES, b"a comment of somebody's"))
    make("cut-archive", delivered=plain[:-30])
    make("flipped-content", delivered=flipped(plain, plain.index(b"policy.txt") + 12))
    make("no-archive-changed", content=b"policy in plain text\n", delivered=b"policy in Plain text\n")
    whole = (samples.folder / "version-2.signed").read_bytes()
    text = signed_content.manifest(Claim("policy", "Base", 2, START, END), plain)
    at = whole.index(text)
    samples.write("flipped-manifest.signed", flipped(whole, at + text.index(b"version 2") + 8))
    samples.write("flipped-signature.signed", flipped(whole, at + len(text) + whole[at + len(text):].index(b"content ") - 3))
    samples.write("no-signature.signed", package([statement(text, b"")], plain))
    samples.write("type-alone.signed", package([statement(text, bytes.fromhex("300b06092a864886f70d010702"))], plain))
    samples.write("cut.signed", whole[:-1])
    samples.write("longer.signed", whole + b"x")
    samples.write("no-statement.signed", package([], plain))
    for name, old, new in (("no-date", b"not-after 2027-01-01T00:00:00Z\n", b""), ("odd-kind", b"kind policy", b"kind Policy"),
                           ("zeros", b"version 2", b"version 02"), ("end", b"end\n", b"end\n\n"),
                           ("twice", b"name Base\n", b"name Base\nname Base\n")):
        make(f"malformed-{name}", edit=lambda text, old=old, new=new: text.replace(old, new, 1))
    # Rotations: a and b give way to c, c to the stranger.
    to_c = samples.new_signers(2, of=("c",), by=("a", "b"))
    further = samples.new_signers(3, of=("stranger",), by=("c",))
    make("to-c", by=("c",), before=(to_c,), version=3)
    make("by-c", by=("c",), version=4)
    make("by-a-late", by=("a",), version=5)
    make("two-steps", by=("stranger",), before=(to_c, further), version=6)
    make("to-c-unsigned", by=("c",), before=(samples.new_signers(2, of=("c",), by=("c",)),))
    make("to-c-expired", by=("c",), before=(samples.new_signers(2, of=("c",), by=("a",), not_after=date_of("2026-02-01T00:00:00Z")),))
    make("to-c-one-of-two", by=("c",), before=(samples.new_signers(2, of=("c",), by=("a",), minimum_signers=2),))
    make("signers-as-policy", before=(), kind="signers", name="signers")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", type=pathlib.Path)
    folder = parser.parse_args().folder
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    make_all(Samples(folder))
    shutil.rmtree(folder / "work")
    (folder / "complete").touch()


if __name__ == "__main__":
    main()
