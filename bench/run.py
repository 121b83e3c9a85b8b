"""Measures py_pb beside its peers and prints the table of ratios.

Exits with 1 when a workload breaks: an exception, or a round trip that does not give back what was
sent. Being slow is never a failure.
"""

from __future__ import annotations

import argparse
import csv
import sys
from collections.abc import Callable, Iterable
from functools import partial
from pathlib import Path

import harness
import zoned
from harness import Row
from workloads import MILLION, WORKLOADS

COLUMNS = "{:<14}{:<8}{:<12}{:>10}{:>10}{:>8}{:>10}{:>8}"
HEADINGS = ("workload", "way", "peer", "py_pb", "peer", "ratio", "peak MB", "copies")


def time_text(seconds: float) -> str:
    for unit, scale in (("s", 1), ("ms", 1e3), ("us", 1e6)):
        if seconds * scale >= 1:
            return f"{seconds * scale:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


def line(row: Row) -> str:
    peak = "" if row.peak_bytes is None else f"{row.peak_bytes / 1e6:.1f}"
    copies = "" if row.copies is None else f"{row.copies:.2f}"
    times = time_text(row.our_time), time_text(row.peer_time)
    return COLUMNS.format(
        row.workload, row.direction, row.peer, *times, f"{row.ratio:.2f}", peak, copies
    )


def write_csv(path: Path, rows: Iterable[Row]) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    with path.open("w", newline="") as file:
        writer = csv.writer(file)
        writer.writerow((*Row.__dataclass_fields__, "ratio"))
        writer.writerows((*vars(row).values(), row.ratio) for row in rows)


def all_jobs(quick: bool, repetitions: int) -> dict[str, Callable[[], Iterable[Row]]]:
    """By name, what gives the rows of each workload."""
    jobs: dict[str, Callable[[], Iterable[Row]]] = {}
    for workload in WORKLOADS:
        size = workload.quick_size if quick else workload.size
        jobs[workload.name] = partial(harness.measure, workload, size, repetitions)
    jobs["zoned-dates"] = partial(zoned.measure, 1000 if quick else MILLION, repetitions)
    jobs["start-up"] = partial(harness.measure_start_up, repetitions)
    return jobs


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--quick", action="store_true", help="small sizes, to see that all works")
    parser.add_argument("--only", nargs="+", metavar="PATTERN", help="parts of workloads' names")
    parser.add_argument("--repetitions", type=int, metavar="N", help="default 9, when quick 3")
    parser.add_argument("--csv", type=Path, metavar="FILE", help="write the rows there as well")
    arguments = parser.parse_args()
    if arguments.repetitions is None:
        arguments.repetitions = 3 if arguments.quick else 9
    if arguments.repetitions < 1:
        parser.error("at least one repetition is needed")
    return arguments


def main() -> int:
    arguments = parse_arguments()
    jobs = all_jobs(arguments.quick, arguments.repetitions)
    if arguments.only:
        jobs = {name: jobs[name] for name in jobs if any(part in name for part in arguments.only)}
    if not jobs:
        print(f"No workload has any of {arguments.only} in its name", file=sys.stderr)
        return 2

    print(harness.conditions())
    print(f"Medians of {arguments.repetitions}; a ratio below 1: py_pb is faster")
    print(COLUMNS.format(*HEADINGS), flush=True)
    rows: list[Row] = []
    broken = 0
    for name, job in jobs.items():
        try:
            for row in job():
                rows.append(row)
                print(line(row), flush=True)
        except Exception as error:
            broken += 1
            print(f"{name} is broken: {type(error).__name__}: {error}", file=sys.stderr)
    if arguments.csv:
        write_csv(arguments.csv, rows)
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
