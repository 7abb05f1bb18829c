"""The main program of end-to-end tests that can play on a Wine machine: all cases share one prefix."""
import argparse
import pathlib
import shutil
import signal
import sys
import tempfile
import unittest

from machine import WinePrefix


def run(case, description, **windows):
    """Runs the cases of the calling program, after giving their class `case` the builds and a Wine prefix. windows: how the option
    for the Windows build is declared. Returns the exit status."""
    parser = argparse.ArgumentParser(description=description, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True)
    parser.add_argument("--windows", **windows)
    builds, others = parser.parse_known_args()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="korvane-wine-"))
    case.builds, case.prefix = builds, WinePrefix(folder / "prefix")
    try:
        program = unittest.main(argv=[sys.argv[0], *others], exit=False, verbosity=2)
        return 0 if program.result.wasSuccessful() else 1
    finally:
        case.prefix.close()
        shutil.rmtree(folder, ignore_errors=True)
