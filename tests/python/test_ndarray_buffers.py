"""Buffers that the array classes read and export."""

import array
import ctypes
import gc
import io
import math
import mmap
import sys

import numpy as np
import pytest
import zorvan
from hypothesis import given, settings
from hypothesis import strategies as st
from hypothesis.extra import numpy as hnp

DTYPE_OF = {
    "double": np.float64,
    "single": np.float32,
    "logical": np.bool_,
    **{
        f"{sign}int{bits}": np.dtype(f"{sign}int{bits}")
        for sign in ("", "u")
        for bits in (8, 16, 32, 64)
    },
}
CLASSES = [getattr(zorvan, name) for name in DTYPE_OF]

# numpy dtype -> class that holds it without loss
SOURCES = {
    **{np.dtype(dtype).str: name for name, dtype in DTYPE_OF.items()},
    "<f2": "single",
    "<c8": "single",
    "<c16": "double",
}
SWAPPED = {code.replace("<", ">"): name for code, name in SOURCES.items() if code[0] == "<"}

LAYOUTS = {
    "c": lambda a: a,
    "fortran": np.asfortranarray,
    "transposed axes": lambda a: a.transpose(1, 0, 2),
    "strided": lambda a: a[::2, ::3, ::2],
    "reversed": lambda a: a[::-1, :, ::-1],
    "strided and reversed": lambda a: a[::-2, ::-3],
    "broadcast": lambda a: np.broadcast_to(a[:, :1], a.shape),
    "slice of a 3-D array": lambda a: a[:, 1],
    "one dimension": lambda a: a[1, :, 1],
    "one dimension reversed": lambda a: a.ravel()[::-1],
    "wider than a panel": lambda a: np.resize(a, (11, 300)),
    "overlapping windows": lambda a: np.lib.stride_tricks.sliding_window_view(a[1, :, 1], 5),
    "no dimension": lambda a: a[1, 1, 1].reshape(()),
    "no elements": lambda a: a[:, :0],
    "read-only": lambda a: np.frombuffer(a.tobytes(), a.dtype).reshape(a.shape),
    "unaligned": lambda a: unaligned(a),
    "unaligned fortran": lambda a: unaligned(a.T).T,
    "fields of records": lambda a: in_records(a),
}


def unaligned(a):
    memory = bytearray(a.nbytes + 1)
    result = np.ndarray(a.shape, a.dtype, memory, offset=1)
    result[...] = a
    return result


def in_records(a):
    records = np.zeros(a.shape, [("pad", "u1"), ("value", a.dtype)])
    records["value"] = a
    return records["value"]


def sample(dtype, shape=(9, 17, 5)):
    random = np.random.default_rng(len(str(dtype)))
    bits = random.integers(0, 100, shape)
    if np.dtype(dtype).kind == "c":
        return (bits + 1j * bits[::-1]).astype(dtype)
    return (bits % 2 if np.dtype(dtype).kind == "b" else bits).astype(dtype)


def same_elements(result, expected):
    """Whether the array is what Fortran order would make of `expected`, bit for bit."""
    shape = {0: (1, 1), 1: (1, expected.size)}.get(expected.ndim, expected.shape)
    wanted = expected.astype(np.asarray(result).dtype, copy=False)
    return result.size == shape and memoryview(result).tobytes("F") == wanted.tobytes("F")


# ---- buffers in ----


@pytest.mark.parametrize("layout", LAYOUTS)
@pytest.mark.parametrize("dtype", SOURCES | SWAPPED)
def test_every_layout_and_dtype_reads_as_fortran_order(dtype, layout):
    source = LAYOUTS[layout](sample(dtype))
    name = (SOURCES | SWAPPED)[dtype]
    result = getattr(zorvan, name)(source)
    assert result._is_complex == (source.dtype.kind == "c")
    assert same_elements(result, np.asfortranarray(source))


@settings(max_examples=150, deadline=None)
@given(st.data())
def test_any_view_reads_as_fortran_order(data):
    shape = data.draw(hnp.array_shapes(max_dims=5, max_side=12))
    source = np.arange(
        math.prod(shape), dtype=data.draw(st.sampled_from(["i1", "i2", "i4", "i8", "c16"]))
    )
    view = source.reshape(shape).transpose(data.draw(st.permutations(range(len(shape)))))
    view = view[data.draw(hnp.basic_indices(view.shape, allow_newaxis=True, allow_ellipsis=True))]
    name = SOURCES[source.dtype.str]
    assert same_elements(getattr(zorvan, name)(view), np.asfortranarray(view))


def test_large_arrays():
    source = np.arange(6000 * 6000, dtype=np.uint32).astype(np.uint8).reshape(6000, 6000)
    assert same_elements(zorvan.uint8(source), np.asfortranarray(source))


def test_every_half_widens_exactly():
    halves = np.arange(2**16, dtype=np.uint16).view(np.float16)
    finite = halves[~np.isnan(halves)]
    assert same_elements(zorvan.single(finite), finite.astype(np.float32))
    assert np.isnan(np.asarray(zorvan.single(halves[np.isnan(halves)]))).all()


@pytest.mark.parametrize("code", "bBhHiIlLqQnN")
def test_integer_codes_mean_their_item_size(code):
    source = memoryview(bytes(range(1, 17))).cast(code)
    name = ("int" if code.islower() else "uint") + str(8 * source.itemsize)
    assert np.asarray(getattr(zorvan, name)(source)).tobytes() == source.tobytes()


def test_exporters_other_than_numpy():
    anonymous = mmap.mmap(-1, 4)
    anonymous[:] = b"\1\2\3\4"
    grid = ((ctypes.c_short * 3) * 2)((1, 2, 3), (4, 5, 6))
    assert zorvan.uint8(anonymous).tolist() == [[1, 2, 3, 4]]
    assert zorvan.uint8(b"ab").tolist() == zorvan.uint8(bytearray(b"ab")).tolist() == [[97, 98]]
    assert zorvan.double(array.array("d", [0.5])).tolist() == [[0.5]]
    assert zorvan.int16(grid).tolist() == [[1, 2, 3], [4, 5, 6]]
    assert zorvan.int32(ctypes.c_int(-5)).tolist() == [[-5]]
    assert zorvan.double(memoryview(bytes(48)).cast("d", (2, 3))).size == (2, 3)


def test_bools_are_normalized_wherever_they_come_from():
    odd = np.array([0, 1, 2, 255] * 39, np.uint8)  # more than are looked at together
    for source in (
        odd.view(np.bool_),
        odd.view(np.bool_)[::-1],
        memoryview(odd).cast("B").cast("?"),
    ):
        assert set(memoryview(zorvan.logical(source)).tobytes()) == {0, 1}
    forged = zorvan.logical._from_memory((1, odd.size), False, odd.tobytes())
    assert memoryview(forged).tobytes() == b"\0\1\1\1" * 39


@pytest.mark.parametrize(
    ("source", "format"),
    [
        (np.array([None, 1]), "'O'"),
        (np.array(["a"]), "'1w'"),
        (np.array([b"ab"]), "'2s'"),
        (np.zeros(2, [("a", "f8"), ("b", "i4")]), "'T{"),
        (np.zeros(2, [("real", ">i2"), ("imag", ">i2")]), "'T{>h:real:"),
        (np.zeros(2, np.longdouble), "'g'"),
        (np.zeros(2, np.clongdouble), "'Zg'"),
        (memoryview(b"ab").cast("c"), "'c'"),
        ((ctypes.c_char_p * 2)(), "z"),
    ],
)
def test_formats_without_counterpart_are_named(source, format):
    with pytest.raises(TypeError, match="has no counterpart among ZORVAN element types") as error:
        zorvan.double(source)
    assert format in str(error.value)


@pytest.mark.parametrize(
    ("source", "dtype"),
    [
        (np.datetime64("2020-05-17"), r"datetime64\[D\]"),
        (np.timedelta64(3, "ns"), r"timedelta64\[ns\]"),
        (type("Derived", (np.datetime64,), {})("2020"), r"datetime64\[Y\]"),
    ],
)
def test_dates_are_not_read_as_the_bytes_they_export(source, dtype):
    for cls in (zorvan.uint8, zorvan.double):
        for numbers in (source, [source], [[1], [source]]):
            with pytest.raises(TypeError, match=f"numpy '{dtype}' has no counterpart"):
                cls(numbers)


def test_eight_bytes_that_are_no_date():
    class Labelled(array.array):
        dtype = "mM"

    expected = [list(b"datetime")]
    for source in (
        b"datetime",
        np.bytes_(b"datetime"),
        np.frombuffer(b"datetime", np.uint8),
        Labelled("B", b"datetime"),
    ):
        assert zorvan.uint8(source).tolist() == expected


def test_a_dtype_that_cannot_be_asked():
    class Exporter(bytearray):
        @property
        def dtype(self):
            raise ZeroDivisionError("mine")

    with pytest.raises(ZeroDivisionError, match="mine"):
        zorvan.uint8(Exporter(8))


def test_released_and_failing_exporters():
    released = memoryview(b"abc")
    released.release()
    with pytest.raises(ValueError, match="released memoryview"):
        zorvan.uint8(released)
    if sys.version_info < (3, 12):
        return

    class Exporter:
        def __buffer__(self, flags):
            raise ZeroDivisionError("mine")

    with pytest.raises(ZeroDivisionError, match="mine"):
        zorvan.uint8(Exporter())


def test_complex_integers_travel_as_records():
    source = zorvan.int16([[1 + 2j, -3j], [4, 5]])
    records = np.asarray(source)
    assert records["real"].tolist() == [[1, 0], [4, 5]]
    assert records["imag"].tolist() == [[2, -3], [0, 0]]
    for order in "CF":
        assert zorvan.int16(np.array(records, order=order)) == source


# ---- buffers out ----


@pytest.mark.parametrize("cls", CLASSES)
def test_numpy_shares_the_memory(cls):
    values = cls([[1, 0, 1], [0, 1, 1]])
    view = np.asarray(values)
    assert (view.dtype, view.shape, view.flags.f_contiguous) == (
        DTYPE_OF[cls.__name__],
        (2, 3),
        True,
    )
    view[1, 0] = 1
    assert values[1, 0] == 1
    values[0, 2] = 0
    assert view[0, 2] == 0
    del values
    gc.collect()
    assert view.tolist() == [[1, 0, 0], [1, 1, 1]]


def test_requests_that_the_layout_cannot_meet():
    with pytest.raises(BufferError, match="column-major"):
        io.BytesIO(zorvan.double([[1, 2], [3, 4]]))
    for row_major_too in (zorvan.uint8([1, 2]), zorvan.uint8([[1], [2]])):
        assert io.BytesIO(row_major_too).getvalue() == b"\1\2"
    assert io.BytesIO(zorvan.uint8(size=(0, 3))).getvalue() == b""
