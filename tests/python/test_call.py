"""The two functions as they are called, the errors of an engine, and start-up."""

import os
import subprocess
import sys

import py_pb
import pytest
import zorvan.reader

TOO_MANY = "py_to_serialized_str requires exactly one positional argument"
NO_NUMBER = "Keyword argument 'nargout' was not a string corresponding to a number as expected"
NO_SCHEMA_TEXT = "Value of keyword argument 'schema' was not a string as expected"
NO_NARGOUT = "Value of keyword argument 'nargout' was not a string or int as expected"


def negative(number):
    return f"Value of keyword argument 'nargout' ({number}) was less than zero"


def bad_schema(text):
    return f"Invalid value ('{text}') for keyword 'schema'"


class Text(str):
    def __str__(self):
        return "something else"


class Number(int):
    def __index__(self):
        return 99

    __int__ = __index__


@pytest.mark.parametrize(
    "keywords, stored",
    [
        ({}, 1),
        ({"nargout": 0}, 0),
        ({"nargout": 3}, 3),
        ({"nargout": True}, 1),
        ({"nargout": False}, 0),
        ({"nargout": Number(4)}, 4),
        ({"nargout": "3"}, 3),
        ({"nargout": " \t\n7x"}, 7),
        ({"nargout": "+5 6"}, 5),
        ({"nargout": "010"}, 10),
        ({"nargout": "0x10"}, 0),
        ({"nargout": "-0"}, 0),
        ({"nargout": "12\0abc"}, 12),
        ({"nargout": Text("8")}, 8),
        ({"nargout": 2**31 - 1}, 2**31 - 1),
        ({"nargout": 2**31}, -(2**31)),
        ({"nargout": 2**32 + 3}, 3),
        ({"nargout": str(2**32 + 3)}, 3),
        ({"nargout": 2**63 - 1}, -1),
        ({"schema": "ZORVAN_PARAMS"}, 1),
        ({"schema": "ZORVAN_RESULT"}, 1),
        ({"schema": Text("ZORVAN_RESULT"), "nargout": "2"}, 2),
        ({"nargout": "2", "schema": "ZORVAN_RESULT"}, 2),
        # An int ends the walk, a text does not.
        ({"nargout": 1, "schema": "X"}, 1),
        ({"nargout": 2, "foo": 1}, 2),
    ],
)
def test_keywords(messages, keywords, stored):
    message = messages.ZORVAN_Params.FromString(py_pb.py_to_serialized_str((1.0,), **keywords))
    assert message.HasField("nargout")
    assert message.nargout == stored
    assert message.HasField("tape")


@pytest.mark.parametrize(
    "keywords, text",
    [
        *(({"nargout": value}, NO_NUMBER)
          for value in ("x", "", " ", "-", "+ 1", "\u0661", str(2**63), str(-(2**63) - 1), "\ud800")),
        ({"nargout": "-1"}, negative(-1)),
        ({"nargout": " -12x"}, negative(-12)),
        ({"nargout": -1}, negative(-1)),
        ({"nargout": -(2**63)}, negative(-(2**63))),
        ({"nargout": 2**63}, negative(-1)),
        ({"nargout": -(2**70)}, negative(-1)),
        *(({"nargout": value}, NO_NARGOUT) for value in (2.0, None, b"1", [1], 1j)),
        *(({"schema": value}, NO_SCHEMA_TEXT) for value in (1, None, b"ZORVAN_PARAMS")),
        *(({"schema": value}, bad_schema(value))
          for value in ("", "X", "zorvan_params", "ZORVAN_PARAMS ", "ZORVAN_RESULT\0", "h\u00e9")),
        ({"foo": 1}, "Key ('foo') for keyword is invalid"),
        ({"Nargout": 1}, "Key ('Nargout') for keyword is invalid"),
        ({"": 1}, "Key ('') for keyword is invalid"),
        ({"schema": "X", "nargout": 1}, bad_schema("X")),
        ({"nargout": "1", "schema": "X"}, bad_schema("X")),
        ({"nargout": "1", "foo": 1}, "Key ('foo') for keyword is invalid"),
        ({"foo": 1, "nargout": 1}, "Key ('foo') for keyword is invalid"),
        ({"schema": "ZORVAN_PARAMS", "nargout": -5}, negative(-5)),
    ],
)  # fmt: skip
def test_bad_keywords(keywords, text):
    # The keywords come first: the arguments are looked at only when they are good.
    for arguments in (((1.0,),), (), ((None,),), (1, 2)):
        with pytest.raises(ValueError) as raised:
            py_pb.py_to_serialized_str(*arguments, **keywords)
        assert (type(raised.value), str(raised.value)) == (ValueError, text)


@pytest.mark.parametrize("arguments", [(), ((1.0,), (2.0,)), (None, None, None)])
def test_one_positional_argument(arguments):
    for keywords in ({}, {"nargout": 1}, {"schema": "ZORVAN_RESULT"}):
        with pytest.raises(TypeError) as raised:
            py_pb.py_to_serialized_str(*arguments, **keywords)
        assert str(raised.value) == TOO_MANY


def test_no_arguments_make_an_empty_message():
    message = zorvan.reader.read(py_pb.py_to_serialized_str(()))
    assert (message.arrays, message.nargout) == ([], 1)
    assert py_pb.serialized_str_to_py(b"") == []


@pytest.mark.parametrize(
    "keywords",
    [{}, {"foo": 1}, {"nargout": 5}, {"nargout": -1, "schema": "ZORVAN_PARAMS"}, {"\u00e9": None},
     {"nargout": 1, "schema": "ZORVAN_RESULT"}],
)  # fmt: skip
def test_keywords_of_reading(keywords):
    message = py_pb.py_to_serialized_str((1.0, "a"))
    buffers = (message, bytearray(message), memoryview(message), memoryview(b"xx" + message)[2:])
    for data in buffers:
        assert py_pb.serialized_str_to_py(data, **keywords) == [1.0, "a"]
    buffers[1].clear()  # no view of it is left


@pytest.mark.parametrize("value, text", [(1, NO_SCHEMA_TEXT), ("X", bad_schema("X"))])
def test_bad_schema_of_reading(value, text):
    for keywords in ({"schema": value}, {"nargout": 1, "schema": value}):
        with pytest.raises(ValueError) as raised:
            py_pb.serialized_str_to_py(b"", **keywords)
        assert str(raised.value) == text


@pytest.mark.parametrize(
    "arguments", [(), ("text",), (None,), (1,), (b"", b""), (memoryview(b"abcd")[::2],), ([b""],)]
)
def test_what_is_no_message(arguments):
    with pytest.raises(ValueError) as raised:
        py_pb.serialized_str_to_py(*arguments, schema="X")
    assert (type(raised.value), str(raised.value)) == (ValueError, "args invalid")


@pytest.mark.parametrize(
    "error, expected",
    [
        (
            {"message": "failed", "identifier": "lib:fail",
             "stack": [{"file": "f.m", "function_name": "f", "line": 3},
                       {"file": "", "function_name": "g h", "line": -1}]},
            {"message": "failed", "identifier": "lib:fail",
             "stack_as_str": "Error in => file: f.m, function name: f, at line: 3\n"
                             "Error in => file: , function name: g h, at line: -1\n"},
        ),
        ({"message": "h\u00e9\u4e16\U0001f600!", "identifier": "lib:h\u00e9"},
         {"message": "h!", "identifier": "lib:h\u00e9", "stack_as_str": ""}),
        ({"message": "\u00e9", "identifier": ""},
         {"message": "", "identifier": "", "stack_as_str": ""}),
        ({"stack": [{}]},
         {"message": "", "identifier": None,
          "stack_as_str": "Error in => file: , function name: , at line: 0\n"}),
        ({}, {"message": "", "identifier": None, "stack_as_str": ""}),
    ],
)  # fmt: skip
def test_an_error_of_the_engine(messages, error, expected):
    for outputs in (b"", py_pb.py_to_serialized_str((1.0, "x"))):
        result = outputs + messages.ZORVAN_Result(error=error).SerializeToString()
        value = py_pb.serialized_str_to_py(result)
        assert list(value) == ["message", "identifier", "stack_as_str"]
        if expected["identifier"] is None:
            assert value["identifier"].size == (0, 0)
            value["identifier"] = None
        assert value == expected


DECODER_FAILED = "Exception thrown from protobuf2mdata with the following content:\n"


@pytest.mark.parametrize(
    "result, text",
    [
        ({"error": {"stack": [{"file": "h\u00e9.m"}]}},
         "Input data can only contain ASCII characters."),
        ({"error": {"stack": [{"function_name": "\u4e16"}]}},
         "Input data can only contain ASCII characters."),
        ({"arrays": [{"type": 4, "dims": [1, 3], "elements": bytes(16)}]}, ""),
    ],
)  # fmt: skip
def test_a_failed_decoder_speaks_on_standard_error(messages, capfd, result, text):
    message = messages.ZORVAN_Result(**result).SerializeToString()
    with pytest.raises(SystemError):
        py_pb.serialized_str_to_py(message)
    output = capfd.readouterr()
    assert output.out == ""
    head, details, rest = output.err.partition(DECODER_FAILED)
    assert (head, details) == ("", DECODER_FAILED)
    assert text in rest
    assert rest.strip()
    assert rest.endswith("\n")


# ---- start-up, each in a process of its own ----


def python(code, *packages):
    paths = [str(path) for path in packages] + os.environ.get("PYTHONPATH", "").split(os.pathsep)
    return subprocess.run(
        [sys.executable, "-c", code],
        env={**os.environ, "PYTHONPATH": os.pathsep.join(filter(None, paths))},
        capture_output=True,
        text=True,
        timeout=60,
    )


IMPORT = """
import sys, types
{preparation}
for _ in range(2):
    try:
        import py_pb
    except Exception as error:
        print(type(error).__name__, str(error), sep='|', end='$')
"""
FAILED = "ValueError|Unable to initialize py_pb. Details: "
ARRAYS = "zorvanmultidimarrayforpython"
OTHER_CAPSULE = f"""
import {ARRAYS}, ctypes
new = ctypes.pythonapi.PyCapsule_New
new.restype, new.argtypes = ctypes.py_object, [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p]
{ARRAYS}._capi = new(1, b'other', None)
"""


@pytest.mark.parametrize(
    "preparation, text, standard_error",
    [
        ("sys.modules['zorvan'] = None", "Failed to initialize 'zorvan' module.",
         "import of zorvan halted; None in sys.modules"),
        (f"sys.modules['{ARRAYS}'] = types.ModuleType('x')", "Unable to import capsule", ""),
        (f"x = sys.modules['{ARRAYS}'] = types.ModuleType('x'); x._capi = 5",
         "Unable to import capsule", ""),
        (OTHER_CAPSULE, "Unable to import capsule", ""),
        (f"import {ARRAYS} as x; del x.double", "unable to retrieve type object 'double'", ""),
    ],
    ids=["no zorvan", "no capsule", "no real capsule", "other capsule", "no double"],
)  # fmt: skip
def test_start_up_fails(preparation, text, standard_error):
    done = python(IMPORT.format(preparation=preparation))
    assert done.stdout == f"{FAILED}{text}$" * 2
    assert standard_error in done.stderr
    assert bool(done.stderr) == bool(standard_error)


def test_a_missing_array_package_shows_where_it_was_looked_for():
    done = python(
        IMPORT.format(
            preparation=f"sys.modules['{ARRAYS}'] = None; print(*filter(None, sys.path), sep='\\n')\n"
            "print('/'); sys.path += ['/a', '', 'b c', 5, None, '\\ud800', '/z']"
        )
    )
    path, _, failures = done.stdout.partition("/\n")
    text = f"Unable to import {ARRAYS}; sys.path: \n{path}/a\nb c\n/z\n"
    assert (failures, done.stderr) == (f"{FAILED}{text}$" * 2, "")


def test_a_zorvan_package_that_fails_to_load(tmp_path):
    (tmp_path / "zorvan").mkdir()
    (tmp_path / "zorvan" / "__init__.py").write_text("raise KeyError('broken')")
    done = python(IMPORT.format(preparation=""), tmp_path)
    assert done.stdout == f"{FAILED}Failed to initialize 'zorvan' module.$" * 2
    assert done.stderr.count("KeyError: 'broken'") == 2


def test_start_up_happens_once():
    done = python(
        "import zorvan, py_pb, sys\n"
        "types = zorvan.object, zorvan.dictionary\n"
        "counts = [sys.getrefcount(each) for each in types]\n"
        "module = sys.modules.pop('py_pb')\n"
        "for _ in range(50):\n"
        "    sys.modules.pop('py_pb', None)\n"
        "    import py_pb\n"
        "assert (zorvan.object, zorvan.dictionary) == types\n"
        "assert [sys.getrefcount(each) for each in types] == counts\n"
        "assert py_pb.serialized_str_to_py(module.py_to_serialized_str((1.0,))) == [1.0]\n"
        "assert not {'numpy', 'pandas'} & set(sys.modules)\n"
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_a_failed_start_up_can_be_mended():
    done = python(
        f"import sys\nsys.modules['{ARRAYS}'] = None\n"
        "try:\n    import py_pb\nexcept ValueError:\n    print('failed')\n"
        f"del sys.modules['{ARRAYS}']\nimport py_pb\n"
        "print(py_pb.serialized_str_to_py(py_pb.py_to_serialized_str(([1, 'x'],))))\n"
    )
    assert (done.stdout, done.stderr) == ("failed\n[[1, 'x']]\n", "")


def test_the_module_names_what_it_does():
    assert py_pb.__name__ == py_pb.__doc__ == "py_pb"
    public = {name: getattr(py_pb, name).__doc__ for name in dir(py_pb) if name[0] != "_"}
    assert public == {
        "py_to_serialized_str":
            "Convert tuple of Python objects to protobuf-serialized byte string.",
        "serialized_str_to_py":
            "Convert protobuf-serialized byte string to tuple of Python objects.",
    }  # fmt: skip
