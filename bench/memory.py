"""Peak memory of one operation of py_pb, beyond its input and its output.

The operation runs in a fresh process that holds nothing but its input, forked from one that has
loaded the libraries and done nothing since. There the kernel's high-water mark of resident memory
is reset to what is resident now (5 written to /proc/self/clear_refs) and read again after the
operation (VmHWM of /proc/self/status). What the mark rose by, less the size of the result, is what
the operation needed for itself. Whole pages and arenas are counted, so that figures under a
megabyte say nothing.
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
from peers import decode, encode
from workloads import WORKLOADS

SLOW_IMPORTS = ["msgpack", "numpy", "pandas", "pyarrow", "zorvan"]
ALLOCATION_UNIT = 16  # the interpreter hands out memory in multiples of this


def peak_in_child(workload_name: str, direction: str, size: int) -> int | None:
    """Bytes at the peak beyond input and output; None where the kernel does not tell."""
    fresh = multiprocessing.get_context("forkserver")
    fresh.set_forkserver_preload(SLOW_IMPORTS)
    with ProcessPoolExecutor(max_workers=1, mp_context=fresh) as process:
        return process.submit(peak_here, workload_name, direction, size).result()


def peak_here(workload_name: str, direction: str, size: int) -> int | None:
    workload = next(each for each in WORKLOADS if each.name == workload_name)
    little, args = workload.arguments(workload.quick_size), workload.arguments(size)
    encode_ours, decode_ours = partial(encode, workload.ours), partial(decode, workload.ours, ())
    decode_ours(encode_ours(little))  # whatever only a first call has to load
    if direction == "out":
        return peak_of(encode_ours, args)
    data = encode_ours(args)
    del args
    return peak_of(decode_ours, data)


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
    if isinstance(value, numpy.ndarray):
        items = value.flat if value.dtype == object else ()
        return max(size, value.nbytes) + sum(size_of(item, seen) for item in items)
    if isinstance(value, list):
        return size + sum(size_of(item, seen) for item in value)
    if isinstance(value, dict):
        return size + sum(size_of(item, seen) for pair in value.items() for item in pair)
    return max(size, buffer_size(value))


def buffer_size(value: Any) -> int:
    try:
        return memoryview(value).nbytes
    except TypeError:
        return 0
