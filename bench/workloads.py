"""What is measured: the workloads as one table, and the ways a caller would encode each of them."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from datetime import datetime
from typing import Any
from zoneinfo import ZoneInfo

import frames
import numpy
import zorvan

OURS = "py_pb"


@dataclass(frozen=True)
class Codec:
    """One way to bytes and back, as statements over `args`, a tuple of values, and `data`."""

    out: str
    back: str


# The copies are the physical limit for arrays: what it takes to have the elements, column-major, in
# ordinary memory that nobody has touched yet. order="F" keeps tobytes from turning an array in
# Fortran order row-major. numpy's own copies are no such limit: their memory is of huge pages.
COPY_BACK = "[numpy.ndarray(args[0].shape, args[0].dtype, bytearray(data), order='F')]"
CODECS = {
    OURS: Codec("py_pb.py_to_serialized_str(args)", "py_pb.serialized_str_to_py(data)"),
    "pickle": Codec("pickle.dumps(args, 5)", "pickle.loads(data)"),
    "msgpack": Codec("msgpack.packb(args)", "msgpack.unpackb(data)"),
    "arrow": Codec("frames.to_arrow_stream(*args)", "[frames.from_arrow_stream(data)]"),
    "copy": Codec("args[0].tobytes(order='F')", COPY_BACK),
    "F copy": Codec("numpy.asfortranarray(args[0]).tobytes(order='F')", COPY_BACK),
}


@dataclass(frozen=True)
class Workload:
    """A call's arguments of a size that can be chosen, and whom they are encoded against."""

    name: str
    make: Callable[[int], tuple[Any, ...]]
    size: int
    quick_size: int
    peers: tuple[str, ...]
    directions: tuple[str, ...] = ("out", "back")
    calls: int = 1  # calls in one sample


def random() -> numpy.random.Generator:
    """The same values in every run and every process."""
    return numpy.random.default_rng(20)


def square(edge: int) -> numpy.ndarray:
    return random().random((edge, edge))


def strided_slice(edge: int) -> numpy.ndarray:
    return random().random((2 * edge, 2 * edge), dtype="float32")[::2, ::2]


def integers(count: int) -> list[int]:
    return list(map(int, random().integers(-(2**31), 2**31, count)))


def ascii_texts(count: int) -> list[str]:
    return [f"text {i}" for i in range(count)]


def non_ascii_texts(count: int) -> list[str]:
    """Texts of every width that a str can have: up to U+00FF, U+FFFF and beyond."""
    endings = ("é", "語", "\N{GRINNING FACE}")
    return [f"größe {i} {endings[i % 3]}" for i in range(count)]


def records(count: int) -> list[dict[str, Any]]:
    return [{"id": i, "value": i * 0.5, "name": f"record {i}"} for i in range(count)]


def dictionary(count: int) -> zorvan.dictionary:
    return zorvan.dictionary({f"key {i}": i * 0.5 for i in range(count)})


def mixed_lists(leaves: int) -> list[list[Any]]:
    return [[i, i * 0.5, i % 3 == 0, f"leaf {i}", -i] for i in range(leaves // 5)]


def nanoseconds(count: int) -> numpy.ndarray:
    """Of 26 days: of lengths of time more than 50 days are not exact."""
    return random().integers(0, 2**51, (1, count))


def aware_dates(count: int) -> list[datetime]:
    zone = ZoneInfo("Europe/Berlin")
    return [datetime.fromtimestamp(s, zone) for s in random().integers(0, 2**31, count).tolist()]


ARRAY_PEERS = ("copy", "pickle")
STRIDED_PEERS = ("F copy", "pickle")
LIST_PEERS = ("pickle", "msgpack")
FRAME_PEERS = ("pickle", "arrow")
MILLION = 1_000_000

WORKLOADS = (
    Workload("array-fortran", lambda n: (numpy.asfortranarray(square(n)),), 5000, 60, ARRAY_PEERS),
    Workload("array-c", lambda n: (square(n),), 5000, 60, STRIDED_PEERS),
    Workload("array-slice", lambda n: (strided_slice(n),), 5000, 60, STRIDED_PEERS),
    Workload("floats", lambda n: (random().random(n).tolist(),), MILLION, 1000, LIST_PEERS),
    Workload("ints", lambda n: (integers(n),), MILLION, 1000, LIST_PEERS),
    Workload("bools", lambda n: ((random().random(n) < 0.5).tolist(),), MILLION, 1000, LIST_PEERS),
    Workload("texts-ascii", lambda n: (ascii_texts(n),), MILLION, 1000, LIST_PEERS),
    Workload("texts-other", lambda n: (non_ascii_texts(n),), MILLION, 1000, LIST_PEERS),
    Workload("dicts", lambda n: (records(n),), 100_000, 100, LIST_PEERS),
    Workload("dictionary", lambda n: (dictionary(n),), 100_000, 100, ("pickle",)),
    Workload("nested-lists", lambda n: (mixed_lists(n),), MILLION, 1000, LIST_PEERS),
    Workload("dates", lambda n: (nanoseconds(n).view("M8[ns]"),), MILLION, 1000, ARRAY_PEERS),
    Workload("durations", lambda n: (nanoseconds(n).view("m8[ns]"),), MILLION, 1000, ARRAY_PEERS),
    Workload("aware-dates", lambda n: (aware_dates(n),), 100_000, 100, ("pickle",)),
    Workload("frame-floats", lambda n: (frames.floats(n),), MILLION, 1000, FRAME_PEERS),
    Workload("frame-texts", lambda n: (frames.texts(n),), MILLION, 1000, FRAME_PEERS),
    Workload("frame-objects", lambda n: (frames.text_objects(n),), MILLION, 1000, FRAME_PEERS),
    Workload("frame-mixed", lambda n: (frames.mixed(n),), 100_000, 1000, FRAME_PEERS),
    Workload("small-call", lambda _: (1.0, 2, "abc"), 3, 3, LIST_PEERS, calls=20_000),
)
