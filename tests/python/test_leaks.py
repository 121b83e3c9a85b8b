"""Conversions leave neither references nor memory behind, whether they succeed or fail."""

import array
import gc
import resource
import sys
import types

import numpy as np
import py_pb
import pytest
import zorvan


class Meddler(bytearray):
    """Empties a list when it is asked for its class."""

    @property
    def __class__(self):
        PREY.clear()
        return bytearray


class Loner(str):
    __hash__ = object.__hash__

    def __eq__(self, other):
        return self is other


def deep(levels):
    value = 1.5
    for _ in range(levels):
        value = {"a": [value, "\u00e9" * 40]}
    return value


def forged(name):
    return type(name, (), {"__module__": "zorvan"})()


PREY = []
MATRIX = np.arange(600.0).reshape(20, 30)
CYCLE = []
CYCLE.append((CYCLE,))
SELF = {}
SELF["a"] = SELF
RELEASED = memoryview(b"abc")
RELEASED.release()
NUMBERS = [1.5, 2, True, 3j, 2**62]
TEXTS = ["text", "h\u00e9" * 20, "\U0001f600", "x" * 2000, ""]

OUT = {
    "numbers": NUMBERS * 20,
    "texts": TEXTS * 5,
    "bytes": [b"b" * 2000, bytearray(2000), b"", b"x"],
    "containers": [[NUMBERS, TEXTS], (NUMBERS, {"a"}), {"a": TEXTS, "\u00e9": {"b": NUMBERS}}],
    "records": [{"a": i, "\u00e9": "x" * i, "c": [i]} for i in range(30)],
    "arrays": [MATRIX, MATRIX.T, MATRIX[::2, ::-3], MATRIX.astype("f2"), MATRIX.astype(">i4")],
    "scalars": [np.float64(1), np.int8(2), np.bool_(True), np.zeros((0, 5)), np.complex64(1j)],
    "exporters": [array.array("d", [1.0] * 300), memoryview(bytes(3000))[::2], np.ma.array(MATRIX)],
    "array classes": [zorvan.double(MATRIX), zorvan.int8([1, 2]), zorvan.logical([True, False])],
    "deep": deep(60),
}
BAD_OUT = {
    "none": None,
    "unsupported": object(),
    "generator": (i for i in NUMBERS),
    "forged": forged("double"),
    "forged object": forged("object"),
    "module of a forged class": type("Odd", (), {"__module__": 5})(),
    "too large": 2**64,
    "surrogate": "h\u00e9\ud800" * 500,
    "key": {"a": TEXTS, 5: TEXTS},
    "empty key": {"a": TEXTS, "": TEXTS},
    "surrogate key": {"a": TEXTS, "\udc00" * 500: TEXTS},
    "same key twice": {Loner("a" * 500): TEXTS, Loner("a" * 500): TEXTS},
    "cycle": CYCLE,
    "itself": SELF,
    "too deep": deep(300),
    "format": np.array([object()] * 100),
    "masked": np.ma.array(MATRIX, mask=True),
    "released": RELEASED,
    "too big": [MATRIX, np.broadcast_to(0.0, 2**40)],
    "no buffer": types.SimpleNamespace(dtype=np.dtype("f8")),
}


def fails(function, *arguments, **keywords):
    with pytest.raises(Exception) as raised:
        function(*arguments, **keywords)
    assert not isinstance(raised.value, MemoryError)


def send(value):
    return py_pb.py_to_serialized_str((value,))


def send_emptied():
    PREY[:] = ["x" * 3000, Meddler(b"x"), "y" * 3000]
    fails(send, PREY)


MESSAGE = py_pb.py_to_serialized_str(tuple(OUT.values()))
BROKEN_ARRAY = MESSAGE.replace(MATRIX.tobytes("F"), MATRIX.tobytes("F")[:-8])
assert len(BROKEN_ARRAY) != len(MESSAGE)
FRAME = b"\x1a\x09\x1a\x07\x0a\x03\xc3\xa9m\x18\x01"  # an error whose file name is not ASCII

ACTIONS = {
    **{f"send {name}": lambda value=value: send(value) for name, value in OUT.items()},
    **{
        f"refuse {name}": lambda value=value: (
            fails(send, value), fails(send, [MATRIX, TEXTS, {"a": 1, "b": value}])
        )
        for name, value in BAD_OUT.items()
    },
    **{
        f"return {name}": lambda message=send(value): py_pb.serialized_str_to_py(message)
        for name, value in OUT.items()
    },
    "no cell": lambda: fails(py_pb.py_to_serialized_str, MATRIX),
    "list that changes": send_emptied,
    "bad keywords": lambda: (
        fails(py_pb.py_to_serialized_str, TEXTS, nargout="x" * 2000),
        fails(py_pb.py_to_serialized_str, TEXTS, schema="y" * 2000),
        fails(py_pb.py_to_serialized_str, TEXTS, **{"z" * 2000: 1}),
        fails(py_pb.py_to_serialized_str, TEXTS, nargout=2**70),
        fails(py_pb.serialized_str_to_py, MESSAGE, schema=b"y" * 2000),
    ),
    "bad arguments": lambda: (
        fails(py_pb.py_to_serialized_str, TEXTS, TEXTS), fails(py_pb.serialized_str_to_py, "text"),
        fails(py_pb.serialized_str_to_py, memoryview(MESSAGE)[::2]),
    ),
    "truncated": lambda: (
        py_pb.serialized_str_to_py(memoryview(MESSAGE)[:1]),
        fails(py_pb.serialized_str_to_py, memoryview(MESSAGE)[: len(MESSAGE) // 2]),
        fails(py_pb.serialized_str_to_py, memoryview(MESSAGE)[:-90]),
    ),
    "broken array": lambda: fails(py_pb.serialized_str_to_py, BROKEN_ARRAY),
    "broken stack": lambda: fails(py_pb.serialized_str_to_py, FRAME),
    "array kept alive": lambda: np.asarray(py_pb.serialized_str_to_py(send(MATRIX))[0]).T,
}  # fmt: skip


def resident_bytes():
    with open("/proc/self/statm") as statm:
        return int(statm.read().split()[1]) * resource.getpagesize()


def watched_objects():
    """What conversions take references to and what outlives them, unless it is immortal."""
    objects = [None, True, False, (), "", b"", zorvan.object, zorvan.double, zorvan.uint8]
    objects += [bytes, list, dict, TypeError, ValueError, OverflowError, RecursionError]
    objects += [MESSAGE, BROKEN_ARRAY, MATRIX, MATRIX.dtype, np.ndarray, np.ma.MaskedArray, np.ma]
    for values in (NUMBERS, TEXTS, OUT.values(), BAD_OUT.values(), *OUT.values()):
        objects += values
    return [each for each in objects if sys.getrefcount(each) < 2**29]


def state():
    gc.collect()
    counts = [sys.getrefcount(each) for each in watched_objects()]
    return resident_bytes(), sys.getallocatedblocks(), counts


@pytest.mark.parametrize("name", ACTIONS)
def test_nothing_is_left_behind(name, capfd):
    repeat(ACTIONS[name], 100)
    memory, blocks, counts = state()
    repeat(ACTIONS[name], TIMES)
    later_memory, later_blocks, later_counts = state()
    grown = [
        each
        for each, before, after in zip(watched_objects(), counts, later_counts)
        if abs(after - before) >= TIMES // 2
    ]
    assert not grown
    assert later_blocks - blocks < TIMES // 2
    assert later_memory - memory < 2**20
    capfd.readouterr()


TIMES = 1000


def repeat(action, times):
    for _ in range(times):
        action()
