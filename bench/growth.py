"""How the time of an operation grows with its size: each size beside a tenth of it."""

from __future__ import annotations

import ctypes
import gc
from collections.abc import Iterator
from itertools import pairwise
from typing import Any

from harness import Repetitions, Row, interleaved_medians, round_trip, sampler
from peers import CODECS, OURS
from workloads import MILLION, WORKLOADS

STEP = 10
STEP_LIMIT = 11.0
LARGEST = {
    "floats": 10 * MILLION,
    "ints": 10 * MILLION,
    "texts-ascii": MILLION,
    "texts-other": MILLION,
    "dicts": MILLION,
    "nested-lists": MILLION,
}


def keep_freed_memory() -> None:
    """From now on malloc keeps what is freed, where the C library has this: or else sizes would
    differ in how often they ask the kernel for pages, which costs more than filling them."""
    set_option = getattr(ctypes.CDLL(None), "mallopt", None)
    if set_option:
        trim_threshold, most_mapped = -1, -4
        set_option(trim_threshold, 2**31 - 1)
        set_option(most_mapped, 0)


def measure(name: str, quick: bool, repetitions: Repetitions) -> Iterator[Row]:
    """Each sample takes the same elements, in one list or cut into many, and keeps all that it
    makes. So every size reads the same memory, in the same order, and fills as much; and freeing is
    outside the time. The collector leaves the inputs alone, those of the other sizes above all."""
    keep_freed_memory()
    workload = next(each for each in WORKLOADS if each.name == name)
    smallest, largest = (10, 1000) if quick else (1000, LARGEST[name])
    sizes = [smallest * STEP**i for i in range(len(str(largest // smallest)))]
    (values,) = workload.arguments(largest)
    inputs = {size: [(part,) for part in cut(values, largest // size)] for size in sizes}
    encoded = {size: [round_trip(OURS, args) for args in inputs[size]] for size in sizes}
    gc.freeze()
    for direction in workload.directions:
        operation = getattr(CODECS[OURS], direction)
        samplers = {
            size: sampler(
                f"kept = [{operation} for args, data in pairs]",
                pairs=list(zip(inputs[size], encoded[size], strict=True)),
            )
            for size in sizes
        }
        samples = interleaved_medians(samplers, repetitions)
        times = {size: samples[size] / len(inputs[size]) for size in sizes}
        for little, large in pairwise(sizes):
            step = f"{power(little)} to {power(large)}"
            yield Row(f"growth-{name}", direction, step, times[large], times[little], STEP_LIMIT)
    gc.unfreeze()


def cut(values: list[Any], parts: int) -> list[list[Any]]:
    """Lists of one length, in order."""
    length = len(values) // parts
    return [values[i : i + length] for i in range(0, len(values), length)]


def power(size: int) -> str:
    return f"10^{len(str(size)) - 1}"
