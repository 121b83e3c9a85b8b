"""Mappings across the wire: the engine's dictionary as it is sent, and as it comes back."""

import functools
import gc
import itertools
import json
import math
import resource
import struct
import subprocess
import sys
import threading
import types
from collections import ChainMap, Counter, OrderedDict, UserDict, defaultdict, namedtuple

import numpy as np
import py_pb
import pytest
import zorvan
from hypothesis import example, given, settings
from hypothesis import strategies as st

# Codes of element types, as the messages have them.
(LOGICAL, CHAR, STRING, DOUBLE, SINGLE, INT8) = range(1, 7)
(INT64, COMPLEX, CELL, STRUCT, OBJECT, ENUMERATION, SPARSE) = (12, 14, 24, 25, 27, 29, 31)


def send(value):
    return py_pb.py_to_serialized_str((value,))


def there_and_back(value):
    (returned,) = py_pb.serialized_str_to_py(send(value))
    return returned


class Keyed:
    """No more than what a mapping needs, of any items."""

    def __init__(self, *items):
        self.stored = list(items)

    def __len__(self):
        return len(self.stored)

    def __getitem__(self, wanted):
        return next(value for key, value in self.stored if key is wanted)

    def keys(self):
        return [key for key, _ in self.stored]


# ---- the layout, as the inspector shows it ----


def fields_of(value):
    """The fields of the data of the dictionary that a value became."""
    done = subprocess.run(
        ["zorvan-inspect", "--json", "-"], input=send(value), capture_output=True, check=True
    )
    (shown,) = json.loads(done.stdout)["arrays"]
    data = shown["elements"][0].pop("data")
    assert shown == {"type": "VALUE_OBJECT", "class": "dictionary", "dims": [1, 1],
                     "properties": ["data"], "elements": [{}]}  # fmt: skip
    (fields,) = data["elements"]
    assert (data["type"], data["dims"], data["fields"]) == ("STRUCT", [1, 1], list(fields))
    return list(fields.items())


def array(type_name, *elements, dims=None):
    return {"type": type_name, "dims": dims or [len(elements), 1], "elements": list(elements)}


strings, doubles, ints, bytes_, logical, cell = (
    functools.partial(array, name)
    for name in ("ZORVAN_STRING", "DOUBLE", "INT64", "UINT8", "LOGICAL", "CELL")
)


def layout(key, value, key_combined=True, value_combined=True):
    return [
        ("Version", array("UINT64", 1)),
        ("IsKeyCombined", logical(key_combined)),
        ("IsValueCombined", logical(value_combined)),
        ("Key", key),
        ("Value", value),
    ]


def moved():
    mapping = OrderedDict(b=1.5, c=2.5, a=3.5)
    mapping.move_to_end("b")
    mapping.move_to_end("a", last=False)
    return mapping


TWO_DOUBLES = np.array([1.5, 2.5])


@pytest.mark.parametrize(
    "items, key, value",
    [
        (moved(), strings("a", "c", "b"), doubles(3.5, 2.5, 1.5)),
        (Counter("aab"), strings("a", "b"), cell(ints(2), ints(1))),
        ({2: "x", 1: ""}, cell(ints(2), ints(1)), strings("x", "")),
        ({0.5: True, -1.0: False}, doubles(0.5, -1), cell(logical(True), logical(False))),
        ({1: 2, True + 1: 3, False: True}, cell(ints(1), ints(2), logical(False)),
         cell(ints(2), ints(3), logical(True))),
        ({"a": 1.5, "b": np.float64(2.5)}, strings("a", "b"), doubles(1.5, 2.5)),
        ({"a": np.float64(1.5), "b": 2.5}, strings("a", "b"), cell(doubles(1.5), doubles(2.5))),
        ({"a": 1.5, 2: 2}, cell(strings("a"), ints(2)), cell(doubles(1.5), ints(2))),
        ({"a": "x", 1.5: 2.5}, cell(strings("a"), doubles(1.5)), cell(strings("x"), doubles(2.5))),
        ({"a": TWO_DOUBLES, "b": np.zeros((0, 2))}, strings("a", "b"),
         cell(doubles(1.5, 2.5, dims=[1, 2]), doubles(dims=[0, 2]))),
        ({"a": ["x"], (1.5,): b"ab"}, cell(strings("a"), cell(doubles(1.5))),
         cell(cell({"type": "CHAR", "dims": [1, 1], "text": "x"}), bytes_(97, 98, dims=[1, 2]))),
        # a single item stands alone where it can
        ({"a": 1.5}, strings("a"), doubles(1.5)),
        ({1.5: "x"}, doubles(1.5), strings("x")),
        ({"a": 1}, strings("a"), cell(ints(1))),
        ({"a": [1.5, 2.5]}, strings("a"), cell(cell(doubles(1.5), doubles(2.5), dims=[1, 2]))),
        ({"a": []}, strings("a"), cell(cell(dims=[1, 0]))),
        ({b"ab": 1.5}, cell(bytes_(97, 98, dims=[1, 2])), doubles(1.5)),
        ({(1.5, 2.5): 1.5}, cell(cell(doubles(1.5), doubles(2.5), dims=[1, 2])), doubles(1.5)),
    ],
    ids=repr,
)  # fmt: skip
def test_keys_and_values_stored(items, key, value):
    mapping = items if type(items) is OrderedDict else OrderedDict(items)
    assert fields_of(mapping) == layout(key, value)


@pytest.mark.parametrize("key, shown", [(1, ints(1)), (True, logical(True)), (b"a", bytes_(97))])
def test_a_single_key_that_is_not_combined(key, shown):
    assert fields_of(OrderedDict({key: 0.5})) == layout(shown, doubles(0.5), key_combined=False)


def test_no_items():
    empty = [("Version", array("UINT64", 1)), ("Unconfigured", logical(True))]
    for mapping in (OrderedDict(), ChainMap(), UserDict(), Keyed(), zorvan.dictionary()):
        assert fields_of(mapping) == empty


ITEMS = {"b": 1.5, "a": 2.5, "é🗼": -0.5}


@pytest.mark.parametrize(
    "mapping",
    [
        types.MappingProxyType(ITEMS),
        defaultdict(float, ITEMS),
        UserDict(ITEMS),
        UserDict(OrderedDict(ITEMS)),
        zorvan.dictionary(ITEMS),
        Keyed(*ITEMS.items()),
        ChainMap({"b": 1.5}, {"a": 2.5, "b": 9.5}, OrderedDict({"a": 9.5, "é🗼": -0.5})),
        ChainMap(defaultdict(float, ITEMS), ITEMS),
        type("Subclass", (dict,), {})(ITEMS),
        type("ListedChain", (ChainMap,), {"__iter__": lambda self: iter(ITEMS)})(ITEMS),
    ],
    ids=lambda mapping: type(mapping).__name__,
)
def test_every_mapping_is_read_in_its_order(mapping):
    before = repr(mapping)
    assert send(mapping) == send(OrderedDict(ITEMS))
    assert repr(mapping) == before


def test_a_series_is_a_mapping():
    series = pytest.importorskip("pandas").Series([1.5, 2.5, -0.5], index=list(ITEMS))
    assert repr(there_and_back(series)) == repr(zorvan.dictionary(ITEMS))


def test_a_mapping_is_read_as_it_presents_itself():
    class Shouting(dict):
        def __getitem__(self, key):
            return super().__getitem__(key).upper()

        def keys(self):
            return reversed(list(super().keys()))

    assert list(there_and_back(Shouting(a="x", b="y")).items()) == [("b", "Y"), ("a", "X")]
    filled = defaultdict(list, a=1)
    send(filled)
    assert dict(filled) == {"a": 1}


# ---- what goes out comes back ----


def expected(value, in_list=False):
    """What comes back for a value: in lists, and only there, empty texts and lists become []."""
    if isinstance(value, OrderedDict):
        return zorvan.dictionary({key: expected(each) for key, each in value.items()})
    if isinstance(value, dict):
        return {key: expected(each) for key, each in value.items()}
    if isinstance(value, (list, tuple)):
        return [expected(each, in_list=True) for each in value]
    return [] if in_list and value == "" else value


TEXTS = st.text(st.characters(exclude_categories=["Cs"]), max_size=5)
INTEGERS = st.integers(-(2**63), 2**63 - 1)
KEYS = [
    TEXTS, INTEGERS, st.booleans(),
    st.floats(allow_nan=False), st.complex_numbers(allow_nan=False),
]  # fmt: skip
LEAVES = st.one_of(
    TEXTS, INTEGERS, st.booleans(), st.floats(), st.complex_numbers(),
    st.lists(st.integers(-9, 9), min_size=2, max_size=3).map(zorvan.int16),
)  # fmt: skip


def mappings(values):
    of_one_kind = (st.dictionaries(each, values, max_size=5) for each in (*KEYS, st.one_of(KEYS)))
    return st.one_of(*of_one_kind).map(OrderedDict)


def containers(values):
    return st.one_of(
        mappings(values),
        st.lists(values, max_size=3),
        st.lists(values, max_size=3).map(tuple),
        st.dictionaries(TEXTS.filter(bool), values, max_size=3),
    )


@given(mappings(st.recursive(LEAVES, containers, max_leaves=12)))
@settings(deadline=None, max_examples=300)
@example(OrderedDict({1: True, 0: False, "1": 1.0, 2.0: -0.0}))
@example(OrderedDict(a="", b=[], c=(), d={}, e=OrderedDict(), f=[OrderedDict(), "", {}]))
@example(OrderedDict({"": OrderedDict({"": OrderedDict({"": ""})})}))
@example(OrderedDict({0.0: math.nan, math.inf: 1j, -math.inf: complex("nan-0j")}))
def test_mappings_go_out_and_come_back(mapping):
    returned = there_and_back(mapping)
    assert type(returned) is zorvan.dictionary
    assert repr(returned) == repr(expected(mapping))
    assert repr(there_and_back(returned)) == repr(returned)


def test_array_values_come_back():
    matrix = np.arange(6.0).reshape(2, 3)
    returned = there_and_back(OrderedDict(a=matrix, b=np.zeros((0, 3)), c=np.float32([[1]]), d=b""))
    assert np.asarray(returned["a"]).tolist() == matrix.tolist()
    assert [type(returned[key]).__name__ for key in "abd"] == ["double", "double", "uint8"]
    assert [returned[key].size for key in "abd"] == [(2, 3), (0, 3), (1, 0)]
    assert repr(returned["c"]) == "1.0"
    for lone in (np.zeros((0, 3)), np.zeros((2, 0), "?"), np.zeros((0, 3), "i1")):
        returned = there_and_back(OrderedDict(a=lone))["a"]
        assert (returned.size, np.asarray(returned).dtype) == (lone.shape, lone.dtype)


def test_another_process_reads_and_writes_them():
    inner = OrderedDict({2: OrderedDict(), True: ["x", {"y": zorvan.dictionary(z=1)}]})
    arguments = (OrderedDict(ITEMS), inner, OrderedDict(a="x"))
    message = py_pb.py_to_serialized_str(arguments, nargout=3)
    done = subprocess.run(
        ["zorvan-loopback", "echo"], input=message, capture_output=True, check=True
    )
    assert repr(py_pb.serialized_str_to_py(done.stdout)) == repr(list(map(expected, arguments)))


def test_wherever_one_may_go_out_it_may_come_back():
    depths = {}
    nested = OrderedDict(a=1)
    for depth in range(1, 120):
        try:
            message = send(nested)
        except RecursionError as error:
            depths[depth] = str(error)
        else:
            (returned,) = py_pb.serialized_str_to_py(message)
            for _ in range(depth):
                returned = returned["a"]
            assert returned == 1
        nested = OrderedDict(a=nested)
    assert set(depths.values()) == {"nesting deeper than 256 levels not supported"}
    assert list(depths) == list(range(min(depths), 120)) and min(depths) >= 80


# ---- what cannot go out ----


def changed(mapping, change):
    change(mapping)
    return mapping


def trouble(method, replacement):
    """A mapping of two items that has one method replaced."""
    return type("Trouble", (Keyed,), {method: replacement})(("a", 1), ("b", 2))


NOT_A_DICTIONARY = "conversion of object of type '{}' to a ZORVAN dictionary not supported"
NONE = "passing 'None' to ZORVAN not supported"
DIMENSIONS = "dimensions of the key and value must be the same, or the value must be scalar"
SAME_KEY = "key at position 1 of the mapping is the same to ZORVAN as one before it"
TOO_DEEP = "nesting deeper than 256 levels not supported"
CHANGED = (
    "mapping of type 'Trouble' changed while it was read or misstates its length: 2 keys, length 3"
)
ROW = namedtuple("Row", "a b")

REFUSED = {
    "None": (OrderedDict(a=None), TypeError, NONE),
    "None among others": (OrderedDict(a=1.5, b=None), TypeError, NONE),
    "None as key": (OrderedDict({1.5: 1, None: 2}), TypeError, NONE),
    "unsupported": (OrderedDict(a=1, b=object()), TypeError,
                    "conversion of Python data type 'object' to ZORVAN not supported"),
    "unsupported key": (OrderedDict({object: 1}), TypeError,
                        "conversion of Python data type 'type' to ZORVAN not supported"),
    "several doubles": (OrderedDict(a=TWO_DOUBLES), ValueError, DIMENSIONS),
    "uninitialized": (zorvan.dictionary.__new__(zorvan.dictionary), IndexError,
                      "field in zorvan.dictionary object has not been initialized"),
    "forged": (type("dictionary", (dict,), {"__module__": "zorvan"})(a=1), TypeError,
               "conversion of Python data type 'zorvan.dictionary' to ZORVAN not supported"),
    "no maps": (changed(ChainMap(), lambda chain: chain.maps.clear()), IndexError,
                "length of 'maps' in ChainMap object is 0; a value of 1 or greater is expected"),
    "maps deleted": (changed(ChainMap(), lambda chain: vars(chain).clear()), IndexError,
                     "unable to retrieve attribute 'maps'"),
    "map that is none": (ChainMap({"a": 1}, 5), IndexError,
                         "unable to retrieve contents of ChainMap object"),
    "no data": (changed(UserDict(), lambda user: vars(user).clear()), TypeError,
                "unable to find 'data' attribute in UserDict object"),
    "data of another type": (changed(UserDict(), lambda user: setattr(user, "data", [1])),
                             IndexError, NOT_A_DICTIONARY.format("list")),
    "range": (range(3), IndexError, NOT_A_DICTIONARY.format("range")),
    "list subclass": (type("Rows", (list,), {})([1]), IndexError, NOT_A_DICTIONARY.format("Rows")),
    "tuple subclass": (ROW(1, 2), IndexError, NOT_A_DICTIONARY.format("Row")),
    "list with keys": (type("Both", (list,), {"keys": lambda self: []})(), IndexError,
                       NOT_A_DICTIONARY.format("Both")),
    "str subclass": (OrderedDict({type("Name", (str,), {})("a"): 1}), IndexError,
                     NOT_A_DICTIONARY.format("Name")),
    "same bytes": (OrderedDict({b"a": 1, np.uint8(97): 2}), ValueError, SAME_KEY),
    "same text": (Keyed(("a" * 2, 1), ("".join("aa"), 2)), ValueError, SAME_KEY),
    "own error of keys": (trouble("keys", lambda self: 1 / 0), ZeroDivisionError,
                          "division by zero"),
    "own error of an item": (trouble("__getitem__", lambda self, key: {}["gone"]), KeyError,
                             "'gone'"),
    "own error of the length": (trouble("__len__", lambda self: [][1]), IndexError,
                                "list index out of range"),
    "negative length": (trouble("__len__", lambda self: -1), IndexError,
                        "invalid number of elements in object to be converted to a ZORVAN "
                        "dictionary: -1"),
    "no length": (trouble("__len__", None), TypeError, "'NoneType' object is not callable"),
    "no list of keys": (trouble("keys", lambda self: 5), TypeError,
                        "Trouble.keys() returned a non-iterable (type int)"),
    "wrong length": (trouble("__len__", lambda self: 3), RuntimeError, CHANGED),
    "growth": (trouble("__len__", lambda self, lengths=itertools.cycle((2, 3)): next(lengths)),
               RuntimeError, CHANGED),
    "in itself": (changed(OrderedDict(b=1), lambda each: each.update(a=each)), RecursionError,
                  TOO_DEEP),
    "in its own data": (changed(UserDict(), lambda each: each.update(a=[each])), RecursionError,
                        TOO_DEEP),
    "in its own chain": (changed(ChainMap(), lambda each: each.update(a=each)), RecursionError,
                         TOO_DEEP),
    "in itself by a dict": (changed(zorvan.dictionary(), lambda each: each.update(a={"b": each})),
                            RecursionError, TOO_DEEP),
}  # fmt: skip


@pytest.mark.parametrize("value, error, text", REFUSED.values(), ids=REFUSED)
def test_what_cannot_go_out(value, error, text):
    for container in (value, OrderedDict(x=1, y=value), [{"z": value}]):
        with pytest.raises(error) as raised:
            send(container)
        assert (type(raised.value), str(raised.value)) == (error, text)


def test_nesting_leaves_a_small_stack_whole():
    outcomes = []

    def run():
        for name in ("in itself", "in its own data", "in its own chain", "in itself by a dict"):
            with pytest.raises(RecursionError):
                send(REFUSED[name][0])
            outcomes.append(name)

    limit, size = sys.getrecursionlimit(), threading.stack_size(512 * 1024)
    sys.setrecursionlimit(10**6)
    try:
        thread = threading.Thread(target=run)
        thread.start()
        thread.join()
    finally:
        sys.setrecursionlimit(limit)
        threading.stack_size(size)
    assert len(outcomes) == 4


# ---- what an engine may return ----


def numbers(*values, type=DOUBLE, code="d", dims=None):
    payload = struct.pack(f"<{len(values)}{code}", *values)
    return {"type": type, "dims": dims or [len(values), 1], "elements": payload}


def texts(*values):
    encoded = [b"" if text is None else text.encode() for text in values]
    lengths = [0 if text is None else 2 * len(each) + 2 for text, each in zip(values, encoded)]
    dims = [len(values), 1]
    return {"type": STRING, "dims": dims, "text_len": lengths, "text": b"".join(encoded)}


def chars(text):
    return {"type": CHAR, "dims": [1, len(text)], "elements": text.encode("utf-16-le")}


def children(*arrays, **fields):
    return {"type": CELL, "dims": [len(arrays), 1], "children": arrays, **fields}


def named(type_code, arrays, **fields):
    names = [name.encode() for name in arrays]
    return {"type": type_code, "names": names, "children": list(arrays.values()), **fields}


def dictionary_of(data, **fields):
    return named(OBJECT, {"data": data}, class_name=b"dictionary", **fields)


def keyed(key, value):
    return dictionary_of(named(STRUCT, {"Key": key, "Value": value}))


ONE, TWO = numbers(1), numbers(1, 2)
POINT = named(OBJECT, {"x": ONE}, class_name=b"Point")
TWO_POINTS = {**POINT, "dims": [1, 2], "children": [ONE, ONE]}
COLOR = {"type": ENUMERATION, "class_name": b"Color", "text_len": [4], "text": b"a"}
DIAGONAL = {"type": SPARSE, "dims": [2, 1], "rows": [0], "col_starts": [0, 1], "elements": bytes(8)}


@pytest.fixture
def decode(messages):
    def convert(**fields):
        (value,) = py_pb.serialized_str_to_py(
            messages.ZORVAN_Result(arrays=[fields]).SerializeToString()
        )
        return value

    return convert


@pytest.mark.parametrize(
    "key, value, items",
    [
        (texts("a", "b"), TWO, {"a": 1.0, "b": 2.0}),
        (texts("é", None), texts(None, ""), {"é": None, None: ""}),
        (chars("ab"), ONE, {"ab": 1.0}),
        (ONE, chars("ab"), {1.0: "ab"}),
        (chars(""), chars("ab"), {"": "ab"}),
        (numbers(1, 2, 3, 4, type=INT8, code="b", dims=[2, 2]),
         numbers(1, 2, 3, 4, type=SINGLE, code="f", dims=[1, 4]), {1: 1.0, 2: 2.0, 3: 3.0, 4: 4.0}),
        (numbers(1, 0, type=LOGICAL, code="b"),
         numbers(1, 2, 3, 4, type=COMPLEX, dims=[2, 1]), {True: 1 + 2j, False: 3 + 4j}),
        (children(ONE, chars("ab"), texts("c")), children(chars(""), chars("ab"), texts("x", "y")),
         {1.0: "", "ab": "ab", "c": ["x", "y"]}),
        (TWO, children(named(STRUCT, {"a": ONE}), keyed(ONE, ONE)),
         {1.0: {"a": 1.0}, 2.0: zorvan.dictionary({1.0: 1.0})}),
        (ONE, children(TWO), {1.0: zorvan.double([[1], [2]])}),
        (numbers(), texts(), {}),
    ],
)  # fmt: skip
def test_dictionaries_of_an_engine(decode, key, value, items):
    assert repr(decode(**keyed(key, value))) == repr(zorvan.dictionary(items))


def test_an_engine_need_not_configure_a_dictionary(decode):
    data = named(STRUCT, {"Unconfigured": numbers(1, type=LOGICAL, code="b")})
    assert decode(**dictionary_of(data)) == zorvan.dictionary()


def test_objects_as_values_come_back_and_go_out_again(decode):
    values = children(POINT, {"type": 28, "class_name": b"Motor", "ref": [7]})
    returned = decode(**keyed(TWO, values))
    assert [type(each) for each in returned.values()] == [zorvan.object] * 2
    assert there_and_back(returned) == returned
    assert there_and_back(OrderedDict(one=returned[1.0])) == zorvan.dictionary(one=returned[1.0])


NO_DICTIONARY = "conversion of this dictionary to a zorvan.dictionary not supported"
SAME_IN_PYTHON = "keys of a ZORVAN dictionary are equal in Python"
COUNTS = "a ZORVAN dictionary has {} keys and {} values"

BROKEN = {
    "no data": (named(OBJECT, {}, class_name=b"dictionary"), ValueError,
                "unable to find property 'data' in 'dictionary' object"),
    "array of dictionaries": (dictionary_of(ONE, dims=[1, 2], children=[ONE, ONE]), ValueError,
                              "only a scalar dictionary can be returned from ZORVAN"),
    "array of data": (dictionary_of({"type": STRUCT, "dims": [1, 0]}), ValueError,
                      "the data of a ZORVAN dictionary is not a scalar struct"),
    "no Key": (dictionary_of(named(STRUCT, {"Value": ONE})), ValueError,
               "unable to find property 'Key' in 'dictionary' object"),
    "no Value": (dictionary_of(named(STRUCT, {"Key": ONE})), ValueError,
                 "unable to find property 'Value' in 'dictionary' object"),
    "more keys": (keyed(TWO, ONE), ValueError, COUNTS.format(2, 1)),
    "more values": (keyed(ONE, TWO), ValueError, COUNTS.format(1, 2)),
    "more texts": (keyed(chars("abc"), texts("a", "b", "c")), ValueError, COUNTS.format(1, 3)),
    "equal keys": (keyed(TWO | {"elements": bytes(16)}, TWO), ValueError, SAME_IN_PYTHON),
    "keys equal to Python": (keyed(children(ONE, numbers(1, type=INT8, code="b")), TWO), ValueError,
                             SAME_IN_PYTHON),
    "array key": (keyed(children(ONE, TWO), TWO), TypeError, "unhashable type: 'zorvan.double'"),
    "cell key": (keyed(children(children(ONE)), ONE), TypeError, "unhashable type: 'list'"),
    "struct keys": (keyed(named(STRUCT, {"a": ONE}), ONE), ValueError, NO_DICTIONARY),
    "struct values": (keyed(ONE, named(STRUCT, {"a": ONE})), ValueError, NO_DICTIONARY),
    "object keys": (keyed(TWO_POINTS, TWO), ValueError, NO_DICTIONARY),
    "object values": (keyed(TWO, TWO_POINTS), ValueError, NO_DICTIONARY),
    "enumeration values": (keyed(ONE, COLOR), ValueError,
                           "conversion of this dictionary to a zorvan.dictionary not supported"),
    "sparse values": (keyed(TWO, DIAGONAL), TypeError,
                      "conversion of ZORVAN sparse array to Python not supported"),
}  # fmt: skip


@pytest.mark.parametrize("fields, error, text", BROKEN.values(), ids=BROKEN)
def test_broken_dictionaries(decode, fields, error, text):
    for array in (fields, children(ONE, named(STRUCT, {"a": keyed(ONE, children(fields))}))):
        with pytest.raises(error) as raised:
            decode(**array)
        assert (type(raised.value), str(raised.value)) == (error, text)


# ---- leaks ----


def test_nothing_is_left_behind(messages):
    good = [there_and_back(OrderedDict(ITEMS)), moved(), ChainMap(ITEMS), UserDict(a=[TWO_DOUBLES])]
    broken = [
        messages.ZORVAN_Result(arrays=[fields]).SerializeToString()
        for fields, _, _ in BROKEN.values()
    ]
    refused = [(send, value) for value, _, _ in REFUSED.values()]
    refused += [(py_pb.serialized_str_to_py, message) for message in broken]
    held = [value for mapping in good for value in (mapping, *mapping.values())]

    def state():
        gc.collect()
        with open("/proc/self/statm") as statm:
            resident = int(statm.read().split()[1]) * resource.getpagesize()
        return sys.getallocatedblocks(), resident, [sys.getrefcount(each) for each in held]

    def convert():
        for mapping in good:
            there_and_back(mapping)
        for function, argument in refused:
            try:
                function(argument)
            except Exception:
                continue
            raise AssertionError(f"{argument!r} was accepted")

    def growth():
        blocks, resident, counts = state()
        for _ in range(100):
            convert()
        later_blocks, later_resident, later_counts = state()
        assert later_counts == counts
        return later_blocks - blocks, later_resident - resident

    # The interpreter's own caches grow now and then; what leaks grows every time.
    blocks, resident = zip(*(growth() for _ in range(8)))
    assert min(blocks) < 100
    assert min(resident) < 100 * 1024
