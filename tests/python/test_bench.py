"""The benchmark harness: what it prints, and that it tells a broken workload from a slow one."""

import csv
import os
import pickle
import re
import subprocess
import sys
from pathlib import Path

import pytest

RUN = Path(__file__).resolve().parents[2] / "bench" / "run.py"
WAYS = ("out", "back")
ALL = ["time", "bytes", "peak"]
FAKE_CODEC = """
import pickle
def py_to_serialized_str(args):
    return pickle.dumps(list(args))
def serialized_str_to_py(data):
    {body}
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
        ("small-call", {(way, peer) for way in WAYS for peer in ("pickle", "msgpack")}),
        ("zoned-dates", {("back", "pickle"), ("back", "pandas")}),
        ("start-up", {("import", "allowance")}),
        ("growth-ints", {(way, step) for way in WAYS for step in ("10^1 to 10^2", "10^2 to 10^3")}),
    ],
)
def test_a_row_for_each_way_and_peer(quick_run, workload, expected):
    rows = [row for row in quick_run[1] if row["workload"] == workload]
    assert {(row["direction"], row["peer"]) for row in rows} == expected


def test_bytes_are_judged_by_the_payload_or_by_pickle(quick_run):
    limits = {
        row["workload"]: (row["encoded_limit"], row["peak_limit"])
        for row in quick_run[1]
        if row["encoded"]
    }
    assert list(map(float, limits["array-c"])) == [60 * 60 * 8 + 1024, 60 * 60 * 8 / 10]
    pickled = pickle.dumps(([0.5] * 1000,), 5)
    assert limits["floats"] == (str(1.6 * len(pickled)), "")
    assert limits["frame-floats"] == ("", str(1000 * 10 * 8 / 10))


@pytest.fixture
def harness(monkeypatch):
    monkeypatch.syspath_prepend(RUN.parent)
    import harness

    return harness


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
    monkeypatch.setattr(harness.memory, "peak_in_child", lambda *_: None)
    from workloads import Limit, Workload

    limits = Limit(("pickle", "msgpack"), 1.9, 2.0), Limit(("pickle",))
    rows = list(harness.measure(Workload("name", lambda _: [1], 1, 1, limits), 1, 1))
    assert [(row.direction, row.peer, row.ratio, row.short_of) for row in rows] == [
        ("out", "msgpack", 2.0, ["time"]),
        ("out", "pickle", 1.5, []),
        ("back", "msgpack", 2.0, []),
        ("back", "pickle", 1.5, []),
    ]


def test_the_plot_has_a_line_for_each_workload_and_peer(tmp_path):
    done = run_bench("--only", "start-up", "growth-ints", "--plot", str(tmp_path / "new" / "p.svg"))
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
    done = run_bench("--only", "bools", "--repetitions", "1", modules=tmp_path)
    assert done.returncode == status
    assert ("bools is broken" in done.stderr) == bool(status)
    assert complaint in done.stderr
    assert ("bools " in done.stdout) == (status == 0)


def test_one_broken_workload_does_not_hide_the_others(tmp_path):
    body = "value = pickle.loads(data); return [0] if isinstance(value[0][0], bool) else value"
    (tmp_path / "py_pb.py").write_text(FAKE_CODEC.format(body=body))
    done = run_bench("--only", "bools", "ints", "--repetitions", "1", modules=tmp_path)
    assert done.returncode == 1
    assert done.stderr.startswith("bools is broken") and "ints " in done.stdout


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


def test_a_name_that_no_workload_has():
    done = run_bench("--only", "nonesuch")
    assert (done.returncode, done.stdout) == (2, "")
    assert "'nonesuch'" in done.stderr
