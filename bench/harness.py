"""Times a workload beside its peers: checked first, then all in turn, medians compared."""

from __future__ import annotations

import gc
import statistics
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from functools import partial
from timeit import Timer
from typing import Any

import memory
import msgpack
import msgspec
import numpy
import orjson
import pandas
import pyarrow
from comparison import same
from peers import CODECS, MODULES, OURS, decode, encode
from workloads import IMPORT_LIMIT, Budget, Workload, huge_pages

NOISE = 1_000_000  # bytes: peaks below it say nothing
PATIENCE = 1.0  # seconds after which the fewest samples are enough
LIGHT_IMPORT = """
import sys, py_pb
loaded = {"numpy", "pandas"} & sys.modules.keys()
if loaded: sys.exit(f"importing py_pb loads {sorted(loaded)}")
"""
Sampler = Callable[[], float]  # gives the seconds of one call


@dataclass(frozen=True)
class Repetitions:
    """How many samples of each to take: as many as patience lasts for, but no fewer than told."""

    fewest: int
    most: int


class WrongRoundTrip(Exception):
    """What came back is not what was sent."""


@dataclass(frozen=True)
class Space:
    """The bytes that py_pb takes, and how many it may; None: not known, or not judged."""

    encoded: int | None = None
    encoded_limit: float | None = None
    of_msgpack: float | None = None  # the message, over that of msgpack
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


def interleaved_medians(samplers: dict[Any, Sampler], repetitions: Repetitions) -> dict[Any, float]:
    """One sample of each in turn, again and again, after a warm-up."""
    for sample in samplers.values():
        sample()
    samples: dict[Any, list[float]] = {name: [] for name in samplers}
    start = time.perf_counter()
    for taken in range(repetitions.most):
        if taken >= repetitions.fewest and time.perf_counter() - start > PATIENCE:
            break
        for name, sample in samplers.items():
            gc.collect()
            samples[name].append(sample())
    return {name: statistics.median(times) for name, times in samples.items()}


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


def size_of(what: str, args: tuple[Any, ...], encoded: dict[str, Any]) -> int:
    """What a limit is a multiple of: the payload, our message, or that of a peer."""
    if what == "payload":
        return payload_of(args[0])
    return len(encoded[OURS if what == "message" else what])


def space_of(
    budget: Budget, args: tuple[Any, ...], encoded: dict[str, Any], peaks: dict[str, int | None]
) -> dict[str, Space]:
    """By direction, what a workload takes of its budget. Only the way out makes a message."""
    message = len(encoded[OURS])
    limit = peak_limit = None
    if budget.encoded is not None:
        limit = budget.encoded * size_of(budget.like, args, encoded) + budget.header
    if budget.peak is not None:
        peak_limit = budget.peak * size_of(budget.peak_like, args, encoded)
    of_msgpack = message / len(encoded["msgpack"]) if "msgpack" in encoded else None
    return {
        "out": Space(message, limit, of_msgpack, peaks.get("out"), peak_limit),
        "back": Space(peak=peaks.get("back"), peak_limit=peak_limit),
    }


def measure(workload: Workload, size: int, repetitions: Repetitions) -> Iterator[Row]:
    """The rows of one workload. Raises what its codecs raise, and WrongRoundTrip."""
    args = workload.arguments(size)
    codecs = {OURS: workload.ours} | {peer: peer for each in workload.limits for peer in each.peers}
    encoded = {name: round_trip(codec, args) for name, codec in codecs.items()}
    # A call that is short enough to be made many times has no peak to speak of.
    peaks = memory.peaks_in_child(workload.name, size) if workload.calls == 1 else {}
    spaces = space_of(workload.budget, args, encoded, peaks)
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
        space = spaces[direction]
        told: set[str] = set()
        for limit in workload.limits:
            peer = min(limit.peers, key=lambda name: times[name])
            most = limit.out if direction == "out" else limit.back
            if peer in told and most is None:
                continue
            yield Row(workload.name, direction, peer, times[OURS], times[peer], most, space)
            space = Space()  # said once
            told.add(peer)


def measure_start_up(repetitions: Repetitions) -> Iterator[Row]:
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
        f" msgspec {msgspec.__version__}, orjson {orjson.__version__},"
        f" garbage collector {collector}, huge pages {huge_pages()}"
    )
