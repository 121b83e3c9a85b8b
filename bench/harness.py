"""Times a workload beside its peers: checked first, then all in turn, medians compared."""

from __future__ import annotations

import gc
import statistics
import subprocess
import sys
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from functools import partial
from timeit import Timer
from typing import Any

import frames
import memory
import msgpack
import numpy
import pandas
import pyarrow
from peers import CODECS, MODULES, OURS, decode, encode
from workloads import IMPORT_LIMIT, Workload, huge_pages

NOISE = 1_000_000  # bytes: peaks below it say nothing
SCALARS = {bool, int, float, str}
LIGHT_IMPORT = """
import sys, py_pb
loaded = {"numpy", "pandas"} & sys.modules.keys()
if loaded: sys.exit(f"importing py_pb loads {sorted(loaded)}")
"""
Sampler = Callable[[], float]  # gives the seconds of one call


class WrongRoundTrip(Exception):
    """What came back is not what was sent."""


@dataclass(frozen=True)
class Space:
    """The bytes that py_pb takes, and how many it may; None: not known, or not judged."""

    encoded: int | None = None
    encoded_limit: float | None = None
    peak: int | None = None  # beyond input and output
    peak_limit: float | None = None


@dataclass(frozen=True)
class Row:
    """A workload in one direction beside one peer; times are medians in seconds."""

    workload: str
    direction: str
    peer: str
    our_time: float
    peer_time: float
    limit: float | None  # of the ratio
    space: Space = Space()

    @property
    def ratio(self) -> float:
        return self.our_time / self.peer_time

    @property
    def judged(self) -> bool:
        return (self.limit, self.space.encoded_limit, self.space.peak_limit) != (None, None, None)

    @property
    def short_of(self) -> list[str]:
        """What the row falls short of."""
        space = self.space
        peak = space.peak if (space.peak or 0) >= NOISE else None
        figures = {
            "time": (self.ratio, self.limit),
            "bytes": (space.encoded, space.encoded_limit),
            "peak": (peak, space.peak_limit),
        }
        return [
            name
            for name, (value, limit) in figures.items()
            if value is not None and limit is not None and value > limit
        ]


def sampler(statement: str, calls: int = 1, **names: Any) -> Sampler:
    """Times a statement as py_pb's callers have it: with the cyclic garbage collector on, which
    timeit would stop."""
    timer = Timer(statement, setup="gc.enable()", globals=MODULES | {"gc": gc} | names)
    return lambda: timer.timeit(calls) / calls


def interleaved_medians(samplers: dict[Any, Sampler], repetitions: int) -> dict[Any, float]:
    """One sample of each in turn, `repetitions` times, after a warm-up."""
    for sample in samplers.values():
        sample()
    samples: dict[Any, list[float]] = {name: [] for name in samplers}
    for _ in range(repetitions):
        for name, sample in samplers.items():
            gc.collect()
            samples[name].append(sample())
    return {name: statistics.median(times) for name, times in samples.items()}


def same(sent: Any, received: Any) -> bool:
    """Equal in value and type all the way down; an array may come back as any array type."""
    if isinstance(sent, numpy.ndarray):
        array = numpy.asarray(received)
        return array.dtype == sent.dtype and numpy.array_equal(array, sent)
    if isinstance(sent, pandas.DataFrame):
        return frames.same(sent, received)
    if type(sent) is not type(received):
        return False
    if isinstance(sent, list):
        types = list(map(type, sent))
        if SCALARS.issuperset(types):
            return types == list(map(type, received)) and bool(sent == received)
        return len(sent) == len(received) and all(map(same, sent, received))
    if isinstance(sent, dict):
        return list(sent) == list(received) and all(map(same, sent.values(), received.values()))
    return bool(sent == received)


def round_trip(codec: str, args: tuple[Any, ...]) -> Any:
    """`args` encoded, after making sure that they come back."""
    data = encode(codec, args)
    if not same(list(args), list(decode(codec, args, data))):
        raise WrongRoundTrip(f"{codec} gave back something else than was sent")
    return data


def payload_of(value: Any) -> int:
    """The bytes of the elements of an array or a frame."""
    if isinstance(value, pandas.DataFrame):
        return int(value.memory_usage(index=False).sum())
    return int(value.nbytes)


def space_of(
    workload: Workload, direction: str, size: int, args: tuple[Any, ...], encoded: dict[str, Any]
) -> Space:
    """What a workload takes of its budget. The message counts where it comes to be."""
    budget = workload.budget
    peak = memory.peak_in_child(workload.name, direction, size)
    peak_limit = budget.peak and budget.peak * payload_of(args[0])
    if direction == "back":
        return Space(peak=peak, peak_limit=peak_limit)
    encoded_limit = None
    if budget.encoded is not None:
        like = payload_of(args[0]) if budget.like == "payload" else len(encoded[budget.like])
        encoded_limit = budget.encoded * like + budget.header
    return Space(len(encoded[OURS]), encoded_limit, peak, peak_limit)


def measure(workload: Workload, size: int, repetitions: int) -> Iterator[Row]:
    """The rows of one workload. Raises what its codecs raise, and WrongRoundTrip."""
    args = workload.arguments(size)
    codecs = {OURS: workload.ours} | {peer: peer for each in workload.limits for peer in each.peers}
    encoded = {name: round_trip(codec, args) for name, codec in codecs.items()}
    for direction in workload.directions:
        # The result is bound, so that freeing a large one is outside the time of a single call.
        samplers = {
            name: sampler(
                f"result = {getattr(CODECS[codec], direction)}",
                workload.calls,
                args=args,
                data=encoded[name],
            )
            for name, codec in codecs.items()
        }
        times = interleaved_medians(samplers, repetitions)
        space = space_of(workload, direction, size, args, encoded)
        for limit in workload.limits:
            peer = min(limit.peers, key=lambda name: times[name])
            most = limit.out if direction == "out" else limit.back
            yield Row(workload.name, direction, peer, times[OURS], times[peer], most, space)
            space = Space()  # told once


def measure_start_up(repetitions: int) -> Iterator[Row]:
    """What an interpreter takes longer when it imports py_pb, beside what it may.

    Raises when the import fails, or loads numpy or pandas: those wait for their first need.
    """
    subprocess.run([sys.executable, "-c", LIGHT_IMPORT], check=True, capture_output=True, text=True)
    samplers: dict[Any, Sampler] = {
        program: partial(Timer(partial(subprocess.run, [sys.executable, "-c", program])).timeit, 1)
        for program in ("import py_pb", "pass")
    }
    times = interleaved_medians(samplers, repetitions)
    beyond = max(0.0, times["import py_pb"] - times["pass"])
    yield Row("start-up", "import", "allowance", beyond, IMPORT_LIMIT, 1.0)


def conditions() -> str:
    """What the figures depend on besides the code."""
    collector = f"on {gc.get_threshold()}" if gc.isenabled() else "off"
    return (
        f"Python {sys.version.split()[0]}, numpy {numpy.__version__}, pandas {pandas.__version__},"
        f" pyarrow {pyarrow.__version__}, msgpack {'.'.join(map(str, msgpack.version))},"
        f" garbage collector {collector}, huge pages {huge_pages()}"
    )
