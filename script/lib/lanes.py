"""Long runs of rounds, shared out to lanes that run beside each other."""
import argparse
import concurrent.futures
import json
import time


def parse_arguments(description, more=lambda parser: None):
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--build", required=True)
    parser.add_argument("--rounds", type=int, default=200)
    parser.add_argument("--lanes", type=int, default=4)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--keep-work", action="store_true")
    parser.add_argument("--windows", help="the Windows build, whose agent then runs under Wine")
    more(parser)
    return parser.parse_args()


def run(arguments, lane, good, sums, **facts):
    """Has lane(arguments, number, rounds) play its share and prints each account, then one line with the sums of the keys
    `sums` and the facts. Returns the exit status: whether good(account) holds for all that did not fail."""
    lanes = min(arguments.lanes, arguments.rounds)
    shares = [arguments.rounds // lanes + (i < arguments.rounds % lanes) for i in range(lanes)]
    started = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(lanes) as pool:
        accounts = list(pool.map(lambda pair: lane(arguments, *pair), enumerate(shares)))
    for account in accounts:
        print(json.dumps(account), flush=True)
    well = all("failed" not in account and good(account) for account in accounts)
    totals = {key: sum(account.get(key, 0) for account in accounts) for key in sums}
    print(json.dumps({**totals, **facts, "seconds": round(time.monotonic() - started), "good": well}))
    return 0 if well else 1
