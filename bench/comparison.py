"""Whether a value came back: as itself, or as what README.md says that stands for it."""

from __future__ import annotations

from array import array
from collections import OrderedDict
from collections.abc import Iterable
from datetime import datetime, timedelta
from itertools import chain, compress
from typing import Any

import frames
import numpy
import pandas
import zorvan

SCALARS = {bool, int, float, complex, str, timedelta}  # compared by ==
AT_ONCE = SCALARS | {list, tuple, dict}
BYTES = (bytes, bytearray)
BUFFERS = (*BYTES, memoryview, array, numpy.ndarray, zorvan.double)
COUNTERPARTS: dict[type, tuple[type, ...]] = {
    tuple: (list,),
    set: (list,),
    OrderedDict: (zorvan.dictionary, dict),  # the latter from peers
}


def same(sent: Any, received: Any) -> bool:
    """Equal in value and type all the way down."""
    return same_items([sent], [received])


def same_items(sent: list[Any], received: list[Any]) -> bool:
    """Items of one type are compared together, and so are theirs: deep values have many lists, but
    few levels."""
    if len(sent) != len(received):
        return False
    kinds = list(map(type, sent))
    for kind in set(kinds):
        chosen = [each is kind for each in kinds]
        if not same_kind(kind, list(compress(sent, chosen)), list(compress(received, chosen))):
            return False
    return True


def same_kind(kind: type, sent: list[Any], received: list[Any]) -> bool:
    """Of at least one item, all of one type."""
    if kind not in AT_ONCE:
        return all(map(same_alone, sent, received))
    if not {kind, *COUNTERPARTS.get(kind, ())}.issuperset(map(type, received)):
        return False
    if kind in SCALARS:
        return sent == received
    if list(map(len, sent)) != list(map(len, received)):
        return False
    if kind is dict:
        values, received_values = (flat(map(dict.values, each)) for each in (sent, received))
        if not same_items(values, received_values):
            return False
    return same_items(flat(sent), flat(received))  # of dicts the keys


def flat(values: Iterable[Iterable[Any]]) -> list[Any]:
    return list(chain.from_iterable(values))


def same_alone(sent: Any, received: Any) -> bool:
    if isinstance(sent, pandas.DataFrame):
        return frames.same(sent, received)
    if isinstance(sent, BUFFERS):
        return same_elements(sent, received)
    if isinstance(sent, numpy.generic):
        return same(sent.item(), getattr(received, "item", lambda: received)())
    if type(received) not in (type(sent), *COUNTERPARTS.get(type(sent), ())):
        return False
    if isinstance(sent, set):
        return same(sorted(sent), sorted(received))
    if isinstance(sent, OrderedDict | zorvan.dictionary):
        return same(list(sent.items()), list(received.items()))
    if isinstance(sent, datetime):
        return sent == received and shown_by_zone(sent) == shown_by_zone(received)
    return bool(sent == received)


def same_elements(sent: Any, received: Any) -> bool:
    """Any type of array will do for another, if its elements are of the same type."""
    if isinstance(received, list):
        return False
    before, after = as_array(sent), as_array(received)
    return before.dtype == after.dtype and numpy.array_equal(before, after)


def as_array(value: Any) -> numpy.ndarray[Any, Any]:
    """Vectors as one row, which they come back as."""
    if isinstance(value, BYTES):
        value = memoryview(value)
    elements = numpy.asarray(value)
    return elements[numpy.newaxis] if elements.ndim == 1 else elements


def shown_by_zone(date: datetime) -> tuple[Any, ...]:
    """What == of two dates leaves out: those in one zone may differ in `fold`, others in zone."""
    return date.utcoffset(), date.tzname(), date.replace(tzinfo=None)
