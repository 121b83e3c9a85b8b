"""Messages both ways, judged by the stock protobuf runtime and by another process."""

import math
import struct
import subprocess

import numpy as np
import py_pb
import pytest
import zorvan
from hypothesis import example, given, settings
from hypothesis import strategies as st

# Codes of element types, as the messages have them.
(LOGICAL, CHAR, STRING, DOUBLE) = range(1, 5)
(UINT8, INT64, UINT64, COMPLEX_DOUBLE, CELL, STRUCT) = (7, 12, 13, 14, 24, 25)


def doubles(*values):
    return struct.pack(f"<{len(values)}d", *values)


def char(text):
    units = text.encode("utf-16-le", "surrogatepass")
    return {"type": CHAR, "elements": units, "dims": [1, len(units) // 2]}


def cell(count, **columns):
    return {"type": CELL, "dims": [1, count], **columns}


ONE = {"type": INT64, "elements": struct.pack("<q", 1)}


@pytest.mark.parametrize(
    "value, fields",
    [
        (1, ONE),
        (1.5, {"type": DOUBLE, "elements": doubles(1.5)}),
        (-0.0, {"type": DOUBLE, "elements": doubles(-0.0)}),
        (3 - 2j, {"type": COMPLEX_DOUBLE, "elements": doubles(3, -2)}),
        (True, {"type": LOGICAL, "elements": b"\1"}),
        ("\u00e9\U0001f600", char("\u00e9\U0001f600")),
        ("", {"type": CHAR, "dims": [1, 0], "elements": b""}),
        (b"ab", {"type": UINT8, "dims": [1, 2], "elements": b"ab"}),
        (np.arange(6.0).reshape(2, 3),
         {"type": DOUBLE, "dims": [2, 3], "elements": doubles(0, 3, 1, 4, 2, 5)}),
        ([], cell(0)),
        ([1.0, math.inf], cell(2, item_type=DOUBLE, elements=doubles(1, math.inf))),
        ([1j, 2], cell(2, kinds=[COMPLEX_DOUBLE, INT64], ints=[2], reals=[0, 1])),
        ((True, False), cell(2, item_type=LOGICAL, elements=b"\1\0")),
        ([1, -(2**63), 2**63 - 1], cell(3, item_type=INT64, ints=[1, -(2**63), 2**63 - 1])),
        (["a", "", "h\u00e9\U0001f600"],
         cell(3, item_type=CHAR, text_len=[2, 1, 8], text="ah\u00e9\U0001f600".encode())),
        ([1, "a", True, 2.5, 3j, [1]],
         cell(6, kinds=[INT64, CHAR, LOGICAL, DOUBLE, COMPLEX_DOUBLE, 0], ints=[1, 1],
              reals=[2.5, 0, 3], text_len=[2], text=b"a",
              children=[cell(1, item_type=INT64, ints=[1]) | {"dims": []}])),
        ([[], b"ab"], cell(2, children=[cell(0), {"type": UINT8, "dims": [1, 2],
                                                  "elements": b"ab"}])),
        ({}, {"type": STRUCT}),
        ({"b": 1.0, "\u00e9": 2.0},
         {"type": STRUCT, "names": [b"b", "\u00e9".encode()], "item_type": DOUBLE,
          "elements": doubles(1, 2)}),
        ([{"a": 1, "b": "x"}, {"a": 2, "b": "y"}],
         cell(2, item_type=STRUCT, names=[b"a", b"b"],
              children=[cell(2, item_type=INT64, ints=[1, 2]),
                        cell(2, item_type=CHAR, text_len=[2, 2], text=b"xy")])),
        ({"p": {"a": 1}, "q": {"a": 1}},  # the names are those of the outer struct
         {"type": STRUCT, "names": [b"p", b"q"],
          "children": [{"type": STRUCT, "names": [b"a"], "item_type": INT64, "ints": [1]}] * 2}),
        ([{"a": 1}, {"b": 1}],
         cell(2, children=[{"type": STRUCT, "names": [name], "item_type": INT64, "ints": [1]}
                           for name in (b"a", b"b")])),
    ],
    ids=lambda value: "" if isinstance(value, dict) and "type" in value else f"{value!r:.40}",
)  # fmt: skip
def test_the_form_of_each_value(messages, value, fields):
    fields = {name: bytes(each) if name == "kinds" else each for name, each in fields.items()}
    message = messages.ZORVAN_Params.FromString(py_pb.py_to_serialized_str((value,), nargout=2))
    assert message == messages.ZORVAN_Params(arrays=[fields], nargout=2)


# ---- what goes out comes back ----


def returned(value, in_cell):
    """What comes back for a value: rules of texts, containers and bytes, and of empty elements."""
    if isinstance(value, dict):
        return {name: returned(each, in_cell=False) for name, each in value.items()}
    if in_cell and hasattr(value, "__len__") and len(value) == 0:
        return []
    if isinstance(value, (list, tuple, set)):
        return [returned(each, in_cell=True) for each in value]
    if isinstance(value, (bytes, bytearray)):
        return value[0] if len(value) == 1 else ("uint8", (1, len(value)), bytes(value))
    return value


def comparable(value):
    """With arrays as their class, size and bytes."""
    if isinstance(value, dict):
        return {name: comparable(each) for name, each in value.items()}
    if isinstance(value, list):
        return [comparable(each) for each in value]
    if type(value).__module__ == "zorvan" or type(value).__name__ in dir(zorvan):
        return type(value).__name__, value.size, memoryview(value).tobytes("F")
    return value


def items_of(message):
    """The items of a cell or struct of the stock runtime, out of whatever columns they lie in."""
    count = math.prod(message.dims or [1]) * (len(message.names) if message.type == STRUCT else 1)
    if message.HasField("item_type") and message.item_type == STRUCT:
        columns = [items_of(child) for child in message.children]
        names = [name.decode() for name in message.names]
        return [dict(zip(names, row)) for row in zip(*columns)]
    if not message.kinds and not message.HasField("item_type"):
        return [value_of(child) for child in message.children]
    kinds = message.kinds or [message.item_type] * count
    reals = iter(message.reals)
    if not message.kinds and message.item_type in (DOUBLE, COMPLEX_DOUBLE):
        reals = (number for (number,) in struct.iter_unpack("<d", message.elements))
    ints = iter(message.ints or message.elements)
    text = iter(split(message.text, message.text_len))
    children = iter(message.children)
    take = {
        0: lambda: value_of(next(children)),
        CHAR: lambda: next(text),
        DOUBLE: lambda: next(reals),
        COMPLEX_DOUBLE: lambda: complex(next(reals), next(reals)),
        LOGICAL: lambda: bool(next(ints)),
        UINT8: lambda: bytes([next(ints)]),
        INT64: lambda: next(ints),
    }
    return [take[kind]() for kind in kinds]


def split(text, lengths):
    position = 0
    for length in lengths:
        yield text[position : position + length - 1].decode()
        position += length - 1
    assert position == len(text)


def value_of(message):
    """What a message of the stock runtime stands for; an independent reader of the schemas."""
    if message.type == CELL:
        return items_of(message)
    if message.type == STRUCT:
        return dict(zip([name.decode() for name in message.names], items_of(message)))
    if message.type == CHAR:
        return message.elements.decode("utf-16-le")
    if message.type == UINT8:
        return message.elements
    code = {LOGICAL: "?", DOUBLE: "d", INT64: "q", COMPLEX_DOUBLE: "2d"}[message.type]
    numbers = struct.unpack("<" + code, message.elements)
    return complex(*numbers) if message.type == COMPLEX_DOUBLE else numbers[0]


def plain(value):
    """As the reader has it: every container a list, bytes as bytes."""
    if isinstance(value, dict):
        return {name: plain(each) for name, each in value.items()}
    if isinstance(value, (list, tuple, set)):
        return [plain(each) for each in value]
    return bytes(value) if isinstance(value, bytearray) else value


TEXTS = st.text(st.characters(exclude_categories=["Cs"]), max_size=8)
NUMBERS = st.one_of(
    st.integers(-(2**63), 2**63 - 1), st.booleans(), st.floats(), st.complex_numbers(),
)  # fmt: skip
LEAVES = st.one_of(NUMBERS, TEXTS, st.binary(max_size=8), st.binary(max_size=3).map(bytearray))


def containers(values):
    names = TEXTS.filter(bool)
    fields = st.lists(names, unique=True, max_size=4)
    records = fields.flatmap(
        lambda names: st.lists(st.fixed_dictionaries(dict.fromkeys(names, values)), max_size=4)
    )
    return st.one_of(
        st.lists(values, max_size=5),
        st.lists(values, max_size=5).map(tuple),
        st.lists(NUMBERS, max_size=8),
        st.lists(TEXTS, max_size=8),
        st.sets(TEXTS, max_size=1),
        st.dictionaries(names, values, max_size=4),
        records,
        records.map(lambda rows: {f"row {i}": row for i, row in enumerate(rows)}),
    )


VALUES = st.recursive(LEAVES, containers, max_leaves=30)


@given(st.lists(VALUES, max_size=4))
@settings(deadline=None, max_examples=400)
@example(arguments=[[1, True], [True, 1.0], ["", "a"], ["a", 1], [[1], 1], [b"", b"\0"]])
@example(arguments=[[{"a": [{"b": 1}, {"b": 2}]}, {"a": [{"b": 3}, {"b": 4}]}]])
@example(arguments=[[{"a": 1, "b": 2}, {"b": 3, "a": 4}], [{"a": ""}, {"a": []}], [{}, {"a": 1}]])
@example(arguments=[{"p": {"a": 1}, "q": {"a": 2}}, [{"p": {"a": [1]}, "q": {"a": [2]}}] * 2])
@example(arguments=[float("nan"), -0.0, [-0.0, 1], complex("nan-0j"), "\0", {"\0": "\0"}])
def test_values_go_out_and_come_back(messages, arguments):
    message = py_pb.py_to_serialized_str(tuple(arguments))
    expected = [returned(each, in_cell=True) for each in arguments]
    assert repr(comparable(py_pb.serialized_str_to_py(message))) == repr(expected)

    stock = messages.ZORVAN_Params.FromString(message)
    assert repr([value_of(array) for array in stock.arrays]) == repr(plain(arguments))

    result = messages.ZORVAN_Result(arrays=stock.arrays).SerializeToString()
    assert repr(comparable(py_pb.serialized_str_to_py(result))) == repr(expected)


def test_another_process_sends_it_all_back():
    arguments = (
        [1.5, [1, "x"], {"k": [{"a": 1}, {"a": "\U0001f600"}], "e": ""}, True, -2j],
        np.arange(24, dtype="i2").reshape(2, 3, 4),
        "nul\0", b"\0\1", (), {}, {"s"}, -(2**63), [""] * 3, ["h\u00e9"] * 3, np.zeros((0, 3)),
    )  # fmt: skip
    message = py_pb.py_to_serialized_str(arguments, nargout=len(arguments))
    done = subprocess.run(
        ["zorvan-loopback", "echo"], input=message, capture_output=True, check=True, timeout=60
    )
    echoed = comparable(py_pb.serialized_str_to_py(done.stdout))
    assert echoed == comparable(py_pb.serialized_str_to_py(message))
    assert echoed[0] == [1.5, [1, "x"], {"k": [{"a": 1}, {"a": "\U0001f600"}], "e": ""}, True, -2j]
    assert echoed[1][:2] == ("int16", (2, 3, 4))
    first = py_pb.py_to_serialized_str(arguments, nargout=1)
    done = subprocess.run(["zorvan-loopback", "echo"], input=first, capture_output=True, check=True)
    assert comparable(py_pb.serialized_str_to_py(done.stdout)) == echoed[:1]


# ---- what others may write ----


def varint(number):
    encoded = bytearray()
    while number > 127:
        encoded.append(number & 127 | 128)
        number >>= 7
    return bytes([*encoded, number])


def field(number, content):
    """A varint or a length-delimited field."""
    if isinstance(content, int):
        return varint(number << 3) + varint(content)
    return varint(number << 3 | 2) + varint(len(content)) + content


PAIR = field(1, DOUBLE), field(2, b"\1\2"), field(3, doubles(1, 2))


@pytest.mark.parametrize(
    "array, expected",
    [
        (b"".join(reversed(PAIR)), ("double", (1, 2), doubles(1, 2))),
        (PAIR[0] + field(2, 1) + field(2, 2) + PAIR[2], ("double", (1, 2), doubles(1, 2))),
        (PAIR[0] + field(2, b"\1") + PAIR[2] + field(2, b"\2"), ("double", (1, 2), doubles(1, 2))),
        (PAIR[0] + field(2, b"\2") + PAIR[2], ("double", (1, 2), doubles(1, 2))),
        (PAIR[0] + field(3, b"other") + PAIR[1] + PAIR[2], ("double", (1, 2), doubles(1, 2))),
        (field(1, 99) + field(77, b"?") + field(78, 5) + b"\xfd\x04\1\2\3\4" + b"".join(PAIR),
         ("double", (1, 2), doubles(1, 2))),
        (varint(803) + field(3, b"in a group") + varint(804) + b"".join(PAIR),
         ("double", (1, 2), doubles(1, 2))),
        (field(1, CELL) + field(2, b"\1\2") + field(7, INT64) + field(9, 2) + field(9, b"\x03"),
         [1, -2]),
        (field(1, CELL) + field(2, b"\1\2") + field(7, DOUBLE) + field(3, doubles(1, 2)), [1.0, 2.0]),
        (field(1, CELL) + field(2, b"\1\3") + field(8, bytes([DOUBLE, LOGICAL, DOUBLE]))
         + b"\x51" + doubles(1) + field(9, 2) + b"\x51" + doubles(2), [1.0, True, 2.0]),
        (field(1, CELL) + field(2, b"\2\1") + field(4, b"".join(PAIR)) + field(4, field(1, CELL)
         + field(2, b"\0\0")), [("double", (1, 2), doubles(1, 2)), []]),
        (field(1, CELL) + field(7, UINT64) + field(9, 2**64 - 1), [2**63]),
        (field(1, CELL) + field(7, UINT64) + field(9, 1), [2**64 - 1]),
        (field(1, STRUCT) + field(5, b"a") + field(4, field(1, CHAR) + field(3, b"x\0"))
         + field(5, b"b") + field(4, field(1, STRUCT)), {"a": "x", "b": {}}),
        (field(1, CELL) + field(2, b"\1\3") + field(7, STRING) + field(11, b"\0\1\2") +
         field(12, b"z"), [None, "", "z"]),
        (field(1, STRING) + field(11, b"\4") + field(12, "\u4e16".encode()), "\u4e16"),
    ],
)  # fmt: skip
def test_other_writers(messages, array, expected):
    messages.ZORVAN_Array.FromString(array)  # nothing that the stock runtime would refuse
    value = py_pb.serialized_str_to_py(field(1, array))
    assert repr(comparable(value)) == repr([expected])
