"""What Python values become on their way out, as zorvan-inspect shows it, and which are refused."""

import collections
import datetime
import decimal
import enum
import json
import math
import pathlib
import random
import subprocess
import sys
import threading
import types

import py_pb
import pytest

NO_NONE = "passing 'None' to ZORVAN not supported"
INT64_MIN, INT64_MAX = -(2**63), 2**63 - 1


def unsupported(name):
    return f"conversion of Python data type '{name}' to ZORVAN not supported"


def shown(value):
    """What the inspector says of one argument."""
    message = py_pb.py_to_serialized_str((value,))
    done = subprocess.run(
        ["zorvan-inspect", "--json", "-"], input=message, capture_output=True, check=True
    )
    (array,) = json.loads(done.stdout)["arrays"]
    return array


def scalar(type, value):
    return {"type": type, "dims": [1, 1], "elements": [value]}


def char(text):
    return {"type": "CHAR", "dims": [1, len(text.encode("utf-16-le")) // 2], "text": text}


def row(type, *elements):
    return {"type": type, "dims": [1, len(elements)], "elements": list(elements)}


def struct(**fields):
    names = list(fields)
    return {"type": "STRUCT", "dims": [1, 1], "fields": names, "elements": [fields]}


ONE = scalar("INT64", 1)


@pytest.mark.parametrize(
    "value, expected",
    [
        (1.0, scalar("DOUBLE", 1.0)),
        (-math.inf, scalar("DOUBLE", "-Inf")),
        (math.nan, scalar("DOUBLE", "NaN")),
        (5e-324, scalar("DOUBLE", 5e-324)),
        (1, ONE),
        (INT64_MIN, scalar("INT64", INT64_MIN)),
        (INT64_MAX, scalar("INT64", INT64_MAX)),
        (True, scalar("LOGICAL", True)),
        (False, scalar("LOGICAL", False)),
        (complex(0, 0), scalar("COMPLEX_DOUBLE", [0.0, 0.0])),
        (complex(-1.5, math.inf), scalar("COMPLEX_DOUBLE", [-1.5, "Inf"])),
        ("", char("")),
        ("abc", char("abc")),
        ("h\u00e9\u4e16\ufeff", char("h\u00e9\u4e16\ufeff")),
        ("\U0001f600", char("\U0001f600")),
        ("nul\0inside\0", char("nul\0inside\0")),
        ("x\U0001f600" * 40000, char("x\U0001f600" * 40000)),
        (b"", row("UINT8")),
        (b"\0\xff", row("UINT8", 0, 255)),
        (bytearray(b""), row("UINT8")),
        (bytearray(b"\x80"), row("UINT8", 128)),
        ([], row("CELL")),
        ((), row("CELL")),
        (set(), row("CELL")),
        ([1.0, 2.0], row("CELL", scalar("DOUBLE", 1.0), scalar("DOUBLE", 2.0))),
        ([1, "a", [1]], row("CELL", ONE, char("a"), row("CELL", ONE))),
        (("", [], b""), row("CELL", char(""), row("CELL"), row("UINT8"))),
        ([1, True, 1.0], row("CELL", ONE, scalar("LOGICAL", True), scalar("DOUBLE", 1.0))),
        ({"x"}, row("CELL", char("x"))),
        ({}, struct()),
        ({"b": 1, "a": "t"}, struct(b=ONE, a=char("t"))),
        ({"no identifier!": 1, "\u00e9": {}}, struct(**{"no identifier!": ONE, "\u00e9": struct()})),
        ([{"a": 1}, {"a": "t"}], row("CELL", struct(a=ONE), struct(a=char("t")))),
        ([{"a": 1}, {"b": 1}], row("CELL", struct(a=ONE), struct(b=ONE))),
        ([{}, {}], row("CELL", struct(), struct())),
    ],
    ids=lambda value: f"{value!r:.40}",
)  # fmt: skip
def test_values(value, expected):
    assert shown(value) == expected


def test_a_set_is_sent_whole_and_left_alone():
    dice = random.Random(1)
    numbers = {dice.randint(INT64_MIN, INT64_MAX) for _ in range(500)}
    before = set(numbers)
    sent = [item["elements"][0] for item in shown(numbers)["elements"]]
    assert numbers == before
    assert len(sent) == len(numbers)
    assert set(sent) == numbers


class IntKind(enum.IntEnum):
    ONE = 1


class Integer(int):
    pass


class Number(float):
    pass


class Unordered(set):
    pass


def generator():
    yield 1


@pytest.mark.parametrize(
    "value, name",
    [
        (generator(), "generator"),
        (types, "module"),
        (generator, "function"),
        (object(), "object"),
        (object, "type"),
        (..., "ellipsis"),
        (frozenset(), "frozenset"),
        (datetime.date(2020, 2, 29), "datetime.date"),
        (datetime.time(1), "datetime.time"),
        (decimal.Decimal(1), "decimal.Decimal"),
        (collections.deque(), "collections.deque"),
        (IntKind.ONE, f"{__name__}.IntKind"),
        (Integer(1), f"{__name__}.Integer"),
        (Number(1), f"{__name__}.Number"),
        (Unordered(), f"{__name__}.Unordered"),
    ],
    ids=lambda value: f"{value!r:.30}",
)
def test_types_without_a_way_over(value, name):
    assert_refused(value, TypeError, unsupported(name))


def assert_refused(value, error, text):
    """At the top, and out of every container, once and again."""
    for argument in (value, (value,), ([1.0, [value]],), ({"a": 1, "b": value},)):
        for _ in range(2):
            with pytest.raises(error) as raised:
                py_pb.py_to_serialized_str(argument)
            assert (type(raised.value), str(raised.value)) == (error, text)


class Liar(type):
    """Names its classes one way and shows another."""

    __module__ = property(lambda cls: "builtins")
    __name__ = property(lambda cls: "float")


class Unreadable(type):
    def __getattribute__(cls, name):
        raise ZeroDivisionError(name)


def forged(module, name, *bases, **members):
    return type(name, bases, {"__module__": module, **members})()


@pytest.mark.parametrize(
    "value, error, text",
    [
        *(
            (forged("builtins", name, *bases), TypeError, unsupported(name))
            for name, *bases in [
                ("list", list), ("list",), ("dict", dict), ("tuple", tuple), ("set",), ("str", str),
                ("bytes", bytes), ("bytearray", bytearray), ("int", int), ("float",), ("complex",),
                ("bool",), ("memoryview",), ("NoneType",), ("NULL",), ("<buffer>",),
            ]
        ),
        *(
            (forged(*name.split(".")), TypeError, unsupported(name))
            for name in ("zorvan.object", "zorvan.dictionary", "datetime.datetime")
        ),
        (forged("zorvan", "double"), AttributeError, "unable to retrieve attribute '_is_complex'"),
        (
            forged("zorvan", "int8", _is_complex=True),
            TypeError,
            "capsule unable to retrieve object contents",
        ),
        (
            forged("zorvan", "logical", bytearray),
            TypeError,
            "capsule unable to retrieve object contents",
        ),
        (forged("numpy", "ndarray"), AttributeError, "unable to retrieve attribute 'dtype'"),
        (
            forged("numpy", "ndarray", dtype=types.SimpleNamespace(kind="")),
            AttributeError,
            "unable to retrieve attribute 'Unable to retrieve kind from string'",
        ),
        (forged(5, "Odd"), TypeError, unsupported("Odd")),
        (forged("", "Odd"), TypeError, unsupported("Odd")),
        (forged("\ud800", "Odd"), TypeError, unsupported("Odd")),
        (Liar("Odd", (), {"__module__": "m"})(), TypeError, unsupported("m.Odd")),
        (Unreadable("Odd", (), {"__module__": "m"})(), TypeError, unsupported("m.Odd")),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)  # fmt: skip
def test_names_are_not_believed(value, error, text):
    assert_refused(value, error, text)


def test_a_class_without_a_module():
    for name in ("Odd", "list", "float"):
        globals_without_a_name = {"name": name}
        exec("cls = type(name, (), {})", globals_without_a_name)
        cls = globals_without_a_name["cls"]
        assert "__module__" not in vars(cls)
        assert_refused(cls(), TypeError, unsupported(name))


@pytest.mark.parametrize(
    "value, error, text",
    [
        (None, TypeError, NO_NONE),
        ({None}, TypeError, NO_NONE),
        ({1: 2, "a": 1}, ValueError,
         "field name of Python dict object passed to ZORVAN must be a nonempty string"),
        ({"a": 1, None: 2}, ValueError,
         "field name of Python dict object passed to ZORVAN must be a nonempty string"),
        ({"a": 1, "": 2}, ValueError, "field name passed to ZORVAN is empty"),
        ({"a": 1, "\udc00": 2}, ValueError, "field name passed to ZORVAN is empty"),
        ({"a": None, "": 2}, ValueError, "field name passed to ZORVAN is empty"),
        (2**63, OverflowError, "int too big to convert"),
        (-(2**63) - 1, OverflowError, "int too big to convert"),
        (10**4000, OverflowError, "int too big to convert"),
    ],
    ids=lambda value: f"{value!r:.40}",
)  # fmt: skip
def test_values_without_a_way_over(value, error, text):
    assert_refused(value, error, text)


@pytest.mark.parametrize(
    "text", ["\ud800", "abc\udfff", "\u00e9\ude00\ud83d", "x" * 5000 + "\ud8ff"]
)
def test_lone_surrogates_are_the_utf_16_encoders_error(text):
    with pytest.raises(UnicodeEncodeError) as expected:
        text.encode("utf-16")
    for argument in (text, [text], ["ab", "\u00e9", text], {"a": text}, {text}):
        with pytest.raises(UnicodeEncodeError) as raised:
            py_pb.py_to_serialized_str((argument,))
        assert str(raised.value) == str(expected.value)


@pytest.mark.parametrize("value", [1.0, "text", True, b"bytes", {}, {"a": 1}])
def test_only_what_becomes_a_cell_array_is_an_argument_list(value):
    with pytest.raises(ValueError, match="cell array"):
        py_pb.py_to_serialized_str(value)
    assert py_pb.py_to_serialized_str([value]) == py_pb.py_to_serialized_str((value,))


# ---- nesting ----


def wrapped(levels, wrap, value=1):
    for _ in range(levels):
        value = wrap(value)
    return value


WRAPS = {
    "list": lambda value: [value],
    "tuple": lambda value: (value,),
    "dict": lambda value: {"a": value},
    "records": lambda value: [{"a": value, "b": 1}, {"a": 2, "b": 3}],
}


def test_containers_in_themselves():
    recursive_list, recursive_dict, roundabout, spiral = [], {}, [], {}
    recursive_list += [1, recursive_list]
    recursive_dict.update(a=1, b=recursive_dict)
    roundabout.append((1, (roundabout,)))
    spiral["a"] = [{"b": spiral}]
    for value, error, text in (
        (recursive_list, ValueError, "passing recursive list to ZORVAN not supported"),
        (recursive_dict, ValueError, "passing recursive dict to ZORVAN not supported"),
        (roundabout, RecursionError, "nesting deeper than 256 levels not supported"),
        (spiral, RecursionError, "nesting deeper than 256 levels not supported"),
    ):
        assert_refused(value, error, text)


@pytest.mark.parametrize("wrap", WRAPS.values(), ids=WRAPS)
def test_a_million_levels_are_too_many(wrap):
    limit = sys.getrecursionlimit()
    value = wrapped(10**6, wrap)
    try:
        sys.setrecursionlimit(10**8)
        for _ in range(3):
            with pytest.raises(RecursionError):
                py_pb.py_to_serialized_str((value,))
    finally:
        sys.setrecursionlimit(limit)
        while not isinstance(value, int):  # from outside in, or freeing it would recurse
            value = next(iter(value.values())) if isinstance(value, dict) else value[0]
    assert py_pb.py_to_serialized_str(([[1]],))


def in_small_thread(function):
    """Runs it on a stack of 512 KiB and returns what it returns."""
    results = []
    sanitized = "libasan" in pathlib.Path("/proc/self/maps").read_text()  # its frames are wider
    previous = threading.stack_size((4096 if sanitized else 512) * 1024)
    try:
        thread = threading.Thread(target=lambda: results.append(function()))
        thread.start()
        thread.join()
    finally:
        threading.stack_size(previous)
    (result,) = results
    return result


def deepest(wrap):
    """How many levels go out; all fewer of them must, and must come back as well."""
    levels = 0
    try:
        while True:
            value = wrapped(levels + 1, wrap)
            message = py_pb.py_to_serialized_str((value,))
            levels += 1
            assert flat(py_pb.serialized_str_to_py(message)) == flat([value])
    except RecursionError:
        return levels


def flat(value):
    """Its text without the help of recursion, tuples as lists."""
    text, rest = [], [value]
    while rest:
        value = rest.pop()
        if isinstance(value, dict):
            text.append(f"dict{list(value)}")
            rest.extend(value.values())
        elif isinstance(value, (list, tuple)):
            text.append(f"list{len(value)}")
            rest.extend(value)
        else:
            text.append(repr(value))
    return text


@pytest.mark.parametrize("wrap", WRAPS.values(), ids=WRAPS)
def test_what_nests_deep_goes_out_and_comes_back_on_a_small_stack(wrap):
    per_level = 2 if wrap is WRAPS["records"] else 1
    assert in_small_thread(lambda: deepest(wrap)) * per_level >= 200
