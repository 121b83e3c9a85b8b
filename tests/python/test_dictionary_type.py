"""zorvan.dictionary as a mapping: what dict does is the model wherever there is one."""

import collections
import copy
import gc
import operator
import os
import pickle
import subprocess
import sys
from collections.abc import MutableMapping

import pytest
import zorvan
from hypothesis import example, given
from hypothesis import strategies as st


class KeysAndItems:
    """The least that dict takes for a mapping: it cannot be iterated over."""

    def keys(self):
        return ["k", "l"]

    def __getitem__(self, key):
        return key.upper()


def pairs_that_break():
    yield "a", 1
    raise ArithmeticError("no more")


OPERATIONS = {
    "get item": lambda d, k, v: d[k],
    "set item": lambda d, k, v: operator.setitem(d, k, v),
    "delete item": lambda d, k, v: operator.delitem(d, k),
    "contains": lambda d, k, v: k in d,
    "length": lambda d, k, v: (len(d), bool(d)),
    "iterate": lambda d, k, v: (list(d), list(reversed(d))),
    "views": lambda d, k, v: (list(d.keys()), list(d.values()), list(d.items())),
    "view set": lambda d, k, v: (d.keys() & {1, ()}, d.items() - {(1, 2)}),
    "get": lambda d, k, v: (d.get(k), d.get(k, v)),
    "pop": lambda d, k, v: d.pop(k),
    "pop default": lambda d, k, v: d.pop(k, v),
    "popitem": lambda d, k, v: d.popitem(),
    "setdefault": lambda d, k, v: (d.setdefault(k, v), d.setdefault(k)),
    "update pairs": lambda d, k, v: d.update([(k, v), ("p", v)], x=v),
    "update mapping": lambda d, k, v: d.update(KeysAndItems()),
    "update breaks": lambda d, k, v: d.update(pairs_that_break()),
    "update bad pair": lambda d, k, v: d.update([(v, v), (1, 2, 3)]),
    "update number": lambda d, k, v: d.update(5),
    "update itself": lambda d, k, v: d.update(d),
    "init again": lambda d, k, v: d.__init__({"again": v}),
    "clear": lambda d, k, v: d.clear(),
    "copy": lambda d, k, v: (d.copy(), copy.copy(d), copy.deepcopy(d)),
    "copies are apart": lambda d, k, v: d.copy().clear(),
    "or": lambda d, k, v: (d | {"o": v}, {"o": v} | d, d | d),
    "or mapping": lambda d, k, v: d | collections.ChainMap({"o": v}),
    "in place or": lambda d, k, v: operator.ior(d, [("o", v)]) is d,
    "in place or bad": lambda d, k, v: operator.ior(d, 5),
    "unpack": lambda d, k, v: ({**d}, dict(d), dict(**{"q": 1} | {str(k): v for k in d})),
}
KEYS = st.sampled_from([1, 1.0, True, "a", "", (), (1, 2), float("nan"), None, [], "o", "p"])


def outcome(operation, mapping, *args):
    def plain(result):
        if isinstance(result, tuple):
            return tuple(map(plain, result))
        return dict(result) if isinstance(result, MutableMapping) else result

    try:
        return plain(operation(mapping, *args))
    except Exception as error:
        return type(error), error.args


@given(st.lists(st.tuples(st.sampled_from(sorted(OPERATIONS)), KEYS, st.integers(0, 9))))
@example([(name, key, 7) for key in ("a", [], (1, 2)) for name in OPERATIONS])
def test_does_what_dict_does(steps):
    model, mapping = {"a": [1]}, zorvan.dictionary(a=[1])
    for name, *args in steps:
        expected = outcome(OPERATIONS[name], model, *args)
        assert outcome(OPERATIONS[name], mapping, *args) == expected, name
        assert list(mapping.items()) == list(model.items()), name


@pytest.mark.parametrize(
    "args, kwds",
    [
        ((), {}),
        (({"b": 1, "a": 2},), {}),
        (([("a", 1), ["b", 2], "cd"],), {}),
        ((iter([("a", 1)]),), {"a": 2, "self": 3}),
        ((collections.ChainMap({"a": 1}, {"b": 2}),), {}),
        ((KeysAndItems(),), {}),
        ((zorvan.dictionary(a=1),), {"b": 2}),
    ],
)
def test_construction(args, kwds):
    made = zorvan.dictionary(*copy.deepcopy(args), **kwds)
    assert type(made) is zorvan.dictionary
    assert list(made.items()) == list(dict(*args, **kwds).items())
    for made in (zorvan.dictionary.fromkeys(iter("ab"), 5), made.fromkeys(["a", "b"], 5)):
        assert made == zorvan.dictionary(a=5, b=5)


UNCONVERTIBLE = "conversion of object of type '{}' to a zorvan.dictionary not supported"
ERRORS = {
    UNCONVERTIBLE.format("int"): lambda: zorvan.dictionary(5),
    UNCONVERTIBLE.format("NoneType"): lambda: zorvan.dictionary(None, a=1),
    "zorvan.dictionary expected at most 1 argument, got 2": lambda: zorvan.dictionary([], []),
    "keywords must be strings": lambda: zorvan.dictionary(**{2: 3}),
    "unhashable type: 'list'": lambda: zorvan.dictionary([([], 1)]),
    "unhashable type: 'zorvan.dictionary'": lambda: hash(zorvan.dictionary()),
    "'int' object is not iterable": lambda: zorvan.dictionary.fromkeys(5),
    "type 'zorvan.dictionary' is not an acceptable base type": lambda: type(
        "Sub", (zorvan.dictionary,), {}
    ),
    "unsupported operand type(s) for |: 'zorvan.dictionary' and 'list'": lambda: (
        zorvan.dictionary() | [("a", 1)]
    ),
    "object.__new__(zorvan.dictionary) is not safe, use zorvan.dictionary.__new__()": lambda: (
        object.__new__(zorvan.dictionary)
    ),
    "'zorvan.dictionary' does not support 'less than' comparison": lambda: (
        zorvan.dictionary() < zorvan.dictionary()
    ),
}


@pytest.mark.parametrize("text", ERRORS)
def test_type_errors(text):
    with pytest.raises(TypeError) as raised:
        ERRORS[text]()
    assert str(raised.value) == text


def test_an_uninitialized_instance():
    mapping = zorvan.dictionary.__new__(zorvan.dictionary)
    other = zorvan.dictionary()
    uses = [
        *(repr, len, iter, reversed, pickle.dumps, copy.copy, copy.deepcopy, dict),
        *(OPERATIONS[name] for name in OPERATIONS if name != "init again"),
        zorvan.dictionary,
        lambda m, *_: m == other,
        lambda m, *_: other != m,
        lambda m, *_: other | m,
        lambda m, *_: other.update(m),
    ]
    uninitialized = (IndexError, ("field in zorvan.dictionary object has not been initialized",))
    for use in uses:
        args = ("a", 1) if use in OPERATIONS.values() else ()
        assert outcome(use, mapping, *args) == uninitialized
    mapping.__init__(a=1)
    assert mapping == zorvan.dictionary(a=1)


class Uncomparable:
    def __eq__(self, other):
        raise ArithmeticError("not now")


def test_comparison():
    a, b = zorvan.dictionary(x=1, y=[2]), zorvan.dictionary(y=[2.0], x=True)
    assert (a == b, a != b) == (True, False)
    for other in (zorvan.dictionary(), zorvan.dictionary(x=1), zorvan.dictionary(x=1, y=[3])):
        assert (a == other, a != other) == (False, True)
    forged = type("dictionary", (dict,), {"__module__": "zorvan"})()
    failing = zorvan.dictionary(x=Uncomparable(), y=1)
    for operation in (operator.eq, operator.ne):
        for other in ({"x": 1, "y": [2]}, 5, None, forged):
            with pytest.raises(TypeError) as raised:
                operation(a, other)
            assert str(raised.value) == (
                "comparison of objects of type 'zorvan.dictionary' with objects of another type "
                "not supported"
            )
        with pytest.raises(ArithmeticError, match="^not now$"):
            operation(failing, a)


def test_the_iterator():
    mapping = zorvan.dictionary(a=1, b=2, c=3)
    keys = iter(mapping)
    assert f"{type(keys).__module__}.{type(keys).__name__}" == "zorvan.dictionary_iter"
    assert iter(keys) is keys and next(keys) == "a"
    assert operator.length_hint(keys) == 2
    assert list(copy.copy(keys)) == list(pickle.loads(pickle.dumps(keys))) == ["b", "c"]
    mapping["b"] = 5
    assert next(keys) == "b"
    mapping["d"] = 4
    for _ in range(2):
        with pytest.raises(RuntimeError, match="^dictionary changed size during iteration$"):
            next(keys)
    keys = iter(mapping)
    del mapping
    assert list(keys) == ["a", "b", "c", "d"] and next(keys, None) is None
    with pytest.raises(TypeError):
        type(keys)()


def test_is_a_mapping_to_everyone():
    mapping = zorvan.dictionary(a=1, b=2)
    assert isinstance(mapping, MutableMapping)
    match mapping:
        case {"a": 1, **rest}:
            assert rest == {"b": 2}
        case _:
            pytest.fail("no mapping to a match statement")
    assert dict(**mapping) == {"a": 1, "b": 2}
    alias = zorvan.dictionary[str, int]
    assert (alias.__origin__, alias.__args__) == (zorvan.dictionary, (str, int))


def test_repr_evaluates_back():
    for mapping in (zorvan.dictionary(), zorvan.dictionary({2: zorvan.dictionary(b=["'"])})):
        assert eval(repr(mapping)) == mapping
    assert repr(zorvan.dictionary({"a": 1})) == "zorvan.dictionary({'a': 1})"
    loop = zorvan.dictionary()
    loop["me"] = [loop]
    for _ in range(2):
        assert repr(loop) == "zorvan.dictionary({'me': [zorvan.dictionary({...})]})"


SHOW = "import pickle, sys; print(pickle.loads(sys.stdin.buffer.read()))"


def test_copies_and_pickles():
    original = zorvan.dictionary({"b": [1], "a": zorvan.dictionary({(1, 2): None})})
    original["me"] = original
    assert copy.copy(original)["me"] is original
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(filter(None, sys.path))}
    for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
        pickled = pickle.dumps(original, protocol)
        for deep in (copy.deepcopy(original), pickle.loads(pickled)):
            assert deep["me"] is deep and list(deep) == ["b", "a", "me"]
            assert deep["b"] == [1] and deep["b"] is not original["b"]
            assert deep["a"] == original["a"]
        command = [sys.executable, "-c", SHOW]
        fresh = subprocess.run(command, input=pickled, capture_output=True, env=environment)
        assert fresh.stdout.decode().strip() == repr(original), fresh.stderr


class Canary:
    alive = 0

    def __init__(self):
        Canary.alive += 1

    def __del__(self):
        Canary.alive -= 1


@pytest.mark.parametrize(
    "close",
    [
        lambda mapping: mapping.update(me=mapping),
        lambda mapping: mapping.update(me=iter(mapping)),
        lambda mapping: setattr(mapping["canary"], "owner", mapping.items()),
    ],
)
def test_reference_cycles_are_collected(close):
    gc.collect()
    close(zorvan.dictionary(canary=Canary()))
    assert Canary.alive == 1
    gc.collect()
    assert Canary.alive == 0


def test_deep_nesting_is_released():
    mapping = zorvan.dictionary()
    for _ in range(200_000):
        mapping = zorvan.dictionary(inner=mapping)
    with pytest.raises(RecursionError):
        repr(mapping)
    del mapping


def test_nothing_leaks():
    value = object()

    def use_all():
        for operation in OPERATIONS.values():
            for key in ("a", "missing", []):
                outcome(operation, zorvan.dictionary(a=value), key, value)
        mapping = zorvan.dictionary([("a", value)], b=value)
        assert mapping == mapping.copy() and list(iter(mapping)) == ["a", "b"]
        assert repr(mapping) and mapping.__reduce__() and mapping.fromkeys(mapping)
        for error in ERRORS.values():
            pytest.raises(TypeError, error)

    def blocks_after(rounds):
        for _ in range(rounds):
            use_all()
        gc.collect()
        return sys.getallocatedblocks()

    before, references = blocks_after(100), sys.getrefcount(value)
    assert blocks_after(200) - before < 100
    assert sys.getrefcount(value) == references
