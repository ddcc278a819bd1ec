"""Runs the benchmarks' rounds and reports; started by scripts/bench, in the project's root."""

import argparse
import json
import pathlib
import sys

import machine
import rounds
from report import Report

BUILD = pathlib.Path("build")
OUT = BUILD / "bench"
DOCUMENT = pathlib.Path("docs/performance.md")
LEAST_ROUNDS = 3  # for figures that are kept


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="What the library costs.")
    parser.add_argument("--quick", action="store_true", help="fewer and shorter rounds; leaves docs/ alone")
    parser.add_argument("--rounds", type=int, metavar="N",
                        help="rounds of each way (5; 3 with --quick); fewer than 3 leave docs/ alone")
    return parser.parse_args()


def results_json(report, groups):
    return {
        "machine": report.machine,
        "load": report.loads,
        "sizes": {preset: {"stripped_bytes": size, "table_bytes": tables}
                  for preset, (size, tables) in report.sizes.items()},
        "goals": [{"goal": goal.text, "at_most": goal.limit, "measured": goal.measured.json(), "met": goal.met()}
                  for goal in report.goals()],
        "micro": report.micro,
        "rounds": {group.name: group.results for group in groups},
    }


def main():
    options = arguments()
    extent = rounds.QUICK if options.quick else rounds.FULL
    if options.rounds:
        extent.rounds = options.rounds
    load_before = machine.load()
    groups = rounds.all_groups(extent)
    rounds.run(str(BUILD / "release/bin/lenswire-bench"), groups, extent, lambda text: print(text, file=sys.stderr))
    micro = rounds.run_micro(str(BUILD / "release/bin/lenswire-micro"))
    sizes = {preset: machine.library_sizes(strip, str(BUILD / preset / "lib/liblenswire.so"))
             for preset, strip in (("armhf", "arm-linux-gnueabihf-strip"), ("release", "strip"))}
    report = Report(groups, extent, machine.describe(), micro, sizes, (load_before, machine.load()))

    OUT.mkdir(parents=True, exist_ok=True)
    (OUT / "results.json").write_text(json.dumps(results_json(report, groups), indent=1), encoding="utf-8")
    print(report.text())
    print(f"Written: {OUT / 'results.json'}")
    if not options.quick and extent.rounds >= LEAST_ROUNDS:
        report.write_into(DOCUMENT, DOCUMENT.with_suffix(""))
        print(f"Written: {DOCUMENT} and the plots beside it")
    missed = [goal.text for goal in report.goals() if not goal.met()]
    for text in missed:
        print(f"Missed: {text}", file=sys.stderr)
    return 1 if missed else 0


sys.exit(main())
