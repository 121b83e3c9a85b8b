"""Messages both ways, judged by the stock protobuf runtime and by another process."""

import math
import struct
import subprocess

import numpy as np
import py_pb
import pytest
import zorvan
import zorvan.reader
from hypothesis import example, given, settings
from hypothesis import strategies as st
from tape_writer import (
    CELL, CHAR, COMPLEX_DOUBLE, DOUBLE, INT64, LOGICAL, STRING, STRUCT, UINT8, UINT64, again, cell,
    char, child, dense, grid, number, record, run, shape, string, strings, tape, varint,
)  # fmt: skip


def doubles(*values):
    return struct.pack(f"<{len(values)}d", *values)


def ints(*values):
    return [number(INT64, value) for value in values]


def long_array(values, dtype=DOUBLE):
    return child(type=dtype, dims=[1, values.size], elements=values.tobytes())


AB = shape("a", "b")


@pytest.mark.parametrize(
    "value, parts",
    [
        (1, ints(1)),
        (1.5, [number(DOUBLE, 1.5)]),
        (-0.0, [number(DOUBLE, -0.0)]),
        (3 - 2j, [number(COMPLEX_DOUBLE, 3, -2)]),
        (True, [number(LOGICAL, 1)]),
        ("\u00e9\U0001f600", [char("\u00e9\U0001f600")]),
        ("", [char("")]),
        (b"a", [number(UINT8, 97)]),
        (b"ab", [dense(UINT8, (1, 2), b"ab")]),
        (np.arange(6.0).reshape(2, 3), [dense(DOUBLE, (2, 3), doubles(0, 3, 1, 4, 2, 5))]),
        (np.zeros((0, 3)), [dense(DOUBLE, (0, 3), b"")]),
        (np.zeros((2, 1), "?"), [dense(LOGICAL, (2, 1), b"\0\0")]),
        (np.zeros((1, 2, 1), "u1"), [dense(UINT8, (1, 2, 1), b"\0\0")]),
        (np.arange(511.0), [dense(DOUBLE, (1, 511), np.arange(511.0).tobytes())]),
        (np.arange(512.0), [long_array(np.arange(512.0))]),
        (np.array([2**64 - 1], "u8"), [number(UINT64, -1)]),
        ([], [cell()]),
        ([1.0], [cell(number(DOUBLE, 1))]),
        ([1.0, math.inf], [run(number(DOUBLE, 1), number(DOUBLE, math.inf))]),
        ([1j, 2], [cell(number(COMPLEX_DOUBLE, 0, 1), number(INT64, 2))]),
        ((True, False), [run(number(LOGICAL, 1), number(LOGICAL, 0))]),
        ([1, -(2**63), 2**63 - 1], [run(*ints(1, -(2**63), 2**63 - 1))]),
        (["a", "", "h\u00e9\U0001f600"], [run(char("a"), char(""), char("h\u00e9\U0001f600"))]),
        ([1, "a", True, 2.5, 3j, [1]],
         [cell(*ints(1), char("a"), number(LOGICAL, 1), number(DOUBLE, 2.5),
               number(COMPLEX_DOUBLE, 0, 3), cell(*ints(1)))]),
        ([[1, 2], [3]], [run(run(*ints(1, 2)), run(*ints(3)))]),
        ([[1, "a"], [2, "b"]], [run(*(cell(*ints(i), char(t)) for i, t in [(1, "a"), (2, "b")]))]),
        ([[], []], [cell(cell(), cell())]),
        ([[], b"ab"], [cell(cell(), dense(UINT8, (1, 2), b"ab"))]),
        ({}, [record(STRUCT, 0)]),
        ([{}, {}], [cell(record(STRUCT, 0), record(STRUCT, 0))]),
        ({"b": 1.0, "\u00e9": 2.0},
         [record(STRUCT, 1, number(DOUBLE, 1), number(DOUBLE, 2)), shape("b", "\u00e9")]),
        ([{"a": 1, "b": "x"}, {"a": 2, "b": "y"}],
         [run(*(record(STRUCT, 1, *ints(i), char(t)) for i, t in [(1, "x"), (2, "y")])), AB]),
        ({"a": {"a": 1, "b": 2}, "b": {}},
         [record(STRUCT, 1, record(STRUCT, 1, *ints(1, 2)), record(STRUCT, 0)), AB]),
        ([{"a": 1}, {"b": 1}],
         [cell(record(STRUCT, 1, *ints(1)), record(STRUCT, 2, *ints(1))), shape("a"), shape("b")]),
    ],
    ids=lambda value: f"{value!r:.40}",
)  # fmt: skip
def test_the_form_of_each_value(messages, value, parts):
    message = messages.ZORVAN_Params.FromString(py_pb.py_to_serialized_str((value,), nargout=2))
    for array in message.tape.children:
        del array.padding[:]
    item, *shapes = parts
    fields = tape(cell(item), *shapes)
    assert message == messages.ZORVAN_Params(tape=fields, nargout=2, version=1)


@pytest.mark.parametrize("offset", range(17))
def test_long_payloads_stand_at_aligned_addresses(offset):
    """So that readers can use them where they lie; the message does not grow or shrink with it."""
    payloads = [np.full(4096, 0xA0 + i, "u1") for i in range(3)]
    reals = [1.5 + i for i in range(512)]
    sizes = set()
    for text in ("x" * (offset + 1), "y" * (offset + 17)):
        message = py_pb.py_to_serialized_str((text, *payloads, [payloads[0]], reals))
        for payload in payloads:
            assert message.index(payload.tobytes()) % 16 == 0
        assert message.rindex(payloads[0].tobytes()) % 16 == 0
        assert message.index(doubles(*reals)) % 16 == 0
        sizes.add(len(message) - len(text))
    assert len(sizes) == 1


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


def value_of(tree):
    """What a tree of the reader stands for."""
    kind = tree["type"]
    if kind == "CELL":
        return [value_of(each) for each in tree["elements"]]
    if kind == "STRUCT":
        (fields,) = tree["elements"]
        return {name: value_of(each) for name, each in fields.items()}
    if kind == "CHAR":
        return tree["text"]
    if kind == "UINT8":
        return bytes(tree["elements"])
    (element,) = tree["elements"]
    return complex(*element) if kind == "COMPLEX_DOUBLE" else element


def plain(value):
    """As value_of() has it: every container a list, bytes as bytes."""
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
def test_values_go_out_and_come_back(arguments):
    message = py_pb.py_to_serialized_str(tuple(arguments))
    expected = [returned(each, in_cell=True) for each in arguments]
    assert repr(comparable(py_pb.serialized_str_to_py(message))) == repr(expected)

    trees = zorvan.reader.read(message).arrays
    assert repr([value_of(tree) for tree in trees]) == repr(plain(arguments))


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


def field(field_number, content):
    """A varint or a length-delimited field."""
    if isinstance(content, int):
        return varint(field_number << 3) + varint(content)
    return varint(field_number << 3 | 2) + varint(len(content)) + content


PAIR = field(1, DOUBLE), field(2, b"\1\2"), field(3, doubles(1, 2))
PAIR_SHOWN = ("double", (1, 2), doubles(1, 2))


@pytest.mark.parametrize(
    "array, expected",
    [
        (b"".join(reversed(PAIR)), PAIR_SHOWN),
        (PAIR[0] + field(2, b"\2") + PAIR[2], PAIR_SHOWN),
        (field(77, b"?") + field(78, 5) + b"\xfd\x04\1\2\3\4" + b"".join(PAIR), PAIR_SHOWN),
        (varint(803) + field(3, b"in a group") + varint(804) + b"".join(PAIR), PAIR_SHOWN),
        (field(15, bytes(9)) + b"".join(PAIR) + field(15, b"") * 2, PAIR_SHOWN),
        (field(1, CELL) + field(2, b"\2\1") + field(4, b"".join(PAIR))
         + field(4, field(1, CELL) + field(2, b"\0\0")), [PAIR_SHOWN, []]),
        (field(1, STRUCT) + field(5, b"a") + field(4, field(1, CHAR) + field(3, b"x\0"))
         + field(5, b"b") + field(4, field(1, STRUCT)), {"a": "x", "b": {}}),
        (field(1, STRING) + field(8, b"\x08") + field(9, "\u4e16".encode()), "\u4e16"),
        (field(1, CELL) + field(7, field(3, b"\x03") + field(15, b"?") + field(1, b"\x18\1\x0c")
                                + field(78, 5)), [-2]),
        (field(1, CELL) + field(2, b"\1\2") + field(7, field(1, b"\x40\1\4") + field(2, b"\2")
         + field(4, doubles(1, 2))), [1.0, 2.0]),
    ],
)  # fmt: skip
def test_other_writers(messages, array, expected):
    messages.ZORVAN_Array.FromString(array)  # nothing that the stock runtime would refuse
    value = py_pb.serialized_str_to_py(field(1, array))
    assert repr(comparable(value)) == repr([expected])


@pytest.mark.parametrize(
    "array",
    [
        PAIR[0] + field(2, 1) + field(2, 2) + PAIR[2],  # not packed
        b"".join(PAIR) + PAIR[2],
        PAIR[0] + b"".join(PAIR),
        field(1, b"") + b"".join(PAIR),
        b"".join(PAIR) + field(15, 1),
        b"".join(PAIR) + field(5, b"a"),
        field(1, CELL) + field(7, field(1, b"\x18\0")) * 2,
        field(1, CELL) + field(7, field(1, b"\x18\1\x0c") + field(3, 2)),
        field(1, CELL) + field(7, field(1, b"\x18\1\4") + b"\x21" + doubles(1)),
        field(1, CELL) + field(7, field(1, b"\x18\0") * 2),
    ],
)
def test_what_the_schema_does_not_allow(messages, array):
    messages.ZORVAN_Array.FromString(array)  # the stock runtime lets all of it pass
    with pytest.raises(SystemError):
        py_pb.serialized_str_to_py(field(1, array))


@pytest.mark.parametrize("version, is_read", [(None, True), (1, True), (0, False), (2, False)])
def test_version(messages, version, is_read):
    fields = {} if version is None else {"version": version}
    message = messages.ZORVAN_Result(tape=tape(cell(*ints(5))), **fields).SerializeToString()
    if is_read:
        assert py_pb.serialized_str_to_py(message) == [5]
    else:
        with pytest.raises(SystemError):
            py_pb.serialized_str_to_py(message)


def test_arrays_and_tape_exclude_each_other(messages):
    both = messages.ZORVAN_Result(
        arrays=[{"type": CELL, "dims": [0, 0]}], tape=tape(cell())
    ).SerializeToString()
    with pytest.raises(SystemError):
        py_pb.serialized_str_to_py(both)


@pytest.mark.parametrize(
    "parts, expected",
    [
        ([run(*ints(1, -2))], [1, -2]),
        ([cell(char("a"), again(0), string("b"), again(1), again(0, STRING))],
         ["a", "a", "b", "b", "a"]),
        ([cell(run(*ints(1)), cell(*ints(2, 3)))], [[1], [2, 3]]),
        ([cell(grid((3, 1), run(*ints(1, 2, 3), count=False)), grid((2, 1), cell(*ints(1, 2))))],
         [[1, 2, 3], [1, 2]]),
        ([cell(grid((1, 1), record(STRUCT, 1, cell(*ints(7)), run(char("x"))))), AB],
         [{"a": 7, "b": "x"}]),
        ([cell(strings((3, 1), "a", None, ""), strings((0, 0)), string(None))],
         [["a", None, ""], [], None]),
        ([cell(dense(CHAR, (1, 2), b"h\0i\0"), dense(CHAR, (2, 1), b"h\0i\0"))], ["hi", "hi"]),
        ([cell(dense(DOUBLE, (1, 1), doubles(1)), child(type=LOGICAL, elements=b"\1"))],
         [1.0, True]),
        ([cell(child(type=CELL, tape=tape(cell(again(0))))), AB], None),
        ([cell(record(STRUCT, 1, *ints(1, 2))), AB, shape("never")], [{"a": 1, "b": 2}]),
    ],
)  # fmt: skip
def test_tapes_of_other_writers(messages, parts, expected):
    """Forms that py_pb reads and never writes; the numbers of texts are those of one tape."""
    for fields in ({"tape": tape(*parts)}, {"arrays": [{"type": CELL, "tape": tape(*parts),
                   "dims": [1, len(expected or [1])]}]}):  # fmt: skip
        message = messages.ZORVAN_Result(**fields).SerializeToString()
        if expected is None:
            with pytest.raises(SystemError):
                py_pb.serialized_str_to_py(message)
        else:
            found = py_pb.serialized_str_to_py(message)
            assert repr(found) == repr(expected if "tape" in fields else [expected])
