"""Bytes and objects made to do harm: they fail in order, or do no harm. A crash ends the run."""

import codecs
import pathlib
import sys

import numpy as np
import numpy.ma  # its classes are asked about only when it is loaded
import py_pb
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

REFUSALS = (SystemError, TypeError, ValueError, RecursionError, OverflowError)
(LOGICAL, CHAR, STRING, DOUBLE) = range(1, 5)
(INT64, CELL, STRUCT, VALUE_OBJECT, HANDLE, ENUMERATION, SPARSE_DOUBLE) = (
    12, 24, 25, 27, 28, 29, 31,
)  # fmt: skip


def decode(message):
    """The value, or None when it was refused as it should be."""
    try:
        value = py_pb.serialized_str_to_py(message)
    except REFUSALS:
        return None
    assert type(value) in (list, dict)
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
        {"type": STRING, "dims": [1, 3], "text_len": [2, 0, 4], "text": "x\u4e16".encode()},
        {"type": CELL, "dims": [1, 2], "item_type": STRING, "text_len": [0, 1], "text": b""},
        {"type": CELL, "dims": [2], "kinds": bytes([STRING, INT64]), "ints": [5], "text_len": [0]},
        {"type": VALUE_OBJECT, "class_name": b"C", "names": [b"p"], "children": [{"type": CHAR,
         "elements": b"p\0"}]},
        {"type": HANDLE, "dims": [1, 2], "class_name": b"H", "ref": [1, 2**64 - 1]},
    ]  # fmt: skip
    refused = [
        {"type": ENUMERATION, "class_name": b"E", "text_len": [4], "text": b"red"},
        {"type": SPARSE_DOUBLE, "dims": [2, 2], "rows": [0, 1], "col_starts": [0, 1, 2],
         "elements": bytes(16)},
    ]  # fmt: skip
    error = {"message": "failed", "identifier": "a:b", "stack": [{"file": "f", "line": 3}]}
    good = [
        py_pb.py_to_serialized_str(ARGUMENTS),
        messages.ZORVAN_Result(arrays=engine).SerializeToString(),
        messages.ZORVAN_Result(arrays=engine[:1], error=error).SerializeToString(),
    ]
    assert all(decode(message) is not None for message in good)
    return [*good, *(messages.ZORVAN_Result(arrays=[each]).SerializeToString() for each in refused)]


def test_truncated_at_every_offset(corpus):
    whole = decode(corpus[0])
    lengths = set()
    for message in corpus:
        for end in range(len(message)):
            value = decode(message[:end])
            if message is corpus[0] and value is not None:
                # What was read before the break is kept, and nothing else is there.
                assert repr(value[:-1]) == repr(whole[: max(len(value) - 1, 0)])
                lengths.add(len(value))
    assert {0, 1, len(ARGUMENTS)} <= lengths


def test_every_bit_flipped(corpus):
    for message in corpus:
        for bit in range(8 * len(message)):
            hurt = bytearray(message)
            hurt[bit // 8] ^= 1 << bit % 8
            decode(hurt)


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
        {"type": STRING, "text_len": [5], "text": b"abc"},
        {"type": STRING, "text_len": [3], "text": b"abc"},
        {"type": STRING, "text_len": [2], "text": b"\xff"},
        {"type": CELL, "dims": [1, 2**62]},
        {"type": CELL, "dims": [1, 2], "children": [{"type": DOUBLE, "elements": bytes(8)}]},
        {"type": CELL, "dims": [1, 2], "item_type": DOUBLE, "elements": bytes(24)},
        {"type": CELL, "dims": [1, 2], "item_type": INT64, "ints": [1]},
        {"type": CELL, "dims": [1, 2], "item_type": LOGICAL, "ints": [0, 2]},
        {"type": CELL, "dims": [1, 1], "item_type": CHAR, "text_len": [0]},
        {"type": CELL, "dims": [1, 2], "kinds": bytes([INT64, DOUBLE]), "ints": [1]},
        {"type": CELL, "dims": [1, 1], "kinds": bytes([INT64]), "ints": [1, 2]},
        {"type": CELL, "dims": [1, 1], "kinds": b"\0"},
        {"type": CELL, "dims": [1, 1], "kinds": bytes([CELL])},
        {"type": CELL, "dims": [1, 1], "kinds": b"\xff"},
        {"type": CELL, "dims": [1, 2], "item_type": STRUCT, "names": [b"a"],
         "children": [{"type": CELL, "item_type": INT64, "ints": [1]}]},
        {"type": CELL, "dims": [1, 2**62], "item_type": STRUCT},
        {"type": STRUCT, "names": [b"a", b"b"], "children": [{"type": CELL, "dims": [0, 0]}]},
        {"type": STRUCT, "names": [b"a", b"a"], "item_type": INT64, "ints": [1, 2]},
        {"type": STRUCT, "names": [b"\xff"], "item_type": INT64, "ints": [1]},
        *({"type": code, "names": [b"a"], "item_type": STRUCT,  # records lie in cells only
           "children": [{"type": CELL, "item_type": INT64, "ints": [1]}]}
          for code in (STRUCT, VALUE_OBJECT)),
        {"type": STRUCT, "dims": [2**63, 2], "names": [b"a", b"b"]},
        {"type": HANDLE, "dims": [1, 3], "class_name": b"H", "ref": [1]},
        {"type": ENUMERATION, "dims": [1, 2], "class_name": b"E", "text_len": [1]},
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


def records_in_records(messages, levels, count):
    """`count` records of one field each, which hold records, and so on."""
    column = {"type": CELL, "dims": [1, count], "item_type": LOGICAL, "elements": bytes(count)}
    for _ in range(levels):
        column = {"type": CELL, "dims": [1, count], "item_type": STRUCT, "names": [b"a"],
                  "children": [column]}  # fmt: skip
    return messages.ZORVAN_Result(arrays=[column]).SerializeToString()


BOMBS = {
    "logicals": lambda messages: records_in_records(messages, 0, 10**6),
    "records in records": lambda messages: records_in_records(messages, 40, 10**4),
    "arrays without fields": lambda messages: b"\x0a\x00" * 200_000,
    "missing strings": lambda messages: messages.ZORVAN_Result(
        arrays=[{"type": STRING, "dims": [1, 10**6], "text_len": [0] * 10**6}]
    ).SerializeToString(),
    "names": lambda messages: messages.ZORVAN_Result(
        arrays=[{"type": STRUCT, "dims": [0, 0], "names": [b"%d" % i for i in range(10**5)]}]
    ).SerializeToString(),
}


@pytest.mark.skipif(
    "libasan" in pathlib.Path("/proc/self/maps").read_text(), reason="keeps freed memory"
)
@pytest.mark.parametrize("name", BOMBS)
def test_memory_is_bounded_by_the_size_of_the_message(messages, name):
    message = BOMBS[name](messages)
    assert peak_of(lambda: decode(message)) < 200 * len(message) + 2**24


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
