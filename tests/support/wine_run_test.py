"""script/wine-run, with a Wine that fails as told: what is started again, and what is not.

wine_run_test.py SOURCE_ROOT
"""
import os
import pathlib
import subprocess
import sys
import tempfile

RUN = pathlib.Path(sys.argv[1]) / "script" / "wine-run"
# The stand-in counts its starts and does what the line of its plan for this start says.
WINE = """#!/bin/sh
echo "$*" >> "$WORK/starts"
sh -c "$(sed -n "$(wc -l < "$WORK/starts")p" "$WORK/plan")"
"""
NOT_STARTED = "exit 1"
# plan, starts, exit status, output
CASES = [
    (["echo word"], 1, 0, "word\n"),
    ([NOT_STARTED, NOT_STARTED, "echo word"], 3, 0, "word\n"),
    ([NOT_STARTED] * 4, 3, 1, ""),
    ([NOT_STARTED, "echo word; exit 1"], 2, 1, "word\n"),
    (["echo 'wine client error:0: recvmsg: Connection reset by peer' >&2; exit 1", "echo word"], 2, 0, "word\n"),
    (["echo word; exit 1", "echo other"], 1, 1, "word\n"),  # a test that failed
    (["echo word >&2; exit 1", "echo other"], 1, 1, "word\n"),
    (["exit 3", "echo other"], 1, 3, ""),  # it crashed before its first word
    (["printf word; exit 137", "echo other"], 1, 137, "word"),
]


def main():
    wrong = 0
    for plan, starts, status, output in CASES:
        with tempfile.TemporaryDirectory() as name:
            work = pathlib.Path(name)
            (work / "wine").write_text(WINE)
            (work / "wine").chmod(0o755)
            (work / "korvane-ready").touch()
            (work / "plan").write_text("\n".join(plan) + "\n")
            environment = {**os.environ, "PATH": f"{work}:{os.environ['PATH']}", "WORK": name,
                           "KORVANE_WINE_PREFIX": name, "KORVANE_WINE_STARTS": str(work / "again")}
            ran = subprocess.run([RUN, "x.exe", "--filter=A.b"], env=environment, capture_output=True, text=True)
            made = (work / "starts").read_text().splitlines()
            again = (work / "again").read_text().splitlines() if (work / "again").exists() else []
            seen = (len(made), ran.returncode, ran.stdout, len(again))
            if seen != (starts, status, output, starts - 1) or set(made) != {"x.exe --filter=A.b"}:
                wrong += 1
                print(f"{plan}: {seen}, starts {made}, {ran.stderr}")
    print(f"{len(CASES)} cases, {wrong} wrong")
    return wrong != 0


sys.exit(main())
