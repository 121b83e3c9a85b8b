"""Data frames to measure with, and what pyarrow makes of them."""

from __future__ import annotations

from typing import Any

import numpy
import pandas


def random() -> numpy.random.Generator:
    """The same values in every run and every process."""
    return numpy.random.default_rng(20)


def floats(rows: int) -> pandas.DataFrame:
    return pandas.DataFrame(random().random((rows, 10)), columns=list("abcdefghij"))


def texts(rows: int) -> pandas.DataFrame:
    """Texts as pandas keeps them unless told otherwise."""
    return pandas.DataFrame({"text": [f"text {i}" for i in range(rows)]})


def text_objects(rows: int) -> pandas.DataFrame:
    return texts(rows).astype(object)


def mixed(rows: int) -> pandas.DataFrame:
    chance = random()
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
    """Whether a frame came back: the first column of times may have become the index, and columns
    may have other types that hold the same."""
    if not isinstance(received, pandas.DataFrame):
        return False
    if received.index.name in sent.columns:
        received = received.reset_index()
    if sorted(received.columns) != sorted(sent.columns):
        return False
    return all(received[name].astype(sent[name].dtype).equals(sent[name]) for name in sent.columns)


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
