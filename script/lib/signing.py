"""The signature over a list of checksums: a detached CMS message beside the list, NAME.p7s, made and checked by openssl cms.

CMS and not a bare signature, since the message says which digest and whose key it was made with, so neither is
guessed. The file of trusted signers decides alone: a message carries no certificates and none that it carried would count;
the system's CAs and the certificates' dates are not looked at.
"""
import hashlib
import os
import pathlib
import subprocess

TEST_SUBJECT = "/CN=Korvane TEST signer, not for releases"


def openssl(*command, **options):
    return subprocess.run(["openssl", *map(str, command)], capture_output=True, text=True, check=False, **options)


def signature_of(sums):
    return sums.with_name(sums.name + ".p7s")


def make_test_key(folder):
    key, certificate = folder / "test-signer.key", folder / "test-signer.pem"
    done = openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-sha256", "-days", 30,
                   "-subj", TEST_SUBJECT, "-addext", "keyUsage=critical,digitalSignature", "-keyout", key, "-out", certificate)
    if done.returncode:
        raise ValueError(f"no test key could be made: {done.stderr.strip()}")
    return key, certificate


def sign(sums, key, certificate, passin=None):
    done = openssl("cms", "-sign", "-binary", "-nocerts", "-md", "sha256", "-outform", "DER", "-signer", certificate, "-inkey", key,
                   "-in", sums, "-out", signature_of(sums), *(["-passin", passin] if passin else []))
    if done.returncode:
        raise ValueError(f"{sums} could not be signed with {key}: {done.stderr.strip()}")
    check(sums, certificate)


def check(sums, signers):
    """Raises ValueError unless one of the signers signed the list as it is."""
    if not signature_of(sums).is_file():
        raise ValueError(f"{sums} is not signed: {signature_of(sums)} is not there")
    if not pathlib.Path(signers).is_file():
        raise ValueError(f"{signers}, the file of trusted signers, is not there")
    done = openssl("cms", "-verify", "-binary", "-inform", "DER", "-in", signature_of(sums), "-content", sums, "-out", os.devnull,
                   "-noverify", "-nointern", "-certfile", signers)
    if done.returncode:
        unknown = "signer certificate not found" in done.stderr
        raise ValueError(f"{sums} was signed by none of {signers}" if unknown else
                         f"{signature_of(sums)} is no signature of {sums} as it is: {done.stderr.strip().splitlines()[-1]}")


def check_package(package, sums):
    """Raises ValueError unless the list has the package's name with its SHA-256."""
    listed = dict(reversed(line.split("  ", 1)) for line in sums.read_text().splitlines())
    if package.name not in listed:
        raise ValueError(f"{sums} does not list {package.name}")
    found = hashlib.sha256(package.read_bytes()).hexdigest()
    if found != listed[package.name]:
        raise ValueError(f"{package} has the SHA-256 {found}, the signed list says {listed[package.name]}")
