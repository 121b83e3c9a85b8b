"""Lists and sets of plain values, of one type and of several, flat and nested; mappings; bytes."""

from __future__ import annotations

from collections import OrderedDict
from random import Random
from typing import Any

import numpy
import zorvan
from chance import WORDS, choices, numbers

Array = numpy.ndarray[Any, Any]


def floats(count: int) -> list[float]:
    return list(numbers().random(count).tolist())


def bools(count: int) -> list[bool]:
    return list((numbers().random(count) < 0.5).tolist())


def integers(count: int) -> list[int]:
    return list(numbers().integers(-(2**31), 2**31, count).tolist())


def one_digit_integers(count: int) -> list[int]:
    """Below 2**30, of which the interpreter makes one digit."""
    return list(numbers().integers(-(10**9), 10**9, count).tolist())


def small_integers(count: int) -> list[int]:
    """Of which the interpreter has one object each."""
    return list(numbers().integers(0, 100, count).tolist())


def complex_numbers(count: int) -> list[complex]:
    return list((numbers().random(count) + 1j).tolist())


def ascii_texts(count: int) -> list[str]:
    return [f"text {i}" for i in range(count)]


def non_ascii_texts(count: int) -> list[str]:
    """Texts of every width that a str can have: up to U+00FF, U+FFFF and beyond."""
    endings = ("é", "語", "\N{GRINNING FACE}")
    return [f"größe {i} {endings[i % 3]}" for i in range(count)]


def two_byte_texts(count: int) -> list[str]:
    """Texts that all take two bytes a character."""
    return [f"nämé {i} 中" for i in range(count)]


def short_texts(count: int) -> list[str]:
    """Two to four characters, the first of them not ASCII."""
    return [chr(0xE0 + i % 30) + str(i % 1000) for i in range(count)]


def repeated_texts(count: int) -> list[str]:
    """Texts that are the same few objects again and again."""
    few = [f"category {i}" for i in range(100)]
    return [few[i] for i in numbers().integers(0, 100, count)]


def long_ascii_text(parts: int) -> str:
    return "abcdefghij" * parts


def long_other_text(parts: int) -> str:
    return "abcdéfghi中" * parts


def integer_set(count: int) -> set[int]:
    return set(range(count))


def text_set(count: int) -> set[str]:
    return {f"s{i}" for i in range(count)}


def bytes_list(count: int) -> list[bytes]:
    return [b"abc%d" % i for i in range(count)]


def mixed_scalars(count: int) -> list[Any]:
    """Another type at each place."""
    return [(i, i * 0.5, f"s{i}", True)[i % 4] for i in range(count)]


def mixed_lists(leaves: int) -> list[list[Any]]:
    """Rows of one structure."""
    return [[i, i * 0.5, i % 3 == 0, f"leaf {i}", -i] for i in range(leaves // 5)]


def mixed_tuples(count: int) -> list[tuple[Any, ...]]:
    """Rows of one structure, as a database gives them."""
    return [(i, f"t{i}", i * 0.5, i % 2 == 0) for i in range(count)]


def irregular_lists(leaves: int) -> list[Any]:
    """Lists of scalars and of lists, three levels deep."""
    return [[i, [i * 0.5, f"x{i}"], [True, [i]]] for i in range(leaves // 5)]


def ragged_integers(count: int) -> list[list[int]]:
    chance = choices()
    return [[chance.randint(0, 1000) for _ in range(chance.randint(0, 10))] for _ in range(count)]


def ragged_texts(count: int) -> list[list[str]]:
    chance = choices()
    return [chance.choices(WORDS, k=chance.randint(0, 6)) for _ in range(count)]


def expressions(count: int) -> list[Any]:
    """Trees of [operator, left, right]; leaves are numbers and names."""
    chance = choices()
    return [expression(chance, 6) for _ in range(count)]


def expression(chance: Random, depth: int) -> Any:
    if depth == 0 or chance.random() < 0.2:
        return chance.choice([chance.randint(0, 99), chance.choice("xyz"), chance.random()])
    return [chance.choice("+-*/"), expression(chance, depth - 1), expression(chance, depth - 1)]


def matrix(edge: int) -> list[list[float]]:
    return list(numbers().random((edge, edge)).tolist())


def dict_of_floats(count: int) -> dict[str, list[float]]:
    """Columns of a table, a hundred times as many rows."""
    rows = numbers().random((count, 100 * count)).tolist()
    return {f"k{i}": row for i, row in enumerate(rows)}


def dict_of_integers(count: int) -> dict[str, int]:
    return {f"k{i}": i for i in range(count)}


def ordered_dict(count: int) -> OrderedDict[str, float]:
    return OrderedDict((f"k{i}", i * 0.5) for i in range(count))


def dictionary(count: int) -> zorvan.dictionary[str, float]:
    return zorvan.dictionary({f"key {i}": i * 0.5 for i in range(count)})


def numpy_scalars(count: int) -> list[Any]:
    return list(numbers().random(count))


def small_arrays(count: int) -> list[Array]:
    return list(numbers().random((count, 10)))


def dict_of_arrays(count: int) -> dict[str, Array]:
    chance = numbers()
    return {f"k{i}": chance.random(100 * count) for i in range(count)}
