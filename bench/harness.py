"""Times a workload beside its peers: checked first, then all in turn, medians compared."""

from __future__ import annotations

import gc
import pickle
import statistics
import subprocess
import sys
from collections.abc import Iterator
from dataclasses import dataclass
from functools import partial
from timeit import Timer
from typing import Any

import frames
import memory
import msgpack
import numpy
import pandas
import py_pb
from workloads import CODECS, OURS, Workload

MODULES = {
    "frames": frames,
    "msgpack": msgpack,
    "numpy": numpy,
    "pickle": pickle,
    "py_pb": py_pb,
}
LIGHT_IMPORT = """
import sys, py_pb
loaded = {"numpy", "pandas"} & sys.modules.keys()
if loaded: sys.exit(f"importing py_pb loads {sorted(loaded)}")
"""


class WrongRoundTrip(Exception):
    """What came back is not what was sent."""


@dataclass(frozen=True)
class Row:
    """A workload in one direction beside one peer; times are medians in seconds."""

    workload: str
    direction: str
    peer: str
    our_time: float
    peer_time: float
    peak_bytes: int | None = None  # beyond input and output; None where it is not known
    copies: float | None = None  # peak_bytes over the payload, for arrays

    @property
    def ratio(self) -> float:
        return self.our_time / self.peer_time


def interleaved_medians(
    timers: dict[str, Timer], repetitions: int, calls: int = 1
) -> dict[str, float]:
    """Seconds a call: one sample of each timer in turn, `repetitions` times, after a warm-up."""
    for timer in timers.values():
        timer.timeit(calls)
    samples: dict[str, list[float]] = {name: [] for name in timers}
    for _ in range(repetitions):
        for name, timer in timers.items():
            gc.collect()
            samples[name].append(timer.timeit(calls) / calls)
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
        return len(sent) == len(received) and all(map(same, sent, received))
    if isinstance(sent, dict):
        return list(sent) == list(received) and all(map(same, sent.values(), received.values()))
    return bool(sent == received)


def round_trip(codec_name: str, args: tuple[Any, ...]) -> bytes:
    """`args` encoded, after making sure that they come back."""
    codec = CODECS[codec_name]
    data: bytes = eval(codec.out, MODULES, {"args": args})
    received = eval(codec.back, MODULES, {"args": args, "data": data})
    if not same(list(args), list(received)):
        raise WrongRoundTrip(f"{codec_name} gave back something else than was sent")
    return data


def measure_direction(
    workload: Workload,
    direction: str,
    args: tuple[Any, ...],
    encoded: dict[str, bytes],
    repetitions: int,
) -> dict[str, float]:
    # timeit stops the cyclic garbage collector; callers have it on. The result is bound, so that
    # freeing a large one is outside the time.
    timers = {
        name: Timer(
            f"result = {getattr(CODECS[name], direction)}",
            setup="gc.enable()",
            globals=MODULES | {"gc": gc, "args": args, "data": data},
        )
        for name, data in encoded.items()
    }
    return interleaved_medians(timers, repetitions, workload.calls)


def measure(workload: Workload, size: int, repetitions: int) -> Iterator[Row]:
    """The rows of one workload. Raises what its codecs raise, and WrongRoundTrip."""
    args = workload.make(size)
    payload = args[0].nbytes if isinstance(args[0], numpy.ndarray) else None
    encoded = {name: round_trip(name, args) for name in (OURS, *workload.peers)}
    for direction in workload.directions:
        times = measure_direction(workload, direction, args, encoded, repetitions)
        peak = memory.peak_in_child(workload.name, direction, size)
        copies = peak / payload if payload and peak is not None else None
        for peer in workload.peers:
            yield Row(workload.name, direction, peer, times[OURS], times[peer], peak, copies)


def measure_start_up(repetitions: int) -> Iterator[Row]:
    """The time of an interpreter that imports py_pb beside one that imports nothing.

    Raises when the import fails, or loads numpy or pandas: those wait for their first need.
    """
    subprocess.run([sys.executable, "-c", LIGHT_IMPORT], check=True, capture_output=True, text=True)
    timers = {
        name: Timer(partial(subprocess.run, [sys.executable, "-c", program], check=True))
        for name, program in ((OURS, "import py_pb"), ("interpreter", "pass"))
    }
    times = interleaved_medians(timers, repetitions)
    yield Row("start-up", "import", "interpreter", times[OURS], times["interpreter"])


def conditions() -> str:
    """What the figures depend on besides the code."""
    collector = f"on {gc.get_threshold()}" if gc.isenabled() else "off"
    return (
        f"Python {sys.version.split()[0]}, numpy {numpy.__version__},"
        f" pandas {pandas.__version__},"
        f" msgpack {'.'.join(map(str, msgpack.version))}, garbage collector {collector},"
        f" huge pages {memory.huge_pages()}"
    )
