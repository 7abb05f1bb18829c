"""Signed content: a manifest of what is delivered, signed with openssl cms, and what is delivered itself, in one file.

The format is that of docs/signed-content.md. Nothing here is needed to make it but the openssl program: the manifest is text, the
signature is `openssl cms -sign` over it, and the file is both of them with lengths in front, then the archive.
"""
import base64
import dataclasses
import datetime
import hashlib
import io
import re
import zipfile

import signing

MAGIC = b"korvane-signed 1\n"
KINDS = ("policy", "ids-policy", "application-policy", "content", "software")
SIGNERS = "signers"


def date_of(text):
    return datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%SZ").replace(tzinfo=datetime.timezone.utc)


def text_of(date):
    return date.astimezone(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")


@dataclasses.dataclass
class Claim:
    """What a manifest says beside what it is about."""
    kind: str
    name: str
    version: int
    not_before: datetime.datetime
    not_after: datetime.datetime
    minimum_signers: int = 1

    def head(self):
        return (f"korvane-manifest 1\nkind {self.kind}\nname {self.name}\nversion {self.version}\nnot-before {text_of(self.not_before)}\n"
                f"not-after {text_of(self.not_after)}\nminimum-signers {self.minimum_signers}\n")


def sums(content):
    return f"{len(content)} {hashlib.sha256(content).hexdigest()}"


def manifest(claim, archive):
    """Of an archive, each entry but the folders; of something else, its bytes alone."""
    lines = [f"content {sums(archive)}\n"]
    if archive.startswith(b"PK\x03\x04"):
        with zipfile.ZipFile(io.BytesIO(archive)) as opened:
            lines += [f"entry {sums(opened.read(entry))} {entry.filename}\n" for entry in opened.infolist() if not entry.is_dir()]
    return (claim.head() + "".join(lines) + "end\n").encode()


def signers_manifest(claim, pem):
    """Of the certificates in a PEM text, which are the trusted signers from then on."""
    found = re.findall(r"-----BEGIN CERTIFICATE-----(.*?)-----END CERTIFICATE-----", pem, re.DOTALL)
    if not found:
        raise ValueError("no certificate of a new signer")
    lines = "".join(f"signer {base64.b64encode(base64.b64decode(each)).decode()}\n" for each in found)
    return (claim.head() + lines + "end\n").encode()


def sign(text, signers, folder, passin=None):
    """The detached signature of everybody in `signers`, pairs of certificate and key files."""
    file, out = folder / "manifest", folder / "manifest.p7s"
    file.write_bytes(text)
    pairs = [word for certificate, key in signers for word in ("-signer", certificate, "-inkey", key)]
    done = signing.openssl("cms", "-sign", "-binary", "-nocerts", "-md", "sha256", "-outform", "DER", *pairs, "-in", file, "-out", out,
                           *(["-passin", passin] if passin else []))
    if done.returncode:
        raise ValueError(f"the manifest could not be signed: {done.stderr.strip()}")
    return out.read_bytes()


def statement(text, signature):
    return f"statement {len(text)} {len(signature)}\n".encode() + text + signature


def package(statements, content):
    """Statements about new signers in their order, last the one about the content."""
    return MAGIC + b"".join(statements) + f"content {len(content)}\n".encode() + content
