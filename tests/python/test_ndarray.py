"""The array classes: construction, indexing, comparison, text, pickling, leaks."""

import copy
import gc
import math
import operator
import pickle
import resource
import subprocess
import sys
import weakref

import numpy as np
import pytest
import zorvan
import zorvanmultidimarrayforpython as package
from hypothesis import given, settings
from hypothesis import strategies as st

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
INTEGER_CLASSES = [c for c in CLASSES if "int" in c.__name__]


# ---- numbers and nesting in ----


@pytest.mark.parametrize(
    ("source", "size", "elements"),
    [
        (3, (1, 1), [[3]]),
        ([], (1, 0), [[]]),
        ([1, 2], (1, 2), [[1, 2]]),
        ([[1, 2, 3], (4, 5, 6)], (2, 3), [[1, 2, 3], [4, 5, 6]]),
        ([[], []], (2, 0), [[], []]),
        ([[[1], [2]], [[3], [4]]], (2, 2, 1), [[[1], [2]], [[3], [4]]]),
        (range(3), (1, 3), [[0, 1, 2]]),
        ([np.arange(2), np.array(7).repeat(2)], (2, 2), [[0, 1], [7, 7]]),
        ([np.float32(2), np.array(3), np.bool_(True)], (1, 3), [[2, 3, 1]]),
    ],
)
@pytest.mark.parametrize("cls", [zorvan.double, zorvan.int8, zorvan.uint64])
def test_numbers_and_nested_sequences(cls, source, size, elements):
    result = cls(source)
    assert (result.size, result.ndim, len(result)) == (size, len(size), size[0])
    assert result.tolist() == elements
    assert not result._is_complex


@pytest.mark.parametrize(
    ("source", "place"),
    [
        ([[1, 2], [3]], r"source\[1\] has 1 elements where 2 were expected"),
        ([[1], 2], r"source\[1\] is no sequence where one of 1 was expected"),
        ([1, [2]], r"source\[1\] is a sequence where a number was expected"),
        ([[[1, 2]], [[]]], r"source\[1\]\[0\] has 0 elements"),
        ([[], [1]], r"source\[1\] has 1 elements where 0 were expected"),
    ],
)
def test_ragged_nesting_names_the_place(source, place):
    with pytest.raises(ValueError, match=place):
        zorvan.double(source)


def test_a_list_in_itself_is_refused():
    endless = []
    endless.append(endless)
    with pytest.raises(ValueError, match="deeper than 64"):
        zorvan.double(endless)


def test_a_sequence_that_changes_while_it_is_read():
    class Eraser:
        def __float__(self):
            numbers.clear()
            return 1.5

    numbers = [Eraser(), 2.5, 3.5]
    assert zorvan.double(numbers).tolist() == [[1.5, 2.5, 3.5]]


@pytest.mark.parametrize("cls", INTEGER_CLASSES)
def test_integers_are_range_checked(cls):
    limits = np.iinfo(DTYPE_OF[cls.__name__])
    assert cls([limits.min, limits.max]).tolist() == [[limits.min, limits.max]]
    assert cls(float(limits.min)).tolist() == [[limits.min]]
    for beyond in (limits.min - 1, limits.max + 1, float(limits.max) * 2, 10**400, math.inf):
        with pytest.raises(OverflowError, match=f"out of range for zorvan.{cls.__name__}$"):
            cls([beyond])
    with pytest.raises(OverflowError, match="out of range"):
        cls(np.array([1e30]))
    for inexact in (1.5, math.nan, np.array([0.5])):
        with pytest.raises(ValueError, match="has no counterpart"):
            cls(inexact)


@pytest.mark.parametrize(
    ("cls", "source", "error", "text"),
    [
        (zorvan.double, "text", TypeError, "of 'str'"),
        (zorvan.double, None, TypeError, "of 'NoneType'"),
        (zorvan.double, [1, "x"], TypeError, "of 'str'"),
        (zorvan.double, {1: 2}, TypeError, "of 'dict'"),
        (zorvan.double, 10**400, OverflowError, "out of range for zorvan.double"),
        (zorvan.single, 1e300, OverflowError, r"1e\+300 is out of range for zorvan.single"),
        (zorvan.single, np.array([1e300]), OverflowError, "out of range for zorvan.single"),
        (zorvan.logical, math.nan, ValueError, "nan has no counterpart"),
        (zorvan.logical, [1j], TypeError, "cannot be complex"),
        (zorvan.logical, np.array([1j]), TypeError, "cannot be complex"),
    ],
)
def test_bad_sources(cls, source, error, text):
    with pytest.raises(error, match=text):
        cls(source)


def test_conversions_between_classes():
    assert zorvan.logical([0, 2, -0.0, math.inf]).tolist() == [[False, True, False, True]]
    assert zorvan.single(0.1).tolist() == [[float(np.float32(0.1))]]
    assert zorvan.double(zorvan.int8([[1, -2]])) == zorvan.double([[1.0, -2.0]])
    assert zorvan.int8(np.array([[1.0, 2.0], [3.0, 4.0]])).tolist() == [[1, 2], [3, 4]]
    assert zorvan.int8(np.array([1 + 2j])).tolist() == [[1 + 2j]]
    assert zorvan.single(np.array([1], np.int64), is_complex=True)._is_complex


def test_size_and_complexity_on_demand():
    assert zorvan.double().size == (0, 0)
    assert zorvan.int8(size=(2, 1)).tolist() == [[0], [0]]
    assert zorvan.int8(range(6), size=(2, 3)).tolist() == [[0, 2, 4], [1, 3, 5]]
    assert zorvan.double(1, is_complex=True).tolist() == [[1 + 0j]]
    for size, error in [
        ((2, 2), ValueError),
        ((-1, -6), ValueError),
        ((2**40, 2**40), ValueError),
        ((1,) * 65, ValueError),
        ((2**70, 0), OverflowError),
        (("a",), TypeError),
        (6, TypeError),
    ]:
        with pytest.raises(error):
            zorvan.int8(range(6), size=size)
    with pytest.raises(MemoryError):
        zorvan.double(size=(2**30, 2**29))


# ---- reshape, copy, indexing ----


@pytest.mark.parametrize(
    ("size", "result"),
    [
        ((3, 2), (3, 2)),
        (((2, 3),), (2, 3)),
        ((6,), (1, 6)),
        ((-1, 2), (3, 2)),
        ((1, None, 3), (1, 2, 3)),
        (([3, -1],), (3, 2)),
    ],
)
def test_reshape_keeps_column_major_order_and_memory(size, result):
    original = zorvan.int16([[1, 2, 3], [4, 5, 6]])
    reshaped = original.reshape(*size)
    assert reshaped.size == result
    assert memoryview(reshaped).tobytes("F") == memoryview(original).tobytes("F")
    assert np.shares_memory(np.asarray(reshaped), np.asarray(original))


@pytest.mark.parametrize(
    "size", [(4, 2), (-1, -1), (0, -1), (-1, 4), (-2, -3), (None, None), (2**62, 6), ()]
)
def test_reshape_refuses_what_does_not_fit(size):
    with pytest.raises(ValueError):
        zorvan.double(range(6)).reshape(*size)


@pytest.mark.parametrize("copied", [lambda x: x.copy(), copy.copy, copy.deepcopy])
def test_copies_have_memory_of_their_own(copied):
    original = zorvan.int8([[1, 2j], [3, 4]])
    other = copied(original)
    assert other == original
    other[0, 0] = 9
    assert original[0, 0] == 1


KEYS = st.one_of(st.integers(-5, 4), st.slices(4), st.just(...))


@settings(max_examples=300, deadline=None)
@given(st.data())
def test_indexing_selects_what_numpy_selects(data):
    shape = tuple(data.draw(st.lists(st.integers(0, 4), min_size=2, max_size=4)))
    expected = np.asfortranarray(np.arange(math.prod(shape), dtype=np.int32).reshape(shape))
    values = zorvan.int32(expected)
    key = data.draw(st.one_of(KEYS, st.lists(KEYS, max_size=5).map(tuple)))
    try:
        wanted = expected[key]
    except IndexError:
        for access in (lambda: values[key], lambda: values.__setitem__(key, 1)):
            with pytest.raises(IndexError):
                access()
        return
    result = values[key]
    if isinstance(result, int):
        assert wanted.ndim == 0 and result == wanted
    else:
        assert result.ndim == len(shape)
        assert np.array_equal(np.asarray(result).reshape(wanted.shape), wanted)
    values[key] = 77
    expected[key] = 77
    assert np.array_equal(np.asarray(values), expected)


def test_dimensions_indexed_by_an_int_keep_their_place():
    values = zorvan.double(np.arange(24).reshape(2, 3, 4))
    assert [values[key].size for key in (0, (0, 0), (..., 0), (slice(None), -1))] == [
        (1, 3, 4),
        (1, 1, 4),
        (2, 3, 1),
        (2, 1, 4),
    ]
    assert [row.tolist() for row in zorvan.int8([[1, 2], [3, 4]])] == [[[1, 2]], [[3, 4]]]
    extreme = slice(-sys.maxsize - 1, sys.maxsize, sys.maxsize)
    assert values[extreme].size == (1, 3, 4)


@pytest.mark.parametrize(
    ("key", "error", "text"),
    [
        ((0, 0, 0), IndexError, "3 indices for an array of 2 dimensions"),
        (2, IndexError, "index 2 is out of range for dimension 0 of extent 2"),
        ((0, -3), IndexError, "index -3 is out of range for dimension 1 of extent 2"),
        ((..., ...), IndexError, "only one Ellipsis"),
        (2**70, IndexError, "cannot fit"),
        (True, TypeError, "not 'bool'"),
        (1.0, TypeError, "not 'float'"),
        ([0], TypeError, "not 'list'"),
        (slice(None, None, 0), ValueError, "zero"),
    ],
)
def test_bad_keys(key, error, text):
    values = zorvan.double([[1, 2], [3, 4]])
    for access in (lambda: values[key], lambda: values.__setitem__(key, 1)):
        with pytest.raises(error, match=text):
            access()
    assert values.tolist() == [[1, 2], [3, 4]]


def test_bad_assignments_change_nothing():
    values = zorvan.int8([[1, 2], [3, 4]])
    for value, error in [
        (200, OverflowError),
        (0.5, ValueError),
        (1j, TypeError),
        ([1], TypeError),
    ]:
        with pytest.raises(error):
            values[:] = value
    with pytest.raises(TypeError, match="array of size"):
        values[0, 0] = np.arange(3)
    with pytest.raises(TypeError, match="cannot be deleted"):
        del values[0]
    assert values.tolist() == [[1, 2], [3, 4]]


# ---- arrays of one element as numbers ----


@pytest.mark.parametrize(
    ("array", "numbers"),
    [
        (zorvan.uint8([53]), (53, 53.0, 53 + 0j, True)),  # in memory the character "5"
        (zorvan.double(-2.75), (-2, -2.75, -2.75 + 0j, True)),
        (zorvan.single(0.1), (0, float(np.float32(0.1)), complex(np.float32(0.1)), True)),
        (zorvan.uint64(2**64 - 1), (2**64 - 1, 2.0**64, 2.0**64 + 0j, True)),
        (zorvan.logical([[False]]), (0, 0.0, 0j, False)),
        (zorvan.double(size=(1, 1, 1)), (0, 0.0, 0j, False)),
    ],
)
def test_one_element_as_a_number(array, numbers):
    found = int(array), float(array), complex(array), bool(array)
    assert list(map(repr, found)) == list(map(repr, numbers))


def test_complex_elements_are_no_real_numbers():
    imaginary = zorvan.int8(1j)
    assert (complex(imaginary), bool(imaginary)) == (1j, True)
    for convert in (int, float, operator.index):
        with pytest.raises(TypeError, match="a complex zorvan.int8 does not convert to an? "):
            convert(imaginary)


@pytest.mark.parametrize(
    ("convert", "array", "error", "text"),
    [
        (int, zorvan.uint8([49, 50]), TypeError, r"to an int, not one of size \(1, 2\)"),
        (float, zorvan.double(), TypeError, r"to a float, not one of size \(0, 0\)"),
        (complex, zorvan.double([1, 2]), TypeError, "to a complex, not"),
        (operator.index, zorvan.int64([1, 2]), TypeError, "to an index, not"),
        (bool, zorvan.double([1, 2]), ValueError, r"an array of size \(1, 2\) is ambiguous"),
        (bool, zorvan.double(), ValueError, "is ambiguous"),
        (int, zorvan.double(math.inf), OverflowError, "infinity"),
        (int, zorvan.single(math.nan), ValueError, "NaN"),
        (complex, zorvan.int64(2**53 + 1, is_complex=True), OverflowError, "is not exact"),
    ],
)
def test_arrays_that_are_no_number(convert, array, error, text):
    with pytest.raises(error, match=text):
        convert(array)


@pytest.mark.parametrize("cls", CLASSES)
def test_only_integers_are_indices(cls):
    if cls in INTEGER_CLASSES:
        assert "abc"[cls(2)] == "c"
        assert np.arange(9)[cls(3) : cls(5)].tolist() == [3, 4]
    else:
        with pytest.raises(TypeError, match="index|indices"):
            "abc"[cls(1)]


# ---- comparison, text, pickling ----


def test_equality_is_one_bool():
    values = zorvan.double([[1, 2], [3, 4]])
    assert values == values.copy() and not values != values.copy()
    different = [
        zorvan.single([[1, 2], [3, 4]]),
        zorvan.double([[1, 2], [3, 4]], is_complex=True),
        values.reshape(1, 4),
        zorvan.double([[1, 2], [3, 5]]),
        [[1, 2], [3, 4]],
    ]
    for other in different:
        assert values != other and not values == other
    assert zorvan.double(math.nan) != zorvan.double(math.nan)
    assert zorvan.double(-0.0) == zorvan.double(0.0)
    assert zorvan.double(size=(0, 3)) != zorvan.double(size=(3, 0))
    assert 4 in values and 5 not in values
    with pytest.raises(TypeError, match="unhashable"):
        hash(values)
    with pytest.raises(TypeError, match="not supported"):
        values < values


@pytest.mark.parametrize(
    "text",
    [
        "zorvan.double([[1.0, 2.5], [-3.0, 1e+300]])",
        "zorvan.single([[0.1]])",
        "zorvan.uint64([[18446744073709551615]])",
        "zorvan.logical([[True, False]])",
        "zorvan.double([[1.5-2.0j]])",
        "zorvan.int8([[[1], [2]], [[3], [4]]])",
        "zorvan.int64([[1-2j]])",
        "zorvan.double(size=(0, 3))",
        "zorvan.single(size=(0, 0), is_complex=True)",
    ],
)
def test_repr_makes_the_array_again(text):
    assert repr(eval(text)) == text


def test_repr_of_longer_arrays():
    assert (
        repr(zorvan.int32(range(1000)))
        == "zorvan.int32([[0, 1, 2, ..., 997, 998, 999]], size=(1, 1000))"
    )
    wide = zorvan.double(np.arange(60.0).reshape(3, 2, 10))
    assert len(repr(wide).splitlines()) == 6
    assert eval(repr(wide)) == wide


def test_complex_integers_that_python_cannot_hold():
    huge = zorvan.int64([2**53 + 1], is_complex=True)
    assert repr(huge) == "zorvan.int64([[9007199254740993+0j]])"
    for access in (huge.tolist, lambda: huge[0, 0]):
        with pytest.raises(OverflowError, match="9007199254740993 is not exact"):
            access()


ARRAYS = [
    zorvan.double([[1, math.inf], [-0.0, 3]]),
    zorvan.int8([1 + 2j]),
    zorvan.logical([[True], [False]]),
]
ARRAYS += [zorvan.uint64(size=(2, 0, 3)), zorvan.single(np.arange(60).reshape(3, 4, 5))]


@pytest.mark.parametrize("protocol", range(pickle.HIGHEST_PROTOCOL + 1))
def test_pickles_load_in_a_fresh_process(protocol):
    loaded_there = subprocess.run(
        [
            sys.executable,
            "-c",
            "import pickle, sys; sys.stdout.write(repr(pickle.load(sys.stdin.buffer)))",
        ],
        input=pickle.dumps(ARRAYS, protocol),
        capture_output=True,
        check=True,
    )
    assert loaded_there.stdout.decode() == repr(ARRAYS)


def test_pickle_buffers_are_the_memory_itself():
    values = zorvan.double(np.arange(6.0).reshape(2, 3))
    buffers = []
    pickled = pickle.dumps(values, 5, buffer_callback=buffers.append)
    assert np.shares_memory(np.asarray(values), np.frombuffer(buffers[0].raw()))
    assert pickle.loads(pickled, buffers=buffers) == values


@pytest.mark.parametrize(
    ("state", "error"),
    [
        (((1, 2), False, b"x" * 15), ValueError),
        (((1, 2), True, b"x" * 16), ValueError),
        (((2**62, 2**62), False, b""), ValueError),
        (((-1, -2), False, b"x" * 16), ValueError),
        (((1, 2), False, "x" * 16), TypeError),
        ((2, False, b""), TypeError),
    ],
)
def test_forged_pickles_are_refused(state, error):
    with pytest.raises(error):
        zorvan.double._from_memory(*state)


# ---- the classes ----


def test_classes_are_final_and_belong_to_zorvan():
    for cls in CLASSES:
        assert (cls.__module__, cls.__name__) == ("zorvan", cls.__qualname__)
        assert getattr(zorvan, cls.__name__) is getattr(package, cls.__name__)
        with pytest.raises(TypeError):
            type("derived", (cls,), {})
        with pytest.raises(TypeError):
            cls.__module__ = "elsewhere"


def test_zorvan_loads_no_extension_module():
    report = "import sys, zorvan; print(sorted({'py_pb', 'zorvanmultidimarrayforpython'} & set(sys.modules)))"
    found = subprocess.run(
        [sys.executable, "-c", report], capture_output=True, check=True, text=True
    )
    assert found.stdout == "[]\n"
    assert {*zorvan.__all__, "object"} <= set(dir(zorvan))
    assert "object" not in zorvan.__all__  # would hide the builtin
    with pytest.raises(AttributeError, match="no attribute 'float'"):
        zorvan.float


# ---- leaks ----


class Watched(np.ndarray):
    pass


def failing(action):
    with pytest.raises((TypeError, ValueError, OverflowError, IndexError, BufferError)):
        action()


MATRIX = zorvan.double(np.arange(10000.0).reshape(100, 100))
OPERATIONS = {
    "construct": lambda: zorvan.int8(np.ones((100, 100), "f8")),
    "nested": lambda: zorvan.double([[object.__sizeof__(1) + 0.5] * 100] * 100),
    "index": lambda: (MATRIX[::2], MATRIX[3, 4], MATRIX[..., 1]),
    "views": lambda: (MATRIX.reshape(-1, 50), memoryview(MATRIX), np.asarray(MATRIX)),
    "lists": lambda: (MATRIX.tolist(), list(MATRIX), repr(MATRIX), -1 in MATRIX),
    "pickle": lambda: pickle.loads(pickle.dumps(MATRIX, 5)),
    "bad value": lambda: failing(lambda: zorvan.int8(np.full((100, 100), 1000.0))),
    "bad nesting": lambda: failing(lambda: zorvan.double([[1.5] * 1000, [1.5]])),
    "bad format": lambda: failing(lambda: zorvan.double(np.array([object()] * 1000))),
    "bad size": lambda: failing(lambda: zorvan.double(np.ones(1000), size=(7, 7))),
    "numbers": lambda: (complex(MATRIX[:1, :1]), failing(lambda: int(MATRIX))),
    "bad dates": lambda: failing(lambda: zorvan.double([np.datetime64("2020")])),
    "bad key": lambda: failing(lambda: MATRIX[0, 1000]),
}


@pytest.mark.parametrize("name", OPERATIONS)
def test_operations_leave_no_memory_behind(name):
    def run(times):
        for _ in range(times):
            OPERATIONS[name]()
        gc.collect()
        return resident_bytes()

    run(50)
    before = run(50)
    classes = [sys.getrefcount(cls) for cls in CLASSES]
    assert run(300) - before < 2**21
    assert [sys.getrefcount(cls) for cls in CLASSES] == classes


def resident_bytes():
    """Bytes of memory that the process has resident."""
    with open("/proc/self/statm") as statm:
        return int(statm.read().split()[1]) * resource.getpagesize()


def test_sources_are_let_go():
    def gone_after(use):
        source = np.full((10, 10), 1000.0).view(Watched)
        use(source)
        return weakref.ref(source)

    kept = []
    uses = [
        lambda source: kept.append(zorvan.double(source)),
        lambda source: failing(lambda: zorvan.int8(source)),
        lambda source: failing(lambda: zorvan.double(source, size=(3, 3))),
    ]
    assert [gone_after(use)() for use in uses] == [None, None, None]
    assert kept[0][9, 9] == 1000
