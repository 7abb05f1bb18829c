"""How a set of packages was made (in-toto statement, SLSA provenance 1): from which commit, with which tools and flags, of
which inputs, each by its SHA-256. Nothing of it depends on where or when the build ran.
"""
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

import sbom

GROUPS = {"src/": "library", "host/": "host", "tools/agentctl/": "agentctl"}
SETTINGS = re.compile(r"^(CMAKE_BUILD_TYPE|CMAKE_UNITY_BUILD|KORVANE_(?:LINKER|SANITIZE|WERROR)):\w+=(.*)$", re.M)
TAKES_NEXT = ("-o", "-c", "-I", "-isystem")


def digest(file):
    return {"sha256": sbom.digest_of(file).split(":")[1]}


def git(root, *command):
    try:
        return sbom.output("git", "-C", str(root), *command).strip()
    except (subprocess.CalledProcessError, OSError):
        return ""


class Build:
    def __init__(self, root, folder):
        self.root, self.folder = root, folder
        self.cache = (folder / "CMakeCache.txt").read_text()

    def cached(self, name):
        found = re.search(rf"^{name}:\w+=(.*)$", self.cache, re.M)
        return found[1] if found else ""

    def placeless(self, text):
        """Without the names of this machine's folders."""
        for place, name in ((str(self.folder), "BUILD"), (str(self.root), "."), (self.cached("KORVANE_WINDOWS_DEPS"), "DEPS")):
            text = text.replace(place, name) if place else text
        return text

    def compile_flags(self):
        """The flags of each part; where its sources differ in one, it has both."""
        flags = {}
        for entry in json.loads((self.folder / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            made = words[words.index("-o") + 1] if "-o" in words else ""  # resources have none
            group = next((name for start, name in GROUPS.items() if made.startswith(start)), None)
            kept = {word for before, word in zip(words, words[1:])
                    if word.startswith("-") and before not in TAKES_NEXT and not word.startswith(TAKES_NEXT)}
            flags.setdefault(group, set()).update(map(self.placeless, kept))
        return {group: sorted(words) for group, words in flags.items() if group}

    def link_flags(self):
        rules = (self.folder / "build.ninja").read_text()
        found = re.findall(r"^build (?:\S+ )*?bin/(\S+?)(?: \S+)*: CXX_\w+_LINKER__\S+.*\n((?:  .*\n)*)", rules, re.M)
        shipped = {"korvane-host", "agentctl", "korvane-agent", "libkorvane-agent"}
        return {name: self.placeless(" ".join(re.findall(r"^  (?:LINK_FLAGS|LANGUAGE_COMPILE_FLAGS) = (.*)$", text, re.M)))
                for name, text in found if name.split(".")[0] in shipped}

    def tools(self):
        found = next(self.folder.glob("CMakeFiles/*/CMakeCXXCompiler.cmake")).read_text()
        compiler = re.search(r'set\(CMAKE_CXX_COMPILER "(.*)"\)', found)[1]
        linker = sbom.output(compiler, "-print-prog-name=ld").strip()
        tools = {"compiler": compiler, "linker": linker, "cmake": self.cached("CMAKE_COMMAND"), "ninja": self.cached("CMAKE_MAKE_PROGRAM"),
                 "strip": self.cached("CMAKE_STRIP"), "python": sys.executable}
        for name, path in sorted(tools.items()):
            file = pathlib.Path(path if os.path.isabs(path) else sbom.output("which", path).strip()).resolve()
            yield {"name": name, "uri": f"file:{file}", "digest": digest(file),
                   "annotations": {"version": sbom.output(str(file), "--version").splitlines()[0]}}


def debian(name, **more):
    source, version = sbom.debian_package(name)
    return {"name": name, "uri": f"pkg:deb/debian/{source}@{version}?arch=source", **more}


def headers(build):
    """The header-only libraries, each by one number over all the files of it that were read."""
    for name, files in sorted(sbom.headers_used(build.folder).items()):
        each = sorted(f"{digest(build.folder / file)['sha256']}  {pathlib.Path(file).name}" for file in files)
        yield debian(sbom.HEADERS[name], digest={"sha256": sbom.digest_of_text("\n".join(each))},
                     annotations={"digestOf": f"the sorted SHA-256 and name of {len(each)} headers"})


def windows_inputs(build):
    deps = pathlib.Path(build.cached("KORVANE_WINDOWS_DEPS"))
    for name, (version, files) in sorted(sbom.pinned_sources(deps).items()):
        for file, number in files:
            yield {"name": file, "uri": f"pkg:deb/debian/{name}@{version}?arch=source", "digest": {"sha256": number}}
    archives = {archive for file in (build.folder / "maps").glob("*.map") for archive in sbom.members(file)}
    for archive in sorted(archive for archive in archives if not sbom.OWN.match(archive.name)):
        yield {"name": archive.name, "uri": "file:" + build.placeless(str(archive)), "digest": digest(archive)}


def linux_inputs(programs):
    needed = {path for program in programs for _, path in sbom.libraries_needed(program)}
    for path in sorted(needed):
        yield {"name": pathlib.Path(path).name, "uri": f"file:{path}", "digest": digest(path)}


def write(path, root, folder, system, shipped, programs, epoch_text):
    """`shipped`: the packages it is about; `programs`: what of them was linked for Linux."""
    build = Build(root, folder)
    commit = git(root, "rev-parse", "HEAD")
    source = {"name": "korvane-agent", "digest": {"gitCommit": commit} if commit else {},
              "annotations": {"changed": bool(git(root, "status", "--porcelain", "-uno")) if commit else "unknown"}}
    inputs = list(windows_inputs(build) if system.startswith("windows") else linux_inputs(programs))
    statement = {
        "_type": "https://in-toto.io/Statement/v1", "predicateType": "https://slsa.dev/provenance/v1",
        "subject": [{"name": file.name, "digest": digest(file)} for file in shipped],
        "predicate": {
            "buildDefinition": {
                "buildType": "urn:dalvora:korvane-agent:script-package",
                "externalParameters": {"system": system, "sourceDateEpoch": epoch_text},
                "internalParameters": {"settings": dict(SETTINGS.findall(build.cache)), "compileFlags": build.compile_flags(),
                                       "linkFlags": build.link_flags()},
                "resolvedDependencies": [source, *inputs, *headers(build)]},
            "runDetails": {"builder": {"id": "urn:dalvora:korvane-agent:script-package", "builderDependencies": list(build.tools())}}}}
    path.write_text(json.dumps(statement, indent=2, sort_keys=True) + "\n")
