"""What is measured: the workloads as one table, with their peers and what they are judged by."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from datetime import datetime
from pathlib import Path
from typing import Any
from zoneinfo import ZoneInfo

import frames
import numpy
import zoned
import zorvan
from frames import random
from peers import OURS

Array = numpy.ndarray[Any, Any]


@dataclass(frozen=True)
class Limit:
    """How much time a workload may take, over that of the fastest of `peers`; None: any."""

    peers: tuple[str, ...]
    out: float | None = None
    back: float | None = None


@dataclass(frozen=True)
class Budget:
    """How many bytes a workload may take; None: any."""

    encoded: float | None = None  # the message, over what `like` takes
    like: str = "pickle"  # or the payload, the bytes of an array's elements
    header: int = 0  # what the message may have besides
    peak: float | None = None  # memory beyond input and output, over the payload


@dataclass(frozen=True)
class Workload:
    """A call's arguments of a size that can be chosen, and what they are encoded against."""

    name: str
    make: Callable[[int], Any]  # one argument, or a tuple of several
    size: int
    quick_size: int
    limits: tuple[Limit, ...]
    budget: Budget = Budget()
    ours: str = OURS  # our codec
    directions: tuple[str, ...] = ("out", "back")
    calls: int = 1  # calls in one sample

    def arguments(self, size: int) -> tuple[Any, ...]:
        made = self.make(size)
        return made if isinstance(made, tuple) else (made,)


def huge_pages() -> str:
    """When the kernel gives huge pages: always, madvise (only on request), never, or unknown."""
    try:
        choices = Path("/sys/kernel/mm/transparent_hugepage/enabled").read_text()
    except OSError:
        return "unknown"
    return choices.partition("[")[2].partition("]")[0]


HUGE_PAGES_ON_REQUEST = huge_pages() == "madvise"


def square(edge: int) -> Array:
    return random().random((edge, edge))


def fortran(edge: int) -> Array:
    return numpy.asfortranarray(square(edge))


def view(edge: int) -> Array:
    return random().random((2 * edge, 2 * edge), dtype="float32")[::2, ::2]


def floats(count: int) -> list[float]:
    return list(random().random(count).tolist())


def bools(count: int) -> list[bool]:
    return list((random().random(count) < 0.5).tolist())


def integers(count: int) -> list[int]:
    return list(map(int, random().integers(-(2**31), 2**31, count)))


def ascii_texts(count: int) -> list[str]:
    return [f"text {i}" for i in range(count)]


def non_ascii_texts(count: int) -> list[str]:
    """Texts of every width that a str can have: up to U+00FF, U+FFFF and beyond."""
    endings = ("é", "語", "\N{GRINNING FACE}")
    return [f"größe {i} {endings[i % 3]}" for i in range(count)]


def repeated_texts(count: int) -> list[str]:
    """Texts that are the same few objects again and again."""
    few = [f"category {i}" for i in range(100)]
    return [few[i] for i in random().integers(0, 100, count)]


def records(count: int) -> list[dict[str, Any]]:
    return [{"id": i, "value": i * 0.5, "name": f"record {i}"} for i in range(count)]


def dictionary(count: int) -> zorvan.dictionary[str, float]:
    return zorvan.dictionary({f"key {i}": i * 0.5 for i in range(count)})


def mixed_lists(leaves: int) -> list[list[Any]]:
    return [[i, i * 0.5, i % 3 == 0, f"leaf {i}", -i] for i in range(leaves // 5)]


def nanoseconds(count: int) -> Array:
    """Of 26 days: of lengths of time more than 50 days are not exact."""
    return random().integers(0, 2**51, (1, count))


def dates(count: int) -> Array:
    return nanoseconds(count).view("M8[ns]")


def durations(count: int) -> Array:
    return nanoseconds(count).view("m8[ns]")


def aware_dates(count: int) -> list[datetime]:
    zone = ZoneInfo("Europe/Berlin")
    return [datetime.fromtimestamp(s, zone) for s in random().integers(0, 2**31, count).tolist()]


def small_call(_: int) -> tuple[Any, ...]:
    return 1.0, 2, "abc"


def limit(out: float | None, back: float | None, *peers: str) -> tuple[Limit, ...]:
    """Over the fastest of these peers."""
    return (Limit(peers, out, back),)


def shown(*peers: str) -> tuple[Limit, ...]:
    """Peers that nothing is judged by."""
    return tuple(Limit((peer,)) for peer in peers)


def pickled(out: float, back: float, *others: str) -> tuple[Limit, ...]:
    return limit(out, back, "pickle") + shown(*others)


def large(out: float, back: float | None, *peers: str) -> tuple[Limit, ...]:
    """For arrays whose time is mostly that of page faults, over the first of the peers. There is
    something to win over a copy where huge pages can be asked for, as a plain copy does not."""
    if HUGE_PAGES_ON_REQUEST:
        return limit(out, back, peers[0]) + shown(*peers[1:])
    return limit(1.15, back and 1.15, "copy") + shown(*(peer for peer in peers if peer != "copy"))


ARRAY = Budget(1.0, like="payload", header=1024, peak=0.1)
NUMBERS = Budget(peak=0.1)  # whose message has other bytes: an engine's time is two doubles
LIST = Budget(encoded=1.6)
ANY = Budget()
MILLION, TENTH = 1_000_000, 100_000
IMPORT_LIMIT = 0.015  # seconds beyond a bare interpreter

WORKLOADS = (
    Workload("array-fortran", fortran, 5000, 60, large(0.4, 0.5, "copy", "pickle"), ARRAY),
    Workload("array-c", square, 5000, 60, large(0.4, None, "F bytes", "F copy", "pickle"), ARRAY),
    Workload("array-slice", view, 5000, 60, large(0.8, None, "F bytes", "F copy", "pickle"), ARRAY),
    Workload("floats", floats, MILLION, 1000, pickled(0.6, 0.75, "msgpack"), LIST),
    Workload("ints", integers, MILLION, 1000, pickled(0.9, 1.0, "msgpack"), LIST),
    Workload("bools", bools, MILLION, 1000, pickled(0.4, 0.9, "msgpack"), LIST),
    Workload("texts-ascii", ascii_texts, MILLION, 1000, pickled(0.2, 1.0, "msgpack"), LIST),
    Workload("texts-other", non_ascii_texts, MILLION, 1000, pickled(0.2, 1.0, "msgpack"), LIST),
    Workload("texts-repeated", repeated_texts, MILLION, 1000, pickled(1.5, 1.5, "msgpack"), LIST),
    Workload("dicts", records, TENTH, 100, limit(0.4, 0.8, "pickle", "msgpack"), LIST),
    Workload("dictionary", dictionary, TENTH, 100, pickled(2.0, 2.0), ANY),
    Workload("nested-lists", mixed_lists, MILLION, 1000, pickled(0.6, 0.6, "msgpack"), LIST),
    Workload("dates", dates, MILLION, 1000, pickled(1.2, 1.2) + limit(3.0, 3.0, "copy"), NUMBERS),
    Workload("durations", durations, MILLION, 1000, shown("pickle", "copy"), NUMBERS),
    Workload("zoned-dates", zoned.dates, MILLION, 1000, pickled(1.2, 1.2, "pandas"), NUMBERS,
             ours="engine", directions=("back",)),
    Workload("aware-dates", aware_dates, TENTH, 100, pickled(3.0, 3.0), LIST),
    Workload("frame-floats", frames.floats, MILLION, 1000, limit(1, 1, "pickle", "arrow"), NUMBERS),
    Workload("frame-texts", frames.texts, MILLION, 1000, pickled(0.5, 0.5, "arrow"), ANY),
    Workload("frame-objects", frames.text_objects, MILLION, 1000, pickled(0.5, 0.5, "arrow"), ANY),
    Workload("frame-mixed", frames.mixed, TENTH, 1000, limit(1, 1, "pickle", "arrow"), ANY),
    Workload("small-call", small_call, 3, 3, pickled(1.0, 1.5, "msgpack"), ANY, calls=20_000),
)
