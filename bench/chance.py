"""The randomness of the values: the same in every run and every process."""

from __future__ import annotations

from random import Random

import numpy


def numbers() -> numpy.random.Generator:
    return numpy.random.default_rng(20)


def choices() -> Random:
    return Random(20)


WORDS = (
    *("alpha", "bravo", "charlie", "delta", "echo", "foxtrot", "golf", "hotel", "india"),
    *("juliet", "kilo", "lima", "mike", "november", "oscar", "papa", "quebec", "romeo"),
    *("sierra", "tango"),
)


def words(chance: Random, count: int) -> str:
    return " ".join(chance.choices(WORDS, k=count))


def digits(chance: Random, count: int) -> str:
    """Of a hexadecimal number."""
    return f"{chance.getrandbits(4 * count):0{count}x}"
