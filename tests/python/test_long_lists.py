"""Lists that are long enough to go over in columns: they come back as if they had not."""

import enum
import gc
import sys

import numpy as np
import py_pb
import pytest

COLUMN_FROM = 16  # elements from which a list of one kind is a column
REPEATED_FROM = 256  # texts from which repetition is looked for
WIDEST_ROW = 32


def round_trip(value):
    return py_pb.serialized_str_to_py(py_pb.py_to_serialized_str((value,)))[0]


def exactly(value):
    """Tells 1 from True and 1.0, and a list from a tuple."""
    if isinstance(value, (list, tuple)):
        return [exactly(each) for each in value]
    if isinstance(value, dict):
        return {key: exactly(each) for key, each in value.items()}
    return type(value), repr(value)


def in_cells(value):
    """What a cell makes of a value: an element without elements is an empty list."""
    if isinstance(value, (list, tuple)):
        return [in_cells(each) for each in value]
    return [] if value == "" else value


KINDS = {
    "floats": lambda i: (0.1, float("nan"), -0.0, 1e300)[i % 4],
    "ints": lambda i: (0, -1, 63, 64, 2**31, -(2**63), 2**63 - 1)[i % 7],
    "powers": lambda i: (-1) ** i * (1 << (i * 7 // 2 % 63)),
    "bools": lambda i: i % 3 == 0,
    "texts": lambda i: "x" * (i % 300),
    "other texts": lambda i: "é語😀"[: i % 4] + str(i),
    "few texts": lambda i: ("a", "", "é")[i % 3],
    "few long texts": lambda i: ("a" * 255, "b" * 256)[i % 2],
    "mixed": lambda i: (1, 1.0, True, "1", "")[i % 5],
    "lists": lambda i: [i] * (i % 3),
    "rows": lambda i: [i, i * 0.5, "t" if i % 2 else "", i % 2 == 0],
    "rows of both kinds": lambda i: (i, str(i)) if i % 2 else [i, str(i)],
    "rows of mixed columns": lambda i: (i if i % 7 else i * 0.5, 1),
    "rows of rows": lambda i: [[i, i], i],
    "wide rows": lambda i: list(range(WIDEST_ROW)),
    "wider rows": lambda i: list(range(WIDEST_ROW + 1)),
    "empty rows": lambda i: [],
}


@pytest.mark.parametrize("kind", KINDS)
def test_sequences_of_every_kind_and_length(kind):
    for count in (1, COLUMN_FROM - 1, COLUMN_FROM, 2 * WIDEST_ROW, REPEATED_FROM + 1, 2000):
        values = [KINDS[kind](i) for i in range(count)]
        for sequence in (values, tuple(values), [values], {"field": values}):
            expected = {"field": in_cells(values)} if isinstance(sequence, dict) else sequence
            if not isinstance(sequence, dict):
                expected = in_cells(list(sequence))
            assert exactly(round_trip(sequence)) == exactly(expected)


@pytest.mark.parametrize("count", [1, COLUMN_FROM - 1, COLUMN_FROM, 1000])
def test_dicts(count):
    alike = [{"i": i, "x": i * 0.5, "t": "" if i % 2 else f"ü{i}", "b": True} for i in range(count)]
    mixed = [{"v": (1, 2.5, "t", True)[i % 4], "w": i} for i in range(count)]
    nested = [{"v": {"w": i}, "l": [i, "t"], "a": np.arange(3.0)} for i in range(count)]
    other_order = [*alike, dict(reversed(alike[0].items()))]
    other_keys = [*alike, {"i": 1}, {}]
    for dicts in (alike, mixed, other_order, other_keys):
        assert exactly(round_trip(dicts)) == exactly(dicts)
    for sent, received in zip(nested, round_trip(nested), strict=True):
        assert (received["v"], received["l"]) == (sent["v"], sent["l"])
        assert np.array_equal(received["a"], [sent["a"]])


class Color(enum.IntEnum):
    RED = 1


@pytest.mark.parametrize(
    ("odd", "error", "text"),
    [
        (2**63, OverflowError, "int too big to convert"),
        (None, TypeError, "'None'"),
        ("\ud800", UnicodeEncodeError, "surrogates not allowed"),
        (Color.RED, TypeError, "Color"),
    ],
)
@pytest.mark.parametrize("plain", [1, 1.0, "t", True])
def test_one_odd_value_among_many(plain, odd, error, text):
    values = [plain] * 300
    for position in (0, 1, 255, 299):
        sent = values[:position] + [odd] + values[position + 1 :]
        for sequence in (sent, [[each, 1] for each in sent], [{"k": each} for each in sent]):
            with pytest.raises(error, match=text):
                py_pb.py_to_serialized_str((sequence,))


def test_repeated_texts_travel_once():
    long = "a text that comes again and again"
    texts = [long, "another one"] * 5000
    message = py_pb.py_to_serialized_str((texts,))
    assert len(message) < 2 * len(texts)
    received = py_pb.serialized_str_to_py(message)[0]
    assert received == texts
    assert len({id(text) for text in received}) < 50  # the first few are not looked up
    empties = py_pb.serialized_str_to_py(py_pb.py_to_serialized_str(([""] * 1000,)))[0]
    assert len({id(each) for each in empties}) == 1000


def test_what_came_back_outlives_the_message():
    sent = ([f"text {i}" for i in range(5000)], [i * 0.5 for i in range(5000)])
    message = py_pb.py_to_serialized_str(sent)
    held = sys.getrefcount(message)
    received = py_pb.serialized_str_to_py(message)
    assert sys.getrefcount(message) == held
    changing = bytearray(message)
    again = py_pb.serialized_str_to_py(changing)
    changing[:] = bytes(len(changing))
    del message
    gc.collect()
    assert received == again == list(sent)
