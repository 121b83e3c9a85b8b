"""What is measured: the workloads as one table, with their peers and what they are judged by."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import arrays
import calls
import dates
import documents
import frames
import lists
import zoned
from peers import ARRAYS, BINARY, DATES, FRAMES, MAPPINGS, OURS, PLAIN, TURNED


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
    like: str = "pickle"  # or another peer, or the payload, the bytes of an array's elements
    header: int = 0  # what the message may have besides
    peak: float | None = None  # memory beyond input and output, over what `peak_like` takes
    peak_like: str = "payload"  # or the message


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


def fastest(
    peers: tuple[str, ...], out: float | None = None, back: float | None = None
) -> tuple[Limit, ...]:
    return (Limit(peers, out, back),)


def shown(*peers: str) -> tuple[Limit, ...]:
    """Peers that nothing is judged by."""
    return tuple(Limit((peer,)) for peer in peers)


def pickled(out: float, back: float) -> tuple[Limit, ...]:
    return fastest(("pickle",), out, back)


def large(out: float, back: float | None, *peers: str) -> tuple[Limit, ...]:
    """For arrays whose time is mostly that of page faults, over the first of the peers. There is
    something to win over a copy where huge pages can be asked for, as a plain copy does not."""
    if HUGE_PAGES_ON_REQUEST:
        return fastest(peers[:1], out, back) + shown(*peers[1:])
    others = (peer for peer in peers if peer != "copy")
    return fastest(("copy",), 1.15, back and 1.15) + shown(*others)


def called(
    name: str, make: Callable[[int], Any], limits: tuple[Limit, ...], calls: int = 20_000
) -> Workload:
    """A small call: so short that a sample is many of it."""
    return Workload(f"call-{name}", make, 1, 1, limits, calls=calls)


ARRAY = Budget(1.0, like="payload", header=1024, peak=0.1)
NUMBERS = Budget(peak=0.1)  # whose message has other bytes: an engine's time is two doubles
LIST = Budget(encoded=1.6)
NESTED = Budget(1.1, like="msgpack", peak=3.0, peak_like="message")
MILLION, TENTH = 1_000_000, 100_000
IMPORT_LIMIT = 0.015  # seconds beyond a bare interpreter
LISTS_OF_LISTS = fastest(PLAIN, 1.3, 0.25)  # every list is an object to make, for peers too

NESTED_VALUES = (
    Workload("documents-posts", documents.posts, 2000, 20, fastest(PLAIN, 1.2, 0.8), NESTED),
    Workload("documents-events", documents.events, 5000, 50, fastest(PLAIN, 1.2, 0.8), NESTED),
    Workload("documents-logs", documents.logs, 30_000, 100, fastest(PLAIN, 1.2, 0.8), NESTED),
    Workload("documents-polygons", documents.polygons, 10_000, 50, LISTS_OF_LISTS, NESTED),
    Workload("documents-settings", documents.settings, 6, 3, fastest(PLAIN, 1.5, 1.2), NESTED),
    Workload("dicts", documents.records, TENTH, 100,
             fastest(("pickle", "msgpack"), 0.4, 0.8) + fastest(PLAIN, 0.95, 0.87), NESTED),
    Workload("dicts-optional", documents.optional_fields, TENTH, 100,
             fastest(PLAIN, 1.2, 0.8), NESTED),
    Workload("dicts-optional-mixed", documents.optional_mixed_fields, TENTH, 100,
             fastest(PLAIN, 1.2, 0.8), NESTED),
    Workload("dicts-with-list", documents.records_with_list, TENTH, 100, LISTS_OF_LISTS, NESTED),
    Workload("dicts-in-dict", documents.dict_of_dicts, 10_000, 100,
             fastest(PLAIN, 1.2, 0.7), NESTED),
    Workload("nested-lists", lists.mixed_lists, MILLION, 1000,
             pickled(0.6, 0.6) + fastest(PLAIN), NESTED),
    Workload("nested-tuples", lists.mixed_tuples, TENTH, 100, fastest(PLAIN, 1.63, 0.58), NESTED),
    Workload("nested-irregular", lists.irregular_lists, MILLION, 1000, LISTS_OF_LISTS, NESTED),
    Workload("nested-expressions", lists.expressions, 2000, 20, fastest(PLAIN, 1.3, 0.6), NESTED),
    Workload("ragged-ints", lists.ragged_integers, TENTH, 100, LISTS_OF_LISTS, NESTED),
    Workload("ragged-texts", lists.ragged_texts, TENTH, 100, LISTS_OF_LISTS, NESTED),
    Workload("floats-in-lists", lists.matrix, 1000, 20, fastest(PLAIN, 1.25, 0.64), NESTED),
    Workload("floats-in-dict", lists.dict_of_floats, 100, 5, fastest(PLAIN, 1.12, 0.84), NESTED),
)

LISTS = (
    Workload("floats", lists.floats, MILLION, 1000,
             pickled(0.6, 0.75) + fastest(PLAIN, 1.02, 0.68), LIST),
    Workload("ints", lists.integers, MILLION, 1000,
             pickled(0.9, 1.0) + fastest(PLAIN), LIST),
    Workload("ints-one-digit", lists.one_digit_integers, MILLION, 1000, fastest(PLAIN, 1.30, 0.96)),
    Workload("ints-small", lists.small_integers, MILLION, 1000, fastest(PLAIN, 2.36, 1.26)),
    Workload("bools", lists.bools, MILLION, 1000,
             pickled(0.4, 0.9) + fastest(PLAIN, 0.63, 0.63), LIST),
    Workload("texts-ascii", lists.ascii_texts, MILLION, 1000,
             pickled(0.2, 1.0) + fastest(PLAIN, 1.67, 1.07), LIST),
    Workload("texts-other", lists.non_ascii_texts, MILLION, 1000,
             pickled(0.2, 1.0) + fastest(PLAIN), LIST),
    Workload("texts-two-bytes", lists.two_byte_texts, MILLION, 1000, fastest(PLAIN, 2.63, 1.20)),
    Workload("texts-short", lists.short_texts, MILLION, 1000, fastest(PLAIN, 2.65, 1.11)),
    Workload("texts-repeated", lists.repeated_texts, MILLION, 1000,
             pickled(1.5, 1.5) + fastest(PLAIN), LIST),
    Workload("mixed-scalars", lists.mixed_scalars, MILLION, 1000, fastest(PLAIN, 1.3, 1.2)),
    Workload("long-text-ascii", lists.long_ascii_text, MILLION, 100, fastest(PLAIN, 1.2, 1.3)),
    Workload("long-text-other", lists.long_other_text, MILLION, 100, fastest(PLAIN, 2.5, 0.5)),
    Workload("dict-of-ints", lists.dict_of_integers, TENTH, 100, fastest(PLAIN, 1.5, 1.2)),
    Workload("ordered-dict", lists.ordered_dict, TENTH, 100,
             pickled(0.5, 0.7) + fastest(MAPPINGS)),
    Workload("dictionary", lists.dictionary, TENTH, 100, pickled(0.5, 0.7)),
    Workload("set-of-ints", lists.integer_set, TENTH, 100, shown("pickle")),
    Workload("set-of-texts", lists.text_set, TENTH, 100, shown("pickle")),
    Workload("bytes", bytes, 10 * MILLION, 1000, fastest(BINARY)),
    Workload("bytes-in-list", lists.bytes_list, TENTH, 100, fastest(BINARY)),
    Workload("complex-numbers", lists.complex_numbers, TENTH, 100, pickled(0.05, 0.25)),
    Workload("numpy-scalars", lists.numpy_scalars, TENTH, 100, pickled(0.44, 0.06)),
)

DATES_AND_DURATIONS = (
    Workload("dates-naive", dates.naive, TENTH, 100, pickled(0.2, 0.5) + fastest(DATES)),
    Workload("dates-utc", dates.utc, TENTH, 100, pickled(0.2, 0.5) + fastest(DATES)),
    Workload("dates-zoned", dates.zoned, TENTH, 100, pickled(0.5, 0.7)),
    Workload("dates-zoned-any-year", dates.zoned_of_any_year, TENTH, 100, pickled(0.5, 0.7), LIST),
    Workload("durations", dates.durations, TENTH, 100, pickled(0.2, 0.5)),
    Workload("array-dates", dates.date_array, MILLION, 1000,
             pickled(1.2, 1.2) + fastest(("copy",), 3.0, 3.0), NUMBERS),
    Workload("array-durations", dates.duration_array, MILLION, 1000,
             shown("pickle", "copy"), NUMBERS),
    Workload("array-dates-zoned", zoned.dates, MILLION, 1000,
             pickled(1.2, 1.2) + shown("pandas"), NUMBERS, ours="engine", directions=("back",)),
)

ARRAYS_OF_NUMBERS = (
    Workload("array-fortran", arrays.fortran, 5000, 60, large(0.4, 0.5, "copy", "pickle"), ARRAY),
    Workload("array-c", arrays.square, 5000, 60,
             large(0.4, None, "F bytes", "F copy", "pickle"), ARRAY),
    Workload("array-slice", arrays.view, 5000, 60,
             large(0.8, None, "F bytes", "F copy", "pickle"), ARRAY),
    Workload("array-slice-small", arrays.tall_view, 2500, 50, fastest(TURNED)),
    Workload("array-vector", arrays.vector, MILLION, 1000, fastest(ARRAYS)),
    Workload("array-vector-small", arrays.vector, 10_000, 100, fastest(ARRAYS), calls=200),
    Workload("array-turned", arrays.turned, 300, 30, fastest(TURNED)),
    Workload("array-image", arrays.image, 1080, 36, fastest(TURNED)),
    Workload("array-complex", arrays.complex_vector, MILLION, 1000, fastest(ARRAYS)),
    Workload("array-bools", arrays.fortran_bools, 5000, 60, fastest(ARRAYS)),
    Workload("array-zorvan", arrays.ours, 1000, 30, shown("pickle")),
    Workload("array-module", arrays.array_of_module, MILLION, 1000, shown("bytes")),
    Workload("memoryview", arrays.memory, 50 * MILLION, 1000, shown("bytes")),
    Workload("arrays-in-list", lists.small_arrays, 10_000, 100, pickled(0.53, 0.22)),
    Workload("arrays-in-dict", lists.dict_of_arrays, 100, 5, shown("pickle")),
)

DATA_FRAMES = (
    Workload("frame-floats", frames.floats, MILLION, 1000, fastest(FRAMES, 1.0, 1.0), NUMBERS),
    Workload("frame-wide-floats", frames.wide_floats, 1000, 20, fastest(FRAMES)),
    Workload("frame-wide-mixed", frames.wide_mixed, 1000, 20, fastest(FRAMES)),
    Workload("frame-texts", frames.texts, MILLION, 1000, pickled(0.5, 0.5) + shown("arrow")),
    Workload("frame-objects", frames.text_objects, MILLION, 1000,
             pickled(0.5, 0.5) + shown("arrow")),
    Workload("frame-texts-repeated", frames.repeated_texts, MILLION, 1000, fastest(FRAMES)),
    Workload("frame-categories", frames.categories, MILLION, 1000, fastest(FRAMES)),
    Workload("frame-nullable", frames.nullable, MILLION, 1000, fastest(FRAMES)),
    Workload("frame-zoned-times", frames.zoned_times, MILLION, 1000, fastest(FRAMES)),
    Workload("frame-timetable", frames.timetable, MILLION, 1000, fastest(FRAMES)),
    Workload("frame-multi-index", frames.multi_index, TENTH, 1000, fastest(FRAMES)),
    Workload("frame-text-index", frames.text_index, TENTH, 1000, fastest(FRAMES)),
    Workload("frame-mixed", frames.mixed, TENTH, 1000, fastest(FRAMES, 1.0, 1.0)),
    Workload("frame-mixed-long", frames.mixed, MILLION, 1000, fastest(FRAMES)),
    Workload("frame-mixed-small", frames.mixed, 10, 10, fastest(FRAMES), calls=20),
)

SMALL_CALLS = (
    called("float", calls.one_float, pickled(0.3, 0.5) + fastest(PLAIN)),
    called("scalars", calls.three_scalars, pickled(0.3, 0.7) + fastest(PLAIN)),
    called("dict", calls.dict_of_five, pickled(0.5, 1.0) + fastest(PLAIN)),
    called("struct", calls.nested_struct, pickled(0.7, 1.0) + fastest(PLAIN)),
    called("floats", calls.ten_floats, pickled(0.5, 0.7) + fastest(PLAIN)),
    called("array", calls.small_array, shown("pickle"), 5000),
    called("zorvan", calls.small_double, shown("pickle"), 5000),
    called("numpy-scalar", calls.numpy_scalar, shown("pickle"), 5000),
    called("date", calls.date, shown("pickle"), 5000),
    called("arrays", calls.arrays_and_options, shown("pickle"), 5000),
)

WORKLOADS = (
    *NESTED_VALUES,
    *LISTS,
    *DATES_AND_DURATIONS,
    *ARRAYS_OF_NUMBERS,
    *DATA_FRAMES,
    *SMALL_CALLS,
)
