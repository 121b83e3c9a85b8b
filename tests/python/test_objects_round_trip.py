"""Values that only an engine makes: how they arrive, and how they go back to it."""

import json
import subprocess

import py_pb
import pytest
import zorvan


def run(command, *arguments, message):
    return subprocess.run(
        [command, *arguments], input=message, capture_output=True, check=True, timeout=60
    ).stdout


def call(function, *arguments, nargout=1):
    message = py_pb.py_to_serialized_str(arguments, nargout=nargout)
    return py_pb.serialized_str_to_py(run("zorvan-loopback", function, message=message))


def shown(value):
    """What the engine gets for a value, as the inspector shows it."""
    message = py_pb.py_to_serialized_str((value,))
    return json.loads(run("zorvan-inspect", "--json", "-", message=message))["arrays"][0]


def test_values_arrive():
    (points,) = call("object")
    (devices,) = call("handle")
    assert call("missing", nargout=2) == [None, ["first", None, "last"]]
    for value, size, text in (
        (points, (2, 3), "<zorvan.object 2x3 of class 'loopback.Point'>"),
        (devices, (1, 2), "<zorvan.object 1x2 of class 'loopback.Device'>"),
    ):
        assert (type(value), value.size, repr(value)) == (zorvan.object, size, text)


def test_they_go_back_whole():
    for function, class_name in (("object", "loopback.Point"), ("handle", "loopback.Device")):
        (value,) = call(function)
        assert shown(value) == json.loads(
            run("zorvan-inspect", "--json", "--result", "-",
                message=run("zorvan-loopback", function, message=b""))
        )["arrays"][0]  # fmt: skip
        for nested in ([value], {"a": value}, [{"a": [value]}], zorvan.dictionary(a=value, b=1)):
            (returned,) = call("echo", nested)
            assert returned == nested
        assert call("class", value) == [class_name]


def test_the_element_that_indices_select_goes_back():
    (points,) = call("object")
    for row in range(2):
        for column in range(3):
            element = shown(points[row][column])
            assert (element["class"], element["dims"]) == ("loopback.Point", [1, 1])
            assert element["elements"][0]["x"]["elements"] == [row + 2 * column]
    (devices,) = call("handle")
    first, second = call("echo", devices[0][0], devices[0][1], nargout=2)
    assert (first.size, second.size) == ((1, 1), (1, 1))
    assert first != second


@pytest.mark.parametrize("wrap", [lambda value: value, lambda value: {"a": [value]},
                                  lambda value: zorvan.dictionary(a=value)])  # fmt: skip
def test_partly_indexed_objects_stay_here(wrap):
    (points,) = call("object")
    with pytest.raises(IndexError) as raised:
        py_pb.py_to_serialized_str((wrap(points[1]),))
    assert str(raised.value) == "number of indices (1) not equal to the number of dimensions (2)"


def test_a_class_by_the_same_name_is_not_taken_for_one():
    forged = type("object", (), {"__module__": "zorvan", "size": (1, 1)})()
    with pytest.raises(TypeError) as raised:
        py_pb.py_to_serialized_str((forged,))
    text = "conversion of Python data type 'zorvan.object' to ZORVAN not supported"
    assert str(raised.value) == text
