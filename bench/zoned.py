"""Arrays of dates with a time zone. Only the engine sends them, so its message is built here."""

from __future__ import annotations

from typing import Any
from zoneinfo import ZoneInfo

import numpy
import pandas
from chance import numbers

ZONE = "Europe/Berlin"
CHAR, COMPLEX_DOUBLE, VALUE_OBJECT = 2, 14, 27


def dates(count: int) -> Any:
    """An array of `datetime` objects, as it comes back."""
    seconds = numbers().integers(0, 2**31, (1, count))
    return from_utc(seconds.view("M8[s]"))


def to_utc(dates: Any) -> Any:
    return pandas.DatetimeIndex(dates[0]).tz_convert("UTC").to_numpy("M8[s]")[numpy.newaxis]


def from_utc(times: Any) -> Any:
    utc = pandas.DatetimeIndex(times[0].astype("M8[us]")).tz_localize("UTC")
    return utc.tz_convert(ZoneInfo(ZONE)).to_pydatetime()[numpy.newaxis]


def to_message(dates: Any) -> bytes:
    """The engine's message with the dates: milliseconds of UTC, shown in the zone."""
    elements = (1000.0 * to_utc(dates).astype("i8")).astype(complex).tobytes()
    data = array(COMPLEX_DOUBLE, dates.size, field(3, elements))
    fmt = array(CHAR, 0)
    tz = array(CHAR, len(ZONE), field(3, ZONE.encode("utf-16-le")))
    names = [field(5, name) for name in (b"data", b"fmt", b"tz")]
    children = [field(4, child) for child in (data, fmt, tz)]
    return field(1, array(VALUE_OBJECT, 1, *names, *children, field(6, b"datetime")))


def array(type_code: int, columns: int, *fields: bytes) -> bytes:
    return b"\x08" + varint(type_code) + field(2, varint(1) + varint(columns)) + b"".join(fields)


def field(number: int, payload: bytes) -> bytes:
    return varint(number << 3 | 2) + varint(len(payload)) + payload


def varint(number: int) -> bytes:
    low, rest = number & 127, number >> 7
    return bytes([low | 128]) + varint(rest) if rest else bytes([low])
