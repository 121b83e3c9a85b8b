"""zorvan-inspect and zorvan-loopback, fed with messages of the stock protobuf runtime."""

import json
import math
import shutil
import struct
import subprocess
import sysconfig

import pytest
import zorvan.reader

# Codes of element types, as the messages have them.
(UNKNOWN, LOGICAL, CHAR, STRING, DOUBLE, SINGLE, INT8) = range(7)
(UINT8, UINT64, COMPLEX_DOUBLE, COMPLEX_SINGLE, COMPLEX_INT8) = (7, 13, 14, 15, 16)
(CELL, STRUCT, OBJECT, VALUE_OBJECT, HANDLE, ENUMERATION) = range(24, 30)
(SPARSE_LOGICAL, SPARSE_COMPLEX_DOUBLE) = (30, 32)


def run(command, *arguments, stdin=b"", stdout=subprocess.PIPE):
    path = shutil.which(command, path=sysconfig.get_path("scripts")) or shutil.which(command)
    assert path, f"{command} is not installed"
    return subprocess.run(
        [path, *arguments], input=stdin, stdout=stdout, stderr=subprocess.PIPE, timeout=60
    )


def output_of(command, *arguments, stdin=b""):
    done = run(command, *arguments, stdin=stdin)
    assert (done.returncode, done.stderr) == (0, b"")
    return done.stdout


@pytest.fixture
def params(messages):
    """Serialized parameters of arrays given as dicts of their message's fields."""

    def serialize(*arrays, **fields):
        return messages.ZORVAN_Params(arrays=arrays, **fields).SerializeToString()

    return serialize


@pytest.fixture
def inspect_array(params):
    """What the inspector's JSON says of one array."""

    def inspect(**fields):
        output = output_of("zorvan-inspect", "--json", "-", stdin=params(fields))
        return json.loads(output)["arrays"][0]

    return inspect


@pytest.fixture
def answer(params):
    """The loopback's answer."""

    def receive(function, *arrays, **fields):
        return output_of("zorvan-loopback", function, stdin=params(*arrays, **fields))

    return receive


@pytest.fixture
def call(answer):
    """The loopback's answer as the reference reader has it."""

    def read(*arguments, **fields):
        return zorvan.reader.read(answer(*arguments, **fields))

    return read


def doubles(*values, dims=None):
    payload = struct.pack(f"<{len(values)}d", *values)
    return {"type": DOUBLE, "dims": dims or [1, len(values)], "elements": payload}


def chars(text):
    payload = text.encode("utf-16-le", "surrogatepass")
    return {"type": CHAR, "dims": [1, len(payload) // 2], "elements": payload}


def shown(type_name, dims, **members):
    return {"type": type_name, "dims": dims, **members}


def shown_object(type_name):
    members = {"properties": ["p"], "elements": [{"p": ONE_SHOWN}]}
    return {"type": type_name, "class": "pkg.C", "dims": [1, 1], **members}


ONE = doubles(1.0)
ONE_SHOWN = shown("DOUBLE", [1, 1], elements=[1.0])
EMPTY = {"type": CELL, "dims": [0, 0]}
EMPTY_SHOWN = shown("CELL", [0, 0], elements=[])
OBJECT_FIELDS = {"class_name": b"pkg.C", "names": [b"p"], "children": [ONE]}
PAIR = {"dims": [1, 2], "names": [b"b", b"a"], "children": [ONE, EMPTY, EMPTY, ONE]}
PAIR_SHOWN = [{"b": ONE_SHOWN, "a": EMPTY_SHOWN}, {"b": EMPTY_SHOWN, "a": ONE_SHOWN}]
SPARSE = {"rows": [0, 3, 2], "col_starts": [0, 2, 2, 3], "elements": b"\1\1\1"}
SPARSE_SHOWN = {"rows": [0, 3, 2], "columns": [0, 0, 2], "elements": [True] * 3}


@pytest.mark.parametrize(
    "fields, expected",
    [
        (
            doubles(0, 3, 1, math.nan, math.inf, -math.inf, dims=[2, 3]),
            shown("DOUBLE", [2, 3], elements=[0, 3, 1, "NaN", "Inf", "-Inf"]),
        ),
        ({"type": SINGLE, "dims": [0, 3]}, shown("SINGLE", [0, 3], elements=[])),
        (
            {"type": SINGLE, "elements": struct.pack("<f", 0.1)},
            shown("SINGLE", [1, 1], elements=[0.1]),
        ),
        (
            {"type": UINT64, "dims": [2], "elements": b"\xff" * 8 + bytes(8)},
            shown("UINT64", [1, 2], elements=[2**64 - 1, 0]),
        ),
        (
            {"type": INT8, "dims": [2, 1, 1], "elements": b"\x80\x41"},
            shown("INT8", [2, 1, 1], elements=[-128, 65]),
        ),
        (
            {"type": LOGICAL, "dims": [1, 2], "elements": b"\1\0"},
            shown("LOGICAL", [1, 2], elements=[True, False]),
        ),
        (
            {"type": COMPLEX_DOUBLE, "elements": struct.pack("<2d", math.nan, -2.5)},
            shown("COMPLEX_DOUBLE", [1, 1], elements=[["NaN", -2.5]]),
        ),
        (
            {"type": COMPLEX_INT8, "elements": b"\x01\xff"},
            shown("COMPLEX_INT8", [1, 1], elements=[[1, -1]]),
        ),
        (
            {"type": STRING, "dims": [1, 3], "text_len": [6, 0, 2], "text": b"ab"},
            shown("ZORVAN_STRING", [1, 3], elements=["ab", None, ""]),
        ),
        (
            {"type": CELL, "dims": [1, 2], "children": [ONE, EMPTY]},
            shown("CELL", [1, 2], elements=[ONE_SHOWN, EMPTY_SHOWN]),
        ),
        ({"type": STRUCT}, shown("STRUCT", [1, 1], fields=[], elements=[{}])),
        (
            {"type": STRUCT, **PAIR},
            shown("STRUCT", [1, 2], fields=["b", "a"], elements=PAIR_SHOWN),
        ),
        ({"type": OBJECT, **OBJECT_FIELDS}, shown_object("OBJECT")),
        ({"type": VALUE_OBJECT, **OBJECT_FIELDS}, shown_object("VALUE_OBJECT")),
        (
            {"type": HANDLE, "dims": [1, 2], "class_name": b"H", "ref": [7, 9]},
            {"type": "HANDLE_OBJECT_REF", "class": "H", "dims": [1, 2], "ref": [7, 9]},
        ),
        (
            {"type": ENUMERATION, "class_name": b"E", "text_len": [8], "text": b"Red"},
            {"type": "ENUMERATION", "class": "E", "dims": [1, 1], "elements": ["Red"]},
        ),
        (
            {"type": SPARSE_LOGICAL, "dims": [4, 3], **SPARSE},
            shown("SPARSE_LOGICAL", [4, 3], **SPARSE_SHOWN),
        ),
        ({"type": UNKNOWN, "dims": [0, 0]}, shown("UNKNOWN", [0, 0])),
    ],
)
def test_json_of_each_type(inspect_array, fields, expected):
    found = inspect_array(**fields)
    assert found == expected
    assert list(found) == list(expected)


@pytest.mark.parametrize(
    "value",
    [0.1, 1 / 3, -0.0, 1.0, 1e22, 5e-324, 1.7976931348623157e308, 2.0**53 + 2, 123456789012345680.0],
)
def test_doubles_keep_every_bit(inspect_array, value):
    (found,) = inspect_array(**doubles(value))["elements"]
    assert struct.pack("<d", found) == struct.pack("<d", value)


@pytest.mark.parametrize(
    "text, expected",
    [
        ("plain", '"plain"'),
        ('a"b\\c', r'"a\"b\\c"'),
        ("\0\n\t\x1b\x7f\x9b", r'"\u0000\n\t\u001b\u007f\u009b"'),
        ("héß€😀", '"héß€😀"'),
        ("\ud800x", r'"\ud800x"'),
        ("\udc00\ud83d", r'"\udc00\ud83d"'),
        ("", '""'),
    ],
)
def test_text(params, text, expected):
    output = output_of("zorvan-inspect", "--json", "-", stdin=params(chars(text))).decode()
    assert f'"text":{expected}}}' in output
    assert json.loads(output)["arrays"][0]["text"] == text


@pytest.mark.parametrize(
    "options, fields, expected",
    [
        ([], {}, {"message": "ZORVAN_Params", "arrays": []}),
        ([], {"nargout": -1}, {"message": "ZORVAN_Params", "nargout": -1, "arrays": []}),
        (["--result"], {"nargout": 3}, {"message": "ZORVAN_Result", "arrays": []}),
    ],
)
def test_envelope(params, options, fields, expected):
    output = output_of("zorvan-inspect", "--json", *options, "-", stdin=params(**fields))
    assert output.endswith(b"}\n")
    assert list(json.loads(output).items()) == list(expected.items())


def test_error_of_a_result(messages, tmp_path):
    error = {"message": "no\nway", "stack": [{"file": "f.m", "function_name": "g", "line": -3}]}
    file = tmp_path / "result.bin"
    file.write_bytes(messages.ZORVAN_Result(error=error).SerializeToString())

    found = json.loads(output_of("zorvan-inspect", "--json", "--result", str(file)))
    assert found["error"] == error | {"identifier": None}
    assert output_of("zorvan-inspect", "--result", str(file)).decode() == (
        'ZORVAN_Result\n  error "no\\nway"\n    in "g", file "f.m", line -3\n'
    )


def test_error_text_that_is_no_utf8():
    message = b"\x1a\x05\x0a\x03a\xffb"  # error { message: "a\xffb" }
    found = json.loads(output_of("zorvan-inspect", "--json", "--result", "-", stdin=message))
    assert found["error"]["message"] == "a\ufffdb"


def test_an_error_is_not_passed_over(messages):
    message = messages.ZORVAN_Result(error={"message": "no"}).SerializeToString()
    done = run("zorvan-inspect", "-", stdin=message)
    assert (done.returncode, done.stdout) == (0, b"ZORVAN_Params\n")
    assert b"is a result with an engine error, which --result shows" in done.stderr


@pytest.mark.parametrize(
    "bytes_of, shown_lines",
    [
        (lambda message: b"hello", 1),
        (lambda message: message[:-1], 2),
        (lambda message: message + b"\x07", 3),
        (lambda message: message[:3], 1),
    ],
)
@pytest.mark.parametrize("options", [[], ["--json"]])
def test_bytes_that_break_off(params, options, bytes_of, shown_lines):
    done = run("zorvan-inspect", *options, "-", stdin=bytes_of(params(ONE, ONE)))
    assert done.returncode == 1
    assert b"the bytes break off" in done.stderr
    if options:
        assert json.loads(done.stdout)["arrays"] == [ONE_SHOWN] * (shown_lines - 1)
    else:
        assert len(done.stdout.splitlines()) == shown_lines


@pytest.mark.parametrize(
    "arguments, reason",
    [
        ([], "expected one FILE, found 0"),
        (["a", "b"], "expected one FILE, found 2"),
        (["--jsn", "a"], "unrecognized option '--jsn'"),
    ],
)
def test_wrong_command_lines_say_what_is_wrong(arguments, reason):
    done = run("zorvan-inspect", *arguments)
    assert (done.returncode, done.stdout) == (2, b"")
    first, *usage = done.stderr.decode().splitlines()
    assert first.endswith(reason)
    assert usage[0].startswith("Usage: zorvan-inspect ")


def test_tree(params):
    point = {"type": VALUE_OBJECT, "class_name": b"Point", "names": [b"x"], "children": [ONE]}
    pair = {"type": STRUCT, "dims": [1, 2], "names": [b"n"], "children": [ONE, chars("two")]}
    complex_number = {"type": COMPLEX_SINGLE, "elements": struct.pack("<2f", 1, -0.0)}
    message = params(
        doubles(*range(12), dims=[3, 4]),
        chars("é" * 59 + "😀!"),
        {"type": CELL, "dims": [1, 2], "children": [point, pair]},
        complex_number,
        nargout=2,
    )
    assert output_of("zorvan-inspect", "-", stdin=message).decode().splitlines() == [
        "ZORVAN_Params, nargout 2",
        "  [0] DOUBLE 3x4: 0.0 1.0 2.0 3.0 4.0 5.0 6.0 7.0 8.0 9.0 ... (12 in all)",
        '  [1] CHAR 1x62: "' + "é" * 59 + '"... (62 in all)',
        "  [2] CELL 1x2",
        "    [0] VALUE_OBJECT 1x1 of class Point",
        "      .x DOUBLE 1x1: 1.0",
        "    [1] STRUCT 1x2",
        "      [0].n DOUBLE 1x1: 1.0",
        '      [1].n CHAR 1x3: "two"',
        "  [3] COMPLEX_SINGLE 1x1: 1.0-0.0i",
    ]


def encode_nested(depth):
    """A message of cells in cells, by hand: the stock runtime refuses to build deep ones."""
    array = b"\x08\x18\x12\x02\x00\x00"
    for _ in range(depth - 1):
        length, varint = len(array), b""
        while length >= 0x80:
            varint += bytes([length & 0x7F | 0x80])
            length >>= 7
        array = b"\x08\x18\x22" + varint + bytes([length]) + array
    return array


MALFORMED = [
    (doubles(1.0, 2.0, dims=[3, 1]), "do not match"),
    (doubles(dims=[2**40, 2**40]), "overflow"),
    ({"type": CELL, "dims": [1, 3], "children": [ONE]}, "do not match"),
    ({"type": STRUCT, "names": [b"a", b"a"], "children": [ONE, ONE]}, "a name stands twice"),
]


@pytest.mark.parametrize("command", [["zorvan-inspect", "-"], ["zorvan-loopback", "echo"]])
@pytest.mark.parametrize("fields, reason", MALFORMED)
def test_arrays_that_make_no_sense(params, command, fields, reason):
    done = run(*command, stdin=params(ONE, fields))
    assert (done.returncode, done.stdout) == (1, b"")
    assert done.stderr.startswith(command[0].encode() + b": ")
    assert reason in done.stderr.decode()


@pytest.mark.parametrize("options", [[], ["--json"]])
def test_nesting(options):
    def inspect(depth):
        array = encode_nested(depth)
        length = bytes([len(array) & 0x7F | 0x80, len(array) >> 7])
        return run("zorvan-inspect", *options, "-", stdin=b"\x0a" + length + array)

    assert inspect(250).stdout.count(b"CELL") == 250
    too_deep = inspect(300)
    assert (too_deep.returncode, too_deep.stdout) == (1, b"")
    assert b"nested too deeply" in too_deep.stderr


@pytest.mark.parametrize("options", [[], ["--json"]])
def test_claimed_elements_cost_nothing(params, options):
    message = params({"type": STRUCT, "dims": [2**31, 2**31]})
    output = output_of("zorvan-inspect", *options, "-", stdin=message)
    assert len(output) < 200


@pytest.mark.parametrize("name, reason", [("absent", "No such file"), (".", "Is a directory")])
def test_unreadable_file(tmp_path, name, reason):
    done = run("zorvan-inspect", str(tmp_path / name))
    assert (done.returncode, done.stdout) == (1, b"")
    assert reason in done.stderr.decode()


@pytest.mark.parametrize("command", [["zorvan-inspect", "-"], ["zorvan-loopback", "object"]])
def test_output_that_cannot_be_written(command, params):
    with open("/dev/full", "wb") as full:
        done = run(*command, stdin=params(ONE), stdout=full)
    assert done.returncode == 1
    assert b"cannot write" in done.stderr


@pytest.mark.parametrize(
    "fields, kept", [({}, 1), ({"nargout": 0}, 0), ({"nargout": 2}, 2), ({"nargout": 9}, 3)]
)
@pytest.mark.parametrize("function", ["echo", "size", "class"])
def test_at_most_nargout_outputs(call, function, fields, kept):
    assert len(call(function, ONE, chars("a"), ONE, **fields).arrays) == kept


def test_echo_returns_every_byte(params, call):
    sent = [
        doubles(-0.0, math.nan, dims=[2, 1]),
        chars("\ud800 😀"),
        {"type": STRING, "dims": [1, 2], "text_len": [0, 8], "text": b"\xed\xa0\x80"},
        {"type": UINT8, "dims": [1, 2**20], "elements": bytes(range(256)) * 2**12},
    ]
    returned = call("echo", *sent, nargout=len(sent)).arrays
    assert repr(returned) == repr(zorvan.reader.read(params(*sent)).arrays)


@pytest.mark.parametrize(
    "fields, dims, name",
    [
        (ONE, [1, 1], "double"),
        ({"type": SINGLE, "dims": [0, 3, 2]}, [0, 3, 2], "single"),
        ({"type": COMPLEX_INT8, "elements": b"\0\0"}, [1, 1], "int8"),
        (chars("abc"), [1, 3], "char"),
        ({"type": STRING, "text_len": [0]}, [1, 1], "string"),
        ({"type": LOGICAL, "dims": [0]}, [1, 0], "logical"),
        ({"type": CELL, "dims": [0, 0]}, [0, 0], "cell"),
        ({"type": STRUCT, "dims": [2, 2]}, [2, 2], "struct"),
        ({"type": VALUE_OBJECT, "class_name": "é.Ü".encode()}, [1, 1], "é.Ü"),
        ({"type": HANDLE, "class_name": b"H", "ref": [1]}, [1, 1], "H"),
        ({"type": SPARSE_COMPLEX_DOUBLE, "dims": [9, 1], "col_starts": [0, 0]}, [9, 1], "double"),
    ],
)
def test_size_and_class(call, fields, dims, name):
    (size,) = call("size", fields).arrays
    assert size == shown("DOUBLE", [1, len(dims)], elements=dims)
    (class_name,) = call("class", fields).arrays
    assert (class_name["type"], class_name["text"]) == ("CHAR", name)


@pytest.mark.parametrize(
    "arguments, message",
    [
        ([], "The function failed as asked."),
        ([ONE], "The function failed as asked."),
        ([{"type": STRING, "text_len": [0]}], "The function failed as asked."),
        ([chars("grüß dich")], "grüß dich"),
        ([{"type": STRING, "text_len": [6], "text": b"no"}, chars("other")], "no"),
    ],
)
def test_fail(call, arguments, message):
    failed = call("fail", *arguments)
    assert failed.arrays == []
    frames = [("loopback/inner.m", "inner", 7), ("loopback/outer.m", "outer", 42)]
    assert failed.error == {
        "message": message,
        "identifier": "loopback:fail",
        "stack": [dict(zip(("file", "function_name", "line"), frame)) for frame in frames],
    }


def test_unknown_function(call):
    failed = call("fly", ONE)
    assert failed.error["identifier"] == "loopback:unknownFunction"
    assert "'fly'" in failed.error["message"]
    assert failed.arrays == []


@pytest.mark.parametrize(
    "function, expected",
    [
        ("sparse", [("SPARSE_DOUBLE", None, [3, 3], [1.5, -2.0, 3.0])]),
        ("enumeration", [("ENUMERATION", "loopback.Color", [1, 2], ["Red", "Green"])]),
        ("handle", [("HANDLE_OBJECT_REF", "loopback.Device", [1, 2], None)]),
        (
            "missing",
            [
                ("VALUE_OBJECT", "missing", [1, 1], [{}]),
                ("ZORVAN_STRING", None, [1, 3], ["first", None, "last"]),
            ],
        ),
    ],
)
def test_values_that_only_an_engine_makes(answer, function, expected):
    output = output_of("zorvan-inspect", "--json", "-", stdin=answer(function, nargout=2))
    arrays = json.loads(output)["arrays"]
    found = [(a["type"], a.get("class"), a["dims"], a.get("elements")) for a in arrays]
    assert found == expected


def test_objects_of_a_user_class(answer):
    output = output_of("zorvan-inspect", "--json", "-", stdin=answer("object"))
    (points,) = json.loads(output)["arrays"]
    assert (points["class"], points["dims"]) == ("loopback.Point", [2, 3])
    assert [point["x"]["elements"] for point in points["elements"]] == [[i] for i in range(6)]
    assert points["elements"][5]["label"]["text"] == "point 5"
