"""zorvan.reader: messages built by hand, and what py_pb writes, held against zorvan-inspect."""

import json
import math
import os
import re
import struct
import subprocess
import sys
from datetime import datetime, timedelta, timezone
from zoneinfo import ZoneInfo

import numpy as np
import py_pb
import pytest
import zorvan
import zorvan.reader
from hypothesis import HealthCheck, example, given, settings
from hypothesis import strategies as st
from tape_writer import (
    CELL, CHAR, COMPLEX_DOUBLE, DENSE, DOUBLE, ENUMERATION, GRID, HANDLE, INT64, LOGICAL, OBJECT,
    RUN, SINGLE, STRING, STRINGS, STRUCT, UINT8, UINT64, VALUE_OBJECT, again, cell, char, child,
    dense, empty_run, grid, number, piece, record, run, shape, string, strings, tape, varint,
)  # fmt: skip

EXAMPLES = int(os.environ.get("ZORVAN_READER_EXAMPLES", "60"))
(UNKNOWN, INT8, COMPLEX_SINGLE, COMPLEX_INT8) = (0, 6, 15, 16)
(SPARSE_LOGICAL, SPARSE_DOUBLE, SPARSE_COMPLEX_DOUBLE) = (30, 31, 32)


def doubles(*values):
    return struct.pack(f"<{len(values)}d", *values)


@pytest.fixture
def read(messages):
    """The trees of a result with the fields given."""

    def trees(**fields):
        message = messages.ZORVAN_Result(**fields).SerializeToString()
        return zorvan.reader.read(message, json_numbers=True).arrays

    return trees


def test_the_schemas_are_read_as_protoc_reads_them(messages):
    def file_of(message):
        declared = descriptor_pb2.FileDescriptorProto()
        message.DESCRIPTOR.file.CopyToProto(declared)
        return re.sub(r"\n *json_name: .*", "", str(declared))  # protoc's addition

    from google.protobuf import descriptor_pb2

    params, _ = zorvan.reader._envelopes()
    assert file_of(params) == file_of(messages.ZORVAN_Params)
    assert file_of(params().arrays.add()) == file_of(messages.ZORVAN_Array)


def test_without_protobuf_it_says_what_is_missing():
    program = "import sys; sys.modules['google.protobuf'] = None; import zorvan.reader"
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert done.stderr.splitlines()[-1] == "ImportError: zorvan.reader needs the package 'protobuf'"


# ---- what stands in messages ----


def shown(kind, dims=(1, 1), **members):
    return {"type": kind, "dims": list(dims), **members}


def double(*values, dims=(1, 1)):
    return shown("DOUBLE", dims, elements=list(values))


def int64(value):
    return shown("INT64", elements=[value])


def text(value, dims=None):
    return shown("CHAR", dims or (1, len(value)), text=value)


def cells(*items, dims=None):
    return shown("CELL", dims or (1, len(items)), elements=list(items))


ONE = {"type": DOUBLE, "elements": doubles(1)}
ARRAYS = [
    ({"type": DOUBLE, "dims": [2, 3], "elements": doubles(0, 3, 1, math.nan, math.inf, -math.inf)},
     double(0.0, 3.0, 1.0, "NaN", "Inf", "-Inf", dims=(2, 3))),
    ({"type": SINGLE, "dims": [2], "elements": struct.pack("<2f", 0.5, -0.0)},
     shown("SINGLE", (1, 2), elements=[0.5, -0.0])),
    ({"type": UINT64, "dims": [2, 1, 1], "elements": b"\xff" * 8 + bytes(8)},
     shown("UINT64", (2, 1, 1), elements=[2**64 - 1, 0])),
    ({"type": LOGICAL, "dims": [1, 2], "elements": b"\1\0"},
     shown("LOGICAL", (1, 2), elements=[True, False])),
    ({"type": COMPLEX_DOUBLE, "elements": doubles(math.nan, -2.5)},
     shown("COMPLEX_DOUBLE", elements=[["NaN", -2.5]])),
    ({"type": COMPLEX_INT8, "elements": b"\1\xff"}, shown("COMPLEX_INT8", elements=[[1, -1]])),
    ({"type": CHAR, "dims": [2, 1], "elements": "\ud800x".encode("utf-16-le", "surrogatepass")},
     text("\ud800x", (2, 1))),
    ({"type": STRING, "dims": [1, 4], "text_len": [6, 0, 2, 1], "text": b"ab"},
     shown("ZORVAN_STRING", (1, 4), elements=["ab", None, "", "ab"])),
    ({"type": CELL, "dims": [2, 1], "children": [ONE, {"type": CELL, "dims": [0, 0]}]},
     cells(double(1.0), cells(dims=(0, 0)), dims=(2, 1))),
    ({"type": CELL, "dims": [2, 1], "tape": tape(cell(number(DOUBLE, 1), cell()))},
     cells(double(1.0), cells(), dims=(2, 1))),
    ({"type": STRUCT, "dims": [1, 2], "names": [b"b", "é".encode()], "children": [
        {"type": CHAR, "dims": [n], "elements": b"x\0" * n} for n in range(4)]},
     shown("STRUCT", (1, 2), fields=["b", "é"],
           elements=[{"b": text(""), "é": text("xx")}, {"b": text("x"), "é": text("xxx")}])),
    ({"type": VALUE_OBJECT, "class_name": b"p.C", "names": [b"q"],
      "tape": tape(cell(number(INT64, -7)))},
     {"type": "VALUE_OBJECT", "class": "p.C", "dims": [1, 1], "properties": ["q"],
      "elements": [{"q": int64(-7)}]}),
    ({"type": OBJECT, "class_name": b"Old", "dims": [0, 0]},
     {"type": "OBJECT", "class": "Old", "dims": [0, 0], "properties": [], "elements": []}),
    ({"type": STRUCT, "dims": [2]}, shown("STRUCT", (1, 2), fields=[], elements=[{}, {}])),
    ({"type": STRUCT, "dims": [2**31, 2**31]}, shown("STRUCT", (2**31, 2**31), fields=[])),
    ({"type": HANDLE, "class_name": b"H", "dims": [1, 2], "ref": [7, 2**64 - 1]},
     {"type": "HANDLE_OBJECT_REF", "class": "H", "dims": [1, 2], "ref": [7, 2**64 - 1]}),
    ({"type": ENUMERATION, "class_name": b"E", "dims": [1, 2], "text_len": [8, 1], "text": b"Red"},
     {"type": "ENUMERATION", "class": "E", "dims": [1, 2], "elements": ["Red", "Red"]}),
    ({"type": SPARSE_LOGICAL, "dims": [4, 3], "rows": [0, 3, 2], "col_starts": [0, 2, 2, 3],
      "elements": b"\1\1\1"},
     shown("SPARSE_LOGICAL", (4, 3), rows=[0, 3, 2], columns=[0, 0, 2], elements=[True] * 3)),
    ({"type": SPARSE_COMPLEX_DOUBLE, "dims": [9], "col_starts": [0] * 10},
     shown("SPARSE_COMPLEX_DOUBLE", (1, 9), rows=[], columns=[], elements=[])),
    ({"padding": [b"\0" * 20, b""]}, shown("UNKNOWN")),
]  # fmt: skip

AB = shape("a", "b")
POINT = shape("x", class_name="Point")
TAPES = [
    ([cell()], []),
    ([cell(number(DOUBLE, -0.0), number(LOGICAL, 1), number(COMPLEX_DOUBLE, 1, math.nan))],
     [double(-0.0), shown("LOGICAL", elements=[True]),
      shown("COMPLEX_DOUBLE", elements=[[1.0, "NaN"]])]),
    ([cell(number(UINT64, -1), number(INT8, -128), number(COMPLEX_INT8, 127, -1))],
     [shown("UINT64", elements=[2**64 - 1]), shown("INT8", elements=[-128]),
      shown("COMPLEX_INT8", elements=[[127, -1]])]),
    ([cell(number(SINGLE, 0.5), number(COMPLEX_SINGLE, math.inf, -math.nan))],
     [shown("SINGLE", elements=[0.5]), shown("COMPLEX_SINGLE", elements=[["Inf", "NaN"]])]),
    ([cell(char("h\u00e9\U0001f600"), char(""), char("\udc00\ud800"), string(None), string(""))],
     [text("h\u00e9\U0001f600", (1, 4)), text(""), text("\udc00\ud800"),
      shown("ZORVAN_STRING", elements=[None]), shown("ZORVAN_STRING", elements=[""])]),
    ([cell(char("a"), char("x" * 256), string("b"), again(1), again(0, STRING))],
     [text("a"), text("x" * 256), shown("ZORVAN_STRING", elements=["b"]), text("b"),
      shown("ZORVAN_STRING", elements=["a"])]),
    ([run(number(INT64, 1), number(INT64, -2))], [int64(1), int64(-2)]),
    ([run(cell(number(INT64, 1), char("a")), cell(number(INT64, 2), char("b")))],
     [cells(int64(1), text("a")), cells(int64(2), text("b"))]),
    ([run(run(number(INT64, 1), number(INT64, 2)), empty_run(b"\x0c"))],
     [cells(int64(1), int64(2)), cells()]),
    ([empty_run(b"\xff\xff")], []),
    ([run(*(record(STRUCT, 1, number(INT64, i), cell()) for i in (64, -65))), AB],
     [shown("STRUCT", fields=["a", "b"], elements=[{"a": int64(i), "b": cells()}])
      for i in (64, -65)]),
    ([cell(record(STRUCT, 0), record(VALUE_OBJECT, 2, char("y"))), AB, POINT],
     [shown("STRUCT", fields=[], elements=[{}]),
      {"type": "VALUE_OBJECT", "class": "Point", "dims": [1, 1], "properties": ["x"],
       "elements": [{"x": text("y")}]}]),
    ([cell(grid((2, 1), record(STRUCT, 1, run(number(INT64, 0), number(INT64, 1)),
                               cell(number(INT64, 2), char("y"))))), AB],
     [shown("STRUCT", (2, 1), fields=["a", "b"],
            elements=[{"a": int64(0), "b": int64(2)}, {"a": int64(1), "b": text("y")}])]),
    ([cell(grid((0, 3), record(OBJECT, 1, empty_run(), cell())), grid((1, 2), record(STRUCT, 0))),
      AB],
     [{"type": "OBJECT", "class": "", "dims": [0, 3], "properties": ["a", "b"], "elements": []},
      shown("STRUCT", (1, 2), fields=[], elements=[{}, {}])]),
    ([cell(grid((2, 1, 1), cell(cell(), char("a"))), grid((0, 3), cell()))],
     [cells(cells(), text("a"), dims=(2, 1, 1)), cells(dims=(0, 3))]),
    ([cell(grid((2, 2), run(*(number(INT64, i) for i in range(4)), count=False)))],
     [cells(*(int64(i) for i in range(4)), dims=(2, 2))]),
    ([cell(dense(DOUBLE, (1, 2), doubles(1, 2)), dense(CHAR, (2, 1), b"a\0b\0"))],
     [double(1.0, 2.0, dims=(1, 2)), text("ab", (2, 1))]),
    ([run(dense(UINT8, (1, 2), b"ab"), dense(UINT8, (3, 0), b""))],
     [shown("UINT8", (1, 2), elements=[97, 98]), shown("UINT8", (3, 0), elements=[])]),
    ([cell(strings((3, 1), "a", None, ""), strings((2, 0)), string("b"))],
     [shown("ZORVAN_STRING", (3, 1), elements=["a", None, ""]),
      shown("ZORVAN_STRING", (2, 0), elements=[]), shown("ZORVAN_STRING", elements=["b"])]),
    ([run(child(**ONE), child(type=CELL, tape=tape(cell(char("own")))))],
     [double(1.0), cells(text("own"))]),
]  # fmt: skip


@pytest.mark.parametrize("fields, tree", ARRAYS)
def test_arrays(read, fields, tree):
    assert repr(read(arrays=[fields])) == repr([tree])
    on_tape = tape(cell(child(**fields), cell(child(**fields))))
    assert repr(read(tape=on_tape)) == repr([tree, cells(tree)])


@pytest.mark.parametrize("parts, trees", TAPES)
def test_tapes(read, parts, trees):
    assert repr(read(tape=tape(*parts))) == repr(trees)
    in_array = {"type": CELL, "dims": [len(trees), 1], "tape": tape(*parts, padding=[bytes(20)])}
    assert repr(read(arrays=[in_array])) == repr([cells(*trees, dims=(len(trees), 1))])


def test_envelope(messages):
    frame = {"file": "f.m", "function_name": "g", "line": -3}
    message = messages.ZORVAN_Params(nargout=-1).SerializeToString()
    message += messages.ZORVAN_Result(
        version=1, error={"message": "no", "stack": [frame, {}]}
    ).SerializeToString()
    found = zorvan.reader.read(message)
    assert (found.version, found.nargout, found.arrays) == (1, -1, [])
    assert found.error == {
        "message": "no",
        "identifier": None,
        "stack": [frame, {"file": "", "function_name": "", "line": 0}],
    }
    nothing = zorvan.reader.read(b"")
    assert (nothing.version, nothing.nargout, nothing.error, nothing.arrays) == (1, None, None, [])
    assert math.isnan(zorvan.reader.read(messages.ZORVAN_Params(
        tape=tape(cell(number(DOUBLE, math.nan)))).SerializeToString()
    ).arrays[0]["elements"][0])  # fmt: skip


def test_numbers_of_texts_go_round(read):
    texts = [f"t{i}" for i in range(1025)]
    spelled = cell(*map(char, texts), char("x" * 256), again(0), again(1), again(1023))
    found = [tree["text"] for tree in read(tape=tape(spelled))]
    assert found[1026:] == ["t1024", "t1", "t1023"]


def nested(levels, innermost, wrap=cell):
    for _ in range(levels):
        innermost = wrap(innermost)
    return innermost


@pytest.mark.parametrize("wrap", [cell, run, lambda item: record(STRUCT, 1, item)])
@pytest.mark.parametrize("inside, takes_level", [
    (number(INT64, 1), 0), (char("a"), 0), (string("a"), 0), (dense(UINT8, (1, 1), b"a"), 1),
    (strings((1, 1), "a"), 1), (child(**ONE), 1),
])  # fmt: skip
def test_nesting(read, wrap, inside, takes_level):
    for levels in (256 - takes_level, 257 - takes_level):
        item = tape(cell(nested(levels - 1, inside, wrap)), shape("a"))
        if levels + takes_level == 256:
            assert len(read(tape=item)) == 1
            assert len(read(arrays=[{"type": CELL, "tape": {**item, **tape(
                cell(nested(levels - 2, inside, wrap)))}}])) == 1  # fmt: skip
        else:
            with pytest.raises(ValueError, match="nested more than 256 levels deep"):
                read(tape=item)


# ---- what is refused ----


WRONG_ARRAYS = [
    ({"type": 33}, "type 33 is unknown"),
    ({"type": -1}, "type -1 is unknown"),
    ({"type": DOUBLE, "dims": [1, 3], "elements": bytes(16)}, "16 bytes of elements"),
    ({"type": DOUBLE, "dims": [2**32, 2**32], "elements": bytes(8)}, "too large"),
    ({"type": DOUBLE, "dims": [2**62, 2, 0]}, "too large"),
    ({"type": DOUBLE}, "0 bytes of elements"),
    ({"type": LOGICAL, "elements": b"\2"}, "a logical other than 0 and 1"),
    ({"type": CHAR, "dims": [1, 2], "elements": b"a\0b"}, "3 bytes of elements"),
    ({"type": STRING, "dims": [1, 2], "text_len": [2]}, "1 texts for 2 elements"),
    ({"type": STRING, "text_len": [6], "text": b"a"}, "longer than the bytes"),
    ({"type": STRING, "text_len": [4], "text": b"abc"}, "left over"),
    ({"type": STRING, "text_len": [4], "text": b"\xff"}, "can't decode"),
    ({"type": STRING, "text_len": [14], "text": b"\xed\xa0\x80\xed\xb0\x80"}, "pair of surrogates"),
    ({"type": STRING, "text_len": [1]}, "has the number 0"),
    ({"type": STRING, "dims": [2], "text_len": [514, 1], "text": b"x" * 256}, "has the number 0"),
    ({"type": ENUMERATION, "class_name": b"E", "text_len": [0]}, "missing that cannot be"),
    ({"type": HANDLE, "class_name": b"H", "ref": [1, 2]}, "2 numbers of 1 handles"),
    ({"type": CELL, "children": []}, "0 items where 1 belong"),
    ({"type": CELL, "children": [ONE], "tape": tape(cell(char("a")))}, "both on a tape"),
    ({"type": CELL, "tape": tape(cell(char("a"), char("b")))}, "2 items where 1 belong"),
    ({"type": STRUCT, "names": [b"a", b"a"], "children": [ONE, ONE]}, "stands twice"),
    ({"type": STRUCT, "names": [b""], "children": [ONE]}, "name is empty"),
    ({"type": STRUCT, "names": [b"\xff"], "children": [ONE]}, "name: .*can't decode"),
    ({"type": STRUCT, "class_name": b""}, "class_name has no use"),
    ({"type": VALUE_OBJECT, "class_name": b"\xff"}, "class name: .*can't decode"),
    ({"type": CELL, "dims": [0, 0], "names": [b"a"]}, "names has no use"),
    ({**ONE, "tape": {}}, "tape has no use"),
    ({"elements": b""}, "elements has no use in an array of type 0"),
    ({"type": SPARSE_DOUBLE, "dims": [1, 1, 1], "col_starts": [0, 0]}, "3 dimensions"),
    ({"type": SPARSE_DOUBLE, "dims": [2, 2**60], "col_starts": [0]}, "starts of columns"),
    ({"type": SPARSE_DOUBLE, "dims": [2, 1], "col_starts": [0, 1]}, "starts of columns"),
    ({"type": SPARSE_DOUBLE, "dims": [2, 2], "rows": [0], "col_starts": [0, 2, 1],
      "elements": bytes(8)}, "descend"),
    *(({"type": SPARSE_DOUBLE, "dims": [2, 1], "rows": rows, "col_starts": [0, len(rows)],
        "elements": bytes(8 * len(rows))}, "rows that do not ascend")
      for rows in ([2], [1, 0], [0, 0])),
    ({"type": SPARSE_DOUBLE, "dims": [2, 1], "rows": [1], "col_starts": [0, 1]},
     "0 bytes of elements"),
]  # fmt: skip


def kinds(*codes, **streams):
    return piece(CELL, 1, *codes, **streams)


WRONG_TAPES = [
    ([piece()], "no 1-by-N cell"),
    ([number(INT64, 1)], "no 1-by-N cell"),
    ([grid((1, 1), cell(number(INT64, 1)))], "no 1-by-N cell"),
    ([piece(record(STRUCT, 0))], "no 1-by-N cell"),
    ([piece(CELL)], "breaks off"),
    ([piece(CELL, 2, char("a"))], "kinds break off"),
    ([{"kinds": bytes([CELL]) + b"\xff" * 9 + b"\x7f"}], "too large"),
    ([piece(cell(), char("a"))], "left over"),
    *(([piece(cell(), **{name: stream})], "left over") for name, stream in {
        "counts": [0], "ints": [0], "reals": [0.0], "dense": b"a", "text_len": [0],
        "text": b"a", "children": [ONE]}.items()),
    *(([kinds(code)], "stands where it cannot") for code in (28, 32, 63, 68, 127)),
    ([{"kinds": bytes([CELL, 1, 255])}], "stands where it cannot"),
    *(([kinds(code)], "too few") for code in (0, CHAR, STRING, DOUBLE, INT64, STRINGS)),
    *(([kinds(code)], "breaks off") for code in (CELL, STRUCT, RUN, DENSE)),
    *(([kinds(GRID, code, counts=[2, 1, 1])], "stands where it cannot")
      for code in (0, INT64, DENSE, STRINGS, GRID)),
    ([kinds(GRID, cell(char("a")), counts=[0, 2])], "has dimensions"),
    ([kinds(DENSE, STRING, counts=[0, 0])], "not dense"),
    ([kinds(DENSE, CELL, counts=[0, 0])], "not dense"),
    ([kinds(DENSE, DOUBLE, counts=[0, 2], dense=bytes(8))], "too few values in dense"),
    ([kinds(DENSE, DOUBLE, counts=[2, 2**62, 2])], "too large"),
    ([kinds(DENSE, DOUBLE, counts=[2**62, 1])], "too few values in counts"),
    ([kinds(DENSE, LOGICAL, counts=[0, 1], dense=b"\2")], "logical other"),
    ([kinds(STRINGS, counts=[0, 2**62], text_len=[0])], "too few texts"),
    ([cell(number(LOGICAL, 2))], "2 is out of the range of LOGICAL"),
    ([cell(number(INT8, 128))], "out of the range of INT8"),
    ([cell(number(UINT8, -1))], "out of the range of UINT8"),
    ([cell(number(COMPLEX_INT8, 0, -129))], "out of the range of INT8"),
    ([cell(number(SINGLE, 0.1))], "out of the range of SINGLE"),
    ([cell(number(SINGLE, 1e300))], "out of the range of SINGLE"),
    ([cell(piece(CHAR, text_len=[0]))], "missing that cannot be"),
    ([cell(again(0))], "has the number 0"),
    ([cell(char("a"), again(1))], "has the number 1"),
    ([cell(char("a"), again(1024))], "has the number 1024"),
    ([cell(piece(CHAR, text_len=[4], text=b"\xff"))], "can't decode"),
    ([cell(record(STRUCT, 1))], "no shape 1"),
    ([cell(record(STRUCT, 1, char("y"))), POINT], "has a class"),
    ([cell(), shape()], "neither class nor name"),
    ([cell(), shape("a", "a")], "stands twice"),
    ([cell(), shape("")], "name is empty"),
    ([cell(), AB[:-1]], "breaks off"),
    ([cell(), b"\0\xff\xff\xff\xff\x0f"], "breaks off"),
    ([piece(RUN, 2, INT64, counts=[1], ints=[1])], "kinds break off"),
    ([piece(RUN, 2**64 - 1, INT64, counts=[0])], "kinds break off"),
    ([piece(RUN, 2, INT64, INT64, counts=[1], ints=[1])], "not as long as they should be"),
    ([piece(RUN, 1, CELL, 1, INT64, counts=[1], ints=[1])], "not as long as they should be"),
    ([piece(RUN, 1, INT64, counts=[2**62], ints=[1, 2])], "too few values in ints"),
    *(([run(item), AB], "run has too few values") for item in (
        cell(), record(STRUCT, 0), cell(cell(number(INT64, 1))), cell(cell(string(None))),
        record(STRUCT, 1, number(INT64, 1), cell()), cell(cell(child(**ONE))),
        cell(empty_run(), cell()))),
    ([run(cell(cell(number(INT64, -65))), cell(cell(number(INT64, 1))))], "has too few values"),
    ([cell(grid((2, 1), record(STRUCT, 1, run(number(INT64, 1)), empty_run()))), AB],
     "1 values of name 'a'"),
    *(([cell(grid((1, 1), record(STRUCT, 1, item, item))), AB], "name 'a' are no 1-by-N cell")
      for item in (number(INT64, 1), grid((1, 1), cell(number(INT64, 1))), child(**ONE))),
    ([cell(piece(GRID, STRUCT, 1, counts=[0, 1])), AB], "name 'a' are no 1-by-N cell"),
]  # fmt: skip


@pytest.mark.parametrize("fields, reason", WRONG_ARRAYS)
def test_arrays_that_are_refused(read, fields, reason):
    on_tape = tape(run(child(**ONE), child(**fields)))
    for message in ({"arrays": [ONE, fields]}, {"tape": on_tape}):
        with pytest.raises(ValueError, match=rf"^message\.(arrays|tape\.children)\[1\]\W.*{reason}"):
            read(**message)


@pytest.mark.parametrize("parts, reason", WRONG_TAPES)
def test_tapes_that_are_refused(read, parts, reason):
    fields = {"tape": tape(*parts)}
    for message in (fields, {"arrays": [{"type": CELL, **fields}]}):
        with pytest.raises(ValueError, match=rf"^message(\.arrays\[0\])?\.tape.*{reason}"):
            read(**message)


def field(field_number, content):
    """A varint or a length-delimited field."""
    if isinstance(content, int):
        return varint(field_number << 3) + varint(content)
    return varint(field_number << 3 | 2) + varint(len(content)) + content


ELEMENTS = field(3, doubles(1))
ONE_BYTES = field(1, DOUBLE) + ELEMENTS


@pytest.mark.parametrize(
    "message, reason",
    [
        (b"\x0a\x05", "no message"),
        (field(4, 2), "version 2, where only 1 is known"),
        (field(4, 0), "version 0"),
        (field(5, b"") * 2, "tape stands twice"),
        (field(1, ONE_BYTES) + field(5, b"\x0a\x02\x18\0"), "both on a tape"),
        (field(1, field(1, DOUBLE) + ELEMENTS * 2), r"arrays\[0\]: elements stands twice"),
        (field(1, ONE_BYTES) + field(1, ELEMENTS + field(1, b"")), r"arrays\[1\]: type is of wire"),
        (field(1, ONE_BYTES + field(2, 1)), "dims is of wire type 0"),
        (field(1, ONE_BYTES + field(15, 1)), "padding is of wire type 0"),
        (field(1, ONE_BYTES + field(12, b"")), "ref has no use"),
        (field(5, field(1, b"\x18\1\4") + b"\x21" + doubles(1)), "tape: reals is of wire type 1"),
        (field(5, field(1, b"\x18\1\0") + field(9, ONE_BYTES + field(1, DOUBLE))),
         r"tape.children\[0\]: type stands twice"),
        (field(1, ONE_BYTES + field(2, b"\1") * 2), "dims stands twice"),
    ],
)  # fmt: skip
def test_bytes_that_are_refused(message, reason):
    with pytest.raises(ValueError, match=reason):
        zorvan.reader.read(message)


@pytest.mark.parametrize(
    "array",
    [
        ELEMENTS + field(1, DOUBLE),
        field(2, b"\1\1") + ELEMENTS + field(1, DOUBLE),
        field(77, 5) + varint(803) + field(3, b"in a group") + varint(804) + field(1, DOUBLE)
        + field(15, b"\0") + ELEMENTS + field(15, b"") + varint(78 << 3 | 5) + bytes(4),
    ],
)  # fmt: skip
def test_bytes_in_any_order_with_unknown_fields(array):
    assert zorvan.reader.read(field(1, array)).arrays == [double(1.0)]


def test_what_stands_around_the_arrays_is_read_as_far_as_it_can_be():
    message = zorvan.reader.read(
        field(4, 1) * 2 + field(2, b"") + field(3, field(2, b"a") + field(1, 5) + field(2, b"b"))
    )
    assert (message.version, message.nargout, message.arrays) == (1, None, [])
    assert message.error["identifier"] == "b"


# ---- beside py_pb and the inspector ----


def inspected(message):
    """The trees of the inspector. Of a single it prints the shortest digits that tell it."""
    command = ["zorvan-inspect", "--json", "-"]
    done = subprocess.run(command, input=message, capture_output=True, check=True, timeout=60)
    return widened(json.loads(done.stdout)["arrays"])


def widened(node, is_single=False):
    if isinstance(node, dict):
        is_single = str(node.get("type")).endswith("SINGLE")
        return {key: widened(value, is_single) for key, value in node.items()}
    if isinstance(node, list):
        return [widened(value, is_single) for value in node]
    return float(np.float32(node)) if is_single and isinstance(node, float) else node


@pytest.mark.parametrize(
    "fields",
    [{"arrays": [fields]} for fields, _ in ARRAYS] + [{"tape": tape(*parts)} for parts, _ in TAPES],
)
def test_the_inspector_shows_the_same(messages, fields):
    message = messages.ZORVAN_Params(**fields).SerializeToString()
    trees = zorvan.reader.read(message, json_numbers=True).arrays
    assert repr(inspected(message)) == repr(trees)


@pytest.mark.parametrize(
    "fields",
    [{"arrays": [fields]} for fields, _ in WRONG_ARRAYS]
    + [{"tape": tape(*parts)} for parts, _ in WRONG_TAPES],
)
def test_the_inspector_and_py_pb_refuse_the_same(messages, fields):
    message = messages.ZORVAN_Result(**fields).SerializeToString()
    done = subprocess.run(["zorvan-inspect", "--json", "-"], input=message, capture_output=True)
    assert (done.returncode, done.stdout) == (1, b"")
    with pytest.raises(SystemError):
        py_pb.serialized_str_to_py(message)


FORMATS = dict(zip(["LOGICAL", "DOUBLE", "SINGLE", "INT8", "UINT8", "INT16", "UINT16", "INT32",
                    "UINT32", "INT64", "UINT64"], "?dfbBhHiIqQ"))  # fmt: skip


def as_fields(tree):
    """A tree as the fields of an array that has its items as messages."""
    types = {name: code for code, name in zorvan.reader._type_names().items()}
    kind = tree["type"].removeprefix("COMPLEX_")
    fields = {"type": types[tree["type"]], "dims": tree["dims"]}
    if "class" in tree:
        fields["class_name"] = tree["class"].encode()
    if kind in FORMATS:
        values = tree["elements"] if kind == tree["type"] else sum(tree["elements"], [])
        return {**fields, "elements": struct.pack(f"<{len(values)}{FORMATS[kind]}", *values)}
    if kind == "CHAR":
        return {**fields, "elements": tree["text"].encode("utf-16-le", "surrogatepass")}
    if kind == "ZORVAN_STRING":
        texts = [None if each is None else each.encode("utf-8") for each in tree["elements"]]
        fields["text_len"] = [0 if each is None else 2 * len(each) + 2 for each in texts]
        return {**fields, "text": b"".join(each or b"" for each in texts)}
    if kind == "CELL":
        return {**fields, "children": [as_fields(each) for each in tree["elements"]]}
    names = tree.get("fields", tree.get("properties"))
    items = [as_fields(record[name]) for name in names for record in tree["elements"]]
    return {**fields, "names": [name.encode() for name in names], "children": items}


TEXTS = st.text(st.characters(exclude_categories=["Cs"]), max_size=6)
NAMES = TEXTS.filter(bool)
UTC_OFFSETS = st.integers(-1439, 1439).map(lambda minutes: timezone(timedelta(minutes=minutes)))
SCALARS = st.one_of(
    st.integers(-(2**63), 2**63 - 1), st.integers(-3, 3), st.booleans(), st.floats(), TEXTS,
    st.complex_numbers(), st.sampled_from(["", "again", "and again", "x" * 255, "y" * 256]),
)  # fmt: skip
ARRAY_VALUES = st.builds(
    lambda dtype, dims, order: np.arange(-3, np.prod(dims, dtype=int) - 3).reshape(dims).astype(
        dtype, order=order),
    st.sampled_from("? i1 u1 i2 u2 i4 u4 i8 u8 f4 f8 c8 c16".split()),
    st.one_of(st.lists(st.integers(0, 3), min_size=1, max_size=4), st.just([600])),
    st.sampled_from("CF"),
)  # fmt: skip
DATES = st.datetimes(datetime(1900, 1, 1), datetime(2100, 1, 1), timezones=st.one_of(
    st.none(), UTC_OFFSETS, st.just(ZoneInfo("Europe/Berlin"))))  # fmt: skip
LEAVES = st.one_of(
    SCALARS, SCALARS, st.binary(max_size=5), ARRAY_VALUES, DATES,
    st.timedeltas(timedelta(-9999), timedelta(9999)),
    st.sampled_from([np.array(["2024-02-29", "NaT"], "M8[D]"), np.timedelta64(1, "s")]),
)  # fmt: skip


def alike(values, most):
    """Rows or records in a list, all alike or but for the last ones."""
    rows = st.lists(values, max_size=4)
    records = st.dictionaries(NAMES, values, max_size=4)
    return st.builds(lambda first, times, odd: [first] * times + odd, st.one_of(rows, records),
                     st.integers(1, most), st.lists(st.one_of(records, values), max_size=2))  # fmt: skip


def containers(values):
    keys = st.one_of(NAMES, st.integers(-9, 9))
    return st.one_of(
        st.lists(values, max_size=5), st.lists(values, max_size=5).map(tuple),
        st.lists(st.floats(), max_size=20), st.lists(TEXTS, max_size=20), alike(values, 3),
        st.dictionaries(NAMES, values, max_size=4),
        st.dictionaries(keys, SCALARS, max_size=4).map(zorvan.dictionary),
    )  # fmt: skip


ARGUMENTS = st.lists(
    st.one_of(st.recursive(LEAVES, containers, max_leaves=25), alike(LEAVES, 300)), max_size=4
)


@given(ARGUMENTS, st.integers(0, 5))
@settings(deadline=None, max_examples=EXAMPLES, suppress_health_check=list(HealthCheck))
@example([[1, True], [True, 1.0], ["", "a"], [[1], 1], [b"", b"\0"], [[], [], {}], [{}, {}]], 1)
@example([[{"a": 1, "b": []}, {"a": 2, "b": [1]}, {"b": [], "a": 3}], {"p": {"a": {}}}], 1)
@example([[["x" * 255, "x" * 256] * 600], [f"{i % 1500}" for i in range(4000)]], 1)
@example([np.zeros(600), np.zeros((2, 255)), [np.zeros(513, "u1")] * 9], 1)
def test_what_py_pb_writes(messages, arguments, nargout):
    message = py_pb.py_to_serialized_str(arguments, nargout=nargout)
    found = zorvan.reader.read(message)
    assert (found.version, found.nargout, found.error) == (1, nargout, None)
    trees = zorvan.reader.read(message, json_numbers=True).arrays
    assert repr(inspected(message)) == repr(trees)

    plain = messages.ZORVAN_Result(arrays=map(as_fields, found.arrays)).SerializeToString()
    assert repr(zorvan.reader.read(plain).arrays) == repr(found.arrays)
    assert py_pb_shows(plain) == py_pb_shows(message)


def py_pb_shows(message):
    try:
        return repr(py_pb.serialized_str_to_py(message))
    except (TypeError, ValueError, OverflowError) as error:
        return repr(error)


def test_frames_and_dates(messages):
    pandas = pytest.importorskip("pandas")
    frame = pandas.DataFrame({
        "n": [1, 2, 3], "x": [0.5, math.nan, 2.5], "t": ["a", "b", "a"],
        "c": pandas.Categorical(["u", None, "v"]), "o": [[1], "a", 2.5],
    })  # fmt: skip
    dated = frame.assign(when=pandas.date_range("2024", periods=3, tz="Europe/Berlin"))
    message = py_pb.py_to_serialized_str((frame, [dated, {"f": frame}]))
    assert inspected(message) == zorvan.reader.read(message, json_numbers=True).arrays
    plain = messages.ZORVAN_Result(arrays=map(as_fields, zorvan.reader.read(message).arrays))
    assert py_pb_shows(plain.SerializeToString()) == py_pb_shows(message)
