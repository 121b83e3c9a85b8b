"""Counts the instructions of py_pb and pickle, which do not depend on what else a machine does.

Each operation runs under valgrind's callgrind in two processes, which differ only in how often they
do it; the difference of their counts, over the difference of the numbers, is what one costs. The
processes import nothing else, whose threads would be counted too. Needs valgrind.
"""

from __future__ import annotations

import os
import pickle
import re
import subprocess
import sys
import tempfile

from peers import CODECS, OURS
from workloads import WORKLOADS

# Elements, and how often the operation runs in the first and the second process.
SIZES = {"call-scalars": (3, 1000, 11000)}
USUAL = (5000, 10, 60)
NAMES = (
    "call-scalars",
    "floats",
    "ints",
    "bools",
    "texts-ascii",
    "texts-other",
    "dicts",
    "nested-lists",
)
PROGRAM = """
import pickle, sys
import py_pb
with open(sys.argv[1], "rb") as file:
    args = pickle.load(file)
data = {out}
for _ in range({calls}):
    {statement}
"""


def instructions(program: str, values: str) -> int:
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", sys.executable]
    environment = os.environ | {"PYTHONHASHSEED": "0"}
    run = subprocess.run(
        [*command, "-c", program, values], capture_output=True, text=True, env=environment
    )
    found = re.search(r"Collected : (\d+)", run.stderr)
    if not found or run.returncode:
        raise RuntimeError(f"valgrind failed: {run.stderr[-500:]}")
    return int(found[1])


def count(name: str, codec: str, direction: str) -> float:
    """Instructions for each element; of the small call, for the whole of it."""
    workload = next(each for each in WORKLOADS if each.name == name)
    size, few, many = SIZES.get(name, USUAL)
    statement = getattr(CODECS[codec], direction)
    with tempfile.NamedTemporaryFile() as file:
        pickle.dump(workload.arguments(size), file)
        file.flush()
        counts = [
            instructions(
                PROGRAM.format(out=CODECS[codec].out, statement=statement, calls=calls), file.name
            )
            for calls in (few, many)
        ]
    elements = 1 if name in SIZES else size
    return (counts[1] - counts[0]) / (many - few) / elements


def main() -> None:
    print(f"{'workload':<16}{'way':<6}{OURS:>8}{'pickle':>8}{'ratio':>8}")
    for name in NAMES:
        for direction in ("out", "back"):
            ours, peer = (count(name, codec, direction) for codec in (OURS, "pickle"))
            line = f"{name:<16}{direction:<6}{ours:>8.0f}{peer:>8.0f}{ours / peer:>8.2f}"
            print(line, flush=True)


if __name__ == "__main__":
    main()
