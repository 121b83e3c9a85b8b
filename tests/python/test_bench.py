"""The benchmark harness: what it prints, and that it tells a broken workload from a slow one."""

import csv
import os
import pickle
import re
import subprocess
import sys
from array import array
from collections import Counter, OrderedDict
from datetime import UTC, datetime, timedelta
from pathlib import Path
from zoneinfo import ZoneInfo

import msgpack
import numpy
import pandas
import py_pb
import pytest
import zorvan

RUN = Path(__file__).resolve().parents[2] / "bench" / "run.py"
WAYS = ("out", "back")
ALL = ["time", "bytes", "peak"]
BERLIN = ZoneInfo("Europe/Berlin")
CLOCKS_BACK = datetime(2024, 10, 27, 2, tzinfo=BERLIN)  # twice in that night
FAKE_CODEC = f"""
import importlib.util, pickle, sys
fake = sys.modules["py_pb"]
spec = importlib.util.spec_from_file_location("py_pb", {py_pb.__file__!r})
importlib.util.module_from_spec(spec)  # gives its types to zorvan
sys.modules["py_pb"] = fake
def py_to_serialized_str(args):
    return pickle.dumps(list(args))
def serialized_str_to_py(data):
    {{body}}
"""


def run_bench(*arguments, modules=None):
    """A quick run, with `modules` going before the installed ones."""
    environment = os.environ | ({"PYTHONPATH": str(modules)} if modules else {})
    return subprocess.run(
        [sys.executable, RUN, "--quick", *arguments],
        capture_output=True,
        text=True,
        timeout=120,
        env=environment,
    )


@pytest.fixture(scope="module")
def quick_run(tmp_path_factory):
    """What a run of all workloads printed, and its rows. It cannot load the plot library."""
    directory = tmp_path_factory.mktemp("bench")
    (directory / "matplotlib.py").write_text("raise ImportError('not needed')")
    done = run_bench("--csv", str(directory / "rows.csv"), modules=directory)
    assert (done.returncode, done.stderr) == (0, "")
    with (directory / "rows.csv").open() as file:
        return done.stdout, list(csv.DictReader(file))


def test_rows_are_judged_printed_and_summed_up(quick_run):
    printed, rows = quick_run
    for row in rows:
        ratio = float(row["ratio"])
        assert ratio == pytest.approx(float(row["our_time"]) / float(row["peer_time"]))
        assert ("time" in row["short_of"]) == (row["limit"] != "" and ratio > float(row["limit"]))
        names = row["workload"], row["direction"], row["peer"]
        marks = ", ".join(row["short_of"].split())
        line = f"^{' +'.join(map(re.escape, names))} .* {ratio:.2f}\\b.*{marks}$"
        assert re.search(line, printed, re.MULTILINE)
        assert ("\n  {} {}, {}: {}\n".format(*names, marks) in printed + "\n") == bool(marks)
    assert f"\n{sum(row['short_of'] != '' for row in rows)} of " in printed


@pytest.mark.parametrize(
    ("workload", "expected"),
    [
        ("array-c", {(way, peer) for way in WAYS for peer in ("F bytes", "F copy", "pickle")}),
        ("call-date", {(way, "pickle") for way in WAYS}),
        ("array-dates-zoned", {("back", "pickle"), ("back", "pandas")}),
        ("start-up", {("import", "allowance")}),
        ("growth-ints", {(way, step) for way in WAYS for step in ("10^1 to 10^2", "10^2 to 10^3")}),
    ],
)
def test_a_row_for_each_way_and_peer(quick_run, workload, expected):
    rows = [row for row in quick_run[1] if row["workload"] == workload]
    assert {(row["direction"], row["peer"]) for row in rows} == expected


def test_bytes_are_judged_by_the_payload_or_a_peer_or_the_message(quick_run):
    out = {row["workload"]: row for row in quick_run[1] if row["encoded"]}
    limits = {name: (out[name]["encoded_limit"], out[name]["peak_limit"]) for name in out}
    assert list(map(float, limits["array-c"])) == [60 * 60 * 8 + 1024, 60 * 60 * 8 / 10]
    pickled = pickle.dumps(([0.5] * 1000,), 5)
    assert limits["floats"] == (str(1.6 * len(pickled)), "")
    assert limits["frame-floats"] == ("", str(1000 * 10 * 8 / 10))
    sent = ([{"id": i, "value": i * 0.5, "name": f"record {i}"} for i in range(100)],)
    ours, packed = len(py_pb.py_to_serialized_str(sent)), len(msgpack.packb(sent))
    assert list(map(float, limits["dicts"])) == [1.1 * packed, 3.0 * ours]
    assert float(out["dicts"]["of_msgpack"]) == ours / packed
    assert out["set-of-ints"]["of_msgpack"] == ""


@pytest.fixture
def harness(monkeypatch):
    monkeypatch.syspath_prepend(RUN.parent)
    import harness

    return harness


@pytest.mark.parametrize(
    ("sent", "received"),
    [
        ([(1, "a"), (2.5, [])], [[1, "a"], [2.5, []]]),
        ({"a", "b"}, ["b", "a"]),
        ([b"ab", array("d", [1, 2])], [zorvan.uint8([97, 98]), zorvan.double([1, 2])]),
        (memoryview(b"ab"), zorvan.uint8([97, 98])),
        ([numpy.arange(3.0), numpy.float64(2)], [zorvan.double([0, 1, 2]), 2.0]),
        (OrderedDict(a=1, b=2), zorvan.dictionary(a=1, b=2)),
        (datetime(2024, 5, 1, tzinfo=UTC), datetime(2024, 5, 1, tzinfo=ZoneInfo("UTC"))),
        (pandas.DataFrame({"v": [1, 2]}, index=["a", "b"]),
         pandas.DataFrame({"index": ["a", "b"], "v": [1, 2]})),
    ],
)  # fmt: skip
def test_what_stands_for_a_value_is_the_same(harness, sent, received):
    assert harness.same(sent, received) and harness.same(sent, sent)


@pytest.mark.parametrize(
    ("sent", "received"),
    [
        ([1.0, 2], [1, 2]),
        ((True, (1, 2)), [True, [1, 3]]),
        ([[1], [2]], [[1]]),
        ({1, 2}, [1, 1]),
        ({1, 2}, [1, 2.0]),
        (b"ab", zorvan.int8([97, 98])),
        (b"ab", [97, 98]),
        (numpy.arange(2.0), [0.0, 1.0]),
        (numpy.arange(4.0).reshape(2, 2), zorvan.double([[0, 2], [1, 3]])),
        (numpy.float64(2), 2),
        ({"a": 1, "b": 2}, {"b": 2, "a": 1}),
        ([{"a": [1, "b"]}, {"a": []}], [{"a": [1]}, {"a": ["b"]}]),
        ({"a": 1}, zorvan.dictionary(a=1)),
        (OrderedDict(a=1, b=2), zorvan.dictionary(b=2, a=1)),
        ([timedelta(1)], [timedelta(2)]),
        (datetime(2024, 5, 1), datetime(2024, 5, 1, tzinfo=UTC)),
        (datetime(2024, 5, 1, 2, tzinfo=BERLIN), datetime(2024, 5, 1, tzinfo=UTC)),
        (CLOCKS_BACK, CLOCKS_BACK.replace(fold=1)),
        (pandas.DataFrame({"v": [1, 2]}, index=["a", "b"]), pandas.DataFrame({"v": [1, 2]})),
        (pandas.DataFrame({"v": [1.5, 2.0]}), pandas.DataFrame({"v": [1.5, 3.0]})),
    ],
)
def test_other_values_are_not_the_same(harness, sent, received):
    assert not harness.same(sent, received)


def test_a_name_means_the_same_values_everywhere(harness):
    """Memory is measured in another process than time."""
    from workloads import WORKLOADS

    assert not [name for name, times in Counter(w.name for w in WORKLOADS).items() if times > 1]
    for workload in WORKLOADS:
        once, again = (workload.arguments(workload.quick_size) for _ in range(2))
        assert harness.same(once, again), workload.name


@pytest.mark.parametrize(("patience", "taken"), [(0.0, 5), (60.0, 9)])
def test_patience_ends_after_a_few_samples(harness, monkeypatch, patience, taken):
    monkeypatch.setattr(harness, "PATIENCE", patience)
    calls = []
    samplers = {name: lambda: calls.append(1) or 1.0 for name in "ab"}
    harness.interleaved_medians(samplers, harness.Repetitions(5, 9))
    assert len(calls) == 2 * (1 + taken)


@pytest.mark.parametrize(
    ("time", "limit", "space", "short_of"),
    [
        (1.5, 1.5, {}, []),
        (1.6, 1.5, {}, ["time"]),
        (99, None, {"encoded": 9, "peak": 10**9}, []),
        (1, 1.5, {"encoded": 10, "encoded_limit": 9.9}, ["bytes"]),
        (1, None, {"peak": 10**7, "peak_limit": 10**7 - 1}, ["peak"]),
        (1, None, {"peak": 10**6 - 1, "peak_limit": 0}, []),
        (2, 1, {"encoded": 2, "encoded_limit": 1, "peak": 10**6, "peak_limit": 1}, ALL),
    ],
)
def test_what_a_row_falls_short_of(harness, time, limit, space, short_of):
    row = harness.Row("name", "out", "peer", time, 1.0, limit, harness.Space(**space))
    assert row.short_of == short_of


def test_the_fastest_of_several_peers_is_what_counts(harness, monkeypatch):
    times = {"py_pb": 3.0, "pickle": 2.0, "msgpack": 1.5}
    monkeypatch.setattr(harness, "interleaved_medians", lambda *_: times)
    monkeypatch.setattr(harness.memory, "peaks_in_child", lambda *_: {})
    from workloads import Limit, Workload

    limits = Limit(("pickle", "msgpack"), 1.9, 2.0), Limit(("pickle",)), Limit(("msgpack",))
    rows = list(harness.measure(Workload("name", lambda _: [1], 1, 1, limits), 1, None))
    assert [(row.direction, row.peer, row.ratio, row.short_of) for row in rows] == [
        ("out", "msgpack", 2.0, ["time"]),
        ("out", "pickle", 1.5, []),
        ("back", "msgpack", 2.0, []),
        ("back", "pickle", 1.5, []),
    ]


def test_the_plot_has_a_line_for_each_workload_and_peer(tmp_path):
    done = run_bench("start-up", "growth-ints", "--plot", str(tmp_path / "new" / "p.svg"))
    assert (done.returncode, done.stderr) == (0, "")
    drawn = (tmp_path / "new" / "p.svg").read_text()
    for label in ("start-up  /  allowance", "growth-ints  /  10^1 to 10^2"):
        assert drawn.count(f"<!-- {label} -->") == 1


@pytest.mark.parametrize(
    ("body", "status", "complaint"),
    [
        ("return pickle.loads(data)", 0, ""),
        ("import time; time.sleep(0.001); return pickle.loads(data)", 0, ""),
        ("return [1 if x is True else x for x in pickle.loads(data)[0]]", 1, "WrongRoundTrip"),
        ("return [pickle.loads(data)[0][:-1]]", 1, "WrongRoundTrip"),
        ("return [list(map(int, pickle.loads(data)[0]))]", 1, "WrongRoundTrip"),
        ("raise ValueError('no result')", 1, "ValueError: no result"),
    ],
    ids=["right", "slow", "flattened", "one lost", "other type", "raises"],
)
def test_only_a_broken_workload_fails(tmp_path, body, status, complaint):
    (tmp_path / "py_pb.py").write_text(FAKE_CODEC.format(body=body))
    done = run_bench("bools", "--repetitions", "1", modules=tmp_path)
    assert done.returncode == status
    assert ("bools is broken" in done.stderr) == bool(status)
    assert complaint in done.stderr
    assert ("bools " in done.stdout) == (status == 0)


def test_one_broken_workload_does_not_hide_the_others(tmp_path):
    body = "value = pickle.loads(data); return [0] if isinstance(value[0][0], bool) else value"
    (tmp_path / "py_pb.py").write_text(FAKE_CODEC.format(body=body))
    done = run_bench("bools", "ints-small", "--repetitions", "1", modules=tmp_path)
    assert done.returncode == 1
    assert done.stderr.startswith("bools is broken") and "ints-small " in done.stdout


@pytest.mark.parametrize(
    ("operation", "copies"),
    [
        ("bytearray", 0),
        ("lambda source: bytes(bytearray(source))", 1),
        ("lambda source: (bytearray(source), bytearray(source), b'')[2]", 2),
        ("lambda source: [source, source]", 0),
        ("lambda source: list(memoryview(source[: len(source) // 8]))", 1 / 8),
    ],
)
def test_peak_memory_beyond_input_and_output(operation, copies):
    payload = 64 << 20
    program = f"import memory; print(memory.peak_of({operation}, b'x' * {payload}))"
    done = subprocess.run(
        [sys.executable, "-c", program],
        capture_output=True,
        check=True,
        text=True,
        env=os.environ | {"PYTHONPATH": str(RUN.parent)},
    )
    if done.stdout == "None\n":
        pytest.skip("the kernel does not let a process reset its high-water mark")
    assert int(done.stdout) / payload == pytest.approx(copies, abs=0.05)


def test_only_what_has_a_word_in_its_name_is_measured():
    done = run_bench("call-float", "--repetitions", "1", "start")
    measured = set(re.findall(r"^(\S+) +(?:out|back|import) ", done.stdout, re.MULTILINE))
    assert measured == {"call-float", "call-floats", "start-up"}


def test_a_word_that_no_name_has():
    done = run_bench("nonesuch")
    assert (done.returncode, done.stdout) == (2, "")
    assert "'nonesuch'" in done.stderr
