"""Frames go out as the tables and timetables that the engine rebuilds its own from."""

import datetime as dt
import json
import subprocess
import sys
import warnings

import numpy as np
import py_pb
import pytest

pd = pytest.importorskip("pandas")
with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    try:
        import pyarrow as pa
    except ImportError:
        pa = None

needs_arrow = pytest.mark.skipif(pa is None, reason="pyarrow is not installed")
NEW_YEAR = dt.datetime(2020, 1, 1)
MILLIS = 1577836800000.0
NAN = float("nan")
DAY = dt.timedelta(1)


def inspect(value):
    message = py_pb.py_to_serialized_str([value])
    command = ["zorvan-inspect", "--json", "-"]
    output = subprocess.run(command, input=message, capture_output=True, check=True).stdout
    return json.loads(output)["arrays"][0]


def plain(array):
    """An array in few words: (type, dims, content), fields and properties as a dict in order."""
    kind, dims = array["type"], tuple(array["dims"])
    if kind == "CHAR":
        return array["text"]
    if kind in ("STRUCT", "VALUE_OBJECT"):
        assert dims == (1, 1)
        record = {name: plain(value) for name, value in array["elements"][0].items()}
        return (array["class"], record) if "class" in array else record
    elements = array["elements"]
    return kind, dims, [plain(each) for each in elements] if kind == "CELL" else elements


def columns(frame):
    """The variables of what a frame becomes, by name."""
    class_name, image = plain(inspect(frame))
    image = image.get("__CustomSave", image)
    names = image["varNames" if class_name == "timetable" else "varnames"][2]
    data = image["data"][2]
    assert len(names) == len(data)
    return dict(zip(names, data, strict=True))


def column(values, dtype=None):
    """What one column becomes, the row times included."""
    image = plain(inspect(pd.DataFrame({"x": pd.Series(values, dtype=dtype)})))[1]
    return image["__CustomSave"]["rowTimes"] if "__CustomSave" in image else image["data"][2][0]


def of(kind, *elements):
    return kind, (len(elements), 1), list(elements)


def double(value):
    return "DOUBLE", (1, 1), [value]


def logical(value):
    return "LOGICAL", (1, 1), [value]


def cells(rows, columns, *elements):
    return "CELL", (rows, columns), list(elements)


def datetimes(*millis, tz=""):
    data = of("COMPLEX_DOUBLE", *([each, 0.0] for each in millis))
    return "datetime", {"data": data, "fmt": "", "tz": tz}


def durations(*millis):
    return "duration", {"millis": of("DOUBLE", *millis), "fmt": ""}


def test_the_image_of_a_table():
    no_numbers, no_cells = ("DOUBLE", (0, 0), []), cells(1, 0)
    # As text: a dict that is equal may have another order of fields.
    assert str(plain(inspect(pd.DataFrame({"a": [1.5, 2.5], 7: ["x", "ü"]})))) == str(
        (
            "table",
            {
                "data": cells(1, 2, of("DOUBLE", 1.5, 2.5), of("ZORVAN_STRING", "x", "ü")),
                "ndims": double(2.0),
                "nrows": double(2.0),
                "rownames": cells(0, 0),
                "nvars": double(2.0),
                "varnames": cells(1, 2, "a", "7"),
                "props": {
                    "useVariableNamesOriginal": logical(False),
                    "useDimensionNamesOriginal": logical(False),
                    "Description": "",
                    "CustomProps": {},
                    "VariableCustomProps": {},
                    "DimensionNames": cells(1, 2, "Row", "Variables"),
                    "DimensionNamesOriginal": no_cells,
                    "VariableNamesOriginal": no_cells,
                    "UserData": no_numbers,
                    "VariableDescriptions": no_cells,
                    "VariableUnits": no_cells,
                    "VariableContinuity": no_cells,
                    "VersionSavedFrom": double(4.0),
                    "minCompatibleVersion": double(1.0),
                    "incompatibilityMsg": "",
                },
                "rowDim": {
                    "labelType": "text",
                    "requireLabels": logical(False),
                    "requireUniqueLabels": logical(True),
                    "DuplicateLabelExceptionID": "ZORVAN:table:DuplicateRowNames",
                    "reservedNames": cells(1, 1, ":"),
                    "labels": cells(0, 1),
                    "length": double(5.0),
                    "hasLabels": logical(False),
                    "subsType": {
                        "reference": double(0.0),
                        "forwardedReference": double(1.0),
                        "assignment": double(2.0),
                        "deletion": double(3.0),
                    },
                },
            },
        )
    )


def test_the_image_of_a_timetable():
    """The first datetime column gives the row times, a later one is a variable."""
    frame = pd.DataFrame({"a": [1.5], "when": [NEW_YEAR], "b": [True], "then": [NEW_YEAR + DAY]})
    none = cells(0, 0)
    flags = ["useVarNamesOrig", "useVarNames2048", "useDimNamesOrig", "useDimNames2048"]
    lists = ["dimNamesOrig", "dimNames20482048", "varNamesOrig", "varNames2048"]
    image = {
        "CustomProps": {},
        "VariableCustomProps": {},
        "versionSavedFrom": double(7.0),
        "minCompatibleVersion": ("INT32", (1, 1), [2]),
        "incompatibilityMsg": "",
        "numDims": double(2.0),
        **dict.fromkeys(flags, double(0.0)),
        **dict.fromkeys(lists, none),
        "numRows": double(1.0),
        "numVars": double(3.0),
        "varDescriptions": none,
        "varUnits": none,
        "timeEvents": ("DOUBLE", (0, 0), []),
        "varContinuity": none,
        "arrayProps": {
            "Description": "",
            "UserData": ("DOUBLE", (0, 0), []),
            "TableCustomProperties": {},
        },
        "varNames": cells(1, 3, "a", "b", "then"),
        "data": cells(1, 3, of("DOUBLE", 1.5), of("LOGICAL", True), datetimes(MILLIS + 86400000)),
        "rowTimes": datetimes(MILLIS),
        "dimNames": cells(1, 2, "when", "Variables"),
    }
    assert str(plain(inspect(frame))) == str(("timetable", {"__CustomSave": image}))


CODES = ("int8", "uint8", "int16", "uint16", "int32", "uint32", "int64", "uint64")
COLUMNS = [
    *(([1, 0], name, of(name.upper(), 1, 0)) for name in CODES),
    ([True, False], "bool", of("LOGICAL", True, False)),
    ([1, NAN], "float16", of("SINGLE", 1.0, "NaN")),
    ([1, NAN], "float32", of("SINGLE", 1.0, "NaN")),
    ([1, -0.0], ">f8", of("DOUBLE", 1.0, -0.0)),
    ([1j], "complex64", of("COMPLEX_SINGLE", [0.0, 1.0])),
    ([2**53 + 1, -1], "Int64", of("INT64", 2**53 + 1, -1)),
    ([2**64 - 1], "UInt64", of("UINT64", 2**64 - 1)),
    ([None, 3], "UInt8", of("DOUBLE", "NaN", 3.0)),
    ([None, 1], "Float32", of("SINGLE", "NaN", 1.0)),
    ([None, None], "Float64", of("DOUBLE", "NaN", "NaN")),
    ([True, False], "boolean", of("LOGICAL", True, False)),
    ([None, "ü\U0001f600", None], "string", of("ZORVAN_STRING", "", "ü\U0001f600", "")),
    ([0.0, 1.5], pd.SparseDtype(float, 0.0), of("DOUBLE", 0.0, 1.5)),
    ([NEW_YEAR], "datetime64[ns]", datetimes(MILLIS)),
    ([NEW_YEAR], "datetime64[ns, Asia/Tokyo]", datetimes(MILLIS - 9 * 3600000, tz="Asia/Tokyo")),
    ([DAY, None], "timedelta64[ns]", durations(86400000.0, "NaN")),
    # Columns of objects: by the first item, and whether the others are like it.
    ([1, 2], object, of("INT64", 1, 2)),
    ([1, 2**70, None], object, of("DOUBLE", 1.0, 2.0**70, "NaN")),
    ([1.5, None, pd.NA, pd.NaT, NAN], object, of("DOUBLE", 1.5, "NaN", "NaN", "NaN", "NaN")),
    ([np.float32(1), None], object, of("SINGLE", 1.0, "NaN")),
    ([True, False], object, of("LOGICAL", True, False)),
    (["a", None, pd.NA], object, of("ZORVAN_STRING", "a", "", "")),
    ([NEW_YEAR, NEW_YEAR + DAY], object, datetimes(MILLIS, MILLIS + 86400000)),
    ([DAY, 2 * DAY], object, durations(86400000.0, 172800000.0)),
    (
        [1, "a", True, 2.5, [1, "b"]],
        object,
        cells(
            *(5, 1),
            ("INT64", (1, 1), [1]),
            ("ZORVAN_STRING", (1, 1), ["a"]),
            logical(True),
            double(2.5),
            cells(1, 2, ("INT64", (1, 1), [1]), "b"),
        ),
    ),
    (["a", NAN], object, cells(2, 1, ("ZORVAN_STRING", (1, 1), ["a"]), double("NaN"))),
    ([b"a", b"b"], object, cells(2, 1, ("UINT8", (1, 1), [97]), ("UINT8", (1, 1), [98]))),
    ([{"k": 1.0}], object, cells(1, 1, {"k": double(1.0)})),
    ([np.arange(2.0)], object, cells(1, 1, ("DOUBLE", (1, 2), [0.0, 1.0]))),
    (
        [NEW_YEAR, NEW_YEAR.replace(tzinfo=dt.timezone(dt.timedelta(hours=1)))],
        object,
        cells(2, 1, datetimes(MILLIS), datetimes(MILLIS - 3600000, tz="+01:00")),
    ),
]


@pytest.mark.parametrize(
    ("values", "dtype", "expected"), COLUMNS, ids=[f"{d}-{v!s:.30}" for v, d, _ in COLUMNS]
)
def test_columns(values, dtype, expected):
    if str(dtype).startswith("datetime64[ns, "):
        values, dtype = pd.Series(values).dt.tz_localize("Asia/Tokyo"), None
    assert column(values, dtype) == expected


@needs_arrow
def test_columns_that_arrow_keeps():
    arrow = pytest.importorskip("pandas").ArrowDtype
    for values, kind, expected in [
        ([2**53 + 1], pa.int64(), of("INT64", 2**53 + 1)),
        ([None, 3], pa.int8(), of("DOUBLE", "NaN", 3.0)),
        ([None, 1.5], pa.float32(), of("SINGLE", "NaN", 1.5)),
        ([True, False], pa.bool_(), of("LOGICAL", True, False)),
        ([None, "ü", "", "b"], pa.string(), of("ZORVAN_STRING", "", "ü", "", "b")),
        (["a", None], pa.large_string(), of("ZORVAN_STRING", "a", "")),
        ([NEW_YEAR], pa.timestamp("us"), datetimes(MILLIS)),
        ([None, DAY], pa.duration("us"), durations("NaN", 86400000.0)),
    ]:
        assert column(values, arrow(kind)) == expected
    # Pieces of several arrays, the first of which starts within its memory and its bits.
    texts = pd.Series([f"{i}é" if i % 3 else None for i in range(20)], dtype="string[pyarrow]")
    pieces = pd.concat([texts[11:], texts[:2]], ignore_index=True)
    assert column(pieces, "string[pyarrow]") == of("ZORVAN_STRING", *pieces.fillna(""))


@pytest.mark.parametrize(
    ("values", "texts"),
    [
        (["b", "a", "b"], ["b", "a", "b"]),
        ([None, "a", ""], ["", "a", ""]),
        ([None, None], ["", ""]),
        ([2, 1, None], ["2", "1", ""]),
        ([1, "1", (1, 2)], ["1", "1", "(1, 2)"]),
        (pd.cut(pd.Series([1, 5]), [0, 3, 6]), ["(0, 3]", "(3, 6]"]),
    ],
)
def test_categories_go_by_the_texts_that_occur(values, texts):
    values = pd.Categorical(values).add_categories("unused")
    class_name, properties = column(values)
    names, codes = properties["categoryNames"][2], properties["codes"]
    assert class_name == "categorical" and list(properties) == ["categoryNames", "codes"]
    assert properties["categoryNames"][1] == (len(set(texts)), 1) and set(names) == set(texts)
    assert codes == of("UINT8", *(names.index(text) + 1 for text in texts))


def test_codes_are_cut_to_8_bits():
    names, codes = (value[2] for value in column(pd.Categorical(range(300)))[1].values())
    assert codes == [(names.index(str(i)) + 1) % 256 for i in range(300)]


UNSUPPORTED = "conversion of Python data type '{}' to ZORVAN not supported"
COLUMN = "conversion of pandas.DataFrame '{}' column type to ZORVAN is not supported"
NAT_NAME = f"{type(pd.NaT).__module__}.NaTType"
REFUSED = [
    ([NEW_YEAR, None], "datetime64[ns]", TypeError, COLUMN.format("NaTType")),
    ([None, NEW_YEAR], "datetime64[ns]", TypeError, UNSUPPORTED.format(NAT_NAME)),
    ([None, DAY], "timedelta64[ns]", TypeError, UNSUPPORTED.format(NAT_NAME)),
    ([None, True], "boolean", TypeError, COLUMN.format("NAType")),
    ([True, None], object, TypeError, COLUMN.format("NoneType")),
    ([1j, None], object, TypeError, COLUMN.format("NoneType")),
    ([[1], None], object, TypeError, COLUMN.format("NoneType")),
    ([DAY, pd.NaT], object, TypeError, COLUMN.format("NaTType")),
    ([1, "a", None], object, TypeError, COLUMN.format("NoneType")),
    ([None, "a"], object, TypeError, "passing 'None' to ZORVAN not supported"),
    ([object()], object, TypeError, UNSUPPORTED.format("object")),
    ([1, object()], object, TypeError, COLUMN.format("object")),
    (["a", "\ud800"], object, TypeError, COLUMN.format("str")),
    ([1, 2**63], object, OverflowError, "int too big to convert"),
    ([dt.date(2020, 1, 1)], object, TypeError, UNSUPPORTED.format("datetime.date")),
    (["2020"], "period[D]", TypeError, "conversion of Python data type .*Period' to ZORVAN"),
    (pd.interval_range(0, 1), None, TypeError, "conversion of Python data type .*Interval' to"),
]


@pytest.mark.parametrize(
    ("values", "dtype", "error", "text"), REFUSED, ids=[f"{r[1]}-{r[0]!a:.20}" for r in REFUSED]
)
def test_refused_columns(values, dtype, error, text):
    with pytest.raises(error, match=text):
        py_pb.py_to_serialized_str([pd.DataFrame({"x": pd.Series(values, dtype=dtype)})])


def test_an_index_that_says_something_becomes_columns():
    ab = pd.MultiIndex.from_tuples([("x", 1), ("y", 2)], names=["t", None])
    for index, leading in [
        (pd.RangeIndex(2), []),
        (pd.RangeIndex(1, 3), ["index"]),
        (pd.Index(["x", "y"], name="key"), ["key"]),
        (ab, ["t", "level_1"]),
    ]:
        frame = pd.DataFrame({"v": [1.0, 2.0]}, index=index)
        assert list(columns(frame)) == [*leading, "v"]
        assert frame.index.equals(index) and list(frame.columns) == ["v"]
    times = pd.DatetimeIndex([NEW_YEAR], name="when")
    image = plain(inspect(pd.DataFrame({"v": [1.0]}, index=times)))[1]["__CustomSave"]
    assert image["dimNames"] == cells(1, 2, "when", "Variables")
    with pytest.raises(ValueError, match="cannot insert v, already exists"):
        py_pb.py_to_serialized_str([pd.DataFrame({"v": [1]}, index=pd.Index([5], name="v"))])


def test_duplicate_names_get_suffixes_in_the_callers_frame():
    frame = pd.DataFrame([[1.0, 2.0, 3.0, 4.0, 5.0]], columns=["a", "b", "a", 1, "1"])
    assert list(columns(frame)) == ["a_1", "b", "a_2", "1_1", "1_2"]
    assert list(frame.columns) == ["a_1", "b", "a_2", "1_1", "1_2"]
    # Names that lose something when they are narrowed to ASCII are no duplicates.
    assert list(columns(pd.DataFrame([[1, 2]], columns=["é", "ü"]))) == ["é", "ü"]
    indexed = pd.DataFrame([[1, 2]], columns=["a", "a"], index=["row"])
    assert list(columns(indexed)) == ["index", "a_1", "a_2"]
    assert list(indexed.columns) == ["a", "a"]
    with pytest.raises(TypeError, match=COLUMN.format("DataFrame")):
        py_pb.py_to_serialized_str([pd.DataFrame([[1, 2, 3]], columns=["a", "a", "a_1"])])


class NoText:
    def __str__(self):
        raise ZeroDivisionError


@pytest.mark.parametrize("name", ["x\ud800", NoText()], ids=["lone surrogate", "raises"])
def test_names_without_a_text(name):
    with pytest.raises(UnicodeDecodeError) as caught:
        py_pb.py_to_serialized_str([pd.DataFrame([[1]], columns=pd.Index([name], dtype=object))])
    assert caught.value.reason == "unable to convert pandas.DataFrame column names to ZORVAN"


def test_names_that_are_no_text():
    names = [None, 1.5, True, NEW_YEAR, ("a", 1)]
    frame = pd.DataFrame([range(5)], columns=pd.Index(names, dtype=object, tupleize_cols=False))
    assert list(columns(frame)) == [str(name) for name in names]
    assert list(columns(pd.DataFrame([[1]], columns=[("a", "b")]))) == ["('a', 'b')"]


@pytest.mark.parametrize(
    "frame",
    [
        pd.DataFrame(),
        pd.DataFrame({"a": []}),
        pd.DataFrame(index=range(3)),
        pd.DataFrame({"when": pd.to_datetime([]), "b": pd.Series([], dtype="string")}),
    ],
    ids=["nothing", "no rows", "no columns", "no times"],
)
def test_empty_frames_are_tables_without_variables(frame):
    class_name, image = plain(inspect(frame))
    assert class_name == "table" and image["data"] == image["varnames"] == cells(1, 0)
    assert image["nrows"] == image["nvars"] == double(0.0)


def test_every_layout_of_the_memory_behind_columns():
    block = np.arange(24.0).reshape(4, 6)
    for values in (block, np.asfortranarray(block), block[::-1, ::2], block.astype("f4")[:, 1:]):
        sent = columns(pd.DataFrame(values))
        assert [each[2] for each in sent.values()] == values.T.tolist()


def arrow_backed(length, arrow_length):
    """A column that says to be as long as `length`, and Arrow to keep it."""

    class Liar(pd.api.extensions.ExtensionArray):
        dtype = pd.StringDtype("pyarrow")
        nbytes = 0

        def __len__(self):
            return length

        def __getitem__(self, item):
            return "a" if isinstance(item, int) else self

        def isna(self):
            return np.zeros(length, bool)

        def copy(self):
            return self

        def __arrow_array__(self, type=None):
            return pa.chunked_array([pa.array(["abc"] * arrow_length, pa.string())])

    return pd.DataFrame({"a": pd.Series(Liar())})


@needs_arrow
@pytest.mark.parametrize("lengths", [(20, 5000), (5000, 20), (5000, 0)])
def test_arrow_texts_of_another_number_than_the_column_says(lengths):
    with pytest.raises(ValueError, match="memory of a pandas.DataFrame column is broken"):
        py_pb.py_to_serialized_str([arrow_backed(*lengths)])


@needs_arrow
@pytest.mark.skipif(pd.__version__ < "2", reason="pandas copies large strings")
def test_arrow_memory_that_a_later_argument_changes():
    offsets = np.arange(0, 3 * 2001, 3, dtype="i8")
    texts = pa.LargeStringArray.from_buffers(
        2000, pa.py_buffer(offsets), pa.py_buffer(b"abc" * 2000)
    )
    frame = pd.DataFrame({"a": pd.array(texts, dtype=pd.StringDtype("pyarrow"))})

    class Zone(dt.tzinfo):
        def utcoffset(self, _when):
            offsets[1:] = 10**7
            return dt.timedelta(0)

    when = dt.datetime(2020, 1, 1, tzinfo=Zone())
    sent = py_pb.serialized_str_to_py(py_pb.py_to_serialized_str([frame, when]))[0]
    assert list(sent["a"]) == ["abc"] * 2000


def test_frames_are_told_by_their_class_and_may_lie_anywhere():
    forged = type("DataFrame", (), {"__module__": "pandas", "columns": ["a"], "index": None})
    with pytest.raises(TypeError, match=UNSUPPORTED.format("pandas.DataFrame")):
        py_pb.py_to_serialized_str([forged()])
    inner = pd.DataFrame({"q": [1.0]})
    derived = type("Derived", (pd.DataFrame,), {})(inner)
    assert plain(inspect(derived)) == plain(inspect(inner))
    nested = column([inner], object)
    assert nested[2] == [plain(inspect(inner))]
    cyclic = pd.DataFrame({"x": pd.Series([None], dtype=object)})
    cyclic.at[0, "x"] = cyclic
    with pytest.raises(RecursionError):
        py_pb.py_to_serialized_str([cyclic])


def calls_of(frame):
    count = 0

    def profile(_frame, event, _arg):
        nonlocal count
        count += event == "call"

    py_pb.py_to_serialized_str([frame])
    sys.setprofile(profile)
    try:
        py_pb.py_to_serialized_str([frame])
    finally:
        sys.setprofile(None)
    return count


def test_no_python_call_for_each_item():
    def make(rows):
        texts = [f"text {i}" for i in range(rows)]
        return pd.DataFrame(
            {
                "text": texts,
                "object": pd.Series(texts, dtype=object),
                "gap": pd.Series([1, None] * (rows // 2), dtype="Int64"),
                "mixed": pd.Series([1, "a"] * (rows // 2), dtype=object),
                "category": pd.Categorical(texts),
                "when": pd.date_range("2020", periods=rows, tz="UTC"),
            }
        )

    assert calls_of(make(2000)) == calls_of(make(20))


@pytest.mark.parametrize("last", ["text", object()], ids=["success", "failure"])
def test_nothing_of_a_frame_is_kept(last):
    item = ["an item"]
    frame = pd.DataFrame({"x": pd.Series([item, 1.5, last], dtype=object), "y": [1.0, 2.0, 3.0]})
    before = sys.getrefcount(item), sys.getrefcount(frame)
    for _ in range(100):
        try:
            py_pb.py_to_serialized_str([frame])
        except TypeError:
            assert last != "text"
    assert (sys.getrefcount(item), sys.getrefcount(frame)) == before
