"""The Windows installer package: made by wixl, then given what wixl cannot say, and made the same at every build."""
import hashlib
import os
import pathlib
import struct
import subprocess
import uuid

NAMESPACE = uuid.UUID("6c1f2f0a-52ce-5a7e-9a67-1c5f3f0f3d11")
SUMMARY_FORMAT = uuid.UUID("f29f85e0-4ff9-1068-ab91-08002b27b3d9").bytes_le
REVISION, CREATED, SAVED = 9, 12, 13
TEXT, TIME = 30, 64
EPOCH_DIFFERENCE_SECONDS = 11644473600

# The old version goes inside the transaction, so that a failed upgrade brings it back; the named properties also
# reach an installation that an ordinary user starts and an administrator confirms.
# Windows tells the old version's removal that it is part of an upgrade; for systems that do not, the settings are
# kept because of a mark in the registry.
MARK = ('"[System64Folder]reg.exe" add "HKLM\\SOFTWARE\\Dalvora\\Intrusion Security\\agent" /v Upgrading /d [ProductVersion] /f')
RUN_BY_COMMAND_LINE, GO_ON_AFTER_FAILURE, IN_SCRIPT, AS_SYSTEM = 34, 64, 1024, 2048
# Whoever made the root before the product came may own it and the programs in it, and a file that is replaced keeps its access
# list. So before the first file is written, and long before one runs, root and programs are the administrators' with the product's
# list. Nothing is there as a rule: then these fail, and that is fine. What lies below IPS and IDS is repaired by the host, which
# closes these folders; nothing of them runs before.
ICACLS = '"[System64Folder]icacls.exe" "[INSTALLROOT]%s" %s /L /C /Q'
OWNER, INHERITED = "/setowner *S-1-5-32-544", "/reset"
LIST = "/inheritance:r /grant:r *S-1-5-18:(OI)(CI)F *S-1-5-32-544:(OI)(CI)F *S-1-5-32-545:(OI)(CI)RX"
CLOSING = tuple(ICACLS % row for row in (
    (".", OWNER), (".", INHERITED), (".", LIST), ("*.exe", OWNER), ("*.exe", INHERITED), ("*.dll", OWNER), ("*.dll", INHERITED)))
AFTER_CREATE_FOLDERS = 3701
CLOSE = tuple(edit for number, command in enumerate(CLOSING) for edit in (
    "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES "
    f"('CloseRoot{number}', {RUN_BY_COMMAND_LINE + GO_ON_AFTER_FAILURE + IN_SCRIPT + AS_SYSTEM}, 'TARGETDIR', '{command}')",
    "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES "
    f"('CloseRoot{number}', 'NOT REMOVE', {AFTER_CREATE_FOLDERS + number})"))
EDITS = CLOSE + (
    "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES "
    f"('MarkUpgrade', {RUN_BY_COMMAND_LINE + GO_ON_AFTER_FAILURE}, 'TARGETDIR', '{MARK}')",
    "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES "
    "('MarkUpgrade', 'WIX_UPGRADE_DETECTED', 1505)",
    "UPDATE `InstallExecuteSequence` SET `Sequence` = 1510 WHERE `Action` = 'RemoveExistingProducts'",
    "UPDATE `Property` SET `Value` = 'WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED;SERVERURL;CERTIFICATE;AGENTTYPE;INSTALLROOT'"
    " WHERE `Property` = 'SecureCustomProperties'",
)


def code(*parts):
    return str(uuid.uuid5(NAMESPACE, "/".join(parts))).upper()


def build(template, files, version, out, epoch):
    """Writes `out` from the wxs template and the folder of files; the product code follows from the version."""
    out, template = pathlib.Path(out).resolve(), pathlib.Path(template).resolve()
    out.unlink(missing_ok=True)
    environment = {**os.environ, "TZ": "UTC", "SOURCE_DATE_EPOCH": str(epoch)}
    subprocess.run(["wixl", "-a", "x64", "-D", f"Version={version}", "-D", f"ProductCode={code('product', version)}",
                    "-o", out, template], check=True, env=environment, cwd=files)
    for edit in EDITS:
        subprocess.run(["msibuild", out, "-q", edit], check=True, env=environment, stdout=subprocess.DEVNULL)
    content = hashlib.sha256()
    for file in sorted(pathlib.Path(files).iterdir()):
        content.update(file.name.encode() + b"\0" + hashlib.sha256(file.read_bytes()).digest())
    content.update(template.read_bytes() + repr(EDITS).encode())
    settle(out, code("package", version, content.hexdigest()), epoch)


def settle(package, package_code, epoch):
    """Sets the package code and the times of the summary, which wixl takes from chance and the clock.

    The summary is patched where it lies: a property set, found by its format's identifier.
    """
    data = bytearray(package.read_bytes())
    at = data.find(SUMMARY_FORMAT)
    if at < 0 or data.find(SUMMARY_FORMAT, at + 1) >= 0:
        raise ValueError(f"{package}: not exactly one summary")
    section = at - 28 + struct.unpack_from("<I", data, at + 16)[0]
    count = struct.unpack_from("<I", data, section + 4)[0]
    left = {REVISION, CREATED, SAVED}
    for entry in range(count):
        number, offset = struct.unpack_from("<II", data, section + 8 + 8 * entry)
        place = section + offset
        kind = struct.unpack_from("<I", data, place)[0]
        if number == REVISION and kind == TEXT:
            text = f"{{{package_code}}}\0".encode()
            if struct.unpack_from("<I", data, place + 4)[0] != len(text):
                raise ValueError(f"{package}: its package code is not a GUID")
            data[place + 8:place + 8 + len(text)] = text
        elif number in (CREATED, SAVED) and kind == TIME:
            struct.pack_into("<Q", data, place + 4, (epoch + EPOCH_DIFFERENCE_SECONDS) * 10_000_000)
        else:
            continue
        left.discard(number)
    if left:
        raise ValueError(f"{package}: the summary lacks the properties {sorted(left)}")
    package.write_bytes(data)
