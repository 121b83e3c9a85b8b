"""Whatever exports a buffer goes out as numpy.asfortranarray would lay it out."""

import array
import ctypes
import mmap
import sys

import numpy as np
import py_pb
import pytest
import zorvan
import zorvan.reader
from hypothesis import given, settings
from hypothesis import strategies as st
from hypothesis.extra import numpy as hnp
from test_ndarray_buffers import LAYOUTS, sample

# Element types of the engine by the dtype that they have in numpy.
TYPES = {
    "bool": "LOGICAL", "float64": "DOUBLE", "float32": "SINGLE", "complex128": "COMPLEX_DOUBLE",
    "complex64": "COMPLEX_SINGLE",
    **{f"{kind}{bits}": f"{kind.upper()}{bits}" for kind in ("int", "uint") for bits in (8, 16, 32, 64)},
}  # fmt: skip
DTYPE_OF = {kind: np.dtype(name) for name, kind in TYPES.items()}
# A second name of the same type has a format of its own, so has each byte order.
DTYPES = [*TYPES, "float16", "longlong", "ulonglong", "intc", "uintc"]
DTYPES = [np.dtype(name).newbyteorder(order) for name in DTYPES for order in "<>"]
IDS = [dtype.str + dtype.char for dtype in DTYPES]


@pytest.fixture(scope="module")
def sent():
    """Type, dimensions and elements of one argument, as the reference reader has them."""

    def send(value):
        (tree,) = zorvan.reader.read(py_pb.py_to_serialized_str([value])).arrays
        elements = np.array(tree["elements"], DTYPE_OF[tree["type"].removeprefix("COMPLEX_")])
        return tree["type"], tree["dims"], elements.tobytes()

    return send


def expected(a):
    native = np.asfortranarray(a, a.dtype.newbyteorder("="))
    if native.dtype == np.float16:
        native = native.astype(np.float32)
    dims = list(a.shape) if a.ndim > 1 else [1, a.size]
    return TYPES[native.dtype.name], dims, native.tobytes("F")


@pytest.mark.parametrize("layout", LAYOUTS.values(), ids=LAYOUTS)
def test_every_layout_of_every_dtype(sent, layout):
    for dtype in DTYPES:
        a = layout(sample(dtype))
        before = a.tobytes()
        assert sent(a) == expected(a)
        assert a.tobytes() == before


@pytest.mark.parametrize("dtype", DTYPES, ids=IDS)
def test_limits_of_every_dtype(sent, messages, dtype):
    if dtype.kind in "fc":
        finite = np.finfo(dtype)
        values = [finite.max, finite.tiny, -0.0, np.nan, -np.inf, finite.smallest_subnormal]
    else:
        values = [0, 1] if dtype.kind == "b" else [np.iinfo(dtype).min, np.iinfo(dtype).max]
    for a in (np.array(values, dtype), np.array(values[:1], dtype), np.array(values[0], dtype)):
        assert sent(a) == expected(a)
    bits = np.frombuffer(bytes(range(1, 241)), dtype) if dtype.kind != "b" else np.array([True, False])
    # As bytes: a NaN has bits that a Python number need not keep.
    message = messages.ZORVAN_Params.FromString(py_pb.py_to_serialized_str([bits]))
    assert message.tape.dense == expected(bits)[2]


@given(st.data())
@settings(deadline=None, max_examples=200)
def test_any_slice_of_any_array(sent, data):
    a = data.draw(
        hnp.arrays(
            data.draw(st.sampled_from([dtype for dtype in DTYPES if dtype.char != "e"])),
            hnp.array_shapes(min_dims=0, max_dims=5, min_side=0, max_side=6),
        )
    )
    axes = data.draw(st.permutations(range(a.ndim)))
    view = a.transpose(axes)[data.draw(hnp.basic_indices(a.shape and a.transpose(axes).shape))]
    assert sent(np.asanyarray(view)) == expected(np.asanyarray(view))


def mapped(content):
    memory = mmap.mmap(-1, len(content))
    memory[:] = content
    return memory


MOST_DIMENSIONS = 64 if int(np.__version__.partition(".")[0]) > 1 else 32


class Subclass(np.ndarray):
    pass


class Bytes(bytes):
    pass


class ByteArray(bytearray):
    pass


BYTES = memoryview(bytes(range(24)))
EXPORTERS = {
    **{
        f"array {code}": (array.array(code, [1, 0, 100]), np.array([1, 0, 100], code))
        for code in "bBhHiIlLqQfd"
    },
    "empty array": (array.array("d"), np.zeros(0)),
    "ctypes array": ((ctypes.c_int16 * 3)(1, -2, 3), np.array([1, -2, 3], "i2")),
    "ctypes matrix": (
        ((ctypes.c_double * 3) * 2)((1, 2, 3), (4, 5, 6)),
        np.array([[1.0, 2.0, 3.0], [4.0, 5.0, 6.0]]),
    ),
    "ctypes bool": ((ctypes.c_bool * 2)(True, False), np.array([True, False])),
    "ctypes number": (ctypes.c_float(2.5), np.array(2.5, "f4")),
    "ctypes swapped": ((ctypes.c_uint32.__ctype_be__ * 2)(1, 2), np.array([1, 2], "u4")),
    "memoryview": (BYTES, np.arange(24, dtype="u1")),
    "memoryview sliced": (BYTES[3:20:4], np.arange(24, dtype="u1")[3:20:4]),
    "memoryview reversed": (BYTES[::-1], np.arange(24, dtype="u1")[::-1]),
    "memoryview cast": (BYTES.cast("h"), np.frombuffer(BYTES, "h")),
    "memoryview matrix": (
        BYTES.cast("i", (2, 3)),
        np.frombuffer(BYTES, "i").reshape(2, 3),
    ),
    "memoryview number": (memoryview(np.array(7, "i2")), np.array(7, "i2")),
    "memoryview empty": (memoryview(b""), np.zeros(0, "u1")),
    "memoryview of an array": (
        memoryview(np.arange(6.0).reshape(2, 3).T),
        np.arange(6.0).reshape(2, 3).T,
    ),
    "mmap": (mapped(b"\0\1\xff" * 2000), np.array([0, 1, 255] * 2000, "u1")),
    "bytes subclass": (Bytes(b"\0\xff"), np.array([0, 255], "u1")),
    "bytearray subclass": (ByteArray(b""), np.zeros(0, "u1")),
    "numpy subclass": (np.arange(6).reshape(2, 3).view(Subclass), np.arange(6).reshape(2, 3)),
    "numpy matrix": (np.eye(2).view(np.matrix), np.eye(2)),
    "masked array without a mask": (np.ma.array([1.5, 2.5]), np.array([1.5, 2.5])),
    "masked array, nothing masked": (np.ma.array([1, 2], mask=[0, 0]), np.array([1, 2])),
    "odd bools": (np.array([0, 1, 2, 255] * 39, "u1").view(bool), np.array([0, 1, 1, 1] * 39, bool)),
    "record field": (
        np.array([(1, 2.5), (3, 4.5)], [("a", "i1"), ("b", "f8")])["b"],
        np.array([2.5, 4.5]),
    ),
    "most dimensions": (np.ones((1,) * MOST_DIMENSIONS), np.ones((1,) * MOST_DIMENSIONS)),
    "huge and empty": (np.zeros((0, 2**40), "f8"), np.zeros((0, 2**40), "f8")),
    "bytes": (b"\1\2", np.array([1, 2], "u1")),
}
EXPORTERS |= {
    f"numpy.{kind.__name__}": (kind(1), np.array(kind(1)))
    for kind in {np.dtype(name).type for name in DTYPES}
}


@pytest.mark.parametrize("name", EXPORTERS)
def test_other_exporters(sent, name):
    value, a = EXPORTERS[name]
    assert sent(value) == expected(a)


NAMES = [name for name in TYPES if not name.startswith("complex") and name != "bool"]


@pytest.mark.parametrize("shape", [(1, 1), (2, 3), (3, 1), (0, 4), (2, 2, 2)])
def test_array_classes(sent, shape):
    for code in NAMES:
        a = np.arange(np.prod(shape)).reshape(shape).astype(code)
        cls = getattr(zorvan, {"float64": "double", "float32": "single"}.get(code, code))
        assert sent(cls(a)) == expected(a)
        twin = cls(a, is_complex=True)
        pairs = np.stack([a.ravel("F"), np.zeros(a.size, code)], axis=1)
        assert sent(twin) == ("COMPLEX_" + TYPES[code], list(shape), pairs.tobytes())
    flags = np.arange(np.prod(shape)).reshape(shape) % 2 == 1
    assert sent(zorvan.logical(flags)) == expected(flags)


@pytest.mark.parametrize(
    "value, error, text",
    [
        (np.array([1, "x", None], object), TypeError, "'O'"),
        (np.array(["abc"]), TypeError, "'3w'"),
        (np.str_("abc"), TypeError, "'3w'"),
        (np.array(["abc"], ">U3"), TypeError, "3w"),
        (np.array([b"abc"]), TypeError, "'3s'"),
        (np.zeros(2, "S0"), TypeError, "s'"),
        (np.zeros(2, "V4"), TypeError, "'4x'"),
        (np.zeros(2, "V0"), TypeError, "'0x'"),
        (np.zeros(2, [("a", "i4"), ("b", "f8")]), TypeError, "'T{i:a:=d:b:}'"),
        (np.zeros(2, [("real", "f8"), ("imag", "f8")]), TypeError, "'T{d:real:d:imag:}'"),
        (np.zeros(3, "longdouble"), TypeError, "'g'"),
        (np.longdouble(1), TypeError, "'g'"),
        (np.zeros(3, "clongdouble"), TypeError, "'Zg'"),
        ((ctypes.c_longdouble * 2)(), TypeError, "g'"),
        ((ctypes.c_wchar * 2)(), TypeError, "'<"),
        (ctypes.py_object(5), TypeError, "O'"),
        (array.array("u", "ab"), TypeError, "'w'"),
        (BYTES.cast("P"), TypeError, "'P'"),
        (BYTES.cast("c"), TypeError, "'c'"),
        (np.ma.array([1, 2], mask=[0, 1]), TypeError, "masked"),
        (np.ma.masked, TypeError, "masked"),
        (np.ma.array(np.ones((2, 2)), mask=True), TypeError, "masked"),
        (np.broadcast_to(0.0, 400_000_000), ValueError, "exceeds the limit of 2 GiB"),
        (np.broadcast_to(np.int8(0), (2**31, 2**31)), ValueError, "exceeds the limit of 2 GiB"),
        ([np.broadcast_to(np.int8(0), 2**30)] * 2, ValueError, "exceeds the limit of 2 GiB"),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_refusals(value, error, text):
    for argument in (value, [1.0, value], {"a": value}):
        with pytest.raises(error) as raised:
            py_pb.py_to_serialized_str((argument,))
        assert type(raised.value) is error
        assert text in str(raised.value)


def test_a_released_memoryview():
    memory = bytearray(b"abc")
    view = memoryview(memory)
    view.release()
    with pytest.raises(ValueError, match="released memoryview"):
        py_pb.py_to_serialized_str(([1.0, view],))


def test_exporters_are_let_go():
    memory, mapping, numbers = bytearray(bytes(64)), mapped(bytes(64)), array.array("d", [1.0] * 9)
    view = memoryview(memory)
    arguments = ([memory, view, mapping, numbers],)
    counts = [sys.getrefcount(each) for each in arguments[0]]
    py_pb.py_to_serialized_str(arguments)
    for bad in (None, 2**63, np.zeros(2, "g")):
        with pytest.raises((TypeError, OverflowError)):
            py_pb.py_to_serialized_str(([*arguments[0], bad],))
    assert [sys.getrefcount(each) for each in arguments[0]] == counts
    view.release()
    memory.append(1)
    mapping.close()
    numbers.append(1.0)
