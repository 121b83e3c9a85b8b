"""Reads messages into plain trees: docs/wire-format.md as a program.

It shares no code with py_pb, so that either can be held against the other, and is short, so that it
can be carried over to other languages. It needs the package `protobuf`, and no extension module.

    >>> message = zorvan.reader.read(py_pb.py_to_serialized_str(("text", [2.5])))
    >>> message.arrays[0]
    {'type': 'CHAR', 'dims': [1, 4], 'text': 'text'}

The trees are those that `zorvan-inspect --json` prints.
"""

import functools
import importlib
import math
import re
import struct
from collections import Counter
from collections.abc import Callable, Iterable, Iterator, Sequence
from dataclasses import dataclass
from typing import Any, NoReturn

import zorvan

try:
    descriptor_pb2: Any = importlib.import_module("google.protobuf.descriptor_pb2")
    descriptor_pool: Any = importlib.import_module("google.protobuf.descriptor_pool")
    message_factory: Any = importlib.import_module("google.protobuf.message_factory")
    DecodeError: Any = importlib.import_module("google.protobuf.message").DecodeError
except ImportError as error:
    raise ImportError("zorvan.reader needs the package 'protobuf'") from error

__all__ = ["Message", "Tree", "read"]

Tree = dict[str, Any]


@dataclass(frozen=True)
class Message:
    """What a message holds, be it parameters or a result."""

    version: int
    nargout: int | None
    error: Tree | None
    arrays: list[Tree]


def read(data: bytes, *, json_numbers: bool = False) -> Message:
    """Reads a whole message; a ValueError tells where one breaks the rules, and which.

    With `json_numbers`, the numbers that JSON lacks are the texts "NaN", "Inf" and "-Inf".
    """
    try:
        params, result = (made.FromString(data) for made in _envelopes())
    except DecodeError as error:
        raise ValueError(f"no message: {error}") from None
    _check_wire(memoryview(data), [params.DESCRIPTOR, result.DESCRIPTOR], "message")
    if params.HasField("version") and params.version != 1:
        _fail("message", f"version {params.version}, where only 1 is known")
    arrays = _items(params, "arrays", 1, "message")
    if json_numbers:
        _name_numbers(arrays)
    return Message(
        version=1,
        nargout=params.nargout if params.HasField("nargout") else None,
        error=_error(result.error) if result.HasField("error") else None,
        arrays=arrays,
    )


def _fail(where: str, what: str) -> NoReturn:
    raise ValueError(f"{where}: {what}")


def _error(error: Any) -> Tree:
    return {
        "message": _replaced(error.message),
        "identifier": _replaced(error.identifier) if error.HasField("identifier") else None,
        "stack": [
            {
                "file": _replaced(frame.file),
                "function_name": _replaced(frame.function_name),
                "line": frame.line,
            }
            for frame in error.stack
        ],
    }


def _replaced(text: str | bytes) -> str:
    """The runtime gives bytes where a text is no UTF-8."""
    return text if isinstance(text, str) else text.decode("utf-8", "replace")


def _name_numbers(arrays: list[Tree]) -> None:
    pending: list[Any] = [arrays]
    while pending:
        node = pending.pop()
        for key, value in node.items() if isinstance(node, dict) else enumerate(node):
            if isinstance(value, (dict, list)):
                pending.append(value)
            elif isinstance(value, float) and not math.isfinite(value):
                node[key] = "NaN" if math.isnan(value) else "Inf" if value > 0 else "-Inf"


# ---- types ----

(UNKNOWN, LOGICAL, CHAR, STRING, DOUBLE, SINGLE) = range(6)
(UINT64, COMPLEX_DOUBLE) = (13, 14)
(CELL, STRUCT, OBJECT, VALUE_OBJECT, HANDLE, ENUMERATION) = range(24, 30)
# Only on tapes.
(CHILD, RUN, GRID, DENSE, STRINGS) = (0, 64, 65, 66, 67)
_PLAIN_CELLS = (bytes([CELL]), bytes([RUN]))

# How the parts of complex numbers and the numbers themselves are stored.
_FORMATS = dict(enumerate("?H.dfbBhHiIqQ", LOGICAL))
_NUMBERS = {LOGICAL: LOGICAL, **{code: code for code in range(DOUBLE, COMPLEX_DOUBLE)}}
_NUMBERS |= {code + 10: code for code in range(DOUBLE, COMPLEX_DOUBLE)}
_SPARSE = {30: LOGICAL, 31: DOUBLE, 32: COMPLEX_DOUBLE}
_RECORDS = (STRUCT, OBJECT, VALUE_OBJECT)

# What arrays of a type may have besides type, dims and padding.
_FIELDS: dict[int, tuple[str, ...]] = {
    UNKNOWN: (),
    **dict.fromkeys([CHAR, *_NUMBERS], ("elements",)),
    STRING: ("text_len", "text"),
    CELL: ("children", "tape"),
    STRUCT: ("names", "children", "tape"),
    OBJECT: ("class_name", "names", "children", "tape"),
    VALUE_OBJECT: ("class_name", "names", "children", "tape"),
    HANDLE: ("class_name", "ref"),
    ENUMERATION: ("class_name", "text_len", "text"),
    **dict.fromkeys(_SPARSE, ("rows", "col_starts", "elements")),
}

_DEEPEST = 256
# So many bytes of kinds may be read for each byte of values in an element of a run.
_KINDS_A_VALUE = 4
# Nameless structs and objects take no room, so a short message may claim any number of them; beyond
# this many the dimensions alone tell.
_MOST_NAMELESS = 1000


# ---- arrays ----


def _array(message: Any, level: int, where: str) -> Tree:
    kind = message.type
    if kind not in _FIELDS:
        _fail(where, f"type {kind} is unknown")
    if level > _DEEPEST:
        _fail(where, f"nested more than {_DEEPEST} levels deep")
    dims = list(message.dims) or [1, 1]
    dims = _checked([1, *dims] if len(dims) == 1 else dims, where)
    count = math.prod(dims)
    class_name = _decoded(message.class_name, f"{where}: class name")

    if kind == UNKNOWN:
        return _tree(kind, dims)
    if kind == STRING:
        return _tree(kind, dims, elements=_own_texts(message, count, where))
    if kind == ENUMERATION:
        return _tree(kind, dims, class_name, elements=_own_texts(message, count, where))
    if kind == HANDLE:
        if len(message.ref) != count:
            _fail(where, f"{len(message.ref)} numbers of {count} handles")
        return _tree(kind, dims, class_name, ref=list(message.ref))
    if kind in _SPARSE:
        return _sparse(message, dims, where)
    if kind != CELL and kind not in _RECORDS:
        return _dense(kind, dims, message.elements, where)

    items = _items(message, "children", level, where)
    names = _checked_names(message.names, where)
    expected = count * (len(names) if kind != CELL else 1)
    if len(items) != expected:
        _fail(where, f"{len(items)} items where {expected} belong")
    return _cell(dims, items) if kind == CELL else _records(kind, dims, class_name, names, items)


def _items(holder: Any, name: str, level: int, where: str) -> list[Tree]:
    """The items of an array or envelope, which is on the level given: a tape, or those messages."""
    messages = getattr(holder, name)
    if holder.HasField("tape"):
        if len(messages) > 0:
            _fail(where, "items both on a tape and as messages")
        return _Tape(holder.tape, f"{where}.tape").items(level)
    items = []
    for i, message in enumerate(messages):
        items.append(_array(message, level + 1, f"{where}.{name}[{i}]"))
    return items


def _tree(kind: int, dims: list[int], class_name: str | None = None, **members: Any) -> Tree:
    of_class = {} if class_name is None else {"class": class_name}
    return {"type": _type_names()[kind], **of_class, "dims": dims, **members}


def _cell(dims: list[int], items: list[Tree]) -> Tree:
    return _tree(CELL, dims, elements=items)


def _records(
    kind: int, dims: list[int], class_name: str, names: Sequence[str], items: list[Tree]
) -> Tree:
    """Structs or objects of items that come name by name."""
    if kind == STRUCT:
        tree = _tree(kind, dims, fields=list(names))
    else:
        tree = _tree(kind, dims, class_name, properties=list(names))
    count = math.prod(dims)
    if names or count <= _MOST_NAMELESS:
        tree["elements"] = [dict(zip(names, items[i::count])) for i in range(count)]
    return tree


def _dense(kind: int, dims: list[int], payload: bytes, where: str) -> Tree:
    if len(payload) != math.prod(dims) * _size(kind):
        _fail(where, f"{len(payload)} bytes of elements for dimensions {dims}")
    if kind == CHAR:
        return _tree(kind, dims, text=payload.decode("utf-16-le", "surrogatepass"))
    if kind == LOGICAL and payload.strip(b"\0\1"):
        _fail(where, "a logical other than 0 and 1")
    part = _FORMATS[_NUMBERS[kind]]
    values = [value for (value,) in struct.iter_unpack(f"<{part}", payload)]
    return _tree(kind, dims, elements=values if kind == _NUMBERS[kind] else _pairs(values))


def _size(kind: int) -> int:
    """Of an element of a dense type."""
    if kind == CHAR:
        return 2
    return struct.calcsize(f"<{_FORMATS[_NUMBERS[kind]]}") * (1 if kind == _NUMBERS[kind] else 2)


def _pairs(values: list[Any]) -> list[list[Any]]:
    return [list(pair) for pair in zip(values[::2], values[1::2])]


def _sparse(message: Any, dims: list[int], where: str) -> Tree:
    rows, starts = list(message.rows), list(message.col_starts)
    if len(dims) != 2:
        _fail(where, f"a sparse array of {len(dims)} dimensions")
    if len(starts) - 1 != dims[1] or starts[0] != 0 or starts[-1] != len(rows):
        _fail(where, "starts of columns that do not match the columns or values")
    if any(start > end for start, end in zip(starts, starts[1:])):
        _fail(where, "starts of columns that descend")
    columns: list[int] = []
    for column, (start, end) in enumerate(zip(starts, starts[1:])):
        columns += [column] * (end - start)
        found = rows[start:end]
        if any(a >= b for a, b in zip(found, [*found[1:], dims[0]])):
            _fail(where, "rows that do not ascend, or are out of range")
    values = _dense(_SPARSE[message.type], [1, len(rows)], message.elements, where)["elements"]
    return _tree(message.type, dims, rows=rows, columns=columns, elements=values)


def _checked(dims: list[int], where: str) -> list[int]:
    if math.prod(extent for extent in dims if extent) >= 2**63:
        _fail(where, f"dimensions {dims} are too large")
    return dims


def _checked_names(stored: Iterable[bytes], where: str) -> list[str]:
    names = [_decoded(name, f"{where}: name") for name in stored]
    if "" in names or len(set(names)) < len(names):
        _fail(where, "a name is empty or stands twice")
    return names


# ---- texts ----


class _Texts:
    """The texts of a tape, string array or enumeration, one after the other."""

    def __init__(self, holder: Any, where: str) -> None:
        self._codes = list(holder.text_len)
        self._text: bytes = holder.text
        self._end = 0
        self._where = where
        self._numbered: dict[int, str] = {}
        self._numbers = 0
        self._taken = 0
        self.used = 0  # bytes of both streams

    def next(self, may_miss: bool) -> str | None:
        if self._taken == len(self._codes):
            _fail(self._where, "too few texts")
        code = self._codes[self._taken]
        self._taken += 1
        self.used += _varint_size(code)
        half, is_number = divmod(code, 2)
        if is_number:
            if half not in self._numbered:
                _fail(self._where, f"no text stood before that has the number {half}")
            return self._numbered[half]
        if half == 0:
            return None if may_miss else _fail(self._where, "a text is missing that cannot be")
        start, self._end = self._end, self._end + half - 1
        if self._end > len(self._text):
            _fail(self._where, "the texts are longer than the bytes of text")
        self.used += half - 1
        text = _decoded(self._text[start : self._end], f"{self._where}: text")
        if 1 <= half - 1 <= 255:
            self._numbered[self._numbers % 1024] = text
            self._numbers += 1
        return text

    def finish(self) -> None:
        if self._taken < len(self._codes) or self._end < len(self._text):
            _fail(self._where, "texts are left over")


def _own_texts(message: Any, count: int, where: str) -> list[str | None]:
    texts = _Texts(message, where)
    if len(message.text_len) != count:
        _fail(where, f"{len(message.text_len)} texts for {count} elements")
    found = [texts.next(message.type == STRING) for _ in range(count)]
    texts.finish()
    return found


def _decoded(stored: bytes, where: str) -> str:
    try:
        text = stored.decode("utf-8", "surrogatepass")
    except UnicodeDecodeError as error:
        _fail(where, str(error))
    if re.search("[\ud800-\udbff][\udc00-\udfff]", text):
        _fail(where, "a pair of surrogates in place of the character")
    return text


# ---- tapes ----


class _Tape:
    """Reads the streams of a tape in the order in which `kinds` asks for them."""

    def __init__(self, message: Any, where: str) -> None:
        self._where = where
        self._kinds: bytes = message.kinds
        self._at = 0
        self._shapes = list(_shapes(message.shapes, where))
        self._texts = _Texts(message, where)
        names = ("counts", "ints", "reals", "children")
        self._streams: dict[str, Any] = {name: list(getattr(message, name)) for name in names}
        self._streams["dense"] = message.dense
        self._taken = dict.fromkeys(self._streams, 0)
        self._read = 0  # bytes of kinds, those of runs once for each element
        self._used_bytes = 0

    def items(self, level: int) -> list[Tree]:
        if self._kinds[:1] not in _PLAIN_CELLS:
            self._fail("the item is no 1-by-N cell")
        items: list[Tree] = self._item(level)["elements"]
        self._texts.finish()
        left = [name for name, stream in self._streams.items() if len(stream) > self._taken[name]]
        if self._at < len(self._kinds) or left:
            self._fail(f"values are left over in {', '.join(left) or 'kinds'}")
        return items

    def _item(self, level: int) -> Tree:
        """The next item, which is on the level given if it takes one."""
        kind = self._kind()
        if kind == CHILD:
            where = f"{self._where}.children[{self._taken['children']}]"
            return _array(self._take("children")[0], level, where)
        if kind in _NUMBERS:
            return _tree(kind, [1, 1], elements=self._number(kind))
        if kind == CHAR:
            text = self._texts.next(may_miss=False) or ""
            return _tree(CHAR, [1, len(text.encode("utf-16-le", "surrogatepass")) // 2], text=text)
        if kind == STRING:
            return _tree(STRING, [1, 1], elements=[self._texts.next(may_miss=True)])
        self._check_level(level)
        if kind == DENSE:
            kind = self._dense_type()
            dims = self._extents()
            payload = self._take("dense", math.prod(dims) * _size(kind))
            return _dense(kind, dims, payload, self._where)
        if kind == STRINGS:
            dims = self._extents()
            texts = [self._texts.next(may_miss=True) for _ in range(math.prod(dims))]
            return _tree(STRING, dims, elements=texts)
        if kind == GRID:
            return self._container(self._kind(), self._extents(), level)
        return self._container(kind, None, level)

    def _container(self, kind: int, extents: list[int] | None, level: int) -> Tree:
        """What follows the kind of a cell, struct or object; without GRID there are no extents."""
        items: list[Tree] = []
        if kind == CELL:
            count = self._varint()
            dims = extents or _checked([1, count], self._where)
            if math.prod(dims) != count:
                self._fail(f"a cell of {count} elements has dimensions {dims}")
            for _ in range(count):
                items.append(self._item(level + 1))
            return _cell(dims, items)
        if kind == RUN:
            end = self._varint() + self._at
            dims = extents or _checked([1, *self._take("counts")], self._where)
            if end > len(self._kinds):
                self._fail("the kinds break off")
            start = self._at
            for _ in range(math.prod(dims)):
                self._at, read, used = start, self._read, self._used()
                items.append(self._item(level + 1))
                if self._at != end:
                    self._fail("the kinds of a run's element are not as long as they should be")
                if self._read - read > _KINDS_A_VALUE * (self._used() - used):
                    self._fail("an element of a run has too few values")
            self._at = end
            return _cell(dims, items)
        if kind not in _RECORDS:
            self._fail(f"kind {kind} stands where it cannot")
        class_name, names = self._shape(kind)
        if extents is None:
            for _ in names:
                items.append(self._item(level + 1))
            return _records(kind, [1, 1], class_name, names, items)
        for name in names:
            if self._kinds[self._at : self._at + 1] not in _PLAIN_CELLS:
                self._fail(f"the values of name {name!r} are no 1-by-N cell")
            column = self._item(level)["elements"]  # the cell takes no level of its own
            if len(column) != math.prod(extents):
                self._fail(f"{len(column)} values of name {name!r} for dimensions {extents}")
            items += column
        return _records(kind, extents, class_name, names, items)

    def _number(self, kind: int) -> list[Any]:
        """The one element of a number, as a list."""
        part = _NUMBERS[kind]
        count = 1 if kind == part else 2
        values = list(self._take("reals" if part in (DOUBLE, SINGLE) else "ints", count))
        if part == UINT64:
            values = [value % 2**64 for value in values]
        if part == LOGICAL:
            values = [bool(value) if value in (0, 1) else value for value in values]
        for value in values:
            if not _fits(value, part):
                self._fail(f"{value} is out of the range of {_type_names()[part]}")
        return values if kind == part else _pairs(values)

    def _extents(self) -> list[int]:
        (code,) = self._take("counts")
        extents = list(self._take("counts", max(code, 1)))
        if code < 2:
            extents.insert(code, 1)
        return _checked(extents, self._where)

    def _shape(self, kind: int) -> tuple[str, list[str]]:
        number = self._varint()
        if number >= len(self._shapes):
            self._fail(f"there is no shape {number}")
        class_name, names = self._shapes[number]
        if kind == STRUCT and class_name:
            self._fail(f"shape {number} of a struct has a class")
        return class_name, names

    def _dense_type(self) -> int:
        kind = self._varint()
        if kind != CHAR and kind not in _NUMBERS:
            self._fail(f"type {kind} is not dense")
        return kind

    def _kind(self) -> int:
        if self._at == len(self._kinds):
            self._fail("the kinds break off")
        self._at += 1
        self._read += 1
        return self._kinds[self._at - 1]

    def _varint(self) -> int:
        start = self._at
        value, self._at = _varint(self._kinds, start, f"{self._where}.kinds")
        self._read += self._at - start
        return value

    def _take(self, name: str, count: int = 1) -> Any:
        start = self._taken[name]
        if count > len(self._streams[name]) - start:
            self._fail(f"too few values in {name}")
        self._taken[name] += count
        values = self._streams[name][start : start + count]
        self._used_bytes += sum(map(_BYTES[name], values)) if name in _BYTES else count
        return values

    def _used(self) -> int:
        """How many bytes of the streams of values are behind; a child counts as one."""
        return self._used_bytes + self._texts.used

    def _check_level(self, level: int) -> None:
        if level > _DEEPEST:
            self._fail(f"nested more than {_DEEPEST} levels deep")

    def _fail(self, what: str) -> NoReturn:
        _fail(self._where, f"{what} (before byte {self._at} of kinds)")


def _fits(value: Any, kind: int) -> bool:
    """Whether the type can hold the value exactly."""
    try:
        (stored,) = struct.unpack(f"<{_FORMATS[kind]}", struct.pack(f"<{_FORMATS[kind]}", value))
    except (struct.error, OverflowError):
        return False
    return bool(stored == value or math.isnan(value))


def _varint_size(value: int) -> int:
    return max(value.bit_length() + 6, 7) // 7


# How many bytes a value takes in its stream, if that is not one.
_BYTES: dict[str, Callable[[Any], int]] = {
    "counts": _varint_size,
    "ints": lambda value: _varint_size(2 * value if value >= 0 else -2 * value - 1),
    "reals": lambda value: 8,
}


def _shapes(table: bytes, where: str) -> Iterator[tuple[str, list[str]]]:
    """The shapes of a tape, that without class and names first."""
    yield "", []
    where += ".shapes"
    at = 0
    while at < len(table):
        class_name, at = _counted(table, at, where)
        count, at = _varint(table, at, where)
        names = []
        for _ in range(count):
            name, at = _counted(table, at, where)
            names.append(name)
        if not class_name and not names:
            _fail(where, "a shape has neither class nor name")
        yield _decoded(class_name, where), _checked_names(names, where)


def _counted(data: bytes, at: int, where: str) -> tuple[bytes, int]:
    length, at = _varint(data, at, where)
    if length > len(data) - at:
        _fail(where, "breaks off")
    return data[at : at + length], at + length


def _varint(data: bytes | memoryview, at: int, where: str) -> tuple[int, int]:
    """A number and where it ends."""
    value = 0
    for i, byte in enumerate(data[at : at + 10]):
        value |= (byte & 127) << 7 * i
        if byte < 128 and value < 2**64:
            return value, at + i + 1
    _fail(where, "a number breaks off or is too large")


# ---- the schemas ----

_PACKAGE = "foundation.protobuf.common."
_FILES = ("foundation/zorvandata/protobuf/array.proto", "foundation/protobuf/common.proto")
_STATEMENT = re.compile(
    r"(?P<block>message|enum) (?P<title>\w+) \{|(?P<end>\})"
    r"|(?P<label>optional|repeated) (?P<type>[\w.]+) (?P<name>\w+) = (?P<number>\d+)"
    r"( \[(?P<packed>packed) = true\])?;|(?P<value>\w+) = (?P<code>\d+);"
)


@functools.cache
def _envelopes() -> tuple[Any, Any]:
    """The classes of both messages, made of the installed schemas."""
    pool = descriptor_pool.DescriptorPool()
    for path in _FILES:
        text = re.sub("//.*", "", (zorvan.schema_dir() / path).read_text(encoding="utf-8"))
        (package,) = re.findall(r"\bpackage ([\w.]+);", text)
        file = descriptor_pb2.FileDescriptorProto(name=path, package=package)
        file.dependency.extend(re.findall(r'\bimport "(.+)";', text))
        blocks = [file]
        for statement in _STATEMENT.finditer(text):
            _declare(blocks, **statement.groupdict())
        pool.Add(file)
    params, result = (
        message_factory.GetMessageClass(pool.FindMessageTypeByName(_PACKAGE + name))
        for name in ("ZORVAN_Params", "ZORVAN_Result")
    )
    return params, result


def _declare(blocks: list[Any], **of: str) -> None:
    """Adds what one statement declares to the innermost of the blocks that are open."""
    block = blocks[-1]
    if of["end"]:
        blocks.pop()
    elif of["block"]:
        inside = block.nested_type if len(blocks) > 1 else getattr(block, f"{of['block']}_type")
        blocks.append(inside.add(name=of["title"]))
    elif of["value"]:
        block.value.add(name=of["value"], number=int(of["code"]))
    else:
        codes = descriptor_pb2.FieldDescriptorProto
        field = block.field.add(name=of["name"], number=int(of["number"]))
        field.label = codes.Label.Value(f"LABEL_{of['label'].upper()}")
        try:
            field.type = codes.Type.Value(f"TYPE_{of['type'].upper()}")
        except ValueError:
            field.type_name = of["type"]  # a message
        if of["packed"]:
            field.options.packed = True


@functools.cache
def _type_names() -> dict[int, str]:
    array = _envelopes()[0].DESCRIPTOR.fields_by_name["arrays"].message_type
    names = array.file.enum_types_by_name["ArrayType"].values_by_number
    return {code: value.name for code, value in names.items()}


# ---- what the runtime passes over in silence ----


def _check_wire(data: memoryview, descriptors: list[Any], where: str) -> None:
    """Finds fields that stand twice, are not of their wire type, or have no use in their array."""
    fields = {field.number: field for each in descriptors for field in each.fields}
    # Around the arrays, what cannot be read is passed over, as the runtime does.
    is_strict = descriptors[0].name in ("ZORVAN_Array", "ZORVAN_Tape")
    times: Counter[str] = Counter()
    array_type = 0
    for number, wire, value in _wire_fields(data, where):
        field = fields.get(number)
        if field is None:
            continue
        is_number = field.cpp_type < field.CPPTYPE_STRING and not field.GetOptions().packed
        if wire != (0 if is_number else 2):
            if not is_strict:
                continue
            _fail(where, f"{field.name} is of wire type {wire}")
        stands_once = field.has_presence or field.GetOptions().packed
        if stands_once and field.name in times and (is_strict or field.name == "tape"):
            _fail(where, f"{field.name} stands twice")
        if field.GetOptions().packed and field.cpp_type != field.CPPTYPE_DOUBLE:
            _check_numbers(value, f"{where}.{field.name}")
        if field.name == "type" and isinstance(value, int):
            array_type = value
        if field.message_type and isinstance(value, memoryview):
            place = "" if field.has_presence else f"[{times[field.name]}]"
            _check_wire(value, [field.message_type], f"{where}.{field.name}{place}")
        times[field.name] += 1
    if descriptors[0].name == "ZORVAN_Array":
        uses = _FIELDS.get(array_type, tuple(times))
        unused = times.keys() - {"type", "dims", "padding", *uses}
        if unused:
            _fail(where, f"{min(unused)} has no use in an array of type {array_type}")


def _check_numbers(packed: int | memoryview, where: str) -> None:
    """Finds numbers beyond 64 bits, of which the runtime drops the excess."""
    at = 0
    while isinstance(packed, memoryview) and at < len(packed):
        _, at = _varint(packed, at, where)


def _wire_fields(data: memoryview, where: str) -> Iterator[tuple[int, int, int | memoryview]]:
    """Number, wire type and content of each field; unknown groups as their end."""
    at = groups = 0
    while at < len(data):
        key, at = _varint(data, at, where)
        wire, value, size = key & 7, 0, 0
        if wire in (0, 2):
            value, at = _varint(data, at, where)
        if wire in (1, 2, 5):
            size = {1: 8, 2: value, 5: 4}[wire]
        groups += {3: 1, 4: -1}.get(wire, 0)
        if groups == 0:
            yield key >> 3, wire, data[at : at + size] if wire == 2 else value
        at += size
