"""Plays schedules of the log model: random writers, rotations, kills and answers against the agent's forwarding and a reference reader.

soak_logs.py --program FILE [--schedules N] [--seed S] [--lanes N]

The schedules have the seeds from S on, shared out over the lanes. A failure is printed with its whole schedule and the command that
replays it. The last line is a JSON object; the exit status is 0 when no schedule failed.
"""
import argparse
import json
import os
import subprocess
import sys

import lanes

SUMS = ("schedules", "kills", "kills_between_passes", "restarts", "passes", "batches", "answers_lost", "refused", "dropped_by_server",
        "events", "excluded", "delivered", "again", "summaries", "torn_lines_taken", "failures")


def lane(arguments, number, schedules):
    first = arguments.seed + number * (arguments.rounds // arguments.lanes) + min(number, arguments.rounds % arguments.lanes)
    command = [arguments.program, "--schedules", str(schedules), "--seed", str(first)]
    played = subprocess.run(command, capture_output=True, text=True, errors="replace")
    *failures, account = played.stdout.splitlines() or [""]
    print("\n".join(failures), end="\n" if failures else "", flush=True)
    try:
        return {"lane": number, **json.loads(account)}
    except json.JSONDecodeError:
        return {"lane": number, "failed": f"{' '.join(command)} ended with {played.returncode}: {played.stderr[-2000:]}"}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True)
    parser.add_argument("--schedules", dest="rounds", type=int, default=10_000_000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--lanes", type=int, default=os.cpu_count() or 1)
    arguments = parser.parse_args()
    arguments.lanes = max(1, min(arguments.lanes, arguments.rounds))
    return lanes.run(arguments, lane, lambda account: account["failures"] == 0, SUMS, seed=arguments.seed, lanes=arguments.lanes)


if __name__ == "__main__":
    sys.exit(main())
