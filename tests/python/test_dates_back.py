"""The engine's dates and durations as Python objects; the messages are made by the stock runtime."""

import struct
import subprocess
import sys
from datetime import datetime, timedelta, timezone
from fractions import Fraction
from zoneinfo import ZoneInfo

import numpy
import py_pb
import pytest

CHAR, DOUBLE, SINGLE, COMPLEX_DOUBLE, VALUE_OBJECT = 2, 4, 5, 14, 27
NAN, INF = float("nan"), float("inf")
NAT = numpy.datetime64("NaT", "us")
DAY = 86_400_000_000_000  # nanoseconds
LAST_MICROSECOND = (datetime.max - datetime(1970, 1, 1)) // timedelta(microseconds=1)


def pair(nanoseconds):
    """The nearest double of a time in milliseconds, and the double nearest to what is missing."""
    exact = Fraction(nanoseconds, 10**6)
    return complex(float(exact), float(exact - Fraction(float(exact))))


def doubles(*values, dims=None):
    numbers = numpy.array(values, complex).view(float)
    return {"type": COMPLEX_DOUBLE, "dims": dims or (1, len(values)), "elements": numbers.tobytes()}


def real(*values, dims=None, type=DOUBLE):
    elements = struct.pack(f"<{len(values)}{'d' if type == DOUBLE else 'f'}", *values)
    return {"type": type, "dims": dims or (1, len(values)), "elements": elements}


def char(text, dims=None):
    units = text.encode("utf-16-le", "surrogatepass")
    return {"type": CHAR, "dims": dims or (1, len(units) // 2), "elements": units}


def value_object(name, dims=(1, 1), **properties):
    present = {key: value for key, value in properties.items() if value is not None}
    names, children = [key.encode() for key in present], list(present.values())
    shape = {"type": VALUE_OBJECT, "dims": dims, "class_name": name.encode(), "names": names}
    return shape | {"children": children * (dims[0] * dims[1])}


def date(data, tz="", fmt="", dims=(1, 1)):
    tz, fmt = (char(each) if isinstance(each, str) else each for each in (tz, fmt))
    return value_object("datetime", dims, data=data, fmt=fmt, tz=tz)


def duration(*values, dims=(1, 1), **others):
    return value_object("duration", dims, **({"millis": real(*values), "fmt": char("")} | others))


@pytest.fixture
def decode(messages):
    def convert(output):
        message = messages.ZORVAN_Result(arrays=[output])
        (value,) = py_pb.serialized_str_to_py(message.SerializeToString())
        return value

    return convert


def aware(*when, zone, fold=0):
    return datetime(*when, tzinfo=zone, fold=fold)


def offset(**length):
    return timezone(timedelta(**length))


BERLIN, DUBLIN = ZoneInfo("Europe/Berlin"), ZoneInfo("Europe/Dublin")
OCTOBER = 1_603_587_600 * 10**9  # 2020-10-25T01:00:00Z, when summer time ends in Europe


@pytest.mark.parametrize(
    ("data", "tz", "expected"),
    [
        (0, "", datetime(1970, 1, 1)),
        (-1000, "", datetime(1969, 12, 31, 23, 59, 59, 999999)),
        (-719162 * DAY, "", datetime.min),
        (LAST_MICROSECOND * 1000, "", datetime.max),
        (OCTOBER - 1000, "Europe/Berlin", aware(2020, 10, 25, 2, 59, 59, 999999, zone=BERLIN)),
        (OCTOBER, "Europe/Berlin", aware(2020, 10, 25, 2, zone=BERLIN, fold=1)),
        (OCTOBER, "Europe/Dublin", aware(2020, 10, 25, 1, zone=DUBLIN, fold=1)),
        (0, "UTC", aware(1970, 1, 1, zone=ZoneInfo("UTC"))),
        (0, "+00", aware(1970, 1, 1, zone=timezone.utc)),
        (0, "+05:30", aware(1970, 1, 1, 5, 30, zone=offset(minutes=330))),
        (0, "-00:00:01", aware(1969, 12, 31, 23, 59, 59, zone=offset(seconds=-1))),
        # a local time within the years 1 to 9999 and a UTC time outside, and the other way round
        (-719162 * DAY - 3_600 * 10**9, "+01", aware(1, 1, 1, zone=offset(hours=1))),
        (-719162 * DAY - 86_399 * 10**9, "+23:59:59", aware(1, 1, 1, zone=offset(seconds=86399))),
        (LAST_MICROSECOND * 1000 + 60 * 10**9, "-00:01",
         datetime.max.replace(tzinfo=offset(minutes=-1))),
        (-719162 * DAY - 3208 * 10**9, "Europe/Berlin", aware(1, 1, 1, zone=BERLIN)),
        (1001, "", numpy.datetime64(1001, "ns")),
        (2**63 - 1, "", numpy.datetime64(2**63 - 1, "ns")),
        (-(2**63) + 1, "", numpy.datetime64(-(2**63) + 1, "ns")),
        (OCTOBER + 1, "Europe/Berlin", numpy.datetime64(OCTOBER + 1, "ns")),
        # finer than a microsecond, beyond what nanoseconds can say
        (250_000_000_000 * 10**9 + 499, "", datetime(9892, 3, 8, 12, 26, 40)),
    ],
)  # fmt: skip
def test_one_date(decode, data, tz, expected):
    value = decode(date(doubles(pair(data)), tz))
    assert (type(value), repr(value)) == (type(expected), repr(expected))
    assert getattr(value, "fold", 0) == getattr(expected, "fold", 0)


@pytest.mark.parametrize(
    ("millis", "expected"),
    [
        (0.0, timedelta(0)),
        (-0.001, timedelta(microseconds=-1)),
        (139 * 365.25 * 86_400_000 - 0.001, timedelta(days=139 * 365.25, microseconds=-1)),
        (100 * 86_400_000 + 0.001, timedelta(days=100, microseconds=1)),  # 1 ns away from it
        (1e17 / 8, timedelta(days=144_675_925, seconds=80_000)),  # over 64 bits of microseconds
        (-999_999_999 * 86_400_000.0, timedelta.min),
        (0.0015, numpy.timedelta64(1500, "ns")),
        (-50 * 86_400_000 + 1e-6, numpy.timedelta64(-50 * DAY + 1, "ns")),
    ],
)
def test_one_duration(decode, millis, expected):
    value = decode(duration(millis))
    assert (type(value), repr(value)) == (type(expected), repr(expected))


def test_real_milliseconds_mean_the_microseconds_that_they_are_nearest_to(decode):
    # 244 ns apart, these doubles can not be whole microseconds
    assert decode(date(real(1.7e12 + 0.123))) == datetime(2023, 11, 14, 22, 13, 20, 123)


@pytest.mark.parametrize("dims", [(0, 0), (0, 3), (2, 3), (4, 1), (2, 2, 3)])
@pytest.mark.parametrize("unit", ["us", "ns"])
def test_arrays_have_the_shape_and_the_unit_of_their_times(decode, dims, unit):
    if 0 in dims:
        unit = "us"
    ticks = {"us": 1000, "ns": 1}[unit]
    counts = [17 * i - 20 if i != 1 else -(2**63) for i in range(numpy.prod(dims))]
    for code, make, of in (
        ("M8", lambda times: date(doubles(*map(pair, times), dims=dims)), complex(NAN, 0)),
        ("m8", lambda times: duration(millis=real(*(t / 1e6 for t in times), dims=dims)), NAN),
    ):
        output = make([count * ticks for count in counts])
        child = output["children"][0]
        size = 16 if code == "M8" else 8
        elements = bytearray(child["elements"])
        if counts:
            elements[size : 2 * size] = struct.pack("<dd", of.real, of.imag)[:size]
        child["elements"] = bytes(elements)

        value = decode(output)
        assert (value.dtype, value.shape) == (f"{code}[{unit}]", dims)
        assert value.ravel(order="F").view("i8").tolist() == counts
        value[...] = 0  # it belongs to the caller


def test_an_array_takes_nanoseconds_only_if_they_lose_nothing(decode):
    # a time out of the range of nanoseconds is rounded
    far = pair(10**19 + 499)
    assert decode(date(doubles(far, pair(1000)))).tolist() == [[datetime(2286, 11, 20, 17, 46, 40),
                                                               datetime(1970, 1, 1, 0, 0, 0, 1)]]  # fmt: skip
    with pytest.raises(OverflowError, match="^ZORVAN datetime is out of the range of nanoseconds"):
        decode(date(doubles(far, pair(1))))


@pytest.mark.parametrize("dims", [(0, 3), (2, 3)])
def test_an_array_with_a_zone_is_one_of_aware_dates(decode, dims):
    times = [OCTOBER - 1000, OCTOBER, None, 0, OCTOBER + 1499, -719162 * DAY - 3208 * 10**9]
    times = times[: numpy.prod(dims)]
    data = doubles(*(complex(NAN) if t is None else pair(t) for t in times), dims=dims)
    value = decode(date(data, "Europe/Berlin"))
    assert (type(value), value.dtype, value.shape) == (numpy.ndarray, object, dims)
    for time, each in zip(times, value.ravel(order="F"), strict=True):
        one = NAT if time is None else decode(date(doubles(pair(time // 1000 * 1000)), BERLIN.key))
        assert (type(each), repr(each)) == (type(one), repr(one))
        assert getattr(each, "tzinfo", None) is getattr(one, "tzinfo", None)


def test_a_long_array_with_a_zone_is_put_together_of_parts(decode):
    hours = numpy.arange(30_000.0)
    times = (hours * 3.6e6).astype(complex)
    times[20_000] = complex(NAN)
    value = decode(date(doubles(*times, dims=(2, 15_000)), "Europe/Berlin"))
    flat = value.ravel(order="F")
    assert value.shape == (2, 15_000) and numpy.isnat(flat[20_000])
    begin = datetime(1970, 1, 1, tzinfo=timezone.utc)
    others = numpy.delete(numpy.arange(30_000), 20_000).tolist()
    assert all(flat[i] == begin + timedelta(hours=i) for i in others)
    times[29_999] = INF
    with pytest.raises(OverflowError, match="^ZORVAN datetime is infinite$"):
        decode(date(doubles(*times), "Europe/Berlin"))


def zone_error(text):
    return TypeError, f"conversion of ZORVAN datetime object with time zone {text} to Python not"


FORMAT = "does not match the expected format '[+-]HH[:mm[:ss]]'"
ZERO = doubles(0)


@pytest.mark.parametrize(
    ("output", "error", "text"),
    [
        (date(doubles(complex(NAN))), TypeError, "datetime scalar 'NaT' to Python not supported"),
        (date(doubles(complex(0, NAN)), "UTC"), TypeError, "datetime scalar 'NaT' to Python not"),
        (duration(NAN), TypeError, "duration scalar 'NaT' to Python not supported"),
        *(
            (date(ZERO, name), *zone_error(f"'{name}'"))
            for name in ("No/Such", "Europe", "../UTC", "/etc/localtime", "a\0b", "\u00fc", "x" * 999)
        ),
        *(
            (date(ZERO, text), ValueError, FORMAT)
            for text in ("+", "+1", "+01:", "+0100", "+01:60", "+24", "01:00", "+01:00:00:00",
                         "-1:00", "+01:00:60", "+0\u0661", "+01 00", "2020")
        ),
        (date(ZERO, tz=real(1.0)), *zone_error("with type '4'")),
        (date(ZERO, tz=value_object("zone")), *zone_error("with type 'zone'")),
        (date(ZERO, tz=char("ab" * 2, dims=(2, 2))), ValueError, "must be 1-by-N or M-by-1"),
        (date(ZERO, "\ud800"), UnicodeDecodeError, "can't decode bytes"),
        (date(None), ValueError, "unable to find property 'data' in 'datetime' object"),
        (date(ZERO, tz=None), ValueError, "unable to find property 'tz' in 'datetime' object"),
        (date(ZERO, fmt=None), ValueError, "unable to find property 'fmt' in 'datetime' object"),
        (duration(millis=None), ValueError, "property 'millis' in 'duration' object"),
        (duration(0.0, fmt=None), ValueError, "property 'fmt' in 'duration' object"),
        (date(char("now")), TypeError, "'data' of ZORVAN datetime object has type CHAR"),
        (date(real(1, type=SINGLE)), TypeError, "'data' of ZORVAN datetime object has type SINGLE"),
        (date(ZERO, dims=(1, 2)), ValueError, "only a scalar datetime can be returned"),
        (duration(1.0, dims=(2, 1)), ValueError, "only a scalar duration can be returned"),
        (duration(millis=ZERO), TypeError, "'millis' of ZORVAN duration object has type COMPLEX_"),
        (date(doubles(complex(INF))), OverflowError, "ZORVAN datetime is infinite"),
        (date(doubles(0, complex(0, -INF))), OverflowError, "ZORVAN datetime is infinite"),
        (duration(0.0, -INF), OverflowError, "ZORVAN duration is infinite"),
        (duration(INF), OverflowError, "ZORVAN duration is out of the range of timedelta"),
        (duration(1e300), OverflowError, "ZORVAN duration is out of the range of timedelta"),
        (duration(8.64e16), OverflowError, "magnitude"),
        (duration(1.0, 1e17), OverflowError, "is out of the range of 64-bit microseconds"),
        (date(doubles(1e17, 0)), OverflowError, "is out of the range of 64-bit microseconds"),
        (date(doubles(pair(-719162 * DAY - 1000))), OverflowError, "date value out of range"),
        (date(doubles(pair(-719162 * DAY)), "-01"), OverflowError, "date value out of range"),
        (date(doubles(2.6e14, 0), "UTC"), OverflowError, "date value out of range"),
    ],
)  # fmt: skip
def test_what_cannot_come_back(decode, output, error, text):
    with pytest.raises(error) as caught:
        decode(output)
    assert caught.type is error
    assert text in str(caught.value)


def test_only_what_needs_numpy_misses_it(messages):
    outputs = [date(ZERO, "+01"), duration(1.0), date(ZERO | {"dims": (0, 3), "elements": b""})]
    data = [messages.ZORVAN_Result(arrays=[each]).SerializeToString() for each in outputs]
    program = "\n".join(
        [
            "import sys; sys.modules['numpy'] = None",
            "import py_pb",
            f"for data in {data}:",
            "    try: print(*py_pb.serialized_str_to_py(data))",
            "    except ImportError as error: print(error)",
        ]
    )
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert (done.stdout.splitlines(), done.stderr) == (
        ["1970-01-01 01:00:00+01:00", "0:00:00.001000", "failed to import module 'numpy'"],
        "",
    )


def test_halves_of_a_nanosecond_round_alike_in_long_and_short_arrays(decode):
    """Long arrays are counted by vector instructions."""
    halves = (numpy.arange(1, 2049) + 0.5) / 1e6
    together = decode(duration(*halves))
    one_by_one = [decode(duration(*halves[i : i + 2])) for i in range(0, halves.size, 2)]
    assert numpy.array_equal(together, numpy.concatenate(one_by_one, axis=1))
