"""The native interface of the array package, called through its capsule."""

import ctypes
import math

import numpy as np
import pytest
import zorvan
import zorvanmultidimarrayforpython as package

RELEASE = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


class Description(ctypes.Structure):
    _fields_ = [
        ("type", ctypes.c_int32),
        ("ndim", ctypes.c_uint32),
        ("dims", ctypes.POINTER(ctypes.c_size_t)),
        ("elements", ctypes.c_void_p),
        ("byte_count", ctypes.c_size_t),
        ("copy_elements", ctypes.c_void_p),
        ("owner", ctypes.c_void_p),
        ("release", RELEASE),
    ]


class Interface(ctypes.Structure):
    _fields_ = [("abi_version", ctypes.c_uint32), ("struct_size", ctypes.c_uint32)] + [
        ("exports_buffer", ctypes.PYFUNCTYPE(ctypes.c_int, ctypes.py_object)),
        (
            "describe_array",
            ctypes.PYFUNCTYPE(ctypes.c_int, ctypes.py_object, ctypes.c_int32, ctypes.c_void_p),
        ),
        (
            "describe_buffer",
            ctypes.PYFUNCTYPE(ctypes.c_int, ctypes.py_object, ctypes.POINTER(Description)),
        ),
        ("release_description", ctypes.PYFUNCTYPE(None, ctypes.POINTER(Description))),
        ("make_array", ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.POINTER(Description))),
    ]


@pytest.fixture(scope="module")
def interface():
    pointer_of = ctypes.pythonapi.PyCapsule_GetPointer
    pointer_of.restype, pointer_of.argtypes = ctypes.c_void_p, [ctypes.py_object, ctypes.c_char_p]
    pointer = pointer_of(package._capi, b"zorvanmultidimarrayforpython._capi")
    found = ctypes.cast(pointer, ctypes.POINTER(Interface)).contents
    assert (found.abi_version, found.struct_size) == (1, ctypes.sizeof(Interface))
    return found


def described(dims, type=10, byte_count=None, elements=None, release=None):
    size = 4 * math.prod(dims) if byte_count is None else byte_count
    extents = (ctypes.c_size_t * len(dims))(*dims)
    address = ctypes.addressof(elements) if elements is not None else None
    return Description(type, len(dims), extents, address, size, None, None, release or RELEASE())


def test_made_arrays_share_memory_until_the_last_view_is_gone(interface):
    released = []
    memory = (ctypes.c_int32 * 6)(*range(6))
    release = RELEASE(released.append)
    view = np.asarray(interface.make_array(described((2, 3), elements=memory, release=release)))
    memory[5] = 50
    assert view.tolist() == [[0, 2, 4], [1, 3, 50]]
    assert released == []
    del view
    assert released == [None]


@pytest.mark.parametrize(
    "arguments",
    [
        {"dims": (6,)},
        {"dims": (2, 3), "byte_count": 25},
        {"dims": (2, 3), "elements": None},
        {"dims": (2**62, 4), "byte_count": 0},
        {"dims": (2**63, 0), "byte_count": 0},
        {"dims": (1,) * 65},
        {"dims": (2, 3), "type": 24},
        {"dims": (2, 3), "type": 3},
        {"dims": (2, 3), "type": -1},
    ],
)
def test_bad_descriptions_stay_with_the_caller(interface, arguments):
    released = []
    memory = (ctypes.c_int32 * 6)()
    description = described(
        **{"elements": memory, "release": RELEASE(released.append), **arguments}
    )
    with pytest.raises(ValueError):
        interface.make_array(description)
    assert released == []


def test_descriptions_show_elements_in_place_only_when_they_can(interface):
    native = np.asfortranarray(np.arange(30, dtype=np.int16).reshape(2, 3, 5))
    unaligned = np.ndarray(native.shape, "i2", bytearray(61), offset=1, order="F")
    odd_bools = np.array([2], np.uint8).view(np.bool_)
    for source, in_place in [
        (native, True),
        (native.ravel("F"), True),
        (np.array([True, False]), True),
        (zorvan.int8([[1j]]), True),
        (native.astype(">i2"), False),
        (np.ascontiguousarray(native), False),
        (unaligned, False),
        (native.astype(np.float16), False),
        (odd_bools, False),
    ]:
        description = Description()
        assert interface.describe_buffer(source, description) == 0
        assert bool(description.elements) == in_place, source.dtype
        interface.release_description(description)
        assert not description.owner


def test_dates_are_not_described_as_bytes(interface):
    description = Description()
    with pytest.raises(TypeError, match="numpy 'datetime64"):
        interface.describe_buffer(np.datetime64("2020"), description)
    assert not description.owner
