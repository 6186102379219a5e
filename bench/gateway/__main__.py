"""What `numora serve` takes, in time, processor and memory, beside other servers in the same run.

    /usr/bin/python3 bench/gateway build/release [--seconds 10] [--only round_trips,fan_out]

docs/benchmarks.md says what the numbers are. Needs the release build with the targets numora and echo_server. A server
to compare with that is not installed is left out. The exit status is 1 when a scenario failed, not for a missed goal.
"""

import argparse
import sys

import fan_out
import round_trips
import starting
import streaming
from report import Report
from scenarios import run
from servers import what_is_missing

SCENARIOS = {"round_trips": round_trips.measure, "streaming": streaming.measure, "fan_out": fan_out.measure,
             "starts": starting.measure_starts, "memory": starting.measure_memory}


def arguments():
    parser = argparse.ArgumentParser(prog="bench/gateway")
    parser.add_argument("build", help="the folder of the release build")
    parser.add_argument("--seconds", type=float, default=10, help="of load in a scenario, for each server at most")
    parser.add_argument("--only", default=",".join(SCENARIOS), help="scenarios, with commas between them")
    options = parser.parse_args()
    options.only = options.only.split(",")
    if not set(options.only) <= set(SCENARIOS):
        parser.error("there are the scenarios " + ", ".join(SCENARIOS))
    return options


def main():
    options, report = arguments(), Report()
    missing = what_is_missing()
    for text in missing.values():
        report.note(text)
    return run(options.only, lambda name: SCENARIOS[name](options.build, options.seconds, report, missing), report)


if __name__ == "__main__":
    sys.exit(main())
