"""Writes tapes piece by piece, with no say in what goes together: tests need wrong ones too.

A piece is a dict with what it adds to each stream, `kinds` included; tape() makes the fields of a
message of one.
"""

STREAMS = {"kinds": b"", "counts": [], "ints": [], "reals": [], "dense": b"", "text_len": [],
           "text": b"", "children": []}  # fmt: skip
(LOGICAL, CHAR, STRING, DOUBLE, SINGLE) = range(1, 6)
(UINT8, INT64, UINT64, COMPLEX_DOUBLE) = (7, 12, 13, 14)
(CELL, STRUCT, OBJECT, VALUE_OBJECT, HANDLE, ENUMERATION) = range(24, 30)
(RUN, GRID, DENSE, STRINGS) = range(64, 68)


def varint(number):
    encoded = bytearray()
    while number > 127:
        encoded.append(number & 127 | 128)
        number >>= 7
    return bytes([*encoded, number])


def piece(*kinds, **streams):
    """Kinds are numbers, or pieces whose kinds stand there and whose values come in their order."""
    pieces = [kind if isinstance(kind, dict) else {"kinds": varint(kind)} for kind in kinds]
    return {name: joined(empty, streams, *pieces, name=name) for name, empty in STREAMS.items()}


def joined(empty, *pieces, name):
    parts = [piece[name] for piece in pieces if name in piece]
    return b"".join(parts) if empty == b"" else [value for part in parts for value in part]


def number(kind, *values):
    return piece(kind, **{"reals" if kind in (DOUBLE, SINGLE, 14, 15) else "ints": list(values)})


def char(text, kind=CHAR):
    stored = text.encode("utf-8", "surrogatepass")
    return piece(kind, text_len=[2 * (len(stored) + 1)], text=stored)


def again(text_number, kind=CHAR):
    """A text by the number that it took."""
    return piece(kind, text_len=[2 * text_number + 1])


def string(text):
    return piece(STRING, text_len=[0]) if text is None else char(text, STRING)


def cell(*items):
    return piece(CELL, len(items), *items)


def run(*items, count=True):
    """A cell whose elements have the kinds of the first one; within grid() it has no count."""
    values = [{**item, "kinds": b""} for item in items[1:]]
    counts = [len(items)] if count else []
    return piece(RUN, len(items[0]["kinds"]), items[0], *values, counts=counts)


def empty_run(kinds=b"", count=True):
    return piece(RUN, len(kinds), {"kinds": kinds}, counts=[0] if count else [])


def record(kind, shape, *items):
    return piece(kind, shape, *items)


def extents(*sizes):
    if len(sizes) == 2 and 1 in sizes:
        return [0, sizes[1]] if sizes[0] == 1 else [1, sizes[0]]
    return [len(sizes), *sizes]


def grid(sizes, item):
    return piece(GRID, item, counts=extents(*sizes))


def dense(kind, sizes, elements):
    return piece(DENSE, kind, counts=extents(*sizes), dense=elements)


def strings(sizes, *texts):
    values = [{**string(text), "kinds": b""} for text in texts]
    return piece(STRINGS, *values, counts=extents(*sizes))


def child(**fields):
    return piece(0, children=[fields])


def shape(*names, class_name=""):
    parts = [class_name, *names]
    stored = [varint(len(part.encode())) + part.encode() for part in parts]
    return stored[0] + varint(len(names)) + b"".join(stored[1:])


def tape(item, *shapes, **fields):
    """The fields of a tape with that item, those without content left out."""
    made = {**item, "shapes": b"".join(shapes), **fields}
    return {name: stream for name, stream in made.items() if stream}
