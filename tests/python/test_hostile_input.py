"""Bytes and objects made to do harm: they fail in order, or do no harm. A crash ends the run."""

import codecs
import pathlib
import sys
import time
from collections import OrderedDict

import numpy as np
import numpy.ma  # its classes are asked about only when it is loaded
import py_pb
import pytest
import zorvan.reader
from google.protobuf.message import DecodeError
from hypothesis import given, settings
from hypothesis import strategies as st
from tape_writer import (
    CELL, CHAR, DENSE, DOUBLE, ENUMERATION, GRID, HANDLE, INT64, LOGICAL, RUN, STRING, STRINGS,
    STRUCT, VALUE_OBJECT, again, cell, char, child, dense, empty_run, grid, number, piece, record,
    run, shape, string, strings, tape, varint,
)  # fmt: skip

REFUSALS = (SystemError, TypeError, ValueError, RecursionError, OverflowError)
SPARSE_DOUBLE = 31


def read(message):
    """The value, or None when it was refused as it should be."""
    try:
        return py_pb.serialized_str_to_py(message)
    except REFUSALS:
        return None


def decode(message):
    value = read(message)
    assert value is None or type(value) in (list, dict)
    repr(value)  # every part of it can be looked at
    return value


# ---- bytes ----


ARGUMENTS = (
    [1.0, 2, "text", True, 3j, [1, "x"]], {"a": [{"b": "\u00e9", "c": 1}, {"b": "", "c": 2}]},
    np.arange(6.0).reshape(2, 3), ["a", "\U0001f600", ""], (1.5, 2.5, -0.0), b"bytes", "", {},
    [True, False], [3, -4, 2**63 - 1], [[], {}, np.zeros((0, 3), "i1")], np.array([1j, 2], "c8"),
)  # fmt: skip


@pytest.fixture(scope="module")
def corpus(messages):
    """Messages with every form of every type, those of an engine and its error included."""
    engine = [
        {"type": STRING, "dims": [1, 4], "text_len": [4, 0, 8, 1], "text": "x\u4e16".encode()},
        {"type": CELL, "dims": [2], "tape": tape(run(string(None), string("")))},
        {"type": CELL, "dims": [2], "tape": tape(cell(string(None), number(INT64, 5)))},
        {"type": VALUE_OBJECT, "class_name": b"C", "names": [b"p"], "children": [{"type": CHAR,
         "elements": b"p\0"}]},
        {"type": HANDLE, "dims": [1, 2], "class_name": b"H", "ref": [1, 2**64 - 1]},
    ]  # fmt: skip
    refused = [
        {"type": ENUMERATION, "class_name": b"E", "text_len": [8], "text": b"red"},
        {"type": SPARSE_DOUBLE, "dims": [2, 2], "rows": [0, 1], "col_starts": [0, 1, 2],
         "elements": bytes(16)},
    ]  # fmt: skip
    on_tape = tape(
        cell(
            grid((2, 1), record(VALUE_OBJECT, 1, run(char("a"), again(0)),
                                cell(string("b"), cell()))),
            run(run(number(INT64, 1)), empty_run(b"\x18")), strings((2, 1), "x", None),
            grid((3, 1), cell(dense(DOUBLE, (0, 1), b""), child(**engine[3]), again(1))),
        ),
        shape("p", "q", class_name="C"),
    )  # fmt: skip
    error = {"message": "failed", "identifier": "a:b", "stack": [{"file": "f", "line": 3}]}
    good = [
        py_pb.py_to_serialized_str(ARGUMENTS),
        messages.ZORVAN_Result(arrays=engine).SerializeToString(),
        messages.ZORVAN_Result(error=error).SerializeToString(),
        messages.ZORVAN_Result(tape=on_tape, version=1).SerializeToString(),
    ]
    assert all(decode(message) is not None for message in good)
    return [*good, *(messages.ZORVAN_Result(arrays=[each]).SerializeToString() for each in refused)]


def test_truncated_at_every_offset(corpus):
    for message in corpus:
        for end in range(len(message)):
            decode(message[:end])


def test_truncated_between_and_in_arrays(corpus):
    """What was read before the break is kept, and nothing else is there."""
    whole = decode(corpus[1])
    lengths = set()
    for end in range(len(corpus[1])):
        value = decode(corpus[1][:end])
        if value is not None:
            assert repr(value[:-1]) == repr(whole[: max(len(value) - 1, 0)])
            lengths.add(len(value))
    assert lengths == set(range(len(whole)))


def test_every_bit_flipped(messages, corpus):
    """py_pb refuses what the reference reader refuses, and nothing else but errors with odd texts."""
    for message in corpus:
        if b"failed" in message:
            continue
        for bit in range(8 * len(message)):
            hurt = bytearray(message)
            hurt[bit // 8] ^= 1 << bit % 8
            assert not is_message(messages, hurt) or is_read(hurt) == is_read_by_reference(hurt)


def is_message(messages, data):
    """Whether the stock runtime takes the bytes; where one breaks off py_pb is more patient."""
    try:
        messages.ZORVAN_Result.FromString(bytes(data))
    except DecodeError:
        return False
    return True


def is_read(data):
    try:
        repr(py_pb.serialized_str_to_py(data))
    except SystemError:
        return False
    except REFUSALS:
        pass  # a value that Python has no type for
    return True


def is_read_by_reference(data):
    try:
        zorvan.reader.read(bytes(data))
    except ValueError:
        return False
    return True


@given(st.binary(max_size=200))
@settings(deadline=None, max_examples=500)
def test_any_bytes(data):
    decode(data)
    decode(b"\x0a" + bytes([min(len(data), 127)]) + data)


@pytest.mark.parametrize(
    "content",
    [
        pathlib.Path(sys.executable).read_bytes()[: 2**20],
        pathlib.Path(__file__).read_bytes(),
        pathlib.Path(np.__file__).read_bytes(),
        b"\x89PNG\r\n\x1a\n" + bytes(range(256)),
        b"\x1f\x8b\x08" + bytes(100),
        b"PK\x03\x04" * 30,
        bytes(10**6),
        b"\xff" * 10**6,
        b"\x0a" * 10**5,
        b"\x0b" * 10**6,  # groups that are never closed
        b"\x22\x7f" * 10**5,
    ],
    ids=lambda content: f"{content[:8]!r}",
)
def test_files_of_other_programs(content):
    decode(content)
    decode(b"\x0a\xff\xff\xff\xff\x07" + content)  # as one array


def stored(text):
    return piece(CHAR, text_len=[2 * (len(text) + 1)], text=text)


@pytest.mark.parametrize(
    "array",
    [
        {"type": DOUBLE, "dims": [1, 3], "elements": bytes(16)},
        {"type": DOUBLE, "dims": [1, 3], "elements": bytes(25)},
        {"type": DOUBLE, "dims": [1, 1], "elements": bytes(16)},
        {"type": DOUBLE, "elements": b""},
        {"type": DOUBLE, "dims": [2**40, 2**40]},
        {"type": DOUBLE, "dims": [2**61], "elements": b""},
        {"type": DOUBLE, "dims": [2**32, 2**32], "elements": bytes(8)},
        {"type": DOUBLE, "dims": [2**64 - 1, 2**64 - 1], "elements": bytes(8)},
        {"type": CHAR, "dims": [1, 2], "elements": b"a\0b"},
        {"type": LOGICAL, "elements": b"\2"},
        {"type": STRING, "dims": [1, 2**62]},
        {"type": STRING, "text_len": [2**64 - 1], "text": b"abc"},
        {"type": STRING, "text_len": [2**64 - 2], "text": b"abc"},
        {"type": STRING, "text_len": [10], "text": b"abc"},
        {"type": STRING, "text_len": [6], "text": b"abc"},
        {"type": STRING, "text_len": [4], "text": b"\xff"},
        {"type": CELL, "dims": [1, 2**62]},
        {"type": CELL, "dims": [1, 2], "children": [{"type": DOUBLE, "elements": bytes(8)}]},
        {"type": CELL, "dims": [1, 2], "tape": tape(run(*[number(INT64, 1)] * 3))},
        {"type": CELL, "tape": tape(cell(piece(INT64)))},
        {"type": CELL, "tape": tape(cell(number(INT64, 1)), reals=[1.0])},
        {"type": CELL, "tape": tape(cell(number(LOGICAL, 2)))},
        {"type": CELL, "tape": tape(cell(piece(CHAR, text_len=[0])))},
        {"type": CELL, "tape": tape(cell(piece(CHAR, text_len=[2**64 - 2], text=b"abc")))},
        {"type": CELL, "dims": [1, 62], "tape": tape(run(  # a text only when they are joined
            stored(b"\xc3"), stored(b"\xa9"), *[char("a" * 100)] * 60))},
        {"type": CELL, "tape": tape(cell(again(0)))},
        {"type": CELL, "tape": tape(cell(piece(0)))},
        {"type": CELL, "tape": tape(cell(piece(99)))},
        {"type": CELL, "tape": tape(cell(piece(STRUCT, 2**40)))},
        {"type": CELL, "tape": tape(piece(CELL, 2**62, INT64, ints=[1]))},
        {"type": CELL, "dims": [1, 2**62], "tape": tape(piece(CELL, 2**62))},
        {"type": CELL, "tape": tape(piece(RUN, 1, INT64, counts=[2**62], ints=[1]))},
        {"type": CELL, "dims": [1, 2**62], "tape": tape(piece(RUN, 2, CELL, 0, counts=[2**62]))},
        {"type": CELL, "tape": tape(cell(piece(RUN, 2**63, INT64, counts=[1], ints=[1])))},
        *({"type": CELL, "tape": tape(cell(piece(*kinds, counts=counts)))}
          for kinds in ([DENSE, DOUBLE], [STRINGS], [GRID, CELL, 2**62], [GRID, RUN, 1, INT64])
          for counts in ([2, 2**31, 2**31], [2**62, 1], [2, 2**32, 2**32], [0, 2**64 - 1])),
        {"type": CELL, "tape": tape(cell(char("a")), b"\0\xff\xff\xff\xff\x0f")},
        {"type": CELL, "tape": {}},
        {"type": STRUCT, "names": [b"a", b"b"], "children": [{"type": CELL, "dims": [0, 0]}]},
        {"type": STRUCT, "names": [b"a", b"a"], "tape": tape(cell(*[number(INT64, 1)] * 2))},
        {"type": STRUCT, "names": [b"\xff"], "tape": tape(cell(number(INT64, 1)))},
        {"type": STRUCT, "dims": [2**63, 2], "names": [b"a", b"b"]},
        {"type": HANDLE, "dims": [1, 3], "class_name": b"H", "ref": [1]},
        {"type": ENUMERATION, "dims": [1, 2], "class_name": b"E", "text_len": [2]},
        {"type": SPARSE_DOUBLE, "dims": [2, 2], "rows": [2], "col_starts": [0, 1, 1],
         "elements": bytes(8)},
        {"type": SPARSE_DOUBLE, "dims": [2, 2], "rows": [0], "col_starts": [0, 2**63, 1],
         "elements": bytes(8)},
        {"type": SPARSE_DOUBLE, "dims": [2, 2**60], "col_starts": [0]},
    ],
    ids=lambda array: f"{array!r:.70}",
)  # fmt: skip
def test_counts_that_do_not_match(messages, array):
    for fields in (array, {"type": CELL, "children": [array]}):
        message = messages.ZORVAN_Result(arrays=[fields]).SerializeToString()
        with pytest.raises(SystemError):
            py_pb.serialized_str_to_py(message)


def peak_of(action):
    """By how many bytes the action raises the process's memory at its peak."""
    pathlib.Path("/proc/self/clear_refs").write_text("5")  # forgets the former peak
    before = peak()
    action()
    return peak() - before


def peak():
    lines = pathlib.Path("/proc/self/status").read_text().splitlines()
    (line,) = (line for line in lines if line.startswith("VmHWM:"))
    return 1024 * int(line.split()[1])


def on_tape(messages, item, *shapes):
    return messages.ZORVAN_Result(tape=tape(item, *shapes)).SerializeToString()


def records_in_records(levels, count):
    """A run of `count` records of one field each, which hold records, and so on."""
    kinds = bytes([STRUCT, 1]) * levels + bytes([LOGICAL])
    return piece(RUN, len(kinds), {"kinds": kinds}, counts=[count], ints=[0] * count)


def empties_in_run(empties, count):
    """A run whose elements are many empty cells and one value."""
    kinds = bytes([CELL]) + varint(empties + 1) + bytes([CELL, 0]) * empties + bytes([LOGICAL])
    return piece(RUN, len(kinds), {"kinds": kinds}, counts=[count], ints=[0] * count)


def nested_runs(levels, count):
    """Runs of one element in each other, `count` times."""
    kinds = bytes([LOGICAL])
    for _ in range(levels):
        kinds = bytes([RUN]) + varint(len(kinds)) + kinds
    return piece(
        RUN, len(kinds), {"kinds": kinds}, counts=[count, *[1] * levels * count], ints=[0] * count
    )


BOMBS = {
    "logicals": lambda messages: on_tape(messages, run(*[number(LOGICAL, 0)] * 10**5)),
    "records in records": lambda messages: on_tape(
        messages, records_in_records(40, 10**4), shape("a")),
    "empties in a run": lambda messages: on_tape(messages, empties_in_run(10**5, 10**5)),
    "runs in runs": lambda messages: on_tape(messages, nested_runs(20, 10**4)),
    "cells": lambda messages: on_tape(messages, cell(*[cell()] * 10**5)),
    "missing strings on a tape": lambda messages: on_tape(messages, run(*[string(None)] * 10**5)),
    "texts by number": lambda messages: on_tape(
        messages, run(char("x" * 100), *[again(0)] * 10**6)),
    "arrays without fields": lambda messages: b"\x0a\x00" * 200_000,
    "missing strings": lambda messages: messages.ZORVAN_Result(
        arrays=[{"type": STRING, "dims": [1, 10**6], "text_len": [0] * 10**6}]
    ).SerializeToString(),
    "names": lambda messages: messages.ZORVAN_Result(
        arrays=[{"type": STRUCT, "dims": [0, 0], "names": [b"%d" % i for i in range(10**5)]}]
    ).SerializeToString(),
    "shapes": lambda messages: on_tape(
        messages, cell(), *(shape(f"name {i}") for i in range(10**5))),
    "names of many records": lambda messages: on_tape(
        messages, cell(*[record(STRUCT, 1, *[cell()] * 100)] * 500),
        shape(*(f"name {i}" for i in range(100)))),
    "one long name of many records": lambda messages: on_tape(
        messages,
        cell(*[piece(GRID, CELL, 1, record(STRUCT, 1, number(INT64, 1)), counts=[1, 1])] * 16_000),
        shape("k" * 100_000)),
    "many names in a run": lambda messages: on_tape(
        messages, run(*[record(STRUCT, 1, *[number(INT64, 1)] * 257)] * 1000),
        shape(*(f"{i:1000}" for i in range(257)))),
    "long names of classes": lambda messages: on_tape(
        messages,
        cell(*[record(VALUE_OBJECT, i, number(INT64, 1)) for i in (1, 2)] * 4000),
        *(shape("k" * 100_000, class_name=name) for name in "AB")),
}  # fmt: skip


@pytest.mark.skipif(
    "libasan" in pathlib.Path("/proc/self/maps").read_text(), reason="keeps freed memory"
)
@pytest.mark.parametrize("name", BOMBS)
def test_memory_is_bounded_by_the_size_of_the_message(messages, name):
    message = BOMBS[name](messages)
    assert peak_of(lambda: read(message)) < 200 * len(message) + 2**24


def texts_and_dictionaries():
    texts = [f"unique text number {i}" for i in range(80_000)]
    dictionaries = [OrderedDict([(1, "a"), ("s", i)]) for i in range(80_000)]
    return py_pb.py_to_serialized_str(([texts, dictionaries],))


SLOW_TO_READ = {
    "many dictionaries beside much text": lambda messages: texts_and_dictionaries(),
    "one bad text at the end": lambda messages: on_tape(
        messages, run(*[stored(b"a")] * 160_000, stored(b"\xed\xa0\x80"))),
}  # fmt: skip


@pytest.mark.parametrize("name", SLOW_TO_READ)
def test_time_grows_with_the_size_of_the_message(messages, name):
    message = SLOW_TO_READ[name](messages)
    start = time.process_time()
    read(message)
    assert time.process_time() - start < 5  # quadratic growth takes more than ten


# ---- objects ----


class Meddler(bytearray):
    """Runs a callback whenever somebody asks for its class."""

    meddle = staticmethod(lambda: None)

    @property
    def __class__(self):
        self.meddle()
        return bytearray


def meddler(callback):
    value = Meddler(b"m")
    value.meddle = callback
    return value


def test_lists_that_change_while_they_are_converted():
    def emptied():
        values.clear()

    values = [1, meddler(emptied), 2, "x" * 100]
    with pytest.raises(IndexError):
        py_pb.py_to_serialized_str((values,))

    values = [meddler(lambda: values.append([1.0] * 100)), 2]
    message = py_pb.py_to_serialized_str((values,))
    assert py_pb.serialized_str_to_py(message) == [[109, 2]]

    values = [meddler(lambda: values.__setitem__(slice(None), ["new"] * 3)), "a" * 50, "b" * 50]
    message = py_pb.py_to_serialized_str((values,))
    assert py_pb.serialized_str_to_py(message) == [[109, "new", "new"]]

    values = [meddler(lambda: values.append(values)), 1, [None]]
    with pytest.raises(TypeError, match="^passing 'None' to ZORVAN not supported$"):
        py_pb.py_to_serialized_str((values,))


def test_dicts_and_sets_that_change_while_they_are_converted():
    fields = {"a": meddler(lambda: fields.clear()), "b": "y" * 50, "c": [1]}
    message = py_pb.py_to_serialized_str((fields,))
    assert fields == {}
    assert py_pb.serialized_str_to_py(message) == [{"a": 109, "b": "y" * 50, "c": [1]}]

    class Hashed(Meddler):
        __hash__ = object.__hash__

    item = Hashed(b"m")
    members = {item, "x", 1.5}
    item.meddle = members.clear
    (back,) = py_pb.serialized_str_to_py(py_pb.py_to_serialized_str((members,)))
    assert sorted(back, key=repr) == sorted(["x", 1.5, 109], key=repr)
    assert members == set()


def test_arguments_that_call_the_converter_again():
    def again():
        assert py_pb.serialized_str_to_py(py_pb.py_to_serialized_str((["\u00e9", 1],))) == [
            ["\u00e9", 1]
        ]

    values = ["\u00e8", meddler(again), "\u00ea", {"k": meddler(again)}]
    (back,) = py_pb.serialized_str_to_py(py_pb.py_to_serialized_str((values,)))
    assert back == ["\u00e8", 109, "\u00ea", {"k": 109}]


def test_objects_whose_questions_fail():
    class Broken(bytearray):
        @property
        def __class__(self):
            raise ZeroDivisionError("class")

    class Array:
        __module__ = "zorvan"

        @property
        def _is_complex(self):
            raise ZeroDivisionError("complex")

    class Undecided(Array):
        __module__ = "zorvan"

        class _is_complex:
            __bool__ = None

        _is_complex = _is_complex()

    Array.__name__ = Undecided.__name__ = "double"
    for value, error, text in (
        (Broken(b"x"), ZeroDivisionError, "class"),
        (Array(), AttributeError, "unable to retrieve attribute '_is_complex'"),
        (Undecided(), TypeError, "'NoneType' object is not callable"),
        (np.zeros(2, [("t", "M8[s]")]), ValueError, "cannot include dtype 'M'"),
    ):
        for argument in (value, [1, value], {"a": value}):
            with pytest.raises(error, match=text):
                py_pb.py_to_serialized_str((argument,))


@pytest.mark.skipif(sys.version_info < (3, 12), reason="Python classes cannot export buffers")
def test_exporters_written_in_python():
    class Exporter:
        def __init__(self, answer):
            self.answer = answer

        def __buffer__(self, flags):
            if isinstance(self.answer, Exception):
                raise self.answer
            return self.answer

    released = memoryview(b"abc")
    released.release()
    for answer, error in (
        (ZeroDivisionError("no"), ZeroDivisionError),
        (BufferError("no"), BufferError),
        (None, TypeError),
        (b"bytes", TypeError),
        (released, ValueError),
        (memoryview(b"ab").cast("c"), TypeError),
    ):
        for argument in (Exporter(answer), [1, Exporter(answer)]):
            with pytest.raises(error):
                py_pb.py_to_serialized_str((argument,))
    for flags in (memoryview(b"ab"), memoryview(bytearray(b"a1b1"))[::2]):
        value = py_pb.serialized_str_to_py(py_pb.py_to_serialized_str(([Exporter(flags), 1],)))
        assert np.asarray(value[0][0]).tobytes() == b"ab"


class Loner(str):
    """A text that equals nothing but itself."""

    __hash__ = object.__hash__

    def __eq__(self, other):
        return self is other


class Explosive(str):
    """A text that can be neither compared nor shown."""

    __hash__ = str.__hash__

    def __eq__(self, other):
        raise ZeroDivisionError

    __str__ = __repr__ = encode = __len__ = __iter__ = __eq__


def test_odd_field_names():
    fields = {Loner("a"): 1, Loner("b"): 2, "c": {Loner("a"): 3}, Explosive("d"): 4, "\0": 5}
    message = py_pb.py_to_serialized_str((fields,))
    assert py_pb.serialized_str_to_py(message) == [{"a": 1, "b": 2, "c": {"a": 3}, "d": 4, "\0": 5}]
    for name in (Loner(""), Loner("\ud800"), Explosive("\udfff")):
        with pytest.raises(ValueError, match="^field name passed to ZORVAN is empty$"):
            py_pb.py_to_serialized_str(({"a": 1, name: 2},))
    for fields in ({Loner("twice"): 1, Loner("twice"): 2}, {"twice": 1, "b": 2, Loner("twice"): 3}):
        for argument in (fields, [fields], {"outer": fields}):
            with pytest.raises(ValueError, match="twice"):
                py_pb.py_to_serialized_str((argument,))


@pytest.mark.parametrize("wrap", [lambda text: text, lambda text: [text, 1], lambda text: {"k": text}])
def test_code_that_runs_because_a_text_fails(wrap):
    """The handler of encoding errors may change the very list that is being read."""
    strict = codecs.lookup_error("strict")

    def clear(error):
        values.clear()
        raise error

    codecs.register_error("strict", clear)
    try:
        for count in (20, 300):
            for same in (True, False):
                values = [wrap("\ud800" + "x" * (1 if same else i)) for i in range(count)]
                with pytest.raises(UnicodeEncodeError):
                    py_pb.py_to_serialized_str((values,))
    finally:
        codecs.register_error("strict", strict)
