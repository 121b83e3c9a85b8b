"""Measures py_pb beside its peers and judges the ratios.

Exits with 1 when a workload breaks: an exception, or a round trip that does not give back what was
sent. Being slow is never a failure.
"""

from __future__ import annotations

import argparse
import csv
import sys
from collections.abc import Callable, Iterable
from functools import partial
from itertools import chain
from pathlib import Path

import growth
import harness
from harness import Repetitions, Row
from workloads import HUGE_PAGES_ON_REQUEST, WORKLOADS

COLUMNS = "{:<21}{:<7}{:<14}{:>8}{:>9}{:>7}{:>6}{:>9}{:>9}{:>9}{:>9}{:>9}  {}"
HEADINGS = (
    *("workload", "way", "peer", "py_pb", "peer", "ratio", "limit"),
    *("message", "limit", "/msgpack", "peak", "limit", "falls short of"),
)
CSV_FILE = Path(__file__).resolve().parents[1] / "build" / "bench" / "rows.csv"
CSV_COLUMNS = (
    *("workload", "direction", "peer", "our_time", "peer_time", "ratio", "limit"),
    *("encoded", "encoded_limit", "of_msgpack", "peak", "peak_limit", "short_of"),
)
PEERS = "Beside peers; a ratio below 1: py_pb is faster"
GROWTH = "Beside a tenth of the size; a ratio of 10: the time grows as the size does"
SMALL = "The sizes are small, to see that all works; the limits are meant for the full ones."
WORDS_HELP = "measures only the workloads that have one of the words in their name"
REPETITIONS_HELP = "default 9, but 5 where they take long, and 1 when quick"
CSV_HELP = "where to write the rows; default build/bench/rows.csv for a run of everything in full"
PLOT_HELP = "where to draw the ratios (.png, .svg); default beside the CSV of a run in full"
LARGE_ARRAYS = {
    True: "Large arrays are judged as those that can have huge pages on request.",
    False: "Large arrays are judged over one fresh copy: there are no huge pages on request.",
}
Job = Callable[[], Iterable[Row]]


def time_text(seconds: float) -> str:
    return scaled(seconds, {"s": 1, "ms": 1e-3, "us": 1e-6, "ns": 1e-9})


def bytes_text(count: float | None) -> str:
    return "" if count is None else scaled(count, {"MB": 1e6, "kB": 1e3, "B": 1})


def scaled(value: float, units: dict[str, float]) -> str:
    """In the largest of the units that gives one or more."""
    unit = next((unit for unit in units if value >= units[unit]), list(units)[-1])
    return f"{value / units[unit]:.{3 if value < 999.5 * units[unit] else 4}g} {unit}"


def ratio_text(ratio: float | None) -> str:
    return "" if ratio is None else f"{ratio:.2f}"


def line(row: Row) -> str:
    times = time_text(row.our_time), time_text(row.peer_time), ratio_text(row.ratio)
    limit = "" if row.limit is None else f"{row.limit:g}"
    space = row.space
    message = bytes_text(space.encoded), bytes_text(space.encoded_limit)
    peak = bytes_text(space.peak), bytes_text(space.peak_limit)
    sizes = *message, ratio_text(space.of_msgpack), *peak
    short_of = ", ".join(row.short_of)
    cells = row.workload, row.direction, row.peer, *times, limit, *sizes, short_of
    return COLUMNS.format(*cells).rstrip()


def summary(rows: list[Row]) -> str:
    judged = [row for row in rows if row.judged]
    short = [row for row in judged if row.short_of]
    lines = [
        f"  {row.workload} {row.direction}, {row.peer}: {', '.join(row.short_of)}" for row in short
    ]
    return "\n".join([f"{len(short)} of {len(judged)} judged rows fall short", *lines])


def write_csv(path: Path, rows: Iterable[Row]) -> None:
    with path.open("w", newline="") as file:
        writer = csv.DictWriter(file, CSV_COLUMNS, extrasaction="ignore")
        writer.writeheader()
        for row in rows:
            short_of = " ".join(row.short_of)
            own = {"ratio": row.ratio, "short_of": short_of}
            writer.writerow(vars(row) | vars(row.space) | own)


def beside_peers(quick: bool, repetitions: Repetitions) -> dict[str, Job]:
    """By name, what gives the rows of each workload."""
    jobs: dict[str, Job] = {}
    for workload in WORKLOADS:
        size = workload.quick_size if quick else workload.size
        jobs[workload.name] = partial(harness.measure, workload, size, repetitions)
    jobs["start-up"] = partial(harness.measure_start_up, repetitions)
    return jobs


def beside_a_tenth(quick: bool, repetitions: Repetitions) -> dict[str, Job]:
    return {
        f"growth-{name}": partial(growth.measure, name, quick, repetitions)
        for name in growth.LARGEST
    }


def run(title: str, jobs: dict[str, Job], broken: list[str]) -> list[Row]:
    """Prints the rows of a section and returns them; adds the workloads that do not work."""
    print(f"\n{title}\n{COLUMNS.format(*HEADINGS)}", flush=True)
    rows: list[Row] = []
    for name, job in jobs.items():
        try:
            for row in job():
                rows.append(row)
                print(line(row), flush=True)
        except Exception as error:
            broken.append(name)
            print(f"{name} is broken: {type(error).__name__}: {error}", file=sys.stderr)
    return rows


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0] if __doc__ else None)
    parser.add_argument("words", nargs="*", metavar="WORD", help=WORDS_HELP)
    parser.add_argument("--quick", action="store_true", help="small sizes, to see that all works")
    parser.add_argument("--repetitions", type=int, metavar="N", help=REPETITIONS_HELP)
    parser.add_argument("--csv", type=Path, metavar="FILE", help=CSV_HELP)
    parser.add_argument("--plot", type=Path, metavar="FILE", help=PLOT_HELP)
    arguments = parser.parse_intermixed_args()
    if arguments.repetitions is not None and arguments.repetitions < 1:
        parser.error("at least one repetition is needed")
    if arguments.csv is None and not (arguments.quick or arguments.words):
        arguments.csv = CSV_FILE
    if arguments.plot is None and arguments.csv and not arguments.quick:
        arguments.plot = arguments.csv.with_suffix(".png")
    return arguments


def repetitions_of(arguments: argparse.Namespace) -> Repetitions:
    if arguments.repetitions is not None:
        return Repetitions(arguments.repetitions, arguments.repetitions)
    return Repetitions(1, 1) if arguments.quick else Repetitions(5, 9)


def chosen(jobs: dict[str, Job], words: list[str]) -> dict[str, Job]:
    return {name: jobs[name] for name in jobs if any(word in name for word in words or [""])}


def save(arguments: argparse.Namespace, sections: dict[str, list[Row]]) -> None:
    written = [path for path in (arguments.csv, arguments.plot) if path]
    for path in written:
        path.parent.mkdir(parents=True, exist_ok=True)
    if arguments.csv:
        write_csv(arguments.csv, chain(*sections.values()))
    if arguments.plot:
        import plot  # matplotlib takes its time to load

        plot.save(arguments.plot, sections)
    if written:
        print("Written:", *written)


def main() -> int:
    arguments = parse_arguments()
    repetitions = repetitions_of(arguments)
    size = arguments.quick, repetitions
    jobs = {
        PEERS: chosen(beside_peers(*size), arguments.words),
        GROWTH: chosen(beside_a_tenth(*size), arguments.words),
    }
    if not any(jobs.values()):
        print(f"No workload has any of {arguments.words} in its name", file=sys.stderr)
        return 2

    print(harness.conditions())
    print(f"Medians of {repetitions.fewest} samples, of {repetitions.most} where they are quick.")
    print(LARGE_ARRAYS[HUGE_PAGES_ON_REQUEST])
    if arguments.quick:
        print(SMALL)
    broken: list[str] = []
    sections = {title: run(title, jobs[title], broken) for title in jobs if jobs[title]}
    print(f"\n{summary(list(chain(*sections.values())))}")
    save(arguments, sections)
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
