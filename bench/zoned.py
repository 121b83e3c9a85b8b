"""An array of dates with a time zone, on its way back beside pandas. Only the engine sends one."""

from __future__ import annotations

from collections.abc import Iterator
from timeit import Timer
from zoneinfo import ZoneInfo

import numpy
import pandas
import py_pb
from harness import Row, WrongRoundTrip, interleaved_medians
from workloads import OURS, random

ZONE = "Europe/Berlin"
CHAR, COMPLEX_DOUBLE, VALUE_OBJECT = 2, 14, 27


def varint(number: int) -> bytes:
    low, rest = number & 127, number >> 7
    return bytes([low | 128]) + varint(rest) if rest else bytes([low])


def field(number: int, payload: bytes) -> bytes:
    return varint(number << 3 | 2) + varint(len(payload)) + payload


def array(type_code: int, columns: int, *fields: bytes) -> bytes:
    return b"\x08" + varint(type_code) + field(2, varint(1) + varint(columns)) + b"".join(fields)


def result(seconds: numpy.ndarray, zone: str) -> bytes:
    """The engine's message with a datetime array of UTC seconds, shown in a zone."""
    elements = (1000.0 * seconds).astype(complex).tobytes()
    data = array(COMPLEX_DOUBLE, seconds.size, field(3, elements))
    fmt = array(CHAR, 0)
    tz = array(CHAR, len(zone), field(3, zone.encode("utf-16-le")))
    names = [field(5, name) for name in (b"data", b"fmt", b"tz")]
    children = [field(4, child) for child in (data, fmt, tz)]
    dates = array(VALUE_OBJECT, 1, *names, *children, field(6, b"datetime"))
    return field(1, dates)


def with_pandas(seconds: numpy.ndarray) -> numpy.ndarray:
    utc = pandas.DatetimeIndex(seconds.view("M8[s]").astype("M8[us]")).tz_localize("UTC")
    return utc.tz_convert(ZoneInfo(ZONE)).to_pydatetime()


def measure(size: int, repetitions: int) -> Iterator[Row]:
    """Raises what the module raises, and WrongRoundTrip when pandas makes other dates of it."""
    seconds = random().integers(0, 2**31, size)
    message = result(seconds, ZONE)
    (dates,) = py_pb.serialized_str_to_py(message)
    if not numpy.array_equal(dates, [with_pandas(seconds)]):
        raise WrongRoundTrip("py_pb and pandas make different dates of the same times")
    timers = {
        OURS: Timer(lambda: py_pb.serialized_str_to_py(message)),
        "pandas": Timer(lambda: with_pandas(seconds)),
    }
    times = interleaved_medians(timers, repetitions)
    yield Row("zoned-dates", "back", "pandas", times[OURS], times["pandas"])
