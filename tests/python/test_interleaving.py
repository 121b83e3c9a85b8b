"""Conversions that interleave, nest or fail give what each gives alone, whatever ran before."""

import datetime as dt
import itertools
import os
import subprocess
import sys
import threading
import time
from collections import ChainMap, OrderedDict, UserDict, defaultdict
from collections.abc import Mapping
from concurrent.futures import ThreadPoolExecutor

import greenlet
import numpy as np
import pandas as pd
import py_pb
import pytest
import zorvan


def send(value):
    return py_pb.py_to_serialized_str((value,))


def shown(message):
    return repr(py_pb.serialized_str_to_py(message))


def failure(value):
    with pytest.raises(Exception) as caught:
        send(value)
    return caught.type, str(caught.value)


def run_python(program, *arguments, seed="0"):
    command = [sys.executable, "-c", program, *arguments]
    environment = os.environ | {"PYTHONHASHSEED": seed, "PYTHONIOENCODING": "utf-8"}
    return subprocess.run(
        command, env=environment, capture_output=True, check=True, encoding="utf-8"
    ).stdout


# ---- values that run code of ours ----


def idle():
    pass


class Mapped(Mapping):
    """Runs a callback in one of its methods; `__iter__` is that of what `keys` returns."""

    def __init__(self, items, place="", callback=idle):
        self.items_, self.place, self.callback = items, place, callback

    def at(self, place, result=None):
        if place == self.place:
            self.callback()
        return result

    def __getitem__(self, key):
        return self.at("__getitem__", self.items_[key])

    def __len__(self):
        return self.at("__len__", len(self.items_))

    def __iter__(self):
        self.at("__iter__")
        yield from self.items_

    def keys(self):
        return self.at("keys", super().keys())


class Subclass(dict):
    def __init__(self, items, callback):
        super().__init__(items)
        self.callback = callback

    def __getitem__(self, key):
        self.callback()
        return super().__getitem__(key)

    def keys(self):
        self.callback()
        return list(super().keys())


class Zone(dt.tzinfo):
    def __init__(self, callback):
        self.callback = callback

    def utcoffset(self, when):
        self.callback()
        return dt.timedelta(hours=2)


def mapped(place):
    return lambda n, run: Mapped({"a": n, "b": f"é{n}" * n}, place, run)


PLACES = {place: mapped(place) for place in ("__getitem__", "__len__", "__iter__", "keys")} | {
    "utcoffset": lambda n, run: dt.datetime(2024, 1, 1 + n % 28, tzinfo=Zone(run)),
    "dict subclass": lambda n, run: Subclass({"a": [n], "b": {"id": n}}, run),
    "frame": lambda n, run: pd.DataFrame(
        {"n": [n, 0.5], "o": [mapped("keys")(n, run), mapped("__len__")(n + 1, idle)]}
    ),
}
every_place = pytest.mark.parametrize("place", PLACES)


def busy(place, n, run=idle):
    """A value that uses whatever a conversion remembers, before and after the callback."""
    plain = [{"id": n + i, "name": f"n{n}", "é": [i] * 3} for i in range(3)]
    date = dt.datetime(2024, 1, 1, tzinfo=dt.timezone(dt.timedelta(minutes=n)))
    odd = PLACES[place](n, run)
    return [plain, date, np.full(1000, n), "z" * 20000, {"odd": [odd, n]}, date, *plain, f"n{n}"]


# ---- no hidden state ----

BY_TURNS = sorted(set(itertools.permutations([0, 0, 0, 1, 1, 1])))


def suspend():
    greenlet.getcurrent().parent.switch()


def finish(conversions, order=()):
    """The results of greenlets that are resumed in an order, then one after the other."""
    results = [None] * len(conversions)
    for i in order:
        if not conversions[i].dead:
            results[i] = conversions[i].switch()
    for i, each in enumerate(conversions):
        while not each.dead:
            results[i] = each.switch()
    return results


def sending(place, n):
    return greenlet.greenlet(lambda: send(busy(place, n, suspend)))


@every_place
def test_two_conversions_by_turns_in_every_order(place):
    other = list(PLACES)[list(PLACES).index(place) - 1]
    alone = [send(busy(place, 1)), send(busy(other, 2))]
    for order in BY_TURNS:
        assert finish([sending(place, 1), sending(other, 2)], order) == alone


def test_sixty_conversions_at_once():
    places = [list(PLACES)[i % len(PLACES)] for i in range(60)]
    alone = [send(busy(place, n)) for n, place in enumerate(places)]
    for order in ((), range(59, -1, -1), [*range(0, 60, 2), *range(59, 0, -2)] * 3):
        conversions = [sending(place, n) for n, place in enumerate(places)]
        for each in conversions:
            each.switch()
        assert finish(conversions, order) == alone


def test_results_that_are_read_by_turns(monkeypatch):
    pause, make = [idle], pd.DataFrame.__init__

    def make_slowly(*args, **options):
        pause[0]()
        make(*args, **options)

    monkeypatch.setattr(pd.DataFrame, "__init__", make_slowly)
    messages = []
    for n in (0, 1):
        frame = pd.DataFrame({"n": [n], "t": [f"é{n}"]})
        date = dt.datetime(2024, 1, 1, tzinfo=dt.timezone(dt.timedelta(minutes=n)))
        around = [{"id": n}, date, [f"t{n}"] * 300]
        messages.append(send([*around, frame, *around, frame, *around]))
    alone = [shown(message) for message in messages]
    pause[0] = suspend
    for order in BY_TURNS:
        reads = [greenlet.greenlet(lambda m=message: shown(m)) for message in messages]
        assert finish(reads, order) == alone


@every_place
def test_a_conversion_within_another(place):
    def convert():
        assert [send(busy(each, 5)) for each in PLACES] == inner
        assert [shown(message) for message in inner] == read
        assert failure([{"id": 1}, 2**63]) == (OverflowError, "int too big to convert")
        calls.append(1)

    calls = []
    inner = [send(busy(each, 5)) for each in PLACES]
    read = [shown(message) for message in inner]
    alone = send(busy(place, 6))
    assert send(busy(place, 6, convert)) == alone and calls


def in_threads(work, count=1):
    """Calls work(0), work(1) ... each in a thread with room for deep recursion."""
    before = threading.stack_size(2**26), sys.getswitchinterval(), sys.getrecursionlimit()
    sys.setswitchinterval(1e-5)
    try:
        with ThreadPoolExecutor(count) as pool:
            list(pool.map(work, range(count)))
    finally:
        threading.stack_size(before[0])
        sys.setswitchinterval(before[1])
        sys.setrecursionlimit(before[2])


def test_threads_at_once():
    def work(n):
        for place in [place for place in PLACES if place != "frame" or n % 4 == 0] * 6:
            message = send(busy(place, n, lambda: time.sleep(0)))
            assert (message, shown(message)) == alone[place, n]

    values = {(place, n): send(busy(place, n)) for place in PLACES for n in range(8)}
    alone = {each: (message, shown(message)) for each, message in values.items()}
    in_threads(work, 8)


def nested(levels, innermost=1):
    for _ in range(levels):
        innermost = [innermost]
    return innermost


def test_levels_are_those_of_one_conversion():
    def convert():
        results.extend([send(nested(254)), failure(nested(257))[0]])

    def again():
        results.append(1)
        send(nested(200, Mapped({"a": 1}, "keys", again)))

    def run(_):
        sys.setrecursionlimit(10000)
        assert send(nested(200, Mapped({"a": 1}, "keys", convert))) == outer
        sys.setrecursionlimit(2000)
        with pytest.raises(RecursionError):
            again()

    results, alone = [], send(nested(254))
    outer = send(nested(200, Mapped({"a": 1})))
    in_threads(run)
    assert results[:2] == [alone, RecursionError] and len(results) > 4
    assert send(nested(254)) == alone


# ---- values as they were when they were walked ----

HOLDERS = [
    lambda value: value,
    lambda value: {"a": [value, {"b": value}]},
    lambda value: OrderedDict(a=1, b=zorvan.dictionary(c=[value])),
    lambda value: pd.DataFrame({"x": pd.Series([value, 1], dtype=object)}),
]
CHANGING = {
    "few": lambda: np.arange(1, 4),
    "row": lambda: np.arange(1.0, 601),
    "1 MB": lambda: np.arange(1, 131073),
    "strided": lambda: np.arange(1, 5001)[::2],
    "matrix": lambda: np.arange(1.0, 3001).reshape(50, 60),
    "bools": lambda: np.arange(5000) % 2 == 1,
    "dates": lambda: np.arange(1, 1001).astype("M8[s]"),
    "durations": lambda: np.arange(1, 1001).astype("m8[ms]"),
    "bytearray": lambda: bytearray(b"abc"),
    "long bytearray": lambda: bytearray(b"abc") * 5000,
    "memoryview": lambda: memoryview(bytearray(b"abc") * 5000),
    "zorvan": lambda: zorvan.int32(list(range(1, 5001))),
}


def flatten(buffer):
    array = np.asarray(buffer)
    array[...] = array.flat[-1]


def as_walked(make, buffer):
    """Whether what a callback does to the buffer in the midst of a conversion does not show."""
    before, meanwhile = send(make(idle)), send(make(lambda: flatten(buffer)))
    assert send(make(idle)) != before  # it was done
    return meanwhile == before


@every_place
@pytest.mark.parametrize("kind", CHANGING)
def test_what_is_done_to_an_array_after_its_turn_does_not_show(kind, place):
    for hold in HOLDERS:
        buffer = CHANGING[kind]()
        assert as_walked(lambda run, b=buffer, h=hold: [h(b), PLACES[place](1, run), 2], buffer)


@every_place
def test_keys_and_columns_as_they_were_when_they_were_walked(place):
    class Keyed(Mapped):
        def keys(self):
            return [buffer, "other"]

        def __getitem__(self, _):
            return self.callback()

    def framed(run):
        turn = idle  # until the frame is made: old pandas asks items for their length
        item = PLACES[place](1, lambda: turn())
        odd = pd.Series([item, *[1] * (len(buffer) - 1)], dtype=object)
        frame = pd.DataFrame({"n": buffer, "o": odd}, copy=False)
        turn = run
        return frame

    for size in (3, 600):
        buffer = np.arange(1, size + 1)
        assert as_walked(lambda run: Keyed("ab", "", lambda: PLACES[place](1, run)), buffer)
        buffer = np.arange(1.0, size + 1)
        assert as_walked(framed, buffer)


def test_code_of_keys():
    class Key(np.float64):
        __eq__ = object.__eq__

        def __hash__(self):
            self.run()
            return 1

    def keyed(run):
        Key.run = staticmethod(idle)
        value = [buffer, OrderedDict([(Key(1), 1), (Key(2), 2)])]
        Key.run = staticmethod(run)
        return value

    buffer = np.arange(1.0, 601)
    assert as_walked(keyed, buffer)


def test_code_of_categories_and_names():
    class Named:
        def __init__(self, text):
            self.text, self.run = text, idle

        def __str__(self):
            self.run()
            return self.text

        def __hash__(self):
            self.run()
            return 1

    def categories(run):
        last = Named("b")
        frame = pd.DataFrame({"c": pd.Categorical.from_codes(codes, [Named("a"), last])})
        last.run = run
        return frame

    def index(run):
        name = Named("name")
        frame = pd.DataFrame({"n": [1.0, 2.0]}, index=pd.Index([1, 2], name=name))
        name.run = run
        return [buffer, frame]

    codes, buffer = np.array([0, 1, 1], "i1"), np.arange(1.0, 601)
    assert as_walked(categories, codes)
    assert as_walked(index, buffer)


@pytest.mark.parametrize("size", [2, 600, 131072])
def test_a_mapping_may_refill_one_buffer(size):
    class Refilled(Mapped):
        def __getitem__(self, key):
            buffer[:] = ord(key)
            return buffer

    buffer = np.zeros(size, "i8")
    expected = send(OrderedDict((key, np.full(size, ord(key))) for key in "abc"))
    assert send(Refilled(dict.fromkeys("abc"))) == expected


# ---- which error ----

KINDS_OF_MAPPING = {
    "OrderedDict": OrderedDict,
    "UserDict": UserDict,
    "ChainMap": lambda pairs: ChainMap(dict(pairs)),
    "defaultdict": lambda pairs: defaultdict(list, pairs),
    "own": lambda pairs: Mapped(dict(pairs)),
    "zorvan.dictionary": zorvan.dictionary,
}


@pytest.mark.parametrize("kind", KINDS_OF_MAPPING)
def test_the_first_key_or_value_that_fails_is_told_of(kind):
    bad = [type(f"Bad{i}", (), {})() for i in range(6)]
    for good in ([1.5, "x", 2.5, "y", 3.5, "z"], ["a", 1, 2, "é", 3.0, True]):
        for count, which in itertools.product((1, 2, 3), range(1, 64)):
            failing = [i for i in range(2 * count) if which >> i & 1]
            sides = [bad[i] if i in failing else good[i] for i in range(2 * count)]
            if failing:
                pairs = list(zip(sides[::2], sides[1::2], strict=True))
                expected = f"conversion of Python data type '{__name__}.Bad{failing[0]}' to ZORVAN"
                error, text = failure(KINDS_OF_MAPPING[kind](pairs))
                assert error is TypeError and text.startswith(expected)


class Odd:
    pass


FAILING = [
    {"": 2**63}, {"a": Odd()}, {"a": 1, "\ud800": 2}, {1: Odd()}, "\ud800", 2**63, None, Odd(),
    [2**63, Odd()], (1, [None, Odd()]), {"a": [2**63, None]}, {"a": {"": 1}}, range(3),
    OrderedDict({"a": Odd(), None: 1}), np.array(["x"]), dt.date(2020, 1, 1),
    dt.datetime(2020, 1, 1, tzinfo=dt.tzinfo()), pd.DataFrame({"o": [1, Odd()]}),
]  # fmt: skip


@pytest.mark.parametrize("value", FAILING, ids=range(len(FAILING)))
def test_errors_do_not_depend_on_length(value):
    expected = failure(value)
    for n in (1, 2, 3, 15, 16, 17, 20, 300):
        lists = [[value] * n, (value,) * n, [[value] * n] * 2, {"k": [value] * n}]
        lists += [[good] * n + [value] for good in (1.5, 1, "t", True, {"a": 1}, [1, "x"], {}, [])]
        lists += [[*({"k": 1, "l": i} for i in range(n)), {"k": 1, "l": value}]]
        assert [failure(each) for each in lists] == [expected] * len(lists)


TOLD = """
import py_pb, pandas as pd, sys
class Odd: pass
class Rows(list): pass
values = [pd.DataFrame({"o": [1.5, Odd()]}), pd.DataFrame({"o": [1.5, Rows()]}), Rows([1]), Odd(),
          ["\\ud800"], {"": 1}]
for i in sys.argv[1]:
    try:
        py_pb.py_to_serialized_str((values[int(i)],))
    except Exception as error:
        print(i, type(error).__name__, error)
"""


def test_errors_do_not_depend_on_those_before():
    told = [sorted(run_python(TOLD, order).splitlines()) for order in ("012345", "543210", "2143")]
    assert told[0] == told[1] and told[0][1:5] == told[2]
    assert "pandas.DataFrame 'Odd' column type" in told[0][0]


# ---- equal arguments, equal bytes ----

BUILD = """
import datetime as dt, hashlib, itertools, sys
from collections import OrderedDict
import numpy as np, py_pb, zorvan

def build(text):
    names = ["alpha", "é", "語" * 40, "long " * 60]
    records = [{text("id"): i, text("name"): text(names[i % 4]), text("größe"): i * 0.5}
               for i in range(10000)]
    unlike = [{text(f"k{i}"): i, text("kl"[i % 2]): text(str(i))} for i in range(300)]
    wide = {text(f"column {i}"): i for i in range(400)}
    zones = [dt.timezone(dt.timedelta(hours=i)) for i in range(9)]
    return [records, unlike, [wide, wide, dict(wide)], [text(str(i)) for i in range(3000)],
            [text(names[i % 3]) for i in range(3000)], text("x" * 40000), np.arange(5000),
            OrderedDict((text(f"é{i}"), [text("v")]) for i in range(300)),
            zorvan.dictionary({text("a"): records[:20]}), {text("n"): tuple(unlike)},
            [dt.datetime(2024, 1, 1, tzinfo=zone) for zone in zones]]

def fresh(text): return "".join(list(text))
seen = {}
def shared(text): return seen.setdefault(text, text)
either = itertools.cycle([fresh, sys.intern])
def mixed(text): return next(either)(text)
for text in (fresh, shared, mixed, fresh):
    print(hashlib.sha256(py_pb.py_to_serialized_str(build(text))).hexdigest())
"""


def test_equal_arguments_give_equal_bytes_in_every_process():
    sums = [line for seed in ("0", "1", "4242") for line in run_python(BUILD, seed=seed).split()]
    assert len(sums) == 12 and len(set(sums)) == 1
