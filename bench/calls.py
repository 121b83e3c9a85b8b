"""Arguments of small calls, of which a program makes many."""

from __future__ import annotations

from datetime import datetime
from typing import Any

import numpy
import zorvan

Arguments = tuple[Any, ...]


def one_float(_: int) -> Arguments:
    return (1.0,)


def three_scalars(_: int) -> Arguments:
    return 1.0, 2, "abc"


def dict_of_five(_: int) -> Arguments:
    return ({"a": 1, "b": 2.0, "c": "x", "d": True, "e": "hello"},)


def nested_struct(_: int) -> Arguments:
    return ({"id": 7, "pos": [1.0, 2.0, 3.0], "meta": {"k": "v", "n": 3}},)


def ten_floats(_: int) -> Arguments:
    return ([i * 0.5 for i in range(10)],)


def three_by_three() -> numpy.ndarray[Any, Any]:
    return numpy.arange(9.0).reshape(3, 3)


def small_array(_: int) -> Arguments:
    return (three_by_three(),)


def small_double(_: int) -> Arguments:
    return (zorvan.double(three_by_three()),)


def numpy_scalar(_: int) -> Arguments:
    return (numpy.float64(1.5),)


def date(_: int) -> Arguments:
    return (datetime(2020, 1, 2, 3, 4, 5),)


def arrays_and_options(_: int) -> Arguments:
    x, y, z = (numpy.arange(100.0) for _ in range(3))
    return x, y, z, {"tol": 1e-6, "iter": 100}
