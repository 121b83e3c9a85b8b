"""The benchmark harness: what it prints, and that it tells a broken workload from a slow one."""

import csv
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

RUN = Path(__file__).resolve().parents[2] / "bench" / "run.py"
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


@pytest.mark.parametrize(
    ("workload", "expected"),
    [
        ("array-c", {("out", "F copy"), ("out", "pickle"), ("back", "F copy"), ("back", "pickle")}),
        ("small", {("out", "pickle"), ("out", "msgpack"), ("back", "pickle"), ("back", "msgpack")}),
        ("start-up", {("import", "interpreter")}),
    ],
)
def test_a_row_for_each_way_and_peer(tmp_path, workload, expected):
    done = run_bench("--only", workload, "--csv", str(tmp_path / "rows.csv"))
    assert (done.returncode, done.stderr) == (0, "")

    with (tmp_path / "rows.csv").open() as file:
        rows = list(csv.DictReader(file))
    assert {(row["direction"], row["peer"]) for row in rows} == expected
    for row in rows:
        ours, theirs = float(row["our_time"]), float(row["peer_time"])
        assert ours > 0 and float(row["ratio"]) == pytest.approx(ours / theirs)
        assert (row["copies"] != "") == (workload == "array-c")
        words = row["workload"], row["direction"], row["peer"], f".* {float(row['ratio']):.2f}\\b"
        printed = "^" + " +".join(words)
        assert re.search(printed, done.stdout, re.MULTILINE)


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
