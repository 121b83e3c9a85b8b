"""Peak memory of one operation of py_pb, beyond its input and its output.

The operation runs in a process of its own: a copy of a fresh one that has loaded the libraries and
made the input, and done nothing else. There the high-water mark of resident memory is reset
to what is resident now (5 written to /proc/self/clear_refs) and read again after the operation
(VmHWM of /proc/self/status). What the mark rose by, less the size of the result, is what the
operation needed for itself. Whole pages and arenas are counted, so that figures under a megabyte
say nothing.
"""

from __future__ import annotations

import ctypes
import gc
import multiprocessing
import sys
from collections.abc import Callable
from concurrent.futures import ProcessPoolExecutor
from functools import partial
from pathlib import Path
from typing import Any

import numpy
import zorvan
from peers import decode, encode
from workloads import WORKLOADS

SLOW_IMPORTS = ["msgpack", "msgspec", "numpy", "orjson", "pandas", "pyarrow", "zorvan"]
LEAVES = {bool, int, float, complex, str, bytes}
ALLOCATION_UNIT = 16  # the interpreter hands out memory in multiples of this


def peaks_in_child(workload_name: str, size: int) -> dict[str, int | None]:
    """For each direction the bytes at the peak beyond input and output; None where the kernel does
    not tell."""
    fresh = multiprocessing.get_context("forkserver")
    fresh.set_forkserver_preload(SLOW_IMPORTS)
    with ProcessPoolExecutor(max_workers=1, mp_context=fresh) as process:
        return process.submit(peaks_here, workload_name, size).result()


def peaks_here(workload_name: str, size: int) -> dict[str, int | None]:
    """The values are made once; then each direction has a process of its own."""
    workload = next(each for each in WORKLOADS if each.name == workload_name)
    little, args = workload.arguments(workload.quick_size), workload.arguments(size)
    encode_ours, decode_ours = partial(encode, workload.ours), partial(decode, workload.ours, ())

    def peak(direction: str) -> int | None:
        decode_ours(encode_ours(little))  # whatever only a first call has to load
        if direction == "out":
            return peak_of(encode_ours, args)
        return peak_of(decode_ours, encode_ours(args))

    return {direction: in_fork(partial(peak, direction)) for direction in workload.directions}


def in_fork(task: Callable[[], int | None]) -> int | None:
    """What a task gives in a copy of this process."""
    fork = multiprocessing.get_context("fork")
    receiver, sender = fork.Pipe(duplex=False)
    process = fork.Process(target=lambda: sender.send(task()))
    process.start()
    sender.close()  # so that a process that dies is an EOFError
    answer: int | None = receiver.recv()
    process.join()
    return answer


def peak_of(operation: Callable[[Any], Any], source: Any) -> int | None:
    """What `operation` needs, in a process that has kept no memory of its past to reuse."""
    gc.collect()
    ctypes.CDLL(None).malloc_trim(0)
    try:
        Path("/proc/self/clear_refs").write_text("5")
    except OSError:
        return None
    before = resident("VmRSS")
    result = operation(source)
    return max(0, resident("VmHWM") - before - size_of(result, set()))


def resident(field: str) -> int:
    """A field of the process status that is given in kB, in bytes."""
    status = Path("/proc/self/status").read_text()
    return int(status.partition(f"{field}:")[2].split(maxsplit=1)[0]) * 1024


def size_of(value: Any, seen: set[int]) -> int:
    """The memory of a result and all that it refers to, each object once."""
    if id(value) in seen:
        return 0
    seen.add(id(value))
    size = -(-sys.getsizeof(value) // ALLOCATION_UNIT) * ALLOCATION_UNIT
    if type(value) in LEAVES:
        return size
    if isinstance(value, numpy.ndarray):
        items = value.flat if value.dtype == object else ()
        return max(size, value.nbytes) + sum(size_of(item, seen) for item in items)
    if isinstance(value, list):
        return size + sum(size_of(item, seen) for item in value)
    if isinstance(value, dict | zorvan.dictionary):
        return size + sum(size_of(item, seen) for pair in value.items() for item in pair)
    return max(size, buffer_size(value))


def buffer_size(value: Any) -> int:
    try:
        return memoryview(value).nbytes
    except TypeError:
        return 0
