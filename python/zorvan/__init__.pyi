import builtins
from collections.abc import Iterable, MutableMapping
from pathlib import Path
from typing import Any, NoReturn, final, overload

from _typeshed import SupportsKeysAndGetItem
from zorvanmultidimarrayforpython import (
    double as double,
    int8 as int8,
    int16 as int16,
    int32 as int32,
    int64 as int64,
    logical as logical,
    single as single,
    uint8 as uint8,
    uint16 as uint16,
    uint32 as uint32,
    uint64 as uint64,
)

__all__ = [
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
    "object",
    "dictionary",
    "schema_dir",
]

def schema_dir() -> Path:
    """The directory of the installed message schemas, the import root to give to protoc."""

@final
class object:
    """An engine value without a Python counterpart. Made by py_pb only."""

    def __new__(cls, _: NoReturn) -> object: ...
    @property
    def size(self) -> tuple[int, ...]:
        """The extents of the dimensions that are not indexed yet; (1, 1) for a single element."""
    def __len__(self) -> int: ...
    def __getitem__(self, index: int, /) -> object:
        """Indexes the next dimension. IndexError out of range; negative indices are."""
    def __eq__(self, other: builtins.object, /) -> bool:
        """TypeError when the other is no zorvan.object."""
    def __ne__(self, other: builtins.object, /) -> bool: ...

class dictionary(MutableMapping[Any, Any]):
    """A ZORVAN dictionary."""

    @overload
    def __init__(self, /, **items: Any) -> None: ...
    @overload
    def __init__(self, items: SupportsKeysAndGetItem[Any, Any], /, **more: Any) -> None: ...
    @overload
    def __init__(self, items: Iterable[tuple[Any, Any]], /, **more: Any) -> None: ...
    def __getitem__(self, key: Any, /) -> Any: ...
    def __setitem__(self, key: Any, value: Any, /) -> None: ...
    def __delitem__(self, key: Any, /) -> None: ...
    def __iter__(self) -> Any: ...
    def __len__(self) -> int: ...
    def __eq__(self, other: builtins.object, /) -> bool:
        """TypeError when the other is no zorvan.dictionary."""
    def __ne__(self, other: builtins.object, /) -> bool: ...
    def copy(self) -> dictionary: ...
