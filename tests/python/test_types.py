"""The module's own Python types, and what start-up says when it cannot have what it needs."""

import copy
import itertools
import os
import pickle
import subprocess
import sys

import py_pb
import pytest
import zorvan


@pytest.fixture
def decode(messages):
    def convert(**fields):
        (value,) = py_pb.serialized_str_to_py(
            messages.ZORVAN_Result(arrays=[fields]).SerializeToString()
        )
        return value

    return convert


@pytest.fixture
def points(decode):
    """A maker of 2-by-3 objects whose only property numbers the elements from `first`."""

    def make(first=0, class_name=b"Point"):
        numbers = [{"type": 7, "elements": bytes([first + i])} for i in range(6)]
        return decode(type=27, dims=[2, 3], class_name=class_name, names=[b"n"], children=numbers)

    return make


@pytest.fixture
def motors(decode):
    def make(*numbers, dims=(1, 3)):
        return decode(type=28, dims=dims, class_name=b"Motor", ref=numbers)

    return make


def test_size_length_and_indexing(points, motors):
    for value, shape in ((points(), (2, 3)), (motors(1, 2, 3), (1, 3))):
        assert type(value) is zorvan.object
        assert (value.size, len(value)) == (shape, shape[0])
        row = value[shape[0] - 1]
        assert type(row) is zorvan.object
        assert (row.size, len(row)) == ((3,), 3)
        element = row[2]
        assert (element.size, len(element)) == ((1, 1), 1)
        assert (value.size, row.size) == (shape, (3,))
        assert [item == row[i] for i, item in enumerate(row)] == [True] * 3


@pytest.mark.parametrize(
    "path, index", [((), 2), ((), -1), ((), -2), ((1,), 3), ((1,), -3), ((1, 2), 0), ((0, 0), -1)]
)
def test_indices_out_of_range(points, path, index):
    value = points()
    for step in path:
        value = value[step]
    with pytest.raises(IndexError) as raised:
        value[index]
    assert str(raised.value) == f"index {index} exceeds matrix dimensions"


@pytest.mark.parametrize("key, error", [("a", TypeError), (1.0, TypeError), (2**70, IndexError)])
def test_keys_that_are_no_index(points, key, error):
    with pytest.raises(error):
        points()[key]


def test_equality_is_of_array_and_index_path(points, motors):
    a, b = points(), points()
    assert a == b and not a != b
    assert a[1] == b[1] and a[1][2] == b[1][2]
    assert a != points(1)
    assert a != points(class_name=b"Pixel")
    assert motors(1, 2, 3) == motors(1, 2, 3) != motors(1, 2, 4)
    assert motors(1, 2, 3) != motors(1, 2, 3, dims=(3, 1))
    elements = [a, a[0], a[1], *(a[i][j] for i in range(2) for j in range(3))]
    assert all(x != y for x, y in itertools.combinations(elements, 2))


ORDER = {
    "__lt__": "less than",
    "__le__": "less than or equal to",
    "__gt__": "greater than",
    "__ge__": "greater than or equal to",
}
OTHER_TYPE = (
    "comparison of objects of type 'zorvan.object' with objects of another type not supported"
)


def test_other_comparisons_are_type_errors(points):
    value = points()
    forged = type("object", (), {"__module__": "zorvan"})()
    for method in (*ORDER, "__eq__", "__ne__"):
        for other in (5, None, forged, zorvan.double(1.0)):
            with pytest.raises(TypeError) as raised:
                getattr(value, method)(other)
            assert str(raised.value) == OTHER_TYPE
    for method, words in ORDER.items():
        with pytest.raises(TypeError) as raised:
            getattr(value, method)(value)
        assert str(raised.value) == f"'zorvan.object' does not support '{words}' comparison"


def test_instances_come_from_the_engine_only(points):
    value = points()
    attempts = [
        lambda: zorvan.object(),
        lambda: object.__new__(zorvan.object),
        lambda: type("Sub", (zorvan.object,), {}),
        lambda: copy.copy(value),
        lambda: pickle.dumps(value),
        lambda: hash(value),
        lambda: setattr(zorvan.object, "size", 1),
    ]
    for attempt in attempts:
        with pytest.raises(TypeError):
            attempt()
    with pytest.raises(AttributeError):
        value.size = (1, 1)


def test_an_element_outlives_the_array_it_came_from(points):
    element = points()[1][2]
    assert element == points()[1][2]


def test_repr(points, motors, decode):
    assert repr(points()) == "<zorvan.object 2x3 of class 'Point'>"
    assert repr(points()[0]) == "<zorvan.object 3 of class 'Point'>"
    assert repr(motors(1, 2, 3)) == "<zorvan.object 1x3 of class 'Motor'>"


FAKE_CAPSULE = """
import ctypes, types
interface = (ctypes.c_uint32 * 64)(99, 8)
new = ctypes.pythonapi.PyCapsule_New
new.restype, new.argtypes = ctypes.py_object, [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p]
name = ctypes.c_char_p(b"zorvanmultidimarrayforpython._capi")
package._capi = new(ctypes.addressof(interface), name, None)
"""
HIDE_PACKAGE = "sys.modules['zorvanmultidimarrayforpython'] = None\n"
FAKE_PACKAGE = """
package = sys.modules["zorvanmultidimarrayforpython"] = type(sys)("zorvanmultidimarrayforpython")
"""
IMPORT = """
try:
    import py_pb
except ValueError as error:
    print(error, end="")
"""


def run(*code):
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(filter(None, sys.path))}
    return subprocess.run(
        [sys.executable, "-c", "import sys\n" + "".join(code)],
        capture_output=True,
        env=environment,
        text=True,
        timeout=60,
    )


@pytest.mark.parametrize(
    "preparation, details",
    [
        ("sys.modules['zorvan'] = None", "Failed to initialize 'zorvan' module."),
        ("sys.modules['zorvan'] = 5", "PyModule_AddObject() failed for 'object'."),
        (FAKE_PACKAGE, "Unable to import capsule"),
        (FAKE_PACKAGE + "package._capi = 5", "Unable to import capsule"),
        (
            FAKE_PACKAGE + FAKE_CAPSULE,
            "zorvanmultidimarrayforpython offers version 99 (8 bytes) of its native interface; "
            "version 1 (48 bytes) is required",
        ),
        (
            "import zorvanmultidimarrayforpython as real\n"
            + FAKE_PACKAGE
            + "package._capi = real._capi",
            "unable to retrieve type object 'double'",
        ),
        (
            HIDE_PACKAGE
            + "import zorvan\n"
            + "sys.path = ['first', '', 5, b'x', '\\ud800', 'l\u00e4st']",
            "Unable to import zorvanmultidimarrayforpython; sys.path: \nfirst\nl\u00e4st\n",
        ),
    ],
)
def test_start_up_failures(preparation, details):
    # py_pb is found before the preparation hides things from the search path.
    find = "import importlib.util as util\nspec = util.find_spec('py_pb')\n"
    load = "py_pb = util.module_from_spec(spec)"
    done = run(find, preparation + "\n", IMPORT.replace("import py_pb", load))
    assert done.returncode == 0, done.stderr
    assert done.stdout == f"Unable to initialize py_pb. Details: {details}"
    assert ("ModuleNotFoundError" in done.stderr) == ("Failed to initialize" in details)


def test_start_up_can_be_tried_again():
    retry = "del sys.modules['zorvanmultidimarrayforpython']\nimport py_pb, zorvan\n"
    check = "first = zorvan.object\nimport importlib\nprint(zorvan.object is first, py_pb.__name__)"
    done = run(HIDE_PACKAGE, IMPORT, retry, check)
    assert done.stdout.endswith("True py_pb\n"), done.stderr
