"""A tour of py_pb: real values go to an engine in a process of its own, and come back.

Ends with exit code 0 when everything that came back equals what was sent, else with 1.
"""

import os
import shutil
import subprocess
import sys
from collections import ChainMap, OrderedDict
from datetime import datetime, timedelta
from zoneinfo import ZoneInfo

import py_pb
import zorvan

try:
    import numpy
    import pandas
except ImportError:
    sys.exit("This tour sends arrays and data frames: first pip install numpy pandas.")

STATIONS = ["Zürich", "Kraków", "東京 🗼"]
# Air temperature in °C: one row a station, one column every four hours.
TEMPERATURE = numpy.array(
    [
        [11.2, 10.1, 13.4, 18.9, 17.0, 13.3],
        [9.8, 8.4, 12.9, 19.6, 16.2, 11.7],
        [21.5, 20.9, 24.8, 27.3, 25.1, 22.6],
    ]
)
ARRAYS = {
    "temperature": TEMPERATURE,
    "as Fortran": numpy.asfortranarray(TEMPERATURE),
    "every other hour": TEMPERATURE[:, ::2],
    "stations reversed": TEMPERATURE[::-1],
    "one hour": TEMPERATURE[:, 3],
    "above 20 °C": TEMPERATURE > 20,
    "single precision": TEMPERATURE.astype("float32"),
    "big-endian": TEMPERATURE.astype(">f8"),
    "rain by the day": numpy.arange(24, dtype="int16").reshape(2, 3, 4),
    "wind east, north": numpy.array([[3 - 1j, 2.5 + 0.5j, -4j]], dtype="complex64"),
}
OTHERS = {
    "float": -0.5,
    "int": 2**62,
    "bool": True,
    "complex": 1 - 2j,
    "text": "Grüße 🌡 20 °C",
    "list": [1, 2.5, "three", [True, [4j]]],
    "dictionary": zorvan.dictionary({"Zürich": 408.5, "Kraków": 219, 7: "spare"}),
    "dict": {"stations": STATIONS, "unit": "°C", "sensor": {"id": 7, "accuracy": 0.1}},
}
DAYS = pandas.DatetimeIndex(["2026-06-21", "2026-06-22"], name="day")
DATES_AND_TABLES = {
    "with a time zone": datetime(2026, 10, 25, 2, 30, fold=1, tzinfo=ZoneInfo("Europe/Zurich")),
    "interval": timedelta(hours=4),
    "days": numpy.array([["2026-06-21", "NaT"]], "datetime64[us]"),
    "table": pandas.DataFrame({"station": STATIONS, "maximum": TEMPERATURE.max(axis=1)}),
    "timetable": pandas.DataFrame({"sunshine": [10.5, 3.0], "rain": [False, True]}, index=DAYS),
}
# What the engine gives back in another form: the value sent, and what returns.
CHANGED = {
    "tuple": ((1, "two"), [1, "two"]),
    "OrderedDict": (OrderedDict({1: "roof"}), zorvan.dictionary({1: "roof"})),
    "ChainMap": (ChainMap({"unit": "K"}, {"unit": "°C"}), zorvan.dictionary(unit="K")),
    "bytes": (b"raw", zorvan.uint8([114, 97, 119])),
    "1-by-1 array": (numpy.array([[7.5]]), 7.5),
    "empty text": ("", []),
    "empty array": (numpy.empty((0, 3)), []),
}


def command(name):
    """The command that came with py_pb: beside the interpreter, or on the PATH."""
    found = shutil.which(name, path=os.path.dirname(sys.executable)) or shutil.which(name)
    return found or sys.exit(f"{name} is neither beside {sys.executable} nor on the PATH.")


def run(name, *arguments, message):
    done = subprocess.run([command(name), *arguments], input=message, capture_output=True)
    return done.stdout if done.returncode == 0 else sys.exit(done.stderr.decode())


def call(function, *arguments, nargout=1):
    """What an engine function returns: a list of its outputs, or a dict that tells the error."""
    message = py_pb.py_to_serialized_str(arguments, nargout=nargout)
    return py_pb.serialized_str_to_py(run("zorvan-loopback", function, message=message))


def heading(text):
    print(f"\n{text}\n{'-' * len(text)}")


def describe(value):
    """Kind and extents of an array, or the value itself."""
    if isinstance(value, numpy.ndarray):
        return f"numpy {value.dtype} {'x'.join(map(str, value.shape))}"
    if isinstance(value, pandas.DataFrame):
        return f"pandas {len(value)} rows of {', '.join(value.columns)}"
    if hasattr(value, "size"):
        return f"zorvan.{type(value).__name__} {'x'.join(map(str, value.size))}"
    return repr(value)


def is_same(expected, received):
    """Same types, extents and elements; arrays in the machine's byte order, vectors as rows."""
    if isinstance(expected, pandas.DataFrame):
        return expected.equals(received)
    if not isinstance(expected, numpy.ndarray):
        return received == expected and repr(received) == repr(expected)
    expected, actual = numpy.atleast_2d(expected), numpy.asarray(received)
    kept = actual.dtype == expected.dtype.newbyteorder("=") and actual.shape == expected.shape
    return kept and numpy.array_equal(actual, expected, equal_nan=True)


def show_what_the_engine_sees(values):
    message = py_pb.py_to_serialized_str(tuple(values), nargout=len(values))
    print(run("zorvan-inspect", "-", message=message).decode(), end="")


def send_and_return(names, values, expected):
    """Sends values to the function `echo`; returns whether all came back as expected."""
    complete = True
    for name, sent, wanted, received in zip(
        names, values, expected, call("echo", *values, nargout=len(values)), strict=True
    ):
        same = is_same(wanted, received)
        before, after = describe(sent), describe(received)
        route = after if before == after else f"{before:21} -> {after}"
        print(f"{'ok       ' if same else 'DIFFERENT'} {name:18} {route}")
        complete = complete and same
    return complete


def show_what_only_an_engine_makes():
    (devices,) = call("handle")
    print(f"handles  {devices!r}")
    (points,) = call("object")
    print(f"objects  {points!r} with {len(points)} rows of {len(points[0])}")
    classes = call("class", points, points[1][2], nargout=2)
    print(f"back     whole and as an element they are {classes} to the engine")
    print(f"missing  {call('missing', nargout=2)!r}")
    try:
        call("sparse")
    except TypeError as error:
        print(f"sparse   TypeError: {error}")


def main():
    heading("Arrays of every layout and type go out; the engine sees columns one after the other")
    show_what_the_engine_sees(ARRAYS.values())
    heading("They come back from another process as arrays that numpy reads without a copy")
    complete = send_and_return(ARRAYS, ARRAYS.values(), ARRAYS.values())

    heading("Numbers, text and containers go out")
    show_what_the_engine_sees(OTHERS.values())
    heading("and come back as what they were")
    complete &= send_and_return(OTHERS, OTHERS.values(), OTHERS.values())
    heading("Dates keep their time zone, data frames their columns")
    complete &= send_and_return(
        DATES_AND_TABLES, DATES_AND_TABLES.values(), DATES_AND_TABLES.values()
    )
    heading("Some values come back in another form")
    complete &= send_and_return(CHANGED, *zip(*CHANGED.values()))

    heading("An engine error arrives as a dict, not as an exception")
    for key, value in call("fail", "No such station: Atlantis").items():
        print(f"{key:13} " + value.rstrip().replace("\n", f"\n{'':14}"))
    heading("Values that only an engine can make")
    show_what_only_an_engine_makes()

    print("\nEverything came back as promised." if complete else "\nSOME VALUES DIFFER.")
    return 0 if complete else 1


if __name__ == "__main__":
    sys.exit(main())
