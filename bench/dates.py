"""Dates and lengths of time, one by one in lists and as arrays."""

from __future__ import annotations

from datetime import UTC, datetime, timedelta
from typing import Any
from zoneinfo import ZoneInfo

import numpy
from chance import numbers

Array = numpy.ndarray[Any, Any]


def naive(count: int) -> list[datetime]:
    """As a log has them, about a minute apart, with microseconds."""
    start = datetime(2020, 1, 1)
    return [start + timedelta(seconds=61 * i, microseconds=i) for i in range(count)]


def utc(count: int) -> list[datetime]:
    return [date.replace(tzinfo=UTC) for date in naive(count)]


def zoned(count: int) -> list[datetime]:
    zone = ZoneInfo("Europe/Zurich")
    return [date.replace(tzinfo=zone) for date in naive(count)]


def zoned_of_any_year(count: int) -> list[datetime]:
    """From 1970 to 2038 in no order, so that the offset has to be looked up for each."""
    zone = ZoneInfo("Europe/Berlin")
    return [datetime.fromtimestamp(s, zone) for s in numbers().integers(0, 2**31, count).tolist()]


def durations(count: int) -> list[timedelta]:
    return [timedelta(seconds=i) for i in range(count)]


def nanoseconds(count: int) -> Array:
    """Of 26 days: of lengths of time more than 50 days are not exact."""
    return numbers().integers(0, 2**51, (1, count))


def date_array(count: int) -> Array:
    return nanoseconds(count).view("M8[ns]")


def duration_array(count: int) -> Array:
    return nanoseconds(count).view("m8[ns]")
