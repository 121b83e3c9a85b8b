"""Tables and timetables of an engine as data frames."""

import contextlib
import gc
import struct
import subprocess
import sys
import warnings

import numpy as np
import py_pb
import pytest
import zorvan

pd = pytest.importorskip("pandas")

# Codes of element types, as the messages have them.
(LOGICAL, CHAR, STRING, DOUBLE, SINGLE, INT8) = range(1, 7)
(UINT8, INT32, COMPLEX, COMPLEX_INT8) = (7, 10, 14, 16)
(CELL, STRUCT, OBJECT, HANDLE, ENUMERATION, SPARSE) = (24, 25, 27, 28, 29, 31)
FORMATS = {LOGICAL: "?", DOUBLE: "d", SINGLE: "f", INT8: "b", UINT8: "B", INT32: "i"}


# ---- images, as dicts of their messages' fields ----


def dense(type_code, *values, dims=None):
    elements = struct.pack(f"<{len(values)}{FORMATS[type_code]}", *values)
    return {"type": type_code, "dims": dims or [len(values), 1], "elements": elements}


def doubles(*values, dims=None):
    return dense(DOUBLE, *values, dims=dims)


def chars(text, dims=None):
    return {"type": CHAR, "dims": dims or [1, len(text)], "elements": text.encode("utf-16-le")}


def cell(*elements, dims=None):
    return {"type": CELL, "dims": dims or [1, len(elements)], "children": elements}


def texts(*values, dims=None):
    return cell(*map(chars, values), dims=dims)


def strings(*values, dims=None):
    encoded = [None if value is None else value.encode() for value in values]
    return {
        "type": STRING,
        "dims": dims or [len(values), 1],
        "text_len": [0 if text is None else 2 * len(text) + 2 for text in encoded],
        "text": b"".join(filter(None, encoded)),
    }


def record(type_code, **fields):
    return {"type": type_code, "names": [name.encode() for name in fields],
            "children": list(fields.values())}  # fmt: skip


def instance(class_name, **properties):
    return record(OBJECT, **properties) | {"class_name": class_name.encode()}


def table(rownames=None, **variables):
    return instance("table", data=cell(*variables.values()), varnames=texts(*variables),
                    rownames=rownames or cell(dims=[0, 0]))  # fmt: skip


def datetimes(*milliseconds, tz="", dims=None):
    parts = [part for real in milliseconds for part in (real, 0)]
    data = doubles(*parts, dims=dims or [len(milliseconds), 1]) | {"type": COMPLEX}
    return instance("datetime", data=data, fmt=chars(""), tz=chars(tz))


def durations(*milliseconds, dims=None):
    return instance("duration", millis=doubles(*milliseconds, dims=dims), fmt=chars(""))


def categorical(codes, *names):
    return instance("categorical", categoryNames=texts(*names), codes=codes)


def timetable(row_times, names=("Time", "Variables"), **variables):
    return instance(
        "timetable",
        __CustomSave=record(STRUCT, data=cell(*variables.values()), varNames=texts(*variables),
                            rowTimes=row_times, dimNames=texts(*names)),
    )  # fmt: skip


def without(image, name):
    """An image less one of its properties or fields."""
    at = image["names"].index(name.encode())
    cut = {key: [*image[key][:at], *image[key][at + 1 :]] for key in ("names", "children")}
    return image | cut


def replaced(image, **properties):
    values = dict(zip((name.decode() for name in image["names"]), image["children"], strict=True))
    return image | record(image["type"], **values | properties)


@pytest.fixture
def receive(messages):
    def decode(image):
        data = messages.ZORVAN_Params(arrays=[image]).SerializeToString()
        (value,) = py_pb.serialized_str_to_py(data)
        return value

    return decode


def call(function):
    done = subprocess.run(["zorvan-loopback", function], input=b"", capture_output=True, check=True)
    (value,) = py_pb.serialized_str_to_py(done.stdout)
    return value


def shown(frame):
    """Names and values, with None for whatever is missing."""
    return {
        name: [None if np.ndim(v) == 0 and pd.isna(v) else v for v in frame[name].tolist()]
        for name in frame.columns
    }


# ---- the engine's own ----


def test_plain_variables_arrive():
    frame = call("table")
    assert shown(frame) == {
        "reading": [1.5, None, -2.0],
        "count": [1, 2, 3],
        "valid": [True, False, True],
        "note": ["grüß dich", None, ""],
        "grade": ["a", "b", "c"],
        "day": [pd.Timestamp(0), None, pd.Timestamp("1970-01-02")],
        "took": [pd.Timedelta("0.5ms"), None, pd.Timedelta("1D")],
        "extra": [1.0, "two", []],
    }
    kinds = {name: dtype.kind for name, dtype in frame.dtypes.items()}
    assert (frame["count"].dtype, frame["extra"].dtype) == (np.int32, object)
    assert (kinds["reading"], kinds["valid"], kinds["day"], kinds["took"]) == ("f", "b", "M", "m")
    assert frame.index.equals(pd.RangeIndex(3))


def test_other_tables_arrive():
    timed = call("timetable")
    assert (timed.index.name, str(timed.index.tz)) == ("Time", "Europe/Berlin")
    assert timed.index.tolist()[:2] == [
        pd.Timestamp("1970-01-01 01:00+01:00"),
        pd.Timestamp("1970-06-30 01:00+01:00"),
    ]
    assert timed.index[2] is pd.NaT and shown(timed) == {"reading": [1.5, 2.5, 3.5]}
    assert list(shown(call("nested-table")).items()) == [
        ("pair_1", [1, 2]), ("pair_2", [3, 4]),
        ("inner_deep_x", [5, 6]), ("inner_deep_y", [7, 8]), ("inner_z", [9, 10]),
        ("last", [11, 12]),
    ]  # fmt: skip
    assert shown(call("categorical")) == {"color": ["green", "", "red", "green"]}
    named = call("row-names")
    assert (named.index.tolist(), shown(named)) == (["first", "second"], {"height": [1.25, 1.5]})


# ---- variables ----


@pytest.mark.parametrize(
    "variable, values",
    [
        (doubles(1.5), [1.5]),
        (doubles(dims=[0, 0]), []),
        (dense(SINGLE, 1.5, 2.5), [1.5, 2.5]),
        (doubles(1, 2, 3, 4, dims=[2, 1]) | {"type": COMPLEX}, [1 + 2j, 3 + 4j]),
        (chars("one text"), ["one text"]),
        (chars("ab", dims=[2, 1]), ["a", "b"]),
        (strings("é", None), ["é", None]),
        (cell(doubles(1, 2), texts("x"), dims=[2, 1]), [zorvan.double([[1], [2]]), ["x"]]),
        (cell(cell(dims=[0, 0])), [[]]),
        (categorical(dense(INT8, 2, 0), "a", "größe"), ["größe", ""]),
        (categorical(doubles(dims=[0, 1]) | {"type": UINT8}), []),
        (datetimes(0.5), [pd.Timestamp("1970-01-01 00:00:00.000500")]),
        (datetimes(0, tz="+05:30"), [pd.Timestamp("1970-01-01 05:30+05:30")]),
        (durations(1e-6, 1), [pd.Timedelta(1, "ns"), pd.Timedelta("1ms")]),
        (instance("dictionary", data=record(STRUCT, Key=strings("k"), Value=doubles(1))),
         [zorvan.dictionary(k=1.0)]),
    ],
)  # fmt: skip
def test_variables(receive, variable, values):
    assert shown(receive(table(v=variable))) == {"v": values}


@pytest.mark.parametrize(
    "variables, columns",
    [
        ({"a": doubles(1, 2, dims=[1, 2])}, {"a_1": [1], "a_2": [2]}),
        ({"a": doubles(dims=[0, 2])}, {"a_1": [], "a_2": []}),
        ({"a": strings("x", None, "y", "z", dims=[2, 2])}, {"a_1": ["x", None], "a_2": ["y", "z"]}),
        ({"a": texts("x", "y", dims=[1, 2])}, {"a_1": ["x"], "a_2": ["y"]}),
        ({"a": datetimes(0, 1, dims=[1, 2])},
         {"a_1": [pd.Timestamp(0)], "a_2": [pd.Timestamp("1970-01-01 00:00:00.001")]}),
        ({"a": durations(0, 1, dims=[1, 2])},
         {"a_1": [pd.Timedelta(0)], "a_2": [pd.Timedelta("1ms")]}),
        ({"a": categorical(dense(UINT8, 2, 1, dims=[1, 2]), "p", "q")},
         {"a_1": ["q"], "a_2": ["p"]}),
        ({"a": table(), "b": table(x=table(y=doubles(1)))}, {"b_x_y": [1]}),
        ({}, {}),
    ],
)  # fmt: skip
def test_flattening(receive, variables, columns):
    assert list(shown(receive(table(**variables))).items()) == list(columns.items())


def test_repeated_names(receive):
    image = replaced(
        table(a=doubles(1), b=doubles(2), c=table(d=doubles(3)), e=doubles(4), f=doubles(5)),
        varnames=texts("a", "b", "c", "a", "c_d"),
    )
    assert shown(receive(image)) == {"a_1": [1], "b": [2], "c_d_1": [3], "a_2": [4], "c_d_2": [5]}


def test_columns_own_their_memory(receive):
    """What a column shares with nothing else can be written."""
    frame = receive(table(a=doubles(*range(1000)), b=doubles(*range(1000))))
    frame.loc[0, "a"] = 7.5
    assert (frame["a"][0], frame["b"][0], frame["a"][999]) == (7.5, 0, 999)
    column = frame["b"]
    del frame
    gc.collect()
    assert column.sum() == 499500


def test_wide_tables_come_in_one_piece(receive):
    wide = receive(table(**{f"v{i}": doubles(i) for i in range(150)}))
    with warnings.catch_warnings():
        warnings.simplefilter("error")  # pandas warns when it has to add to a frame in many pieces
        wide["more"] = 1
    assert shown(wide)["v149"] == [149]


def test_long_columns_of_texts(receive):
    """They take another way than short ones where pandas keeps texts in Arrow arrays."""
    values = ["a", None, "größe 語", "", "\N{GRINNING FACE}\N{HANGUL SYLLABLE GIG}"] * 400
    frame = receive(table(t=strings(*values)))
    assert shown(frame) == {"t": values}
    assert frame["t"].dtype == pd.Series(["a", None]).dtype
    colors = categorical(dense(UINT8, *[2, 0, 1] * 500), "語", "b")
    assert shown(receive(table(c=colors))) == {"c": ["b", "", "語"] * 500}
    lone = {"type": STRING, "dims": [2000, 1], "text_len": [8] * 2000}
    lone["text"] = b"\xed\xa0\x80" * 2000
    with pytest.raises(UnicodeDecodeError):
        receive(table(t=lone))


# ---- refusals ----

NESTED = "conversion of this nested ZORVAN {} is not supported. Use 'splitvars' to flatten it"


@pytest.mark.parametrize(
    "variable, error, text",
    [
        (timetable(datetimes(0), x=doubles(1)), TypeError, NESTED.format("timetable")),
        (table(x=timetable(doubles())), TypeError, NESTED.format("timetable")),
        (without(table(x=doubles(1)), "data"), TypeError, NESTED.format("table")),
        (replaced(table(x=doubles(1)), varnames=texts()), TypeError, NESTED.format("table")),
        (instance("loopback.Point", x=doubles(1)), TypeError,
         "conversion of ZORVAN 'loopback.Point' array to Python is not supported"),
        (instance("missing"), TypeError,
         "conversion of ZORVAN 'missing' array to Python is not supported"),
        (chars("abcd", dims=[2, 2]), ValueError,
         "char arrays returned from ZORVAN must be 1-by-N or M-by-1"),
        ({"type": HANDLE, "class_name": b"Device", "ref": [1]}, TypeError,
         "custom ZORVAN object conversion not supported. Extract the custom ZORVAN object's "
         "properties and manually convert each property to an equivalent Python object"),
        ({"type": SPARSE, "dims": [2, 2], "col_starts": [0, 0, 0]}, TypeError,
         "conversion of ZORVAN sparse array to Python not supported"),
        (record(STRUCT, x=doubles(1)), TypeError,
         "conversion of ZORVAN data type STRUCT to Python not supported"),
        (dense(INT8, 1, 2, dims=[1, 1]) | {"type": COMPLEX_INT8}, TypeError,
         "conversion of ZORVAN data type COMPLEX_INT8 to Python not supported"),
        ({"type": ENUMERATION, "class_name": b"Color", "text_len": [8], "text": b"Red"}, TypeError,
         "conversion of ZORVAN data type ENUMERATION to Python not supported"),
        (doubles(1, 2, dims=[1, 1, 2]), TypeError, "unable to flatten multidimensional array"),
        (doubles(dims=[0, 10**9]), TypeError, "unable to flatten multidimensional array"),
        (chars("", dims=[10**9, 0]), ValueError,
         "char arrays returned from ZORVAN must be 1-by-N or M-by-1"),
        (doubles(dims=[3, 0]), TypeError, "unable to flatten multidimensional array"),
        (categorical(dense(UINT8, 3), "a", "b"), ValueError,
         "code 3 of ZORVAN categorical, which has 2 categories"),
        (categorical(dense(INT8, -1), "a"), ValueError,
         "code -1 of ZORVAN categorical, which has 1 categories"),
        (categorical(doubles(1), "a"), TypeError, "codes of ZORVAN categorical have type DOUBLE"),
        (without(categorical(dense(INT8, 1), "a"), "codes"), ValueError,
         "unable to find property 'codes' in 'categorical' object"),
        (without(categorical(dense(INT8, 1), "a"), "categoryNames"), ValueError,
         "unable to find property 'categoryNames' in 'categorical' object"),
        (replaced(categorical(dense(INT8, 1), "a"), categoryNames=cell(doubles(1))), ValueError,
         "element 0 of 'categoryNames' of ZORVAN categorical is no text"),
        (replaced(durations(1), millis=chars("x")), TypeError,
         "property 'millis' of ZORVAN duration object has type CHAR"),
        (datetimes(0, tz="Nowhere/Land"), TypeError,
         "conversion of ZORVAN datetime object with time zone 'Nowhere/Land' to Python not "
         "supported"),
        (datetimes(1e300, 0), OverflowError, "ZORVAN datetime is out of the range of 64-bit "
         "microseconds"),
    ],
)  # fmt: skip
def test_refused_variables(receive, variable, error, text):
    with pytest.raises(error) as raised:
        receive(table(first=doubles(1), second=variable))
    assert str(raised.value) == text


@pytest.mark.parametrize(
    "image, text",
    [
        (without(table(), "data"), "unable to find property 'data' in 'table' object"),
        (without(table(), "varnames"), "unable to find property 'varnames' in 'table' object"),
        (without(table(), "rownames"), "unable to find property 'rownames' in 'table' object"),
        (replaced(table(), data=doubles(1)),
         "property 'data' of ZORVAN table object has type DOUBLE"),
        (replaced(table(), varnames=chars("a")),
         "property 'varnames' of ZORVAN table object has type CHAR"),
        (replaced(table(), varnames=cell(doubles(1))),
         "element 0 of 'varnames' of ZORVAN table is no text"),
        (replaced(table(a=doubles(1)), rownames=strings(None)),
         "element 0 of 'rownames' of ZORVAN table is no text"),
        (replaced(table(a=doubles(1)), varnames=texts("a", "b")),
         "ZORVAN table has 1 variables and 2 variable names"),
        (table(a=doubles(1, 2), b=doubles(1, 2, 3)),
         "variable 'b' of ZORVAN table has 3 rows, those before it have 2"),
        (table(a=doubles(1, 2), b=chars("two rows?")),
         "variable 'b' of ZORVAN table has 1 rows, those before it have 2"),
        (table(texts("r"), a=doubles(1, 2)), "ZORVAN table has 2 rows and 1 row names"),
        (timetable(datetimes(0, 1, 2), a=doubles(1, 2)), "ZORVAN table has 2 rows and 3 row times"),
        (without(timetable(datetimes(0)), "__CustomSave"),
         "unable to find property '__CustomSave' in 'timetable' object"),
        (timetable(datetimes(0), names=()),
         "'dimNames' of ZORVAN timetable do not begin with a text"),
        (table() | {"dims": [2, 1], "children": table()["children"] * 2},
         "only a scalar table can be returned from ZORVAN"),
    ],
)  # fmt: skip
def test_images_that_do_not_fit_together(receive, image, text):
    with pytest.raises((TypeError, ValueError)) as raised:
        receive(image)
    assert str(raised.value) == text


@pytest.mark.parametrize(
    "row_times",
    [doubles(1, 2), doubles(dims=[0, 0]), datetimes(float("nan")), datetimes(0, tz="Nowhere/Land"),
     instance("loopback.Clock"), without(durations(0), "millis"), cell()],
)  # fmt: skip
def test_row_times_that_are_none(receive, row_times):
    with pytest.raises(TypeError) as raised:
        receive(timetable(row_times, a=doubles(1, 2)))
    assert str(raised.value) == (
        "invalid 'RowTimes' index in timetable for conversion to pandas.DataFrame object"
    )


def test_long_names_do_not_multiply(receive):
    long = "n" * 3000
    assert shown(receive(table(**{long: doubles(1)}))) == {long: [1]}
    for variable in (doubles(1, 2, dims=[1, 2]), table(x=doubles(1))):
        with pytest.raises(TypeError, match="flatten"):
            receive(table(**{long: variable}))


# ---- timetables ----


def test_row_times(receive):
    nan = float("nan")
    for row_times, index in (
        (datetimes(86400000), pd.DatetimeIndex(["1970-01-02"], name="when")),
        (datetimes(0, nan, nan), pd.DatetimeIndex(["1970-01-01", None, None], name="when")),
        (durations(1000, nan), pd.TimedeltaIndex(["1s", None], name="when")),
        (datetimes(), pd.DatetimeIndex([], name="when")),
    ):
        frame = receive(timetable(row_times, names=("when", "Variables")))
        assert isinstance(frame.index, type(index))
        assert frame.index.astype(index.dtype).equals(index)
        assert (frame.index.name, frame.shape) == ("when", (len(index), 0))
    frame = receive(timetable(datetimes(0, 1), a=durations(1, 2), b=table(c=strings("x", "y"))))
    assert frame.columns.tolist() == ["a", "b_c"]


# ---- without pandas ----


@pytest.mark.parametrize("absent", ["numpy", "pandas"])
def test_without_data_frames_tables_stay_engine_objects(monkeypatch, absent):
    monkeypatch.setitem(sys.modules, absent, None)
    for function, class_name in (("table", "table"), ("timetable", "timetable")):
        value = call(function)
        assert type(value) is zorvan.object
        assert repr(value) == f"<zorvan.object 1x1 of class '{class_name}'>"


def test_a_frame_that_pandas_does_not_make(monkeypatch):
    def refuse(*_, **__):
        raise RuntimeError("not today")

    monkeypatch.setattr(pd.DataFrame, "__init__", refuse)
    with pytest.raises(TypeError, match="^unable to create pandas.DataFrame object$"):
        call("table")


def test_nothing_leaks(receive):
    images = [table(a=doubles(1, 2), b=categorical(dense(UINT8, 1, 2), "p", "q")),
              timetable(datetimes(0, 1, tz="UTC"), a=strings("x", "y"))]  # fmt: skip
    images.append(table(a=doubles(1, 2), b=categorical(dense(UINT8, 1, 9), "p", "q")))

    def receive_all(rounds):
        for _ in range(rounds):
            for image in images:
                with contextlib.suppress(ValueError):
                    receive(image)
        gc.collect()
        return sys.getallocatedblocks()

    before = receive_all(200)
    assert receive_all(500) - before < 400
