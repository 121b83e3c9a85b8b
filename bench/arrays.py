"""Arrays of numbers in every order and from every library, and other memory that holds numbers."""

from __future__ import annotations

from array import array
from typing import Any

import numpy
import zorvan
from chance import numbers

Array = numpy.ndarray[Any, Any]


def square(edge: int) -> Array:
    return numbers().random((edge, edge))


def fortran(edge: int) -> Array:
    return numpy.asfortranarray(square(edge))


def fortran_bools(edge: int) -> Array:
    return numpy.asfortranarray(square(edge) > 0.5)


def view(edge: int) -> Array:
    return numbers().random((2 * edge, 2 * edge), dtype="float32")[::2, ::2]


def tall_view(rows: int) -> Array:
    return numbers().random((2 * rows, 4 * rows // 5), dtype="float32")[::2, ::2]


def vector(count: int) -> Array:
    return numbers().random(count)


def complex_vector(count: int) -> Array:
    chance = numbers()
    return chance.random(count) + 1j * chance.random(count)


def turned(pages: int) -> Array:
    """Three dimensions, in neither C nor Fortran order."""
    return numbers().random((pages // 3, 2 * pages // 3, pages)).transpose(2, 0, 1)


def image(height: int) -> Array:
    return numbers().integers(0, 255, (height, height * 16 // 9, 3), dtype="u1")


def memory(count: int) -> memoryview:
    return memoryview(bytearray(count))


def array_of_module(count: int) -> array[float]:
    return array("d", range(count))


def ours(edge: int) -> zorvan.double:
    return zorvan.double(square(edge))
