"""Data frames out and back: what changes is what docs/tables.md says, dtype by dtype."""

import datetime
from zoneinfo import ZoneInfo

import numpy as np
import py_pb
import pytest

pd = pytest.importorskip("pandas")

PANDAS = int(pd.__version__.split(".")[0])
TEXT = "str" if PANDAS >= 3 else "object"
NAN = float("nan")
DAYS = ["2024-03-31 01:30:00.000004", "2024-10-27 02:30:00"]


def there_and_back(frame):
    (returned,) = py_pb.serialized_str_to_py(py_pb.py_to_serialized_str((frame,)))
    return returned


def unit(name):
    """The unit of times where pandas knows others than nanoseconds."""
    return name if PANDAS >= 2 else "ns"


def check(column, dtype, values):
    frame = there_and_back(pd.DataFrame({"first": range(len(column)), "v": column}))
    assert frame.columns.tolist() == ["first", "v"] and frame["first"].tolist() == [0, 1]
    assert frame.index.equals(pd.RangeIndex(2))
    assert str(frame["v"].dtype) == dtype
    assert [None if v != v else v for v in frame["v"].tolist()] == values


KEPT = ["bool", "float32", "float64", "complex64", "complex128"] + [
    f"{sign}int{bits}" for sign in ("", "u") for bits in (8, 16, 32, 64)
]


@pytest.mark.parametrize("dtype", KEPT)
def test_numpy_dtypes_stay(dtype):
    check(pd.Series([0, 1], dtype=dtype), dtype, [0, 1])


@pytest.mark.parametrize(
    "values, dtype, returned_dtype, returned",
    [
        ([1.5, NAN], "float16", "float32", [1.5, None]),
        ([1, 2], "Int16", "int16", [1, 2]),
        ([1, 2**63], "UInt64", "uint64", [1, 2**63]),
        ([1, None], "UInt8", "float64", [1, None]),
        ([None, 2], "Int64", "float64", [None, 2]),
        ([1.5, 2], "Float32", "float32", [1.5, 2]),
        ([None, 2.5], "Float64", "float64", [None, 2.5]),
        ([True, False], "boolean", "bool", [True, False]),
        (["ü", "\N{GRINNING FACE}"], None, TEXT, ["ü", "\N{GRINNING FACE}"]),
        (["a", None], None, TEXT, ["a", ""]),
        (["a", "b"], object, TEXT, ["a", "b"]),
        (["a", None], object, TEXT, ["a", ""]),
        (["a", None], "string", TEXT, ["a", ""]),
        ([None, "b"], "string", TEXT, ["", "b"]),
        (["x", "y"], "category", TEXT, ["x", "y"]),
        (["x", None], "category", TEXT, ["x", ""]),
        ([3, 4], "category", TEXT, ["3", "4"]),
        ([1, 2], object, "int64", [1, 2]),
        ([1.5, 2.5], object, "float64", [1.5, 2.5]),
        ([True, False], object, "bool", [True, False]),
        ([1j, 2j], object, "complex128", [1j, 2j]),
        ([1, None], object, "float64", [1, None]),
        ([1.5, None], object, "float64", [1.5, None]),
        ([1, "a"], object, "object", [1, "a"]),
        ([[1, 2], []], object, "object", [[1, 2], []]),
        ([{"a": 1}, {"b": [2]}], object, "object", [{"a": 1}, {"b": [2]}]),
    ],
)
def test_other_dtypes(values, dtype, returned_dtype, returned):
    check(pd.Series(values, dtype=dtype), returned_dtype, returned)


@pytest.mark.parametrize(
    "ticks, sent, returned",
    [
        ([1, "NaT"], "m8[ns]", "ns"),
        ([1000, "NaT"], "m8[ns]", unit("us")),
        ([1, 2], "m8[s]", unit("us")),
    ],
)
def test_lengths_of_time(ticks, sent, returned):
    column = pd.Series(np.array(ticks, sent))
    check(column, f"timedelta64[{returned}]", [None if v != v else v for v in column.tolist()])


@pytest.mark.parametrize(
    "ticks, sent, returned",
    [
        ([0, 1001], "M8[ns]", "ns"),
        ([-1000, 1000], "M8[ns]", unit("us")),
        ([0, 10**15], "M8[us]", unit("us")),
        ([0, 10**9], "M8[s]", unit("us")),
    ],
)
def test_dates(ticks, sent, returned):
    """The first column of dates is the index, a further one a column."""
    dates = np.array(ticks, sent)
    frame = there_and_back(pd.DataFrame({"a": [1, 2], "when": dates, "b": dates}))
    assert (frame.columns.tolist(), frame["a"].tolist()) == (["a", "b"], [1, 2])
    assert (frame.index.name, str(frame.index.dtype)) == ("when", f"datetime64[{returned}]")
    assert str(frame["b"].dtype) == f"datetime64[{returned}]"
    expected = pd.Series(dates).tolist()
    assert frame.index.tolist() == frame["b"].tolist() == expected


@pytest.mark.parametrize(
    "zone, returned",
    [
        (ZoneInfo("Europe/Berlin"), ZoneInfo("Europe/Berlin")),
        ("America/New_York", ZoneInfo("America/New_York")),
        (datetime.timezone(datetime.timedelta(hours=-3.5)),) * 2,
    ],
)
def test_zones_are_kept(zone, returned):
    dates = pd.DatetimeIndex(DAYS).tz_localize("UTC").tz_convert(zone)
    frame = there_and_back(pd.DataFrame({"when": dates, "again": dates}))
    assert frame.index.tz == frame["again"].dt.tz == returned
    assert frame.index.tolist() == frame["again"].tolist() == dates.tolist()
    assert str(frame.index.dtype).startswith(f"datetime64[{unit('us')}, ")


@pytest.mark.skipif(PANDAS < 2, reason="pandas had no columns of Arrow dtypes")
@pytest.mark.parametrize(
    "values, arrow_type, returned_dtype, returned",
    [
        ([1, 2], "int32", "int32", [1, 2]),
        ([1, None], "int64", "float64", [1, None]),
        ([None, 1.5], "float64", "float64", [None, 1.5]),
        ([True, False], "bool_", "bool", [True, False]),
        (["a", None], "string", TEXT, ["a", ""]),
    ],
)
def test_arrow_dtypes(values, arrow_type, returned_dtype, returned):
    arrow = pytest.importorskip("pyarrow", exc_type=ImportError)
    column = pd.Series(values, dtype=pd.ArrowDtype(getattr(arrow, arrow_type)()))
    check(column, returned_dtype, returned)


@pytest.mark.parametrize(
    "column",
    [
        pd.Series([True, None], dtype="boolean"),
        pd.Series(np.array([0, "NaT"], "M8[us]")),
        pd.Series(pd.period_range("2020", periods=2, freq="D")),
        pd.Series(pd.interval_range(0, 2)),
        pd.Series([None, "a"], dtype=object),
        pd.Series([object(), object()]),
    ],
)
def test_refused(column):
    with pytest.raises(TypeError, match="ZORVAN"):
        there_and_back(pd.DataFrame({"v": column}))


# ---- rows and names ----


@pytest.mark.parametrize(
    "index, columns",
    [
        (pd.RangeIndex(2, name="gone"), {"v": [1, 2]}),
        (pd.RangeIndex(1, 3), {"index": [1, 2], "v": [1, 2]}),
        (pd.Index(["x", "y"], name="key"), {"key": ["x", "y"], "v": [1, 2]}),
        (pd.MultiIndex.from_tuples([("x", 1), ("y", 2)], names=["p", None]),
         {"p": ["x", "y"], "level_1": [1, 2], "v": [1, 2]}),
    ],
)  # fmt: skip
def test_indices_become_columns(index, columns):
    frame = there_and_back(pd.DataFrame({"v": [1, 2]}, index=index))
    assert list(frame.to_dict("list").items()) == list(columns.items())
    assert frame.index.equals(pd.RangeIndex(2)) and frame.index.name is None


@pytest.mark.parametrize("name, returned", [("when", "when"), (None, "index")])
def test_indices_of_dates_stay(name, returned):
    sent = pd.DataFrame({"v": [1, 2]}, index=pd.DatetimeIndex(DAYS, name=name))
    frame = there_and_back(sent)
    assert (frame.index.name, frame.index.freq) == (returned, None)
    assert frame.index.tolist() == sent.index.tolist() and frame["v"].tolist() == [1, 2]


def test_names():
    sent = pd.DataFrame([[1, 2, 3, 4, 5]], columns=["a", 7, "a", ("x", 1), "größe"])
    assert there_and_back(sent).to_dict("list") == {
        "a_1": [1], "7": [2], "a_2": [3], "('x', 1)": [4], "größe": [5]
    }  # fmt: skip
    assert sent.columns.tolist()[:3:2] == ["a_1", "a_2"]


def test_frames_without_rows_are_empty():
    for columns in ({}, {"a": []}, {"t": pd.DatetimeIndex([])}):
        sent = pd.DataFrame(columns)
        assert there_and_back(sent).shape == (0, 0)
