"""The ways a caller would take values to bytes and back, py_pb's among them."""

from __future__ import annotations

import pickle
from dataclasses import dataclass
from datetime import datetime
from typing import Any

import frames
import msgpack
import msgspec
import numpy
import orjson
import py_pb
import zoned

OURS = "py_pb"


@dataclass(frozen=True)
class Codec:
    """One way to bytes and back, as expressions over `args`, a tuple of values, and `data`."""

    out: str
    back: str


# What each kind of value can be taken to bytes by, and come back from as it was.
PLAIN = ("pickle", "msgpack", "msgspec", "orjson")
MAPPINGS = ("pickle", "msgpack", "orjson")
BINARY = ("pickle", "msgpack", "msgspec")
DATES = ("pickle", "msgspec dates")
ARRAYS = ("pickle", "copy")
TURNED = ("pickle", "F copy")  # arrays in other orders than Fortran
FRAMES = ("pickle", "arrow")

COPY_BACK = "[numpy.ndarray(args[0].shape, args[0].dtype, bytearray(data), order='F')]"
CODECS = {
    OURS: Codec("py_pb.py_to_serialized_str(args)", "py_pb.serialized_str_to_py(data)"),
    "pickle": Codec("pickle.dumps(args, 5)", "pickle.loads(data)"),
    "msgpack": Codec("msgpack.packb(args)", "msgpack.unpackb(data)"),
    "msgspec": Codec("encoder.encode(args)", "decoder.decode(data)"),
    # Dates are texts to it, or of UTC, until it is told what to expect.
    "msgspec dates": Codec("encoder.encode(args)", "dates_decoder.decode(data)"),
    "orjson": Codec("orjson.dumps(args)", "orjson.loads(data)"),
    "arrow": Codec("frames.to_arrow_stream(*args)", "[frames.from_arrow_stream(data)]"),
    # The copies are the physical limit for arrays: what it takes to have the elements, column by
    # column, in ordinary memory that nobody has touched yet. order="F" keeps tobytes from turning
    # an array in Fortran order row-major. numpy's own copies are no such limit: their memory is of
    # huge pages.
    "copy": Codec("args[0].tobytes(order='F')", COPY_BACK),
    "F copy": Codec("numpy.asfortranarray(args[0]).tobytes(order='F')", COPY_BACK),
    # What exports a buffer: one copy each way, and the elements get their type again.
    "bytes": Codec(
        "bytes(args[0])", "[memoryview(bytearray(data)).cast(memoryview(args[0]).format)]"
    ),
    # The idiom, which turns the array twice: its bytes are row-major again.
    "F bytes": Codec(
        "numpy.asfortranarray(args[0]).tobytes()",
        "[numpy.ndarray(args[0].shape, args[0].dtype, bytearray(data))]",
    ),
    # Only the engine sends arrays of dates with a zone.
    "engine": Codec("zoned.to_message(*args)", "py_pb.serialized_str_to_py(data)"),
    "pandas": Codec("zoned.to_utc(*args)", "[zoned.from_utc(data)]"),
}
MODULES = {
    "dates_decoder": msgspec.msgpack.Decoder(tuple[list[datetime]]),
    "decoder": msgspec.msgpack.Decoder(),
    "encoder": msgspec.msgpack.Encoder(),
    "frames": frames,
    "msgpack": msgpack,
    "numpy": numpy,
    "orjson": orjson,
    "pickle": pickle,
    "py_pb": py_pb,
    "zoned": zoned,
}


def encode(codec: str, args: tuple[Any, ...]) -> Any:
    return eval(CODECS[codec].out, MODULES, {"args": args})


def decode(codec: str, args: tuple[Any, ...], data: Any) -> Any:
    return eval(CODECS[codec].back, MODULES, {"args": args, "data": data})
