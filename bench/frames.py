"""Data frames to measure with, and what pyarrow makes of them."""

from __future__ import annotations

from typing import Any

import numpy
import pandas
from chance import numbers


def floats(rows: int) -> pandas.DataFrame:
    return pandas.DataFrame(numbers().random((rows, 10)), columns=list("abcdefghij"))


def wide_floats(edge: int) -> pandas.DataFrame:
    """As many columns as rows, each in memory of its own."""
    chance = numbers()
    return pandas.DataFrame({f"c{i}": chance.random(edge) for i in range(edge)})


def wide_mixed(edge: int) -> pandas.DataFrame:
    chance = numbers()
    columns = (
        lambda: chance.random(edge),
        lambda: numpy.arange(edge),
        lambda: chance.random(edge) > 0.5,
        lambda: [f"v{i}" for i in range(edge)],
    )
    return pandas.DataFrame({f"c{i}": columns[i % 4]() for i in range(edge)})


def texts(rows: int) -> pandas.DataFrame:
    """Texts as pandas keeps them unless told otherwise."""
    return pandas.DataFrame({"text": [f"text {i}" for i in range(rows)]})


def text_objects(rows: int) -> pandas.DataFrame:
    return texts(rows).astype(object)


def repeated_texts(rows: int) -> pandas.DataFrame:
    return pandas.DataFrame({"text": [f"label {i % 100}" for i in range(rows)]})


def categories(rows: int) -> pandas.DataFrame:
    chance = numbers()

    def column(number: int) -> pandas.Categorical:
        colors = ["red", "green", "blue", "x" * number]
        return pandas.Categorical.from_codes(chance.integers(0, 4, rows), colors)

    return pandas.DataFrame({f"c{i}": column(i) for i in (1, 2, 3)})


def nullable(rows: int) -> pandas.DataFrame:
    """The dtypes that have a mask, with a tenth of the floats missing."""
    floats = [None if i % 10 == 3 else i * 0.5 for i in range(rows)]
    return pandas.DataFrame(
        {
            "i": pandas.array(numpy.arange(rows), dtype="Int64"),
            "f": pandas.array(floats, dtype="Float64"),
            "b": pandas.array(numpy.arange(rows) % 2 == 0, dtype="boolean"),
        }
    )


def zoned_times(rows: int) -> pandas.DataFrame:
    times = pandas.date_range("2020", periods=rows, freq="s", tz="Europe/Zurich")
    return pandas.DataFrame({"t": times, "v": numbers().random(rows)})


def timetable(rows: int) -> pandas.DataFrame:
    times = pandas.date_range("2020", periods=rows, freq="s")
    columns = {"v": numbers().random(rows), "w": numpy.arange(rows)}
    return pandas.DataFrame(columns, index=times)


def multi_index(rows: int) -> pandas.DataFrame:
    levels = [[f"a{i}" for i in range(rows // 1000)], range(1000)]
    index = pandas.MultiIndex.from_product(levels)
    return pandas.DataFrame({"v": numbers().random(rows)}, index=index)


def text_index(rows: int) -> pandas.DataFrame:
    return pandas.DataFrame({"v": numbers().random(rows)}, index=[f"r{i}" for i in range(rows)])


def mixed(rows: int) -> pandas.DataFrame:
    chance = numbers()
    seconds = chance.integers(0, 2**30, rows)
    return pandas.DataFrame(
        {
            "count": chance.integers(0, 1000, rows),
            "reading": chance.random(rows),
            "label": [f"label {i % 1000}" for i in range(rows)],
            "color": pandas.Categorical(numpy.array(["red", "green", "blue"])[seconds % 3]),
            "valid": chance.random(rows) < 0.5,
            "time": seconds.astype("M8[s]").astype("M8[ns]"),
        }
    )


def same(sent: pandas.DataFrame, received: Any) -> bool:
    """Whether a frame came back: an index other than the default one may have become columns, the
    first column of times the index, and columns may have other types that hold the same."""
    if not isinstance(received, pandas.DataFrame):
        return False
    sent, received = without_index(sent), without_index(received)
    if sorted(received.columns) != sorted(sent.columns):
        return False
    return all(received[name].astype(sent[name].dtype).equals(sent[name]) for name in sent.columns)


def without_index(frame: pandas.DataFrame) -> pandas.DataFrame:
    """The frame with its index as columns, unless that only counts the rows."""
    return frame if isinstance(frame.index, pandas.RangeIndex) else frame.reset_index()


def to_arrow_stream(frame: pandas.DataFrame) -> Any:
    import pyarrow

    table = pyarrow.Table.from_pandas(frame)
    stream = pyarrow.BufferOutputStream()
    with pyarrow.ipc.new_stream(stream, table.schema) as writer:
        writer.write_table(table)
    return stream.getvalue()


def from_arrow_stream(data: Any) -> pandas.DataFrame:
    import pyarrow

    return pyarrow.ipc.open_stream(data).read_pandas()
