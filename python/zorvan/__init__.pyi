import builtins
from collections.abc import Iterable, Iterator, MutableMapping
from pathlib import Path
from typing import ClassVar, NoReturn, Self, TypeVar, final, overload

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
    "dictionary",
    "schema_dir",
]

_K = TypeVar("_K")
_V = TypeVar("_V")
_K2 = TypeVar("_K2")
_V2 = TypeVar("_V2")

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

@final
class dictionary(MutableMapping[_K, _V]):
    """A ZORVAN dictionary: a mapping that keeps its items in insertion order.

    It has what a dict has, and is built from what a dict is built from; a source that is neither a
    mapping nor an iterable of pairs is a TypeError. Only comparison differs.
    """

    @overload
    def __init__(self) -> None: ...
    @overload
    def __init__(self: dictionary[str, _V], **items: _V) -> None: ...
    @overload
    def __init__(self, items: SupportsKeysAndGetItem[_K, _V], /) -> None: ...
    @overload
    def __init__(
        self: dictionary[str, _V], items: SupportsKeysAndGetItem[str, _V], /, **more: _V
    ) -> None: ...
    @overload
    def __init__(self, items: Iterable[tuple[_K, _V]], /) -> None: ...
    @overload
    def __init__(
        self: dictionary[str, _V], items: Iterable[tuple[str, _V]], /, **more: _V
    ) -> None: ...
    def __getitem__(self, key: _K, /) -> _V: ...
    def __setitem__(self, key: _K, value: _V, /) -> None: ...
    def __delitem__(self, key: _K, /) -> None: ...
    def __iter__(self) -> Iterator[_K]: ...
    def __reversed__(self) -> Iterator[_K]: ...
    def __len__(self) -> int: ...
    def __eq__(self, other: builtins.object, /) -> bool:
        """TypeError when the other is no zorvan.dictionary."""
    def __ne__(self, other: builtins.object, /) -> bool: ...
    __hash__: ClassVar[None]  # type: ignore[assignment]
    @overload
    def __or__(self, other: SupportsKeysAndGetItem[_K, _V], /) -> dictionary[_K, _V]: ...
    @overload
    def __or__(
        self, other: SupportsKeysAndGetItem[_K2, _V2], /
    ) -> dictionary[_K | _K2, _V | _V2]: ...
    @overload
    def __ror__(self, other: SupportsKeysAndGetItem[_K, _V], /) -> dictionary[_K, _V]: ...
    @overload
    def __ror__(
        self, other: SupportsKeysAndGetItem[_K2, _V2], /
    ) -> dictionary[_K | _K2, _V | _V2]: ...
    @overload  # type: ignore[misc]
    def __ior__(self, other: SupportsKeysAndGetItem[_K, _V], /) -> Self: ...
    @overload
    def __ior__(self, other: Iterable[tuple[_K, _V]], /) -> Self: ...
    def copy(self) -> dictionary[_K, _V]: ...
    def __copy__(self) -> dictionary[_K, _V]: ...
    @overload
    @classmethod
    def fromkeys(cls, keys: Iterable[_K2], value: None = None, /) -> dictionary[_K2, None]: ...
    @overload
    @classmethod
    def fromkeys(cls, keys: Iterable[_K2], value: _V2, /) -> dictionary[_K2, _V2]: ...
