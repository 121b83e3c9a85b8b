from collections.abc import Iterator, Sequence
from types import EllipsisType
from typing import (
    Any,
    ClassVar,
    Literal,
    Self,
    SupportsFloat,
    SupportsIndex,
    TypeAlias,
    final,
    overload,
)

from typing_extensions import Buffer

_Index: TypeAlias = SupportsIndex | slice | EllipsisType
_Number: TypeAlias = SupportsFloat | SupportsIndex | complex
_Source: TypeAlias = Buffer | _Number | Sequence[Any]

_capi: object

class _Array:
    """What the array classes have in common; they have no base class at run time."""

    __hash__: ClassVar[None]  # type: ignore[assignment]

    @property
    def size(self) -> tuple[int, ...]:
        """The extents, at least two."""
    @property
    def ndim(self) -> int: ...
    @property
    def _is_complex(self) -> bool: ...
    @overload
    def reshape(self, size: Sequence[SupportsIndex | None], /) -> Self: ...
    @overload
    def reshape(self, *size: SupportsIndex | None) -> Self:
        """The same elements, in column-major order, under other extents; shares memory.

        One extent may be -1 or None: it is worked out from the others.
        """
    def tolist(self) -> list[Any]:
        """The elements as nested lists; x.tolist()[i][j] is x[i, j]."""
    def copy(self) -> Self: ...
    def __copy__(self) -> Self: ...
    def __deepcopy__(self, memo: Any, /) -> Self: ...
    def __len__(self) -> int:
        """The first extent."""
    def __iter__(self) -> Iterator[Self]: ...
    def __contains__(self, value: object, /) -> bool:
        """Whether an element is equal to the value."""
    @overload
    def __getitem__(self, index: _Index, /) -> Self: ...
    @overload
    def __getitem__(self, index: tuple[_Index, ...], /) -> Any:
        """The element when there is an int for each dimension, otherwise an array (a copy).

        A dimension indexed by an int then has extent 1.
        """
    def __setitem__(self, index: _Index | tuple[_Index, ...], value: _Number, /) -> None:
        """Stores one number in every selected element."""
    def __bool__(self) -> bool:
        """Whether the only element is not zero. ValueError for other than one element."""
    def __int__(self) -> int:
        """The only element; TypeError for other than one and for complex elements."""
    def __float__(self) -> float: ...
    def __complex__(self) -> complex: ...
    def __eq__(self, other: object, /) -> bool:
        """Whether class, complexity, extents and all elements are the same."""
    def __buffer__(self, flags: int, /) -> memoryview: ...

class _NumberArray(_Array):
    @overload
    def __new__(
        cls, /, *, size: Sequence[SupportsIndex] | None = None, is_complex: bool = False
    ) -> Self:
        """Zeros of the given size, 0-by-0 without one."""
    @overload
    def __new__(
        cls,
        source: _Source,
        /,
        *,
        size: Sequence[SupportsIndex] | None = None,
        is_complex: bool = False,
    ) -> Self:
        """An array of the source's numbers; complex when one of them is, or on demand.

        One dimension of N numbers becomes 1-by-N. A size is filled in column-major order.

        Raises OverflowError for numbers out of range, ValueError for those without a counterpart
        and for nesting that is not rectangular, TypeError for what is no number.
        """

class _IntegerArray(_NumberArray):
    def __index__(self) -> int: ...

@final
class double(_NumberArray): ...

@final
class single(_NumberArray): ...

@final
class int8(_IntegerArray): ...

@final
class uint8(_IntegerArray): ...

@final
class int16(_IntegerArray): ...

@final
class uint16(_IntegerArray): ...

@final
class int32(_IntegerArray): ...

@final
class uint32(_IntegerArray): ...

@final
class int64(_IntegerArray): ...

@final
class uint64(_IntegerArray): ...

@final
class logical(_Array):
    @overload
    def __new__(
        cls, /, *, size: Sequence[SupportsIndex] | None = None, is_complex: Literal[False] = False
    ) -> Self: ...
    @overload
    def __new__(
        cls,
        source: _Source,
        /,
        *,
        size: Sequence[SupportsIndex] | None = None,
        is_complex: Literal[False] = False,
    ) -> Self:
        """An array of truth values: whatever is not zero is true."""
