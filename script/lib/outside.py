"""The headers of the library for outside programs, and the check that such a program can be made of them."""
import os
import pathlib
import shutil
import subprocess
import sys

ENTRY = "korvane-agent.h"
MINGW = "x86_64-w64-mingw32-"


def compiler(windows):
    return MINGW + "g++-posix" if windows else os.environ.get("CXX", "g++")


def headers(root):
    """What the entry header needs of the project, as (file, name below the include folder)."""
    source, entry = root / "src", root / "packaging" / ENTRY
    made = subprocess.run([compiler(False), "-std=c++20", "-MM", "-MT", "all", "-x", "c++", "-I", str(source), str(entry)],
                          check=True, capture_output=True, text=True).stdout
    files = [pathlib.Path(name) for name in made.replace("\\\n", " ").split()[1:]]
    return sorted((file, ENTRY if file == entry else file.relative_to(source).as_posix()) for file in files)


def copy_headers(root, folder):
    for file, name in headers(root):
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(file, folder / name)


def build(sources, include, libraries, library, program, windows):
    """Compiles the program against nothing but these headers and links it with nothing but this library."""
    link = ["-L", str(libraries), f"-l{library}", "-pthread", f"-Wl,-rpath,{libraries}"]
    if windows:  # -static looks for no import library by its short name
        link = [str(libraries / f"{library}.dll.a"), "-static"]
    subprocess.run([compiler(windows), "-std=c++20", "-Wall", "-Wextra", "-Werror", "-Wno-unused-result",
                    "-I", str(include), *map(str, sources), "-o", str(program), *link], check=True)


def inline_symbols(sources, include, place):
    """The operations that the headers define themselves, as the compiler names them."""
    names = set()
    for source in sources:
        unit = place / (source.stem + ".o")
        subprocess.run([compiler(False), "-std=c++20", "-fkeep-inline-functions", "-c", "-I", str(include), str(source), "-o", str(unit)],
                       check=True)
        lines = subprocess.run(["nm", "-C", str(unit)], check=True, capture_output=True, text=True).stdout.splitlines()
        names |= {line[19:] for line in lines if line[17:18] == "W"}
    return names


if __name__ == "__main__":
    copy_headers(pathlib.Path(__file__).resolve().parents[2], pathlib.Path(sys.argv[1]))
