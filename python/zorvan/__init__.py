"""Python types for ZORVAN values.

The array classes (`double`, `single`, `int8` ... `uint64`, `logical`) and the types `object` and
`dictionary` are fetched on first use, so importing this package loads no extension module.
"""

import importlib as _importlib

_ARRAY_CLASSES = (
    "double",
    "single",
    "int8",
    "uint8",
    "int16",
    "uint16",
    "int32",
    "uint32",
    "int64",
    "uint64",
    "logical",
)
# py_pb sets these attributes when it is imported.
_SET_BY_PY_PB = ("object", "dictionary")

# Without `object`, which would hide the builtin from whoever imports everything.
__all__ = [*_ARRAY_CLASSES, "dictionary", "schema_dir"]


def schema_dir():
    """The directory of the installed message schemas, the import root to give to protoc."""
    from pathlib import Path

    return Path(__file__).resolve().parent / "proto"


def __getattr__(name):
    if name in _ARRAY_CLASSES:
        globals()[name] = getattr(_importlib.import_module("zorvanmultidimarrayforpython"), name)
    elif name in _SET_BY_PY_PB:
        _importlib.import_module("py_pb")
    if name not in globals():
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    return globals()[name]


def __dir__():
    return sorted({*globals(), *_ARRAY_CLASSES, *_SET_BY_PY_PB})
