"""The bill of materials (CycloneDX 1.5), made from what was really linked.

Windows: the linker's maps name every member of a static library that went in. Linux: the dynamic sections
name the libraries. On both the build's record of dependencies names the headers of header-only libraries.
A library that is not known here is an error: nothing goes in without a line.
"""
import hashlib
import json
import pathlib
import re
import subprocess
import uuid

NAMESPACE = uuid.UUID("0b8f6d58-8f36-5c1c-9d0c-4a2b3e0f7c55")
MEMBER = re.compile(r"^(\S+\.a)\((\S+)\)$", re.M)
OWN = re.compile(r"^libkorvane_\w+\.a$")
# Static library of the Windows build -> component. What only names entries of the system's libraries comes from
# mingw-w64 too.
FROM_SOURCE = {"libcrypto.a": "openssl", "libssl.a": "openssl", "libcurl.a": "curl", "libminizip.a": "zlib", "libz.a": "zlib",
               "libxerces-c.a": "xerces-c"}
FROM_PACKAGE = {"libstdc++.a": "gcc-mingw-w64-x86-64-posix-runtime",
                "libgcc.a": "gcc-mingw-w64-x86-64-posix-runtime", "libgcc_eh.a": "gcc-mingw-w64-x86-64-posix-runtime",
                "libssp.a": "gcc-mingw-w64-x86-64-posix-runtime"}
MINGW = {f"lib{name}.a" for name in (
    "mingw32", "mingwex", "msvcrt", "pthread", "winpthread", "kernel32", "user32", "advapi32", "ws2_32", "crypt32",
    "bcrypt", "iphlpapi", "gdi32", "shell32", "ole32", "oleaut32", "uuid", "ntdll", "version", "wintrust")}
HEADERS = {"boost": "libboost1.74-dev", "fmt": "libfmt-dev", "CLI": "libcli11-dev", "nlohmann": "nlohmann-json3-dev"}
HEADER = re.compile(r"/(%s)/" % "|".join(HEADERS))


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def debian_package(name):
    """Source name and version of an installed package."""
    return output("dpkg-query", "-W", "-f", "${source:Package} ${source:Version}\n", name).split("\n")[0].split()


def component(name, version, linked, sources=()):
    item = {"type": "library", "bom-ref": f"{name}@{version}", "name": name, "version": version,
            "purl": f"pkg:deb/debian/{name}@{version.replace('+', '%2B').replace(':', '%3A')}?arch=source",
            "properties": [{"name": "korvane:linked", "value": text} for text in sorted(linked)]}
    if sources:
        item["externalReferences"] = [
            {"type": "source-distribution", "url": f"https://deb.debian.org/debian/pool/main/{name[0]}/{name}/{file}",
             "hashes": [{"alg": "SHA-256", "content": digest}]} for file, digest in sources]
    return item


def pinned_sources(deps):
    """{package: (version, [(file, SHA-256), ...])}, as script/windows-deps left it beside what it built."""
    found, files = {}, []
    for line in (deps / "sources.txt").read_text().splitlines():
        first, second = line.split()[:2]
        if len(first) == 64:
            files.append((second, first))
        elif first != "#":
            files = []
            found[first] = (second, files)
    return found


def members(map_file):
    found = {}
    for archive, member in MEMBER.findall(map_file.read_text(errors="replace").split("\nMemory Configuration")[0]):
        found.setdefault(pathlib.Path(archive).resolve(), set()).add(member)
    return found


def headers_used(build):
    """{library: the files of it that the product's sources include}"""
    used = {}
    counts = False
    for line in output("ninja", "-C", str(build), "-t", "deps").splitlines():
        if not line.startswith(" "):
            counts = line.startswith(("src/", "host/", "tools/agentctl/"))
        elif counts and (match := HEADER.search(line)):
            used.setdefault(match[1], set()).add(line.strip())
    return used


def header_components(build):
    for name in sorted(headers_used(build)):
        yield component(*debian_package(HEADERS[name]), [f"headers of {name}"])


def windows_components(build, deps):
    pinned = pinned_sources(deps)
    versions = {name: version for name, (version, _) in pinned.items()}
    linked = {("openssl", versions["openssl"]): [f"fips.dll {digest_of(deps / 'fips' / 'fips.dll')}"]}
    for map_file in sorted((build / "maps").glob("*.map")):
        for archive, objects in members(map_file).items():
            name = archive.name
            if OWN.match(name):
                continue
            if name in FROM_SOURCE:
                origin = (FROM_SOURCE[name], versions[FROM_SOURCE[name]])
            elif name in FROM_PACKAGE or name in MINGW:
                origin = tuple(debian_package(FROM_PACKAGE.get(name, "mingw-w64-x86-64-dev")))
            else:
                raise ValueError(f"{map_file.name}: {archive} is not a library that the bill of materials knows")
            linked.setdefault(origin, []).append(f"{map_file.stem}: {len(objects)} objects of {name}")
    for (name, version), what in sorted(linked.items()):
        files = pinned[name][1] if versions.get(name) == version else ()
        yield component(name, version, what, [file for file in files if not file[0].endswith(".asc")])
    yield from header_components(build)


def libraries_needed(file):
    """The libraries that a program or library names, each with where it lies on this system."""
    needed = set(re.findall(r"\(NEEDED\).*\[(.+)\]", output("readelf", "-d", str(file))))
    return [(name, path) for name, path in re.findall(r"^\s*(\S+) => (\S+)", output("ldd", str(file)), re.M) if name in needed]


def packages_needed(file):
    """The libraries that a program or library names, each with the Debian package that holds it."""
    for name, path in libraries_needed(file):
        # The system may know the file by its path without the linked /usr.
        owner = next(found for place in (path, path.removeprefix("/usr"), str(pathlib.Path(path).resolve()))
                     if (found := subprocess.run(["dpkg", "-S", place], capture_output=True, text=True).stdout))
        yield name, owner.split(": ")[0]


def linux_components(build, files):
    linked = {}
    for file in files:
        for name, owner in packages_needed(file):
            linked.setdefault(tuple(debian_package(owner)), []).append(f"{file.name}: {name}, dynamically")
    for (name, version), what in sorted(linked.items()):
        yield component(name, version, what)
    yield from header_components(build)


def digest_of(file):
    return "sha256:" + hashlib.sha256(pathlib.Path(file).read_bytes()).hexdigest()


def digest_of_text(text):
    return hashlib.sha256(text.encode()).hexdigest()


def write(path, version, target, components, shipped, epoch_text):
    """Writes the bill; `shipped` are the files that it is about."""
    found = {item["bom-ref"]: item for item in components}
    product = {
        "type": "application", "bom-ref": "korvane-agent", "name": "korvane-agent", "version": version,
        "supplier": {"name": "Dalvora"},
        "components": [{"type": "file", "name": file.name,
                        "hashes": [{"alg": "SHA-256", "content": digest_of(file).split(":")[1]}]} for file in shipped]}
    bill = {"bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
            "metadata": {"timestamp": epoch_text, "component": product,
                         "properties": [{"name": "korvane:target", "value": target}]},
            "components": [found[key] for key in sorted(found)],
            "dependencies": [{"ref": "korvane-agent", "dependsOn": sorted(found)}]}
    bill["serialNumber"] = f"urn:uuid:{uuid.uuid5(NAMESPACE, json.dumps(bill, sort_keys=True))}"
    path.write_text(json.dumps(bill, indent=2, sort_keys=True) + "\n")
