"""How the time of an operation grows with its size: each size beside a tenth of it."""

from __future__ import annotations

from collections.abc import Iterator
from itertools import pairwise

from harness import Row, interleaved_medians, round_trip, sampler
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


def measure(name: str, quick: bool, repetitions: int) -> Iterator[Row]:
    """Each sample makes as many elements, in one result or in many, and keeps them all. So small
    sizes have to ask for fresh memory too, and freeing is outside the time of every size."""
    workload = next(each for each in WORKLOADS if each.name == name)
    smallest, largest = (10, 1000) if quick else (1000, LARGEST[name])
    sizes = [smallest * STEP**i for i in range(len(str(largest // smallest)))]
    calls = {size: largest // size for size in sizes}
    inputs = {size: workload.arguments(size) for size in sizes}
    encoded = {size: round_trip(OURS, args) for size, args in inputs.items()}
    for direction in workload.directions:
        operation = getattr(CODECS[OURS], direction)
        samplers = {
            size: sampler(
                f"kept = [{operation} for _ in range({calls[size]})]",
                args=inputs[size],
                data=encoded[size],
            )
            for size in sizes
        }
        samples = interleaved_medians(samplers, repetitions)
        times = {size: samples[size] / calls[size] for size in sizes}
        for little, large in pairwise(sizes):
            step = f"{power(little)} to {power(large)}"
            yield Row(f"growth-{name}", direction, step, times[large], times[little], STEP_LIMIT)


def power(size: int) -> str:
    return f"10^{len(str(size)) - 1}"
