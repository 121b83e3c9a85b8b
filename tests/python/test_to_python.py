"""Results of the engine as Python objects; the messages are made by the stock protobuf runtime."""

import gc
import math
import pathlib
import struct
import sys
import threading

import numpy
import py_pb
import pytest
import tape_writer as tapes
import zorvan

# Codes of element types, as the messages have them.
(UNKNOWN, LOGICAL, CHAR, STRING, DOUBLE, SINGLE) = range(6)
(CELL, STRUCT, OBJECT, VALUE_OBJECT, HANDLE, ENUMERATION) = range(24, 30)
(SPARSE_LOGICAL, SPARSE_DOUBLE, SPARSE_COMPLEX_DOUBLE) = range(30, 33)
# Real number types: code, dtype. The complex twin of each has a code that is 10 higher.
NUMBERS = [
    (DOUBLE, "f8"), (SINGLE, "f4"), (6, "i1"), (7, "u1"), (8, "i2"), (9, "u2"), (10, "i4"),
    (11, "u4"), (12, "i8"), (13, "u8"),
]  # fmt: skip
CLASSES = {
    "f8": "double", "f4": "single", "i1": "int8", "u1": "uint8", "i2": "int16", "u2": "uint16",
    "i4": "int32", "u4": "uint32", "i8": "int64", "u8": "uint64",
}  # fmt: skip


def array(type, dims=(1, 1), **fields):
    return {"type": type, "dims": dims, **fields}


def double(*values, dims=None):
    return array(DOUBLE, dims or (1, len(values)), elements=struct.pack(f"{len(values)}d", *values))


def char(text, dims=None):
    units = text.encode("utf-16-le", "surrogatepass")
    return array(CHAR, dims or (1, len(units) // 2), elements=units)


def string(*texts, dims=None):
    stored = [None if text is None else text.encode("utf-8", "surrogatepass") for text in texts]
    return array(
        STRING,
        dims or (1, len(texts)),
        text_len=[0 if text is None else 2 * (len(text) + 1) for text in stored],
        text=b"".join(text for text in stored if text),
    )


def cell(*children, dims=None):
    return array(CELL, dims or (1, len(children)), children=children)


def record(dims=(1, 1), **fields):
    return array(STRUCT, dims, names=[name.encode() for name in fields], children=fields.values())


def value_object(class_name, dims=(1, 1), **properties):
    return {**record(dims, **properties), "type": VALUE_OBJECT, "class_name": class_name.encode()}


def handles(dims, *numbers):
    return array(HANDLE, dims, class_name=b"Motor", ref=numbers)


def sparse(type, value):
    return array(type, (2, 2), rows=[1], col_starts=[0, 0, 1], elements=value)


@pytest.fixture
def decode(messages):
    """The Python object that one output of the engine becomes."""

    def convert(output):
        (value,) = py_pb.serialized_str_to_py(
            messages.ZORVAN_Result(arrays=[output]).SerializeToString()
        )
        return value

    return convert


def same(value, expected):
    """Equal in value and type, NaN and the sign of zero included."""
    return type(value) is type(expected) and repr(value) == repr(expected)


def real_scalars():
    for code, dtype in NUMBERS:
        kind = numpy.dtype(dtype)
        if kind.kind == "f":
            values = [0.0, -0.0, 1.5, math.nan, -math.inf, float(numpy.finfo(kind).max)]
        else:
            values = [numpy.iinfo(kind).min, numpy.iinfo(kind).max, 1]
        yield from ((code, dtype, numpy.array(value, kind).item()) for value in values)


@pytest.mark.parametrize("dims", [(), (1, 1), (1, 1, 1)])
def test_one_number_becomes_a_python_number(decode, dims):
    for code, dtype, value in real_scalars():
        elements = numpy.array(value, dtype).tobytes()
        assert same(decode(array(code, dims, elements=elements)), value)
        pair = array(code + 10, dims, elements=elements + numpy.array(3, dtype).tobytes())
        assert same(decode(pair), complex(value, 3))
    for value in (False, True):
        assert decode(array(LOGICAL, dims, elements=bytes([value]))) is value


@pytest.mark.parametrize("shape", [(2, 3), (3, 1), (1, 2), (2, 3, 2), (1, 1, 5), (40, 30)])
def test_several_numbers_become_an_array(decode, shape):
    count = math.prod(shape)
    for code, dtype in NUMBERS:
        real = (numpy.arange(count) % 100).astype(dtype).reshape(shape, order="F")
        value = decode(array(code, shape, elements=real.tobytes("F")))
        assert type(value) is getattr(zorvan, CLASSES[dtype])
        assert not value._is_complex
        assert numpy.asarray(value).dtype == dtype
        assert numpy.array_equal(value, real)

        pairs = numpy.stack([real.ravel("F"), real.ravel("F")[::-1]], axis=1)
        twin = decode(array(code + 10, shape, elements=pairs.tobytes()))
        assert type(twin) is type(value)
        assert twin._is_complex
        assert twin.size == shape
        if real.dtype.kind == "f":
            expected = (pairs[:, 0] + 1j * pairs[:, 1]).reshape(shape, order="F")
            assert numpy.array_equal(twin, expected)

    flags = (numpy.arange(count) % 3 == 0).reshape(shape, order="F")
    value = decode(array(LOGICAL, shape, elements=flags.tobytes("F")))
    assert type(value) is zorvan.logical
    assert numpy.asarray(value).dtype == bool
    assert numpy.array_equal(value, flags)


def test_elements_of_a_result_belong_to_it_alone(messages):
    message = messages.ZORVAN_Result(
        arrays=[double(*range(100)), double(*range(100)), cell(double(1.0, 2.0))]
    ).SerializeToString()
    kept = bytes(bytearray(message))
    first, second, (pair,) = py_pb.serialized_str_to_py(message)
    numpy.asarray(first)[...] = -1.0
    numpy.asarray(pair)[...] = -1.0
    assert numpy.array_equal(second, [range(100)])
    assert message == kept
    again, _, (pair,) = py_pb.serialized_str_to_py(message)
    assert numpy.array_equal(again, second)
    assert numpy.array_equal(pair, [[1.0, 2.0]])


TEXTS = ["a", "abc", "h\u00e9", "\ufeffmark", "\U0001f600 face", "nul\0inside", "x" * 5000]


@pytest.mark.parametrize("text", TEXTS)
def test_text(decode, text):
    units = len(text.encode("utf-16-le")) // 2
    assert decode(char(text)) == text
    assert decode(char(text, dims=(units, 1))) == text
    assert decode(string(text)) == text
    assert decode(on_tape(tapes.cell(tapes.char(text)))) == [text]


def on_tape(item, *shapes, count=1):
    return array(CELL, (1, count), tape=tapes.tape(item, *shapes))


@pytest.mark.parametrize(
    "output, expected",
    [
        (string(None), None),
        (string(""), ""),
        (string("a", None, "b"), ["a", None, "b"]),
        (string("a", "", dims=(2, 1)), ["a", ""]),
        (cell(string(dims=(0, 0)), string(None)), [[], None]),
        (record(s=string(dims=(0, 0)), t=string(None)), {"s": [], "t": None}),
        (record(s=string(dims=(3, 0))), {"s": []}),
    ],
)
def test_strings(decode, output, expected):
    assert decode(output) == expected


@pytest.mark.parametrize("text", ["\ud800", "ab\udc00", "\ud800x" * 3000, "\ude00\ud83d"])
def test_lone_surrogates_are_the_utf_16_decoders_error(decode, text):
    with pytest.raises(UnicodeDecodeError) as expected:
        text.encode("utf-16-le", "surrogatepass").decode("utf-16-le")
    for output in (char(text), char(text, dims=(len(text), 1)), string(text), string("a", text)):
        with pytest.raises(UnicodeDecodeError) as raised:
            decode(output)
        assert str(raised.value) == str(expected.value)


EMPTIES = [
    double(dims=(0, 0)), double(dims=(3, 0)), array(LOGICAL, (0, 1)), char(""), char("", (0, 0)),
    char("", (0, 3)), string(dims=(0, 0)), cell(), cell(dims=(0, 0)), record(dims=(0, 0)),
    record(dims=(0, 2), a=cell()), value_object("Point", (0, 0)), handles((0, 1)),
    array(ENUMERATION, (0, 0), class_name=b"Color"), array(UNKNOWN, (0, 0)),
    array(SPARSE_DOUBLE, (0, 0), col_starts=[0]),
]  # fmt: skip


@pytest.mark.parametrize("empty", EMPTIES)
def test_an_empty_element_is_an_empty_list(decode, empty):
    empty = {key: value for key, value in empty.items() if key != "children"}
    assert decode(cell(empty, double(5.0))) == [[], 5.0]


@pytest.mark.parametrize(
    "output, expected",
    [
        (cell(cell(double(1.0), char("x")), cell(cell(double(2.0)))), [[1.0, "x"], [[2.0]]]),
        (cell(double(1.0), char("ab"), dims=(2, 1)), [1.0, "ab"]),
        (cell(dims=(1, 0)), []),
        (on_tape(tapes.run(tapes.number(DOUBLE, 1), tapes.number(DOUBLE, 2)), count=2), [1.0, 2.0]),
        (on_tape(tapes.cell(tapes.char(""), tapes.char("a")), count=2), [[], "a"]),
        (on_tape(tapes.run(tapes.string(""), tapes.string(None)), count=2), ["", None]),
        (
            on_tape(tapes.cell(tapes.number(12, -7), tapes.number(DOUBLE, 0.5),
                               tapes.number(LOGICAL, 1), tapes.char("text")), count=4),
            [-7, 0.5, True, "text"],
        ),
        (
            on_tape(tapes.cell(tapes.record(STRUCT, 1, tapes.number(DOUBLE, 1)),
                               tapes.record(STRUCT, 1, tapes.char("v"))),
                    tapes.shape("k"), count=2),
            [{"k": 1.0}, {"k": "v"}],
        ),
    ],
)  # fmt: skip
def test_cells(decode, output, expected):
    value = decode(output)
    assert same(value, expected)


def test_a_struct_keeps_the_order_of_its_fields_and_what_is_empty_in_them(decode):
    value = decode(
        record(
            b=char(""), a=double(dims=(0, 3)), **{"\u00e9": cell(double(dims=(0, 0)))}, z=record()
        )
    )
    assert list(value) == ["b", "a", "\u00e9", "z"]
    assert value["b"] == ""
    assert type(value["a"]) is zorvan.double
    assert value["a"].size == (0, 3)
    assert value["\u00e9"] == [[]]
    assert value["z"] == {}


def test_objects_without_a_python_counterpart(decode):
    assert decode(value_object("missing")) is None
    assert decode(value_object("missing", (1, 2))) is None
    assert decode(cell(value_object("missing"), record(m=value_object("missing")))) == [
        None,
        {"m": None},
    ]
    # The class of a handle does not matter.
    handle = decode({**handles((1, 1), 1), "class_name": b"missing"})
    for wrapped in (decode(value_object("Missing")), handle):
        assert type(wrapped) is zorvan.object
        assert wrapped.size == (1, 1)


def unsupported(code):
    return f"conversion of ZORVAN data type {code} to Python not supported"


NO_SPARSE = "conversion of ZORVAN sparse array to Python not supported"
CHAR_SHAPE = "char arrays returned from ZORVAN must be 1-by-N or M-by-1"
STRING_SHAPE = "string arrays returned from ZORVAN must be 1-by-N or M-by-1 "
CELL_SHAPE = "cell arrays returned from ZORVAN must be 1-by-N or M-by-1"
STRUCT_SHAPE = "only a scalar struct can be returned from ZORVAN"
REFUSED = [
    (char("abcdef", (2, 3)), ValueError, CHAR_SHAPE),
    (char("ab", (1, 1, 2)), ValueError, CHAR_SHAPE),
    (string(*"abcd", dims=(2, 2)), ValueError, STRING_SHAPE),
    (string(*"abc", dims=(1, 1, 3)), ValueError, STRING_SHAPE),
    (cell(*[double(1.0)] * 4, dims=(2, 2)), ValueError, CELL_SHAPE),
    (cell(*[double(1.0)] * 3, dims=(1, 1, 3)), ValueError, CELL_SHAPE),
    (array(STRUCT, (1, 2), names=[b"a"], children=[double(1.0)] * 2), ValueError, STRUCT_SHAPE),
    (sparse(SPARSE_LOGICAL, b"\1"), TypeError, NO_SPARSE),
    (sparse(SPARSE_DOUBLE, bytes(8)), TypeError, NO_SPARSE),
    (sparse(SPARSE_COMPLEX_DOUBLE, bytes(16)), TypeError, NO_SPARSE),
    (array(UNKNOWN), TypeError, unsupported(0)),
    (array(OBJECT, class_name=b"Old"), TypeError, unsupported(26)),
    ({**string("red"), "type": ENUMERATION, "class_name": b"Color"}, TypeError, unsupported(29)),
]


@pytest.mark.parametrize("output, error, text", REFUSED)
def test_refusals_pass_through_every_container(decode, output, error, text):
    for outer in (output, cell(double(1.0), output), record(a=double(1.0), b=cell(output))):
        with pytest.raises(error) as raised:
            decode(outer)
        assert (type(raised.value), str(raised.value)) == (error, text)


@pytest.mark.parametrize(
    "output, text",
    [
        (record(s=array(STRUCT, (0, 0))), STRUCT_SHAPE),
        (record(s=char("", (1, 1, 0))), CHAR_SHAPE),
        (record(s=cell(dims=(2, 0, 1))), CELL_SHAPE),
    ],
)
def test_a_field_is_held_to_its_shape_even_when_empty(decode, output, text):
    with pytest.raises(ValueError) as raised:
        decode(output)
    assert str(raised.value) == text


def delimited(tag, body):
    return bytes([tag]) + tapes.varint(len(body)) + body


def nested_result(levels, named):
    """By hand, because the stock runtime serializes no more than 100 messages within each other."""
    head = b"\x08\x19" + delimited(0x2A, b"f") if named else b"\x08\x18"
    around_five = delimited(0x0A, b"\x18\1\7") + delimited(0x1A, b"\x0a")  # a tape with a uint8
    body = head + delimited(0x3A, around_five)
    for _ in range(levels - 1):
        body = head + delimited(0x22, body)
    return delimited(0x0A, body)


def nested_on_tape(messages, levels, named):
    item = tapes.number(7, 5)
    for _ in range(levels):
        item = tapes.record(STRUCT, 1, item) if named else tapes.cell(item)
    whole = tapes.tape(tapes.cell(item), tapes.shape("f"))
    return messages.ZORVAN_Result(tape=whole).SerializeToString()


@pytest.mark.parametrize("named", [False, True])
def test_deep_nesting_converts_on_a_small_stack(messages, named):
    sent = [nested_result(250, named), nested_on_tape(messages, 250, named)]
    results = []
    sanitized = "libasan" in pathlib.Path("/proc/self/maps").read_text()  # its frames are wider
    previous = threading.stack_size((4096 if sanitized else 512) * 1024)
    try:
        thread = threading.Thread(
            target=lambda: results.extend(map(py_pb.serialized_str_to_py, sent))
        )
        thread.start()
        thread.join()
    finally:
        threading.stack_size(previous)
    assert len(results) == 2
    for value in results:
        depth = 0
        while value != 5:
            (value,) = value.values() if isinstance(value, dict) else value
            depth += 1
        assert depth == 251


@pytest.mark.parametrize("named", [False, True])
def test_one_level_too_many_is_an_error(messages, named):
    for too_deep in (nested_result(256, named), nested_on_tape(messages, 256, named)):
        with pytest.raises(SystemError):
            py_pb.serialized_str_to_py(too_deep)
    assert py_pb.serialized_str_to_py(nested_result(255, named))
    assert py_pb.serialized_str_to_py(nested_on_tape(messages, 255, named))


def test_conversions_leave_nothing_behind(messages):
    good = cell(
        double(1.0, 2.0), double(*range(64)), char("text"), string("a", None), value_object("P"),
        record(a=cell(double(3.0)), b=handles((1, 2), 1, 2)),
    )  # fmt: skip
    bad = [char("\ud800"), *(refused for refused, _, _ in REFUSED)]
    outputs = [good, *(cell(good, each) for each in bad)]
    payloads = [messages.ZORVAN_Result(arrays=[each]).SerializeToString() for each in outputs]

    def convert_all(times):
        for _ in range(times):
            for payload in payloads:
                try:
                    py_pb.serialized_str_to_py(payload)
                except (TypeError, ValueError):
                    pass
        gc.collect()
        types = (zorvan.object, zorvan.double, type(None))
        return sys.getallocatedblocks(), [sys.getrefcount(each) for each in types]

    blocks, references = convert_all(20)
    later_blocks, later_references = convert_all(200)
    assert later_blocks - blocks < 200
    assert all(abs(a - b) < 20 for a, b in zip(references, later_references))
