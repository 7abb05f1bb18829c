#!/usr/bin/env python3
"""The real agent obeys its server when it is notified: a setting, a policy, the policy of the detection component.

notified_agent.py --build DIR [--windows DIR]; the milliseconds from each notification to its effect are printed.
"""
import argparse
import pathlib
import shutil
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "script" / "lib"))
import stage as stages  # noqa: E402
from machine import free_port  # noqa: E402

LIMIT = 20  # seconds, for a machine under load; an idle one takes well below one


def results(stage, kind):
    return stage.admin(f"/results?type={kind}&limit=1000")


def notify(stage, port, kind, effect, what):
    began = time.monotonic()
    stage.admin("/notify", {"port": port, "kinds": [kind]})
    stages.wait_until(effect, LIMIT, what)
    print(f"{what}: {round((time.monotonic() - began) * 1000)} ms after its notification", flush=True)


def assign(stage, kind, file=None, **properties):
    order = {"kind": kind, "properties": properties}
    if file:
        served = stage.work / "server" / "served"
        served.mkdir(exist_ok=True)
        shutil.copy(file, served)
        order["file"] = file.name
    stage.admin("/assign", order)


def reported(stage, kind, text):
    return lambda: any(text in str(one) for one in results(stage, kind))


def play(stage):
    port = free_port()
    stage.make_certificates()
    stage.start_server()
    stage.install(settings={"TCP": {"tcp.enabled": "true", "tcp.port": port}, "Polling": {"polling.interval": 3600}})
    (stage.ids / "ids.properties").write_text("ids.service.eventfile.name=events.csv\n")
    stage.start_driver()
    stage.start_ids()
    stage.start_agent()
    stages.wait_until(reported(stage, "policy", "agent.osversion"), 90, "the agent's first status")

    assign(stage, "config", **{"polling.interval": "1234", "mod.time": "1", "rid.applied": "c-1"})
    notify(stage, port, "config", lambda: stage.setting("polling.interval") == "1234", "a setting is in agent.ini")
    stages.wait_until(lambda: results(stage, "config"), LIMIT, "the setting's result at the server")

    policy = stage.source_policy("base", policy_name="Base", version="7", identifier="base-7")
    assign(stage, "policy", policy, **{"policy.name": "Base", "policy.path": "/policies/base"})
    notify(stage, port, "policy", reported(stage, "policy", "base-7"), "a policy is in the driver")

    watch = stage.source_policy("watch", policy_name="Watch", identifier="watch-1")
    assign(stage, "policy.ids", watch, **{"policy.name.ids": "Watch", "policy.path.ids": "/policies/watch"})
    notify(stage, port, "policy.ids", lambda: results(stage, "policy.ids"), "a policy of the detection component is reported")
    report = results(stage, "policy.ids")[-1]
    assert report["code"] == 0 and "Watch" in str(report), report

    took = stage.agent.stop()
    print(f"stopped in {took} ms")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True, type=pathlib.Path)
    parser.add_argument("--windows", type=pathlib.Path)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="korvane-notified-") as work:
        with stages.Stage(arguments.build, work, windows=arguments.windows) as stage:
            try:
                play(stage)
            except (stages.StageError, AssertionError) as failure:
                for program in stage.programs:
                    print(program.tail(), file=sys.stderr)
                print(results(stage, "policy")[-3:], results(stage, "policy.ids")[-3:], file=sys.stderr)
                print(f"FAILED: {failure}", file=sys.stderr)
                return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
