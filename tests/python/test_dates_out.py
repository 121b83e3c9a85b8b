"""Dates and durations on their way out, judged by what the inspector makes of the messages."""

import json
from datetime import date, datetime, time, timedelta, timezone, tzinfo
from fractions import Fraction
from zoneinfo import ZoneInfo

import numpy as np
import py_pb
import pytest
from hypothesis import example, given, settings
from hypothesis import strategies as st
from test_ndarray_buffers import LAYOUTS
from test_tools import output_of

UTC = timezone.utc
EPOCH, MICROSECOND, HOUR = datetime(1970, 1, 1), timedelta(microseconds=1), timedelta(hours=1)
# Milliseconds in one tick of each unit that has a length.
UNITS = {"W": 604_800_000, "D": 86_400_000, "h": 3_600_000, "m": 60_000, "s": 1000, "ms": 1}
UNITS |= {unit: Fraction(1, 1000**n) for n, unit in enumerate(("us", "ns", "ps", "fs", "as"), 1)}
MOST = 2**63 - 1
NAT = -(2**63)


def objects(*values):
    """Class and properties of each value's object."""
    message = output_of("zorvan-inspect", "--json", "-", stdin=py_pb.py_to_serialized_str(values))
    arrays = json.loads(message)["arrays"]
    assert all(a["type"] == "VALUE_OBJECT" and a["dims"] == [1, 1] for a in arrays)
    return [(a["class"], a["elements"][0]) for a in arrays]


def times(*values):
    """Dimensions, milliseconds (pairs, None for NaT) and zone of each value."""
    for name, properties in objects(*values):
        assert name == "datetime" and list(properties) == ["data", "fmt", "tz"]
        data, fmt, tz = properties.values()
        assert (data["type"], fmt["type"], fmt["text"]) == ("COMPLEX_DOUBLE", "CHAR", "")
        pairs = [None if pair == ["NaN", 0] else pair for pair in data["elements"]]
        yield data["dims"], pairs, tz["text"]


def lengths(*values):
    """Dimensions and milliseconds (None for NaT) of each value."""
    for name, properties in objects(*values):
        assert name == "duration" and list(properties) == ["millis", "fmt"]
        millis, fmt = properties.values()
        assert (millis["type"], fmt["type"], fmt["text"]) == ("DOUBLE", "CHAR", "")
        yield millis["dims"], [None if each == "NaN" else each for each in millis["elements"]]


def same(pair, exact):
    """The nearest double, and equal to a millionth of a nanosecond together with the remainder."""
    real, rest = pair
    return real == float(exact) and abs(Fraction(real) + Fraction(rest) - exact) < 1e-12


def milliseconds(naive):
    return Fraction((naive - EPOCH) // MICROSECOND, 1000)


class Zone(tzinfo):
    """A zone that says whatever it is told to."""

    def __init__(self, offset, **attributes):
        self.offset = offset
        self.__dict__.update(attributes)

    def utcoffset(self, when):
        if isinstance(self.offset, Exception):
            raise self.offset
        return self.offset


@pytest.mark.parametrize(
    "zone, text",
    [
        (None, ""),
        (ZoneInfo("Asia/Kathmandu"), "Asia/Kathmandu"),
        (ZoneInfo("UTC"), "UTC"),
        (UTC, "+00:00"),
        (timezone(5.5 * HOUR, "Europe/Paris"), "+05:30"),
        (timezone(-MICROSECOND * 1_000_000), "-00:00:01"),
        (timezone(timedelta(hours=-23, minutes=-59, seconds=-59)), "-23:59:59"),
        (Zone(2 * HOUR), "+02:00"),
        (Zone(HOUR, zone="Europe/Berlin"), "Europe/Berlin"),
        (Zone(HOUR, key=b"x", zone=None, _filename="/x/zoneinfo/Europe/Berlin"), "Europe/Berlin"),
        (Zone(HOUR, key="Mars", zone="", _filename="Europe"), "+01:00"),
        (Zone(HOUR, key="../x", zone="\ud800", _filename="a\0b"), "+01:00"),
    ],
    ids=repr,
)
def test_zones(zone, text):
    value = datetime(2021, 7, 4, 1, 2, 3, 456789, zone)
    offset = value.utcoffset() or timedelta()
    ((dims, data, tz),) = times(value)
    assert dims == [1, 1] and tz == text
    assert same(data[0], milliseconds(value.replace(tzinfo=None) - offset))


def test_zones_of_other_packages():
    pytz, tz = pytest.importorskip("pytz"), pytest.importorskip("dateutil.tz")
    noon = datetime(2021, 7, 4, 12)
    expected = [
        (pytz.timezone("America/St_Johns").localize(noon), "America/St_Johns"),
        (pytz.FixedOffset(-150).localize(noon), "-02:30"),
        (noon.replace(tzinfo=tz.gettz("Australia/Lord_Howe")), "Australia/Lord_Howe"),
        (noon.replace(tzinfo=tz.tzoffset("Mine", 3601)), "+01:00:01"),
        (noon.replace(tzinfo=tz.tzstr("EST5EDT4,M3.2.0,M11.1.0")), "-04:00"),
    ]
    sent = times(*(value for value, _ in expected))
    for (value, text), (_, data, zone) in zip(expected, sent, strict=True):
        assert zone == text
        assert same(data[0], milliseconds(value.astimezone(UTC).replace(tzinfo=None)))


SAMPLE = ("Africa/Monrovia", "Europe/Dublin", "Pacific/Apia", "Australia/Lord_Howe", "Asia/Manila")
# Minutes around a clock that goes back, one that goes forward, a day left out.
CHANGES = [datetime(2021, 10, 31, 1), datetime(2021, 3, 28, 1), datetime(2011, 12, 30),
           datetime(1972, 1, 7), datetime(2021, 4, 4, 2), datetime(1844, 12, 31)]  # fmt: skip


@settings(deadline=None, max_examples=40)
@given(
    st.lists(
        st.builds(
            lambda value, fold, zone: value.replace(fold=fold, tzinfo=zone),
            st.datetimes()
            | st.builds(
                lambda change, seconds: change + timedelta(seconds=seconds),
                st.sampled_from(CHANGES),
                st.floats(-10_000, 10_000),
            ),
            st.sampled_from((0, 1)),
            st.none() | st.sampled_from(SAMPLE).map(ZoneInfo),
        ),
        min_size=20,
    )
)
@example([datetime.min, datetime.max, datetime.max.replace(tzinfo=timezone(-23 * HOUR))])
@example([datetime.min.replace(tzinfo=ZoneInfo("Asia/Manila"))])
def test_every_datetime_is_exact(values):
    for value, (_, data, tz) in zip(values, times(*values), strict=True):
        offset = value.utcoffset() or timedelta()
        exact = milliseconds(value.replace(tzinfo=None)) - Fraction(offset // MICROSECOND, 1000)
        assert same(data[0], exact)
        assert tz == (str(value.tzinfo) if isinstance(value.tzinfo, ZoneInfo) else tz)


@st.composite
def ticks(draw, units=tuple(UNITS)):
    """Counts, NaT among them, of a unit's multiple, all of which can go out."""
    unit, multiple = draw(st.sampled_from(units)), draw(st.sampled_from((1, 25, 7)))
    last_millisecond = MOST // 1000
    most = min(MOST, last_millisecond / Fraction(UNITS[unit])) // multiple
    counts = st.integers(-most, most) | st.integers(-5000, 5000) | st.just(NAT)
    counts |= st.sampled_from((most, -most))
    return unit, multiple, draw(st.lists(counts, min_size=1))


@settings(deadline=None, max_examples=60)
@given(ticks())
@example(("ns", 1, [MOST, -MOST, NAT, 2**62 + 1, 1, 999_999]))
def test_every_numpy_time_is_exact(drawn):
    unit, multiple, counts = drawn
    array = np.array(counts, "i8").view(f"M8[{multiple}{unit}]")
    (dims, data, tz), (_, first, _) = times(array, array[0])
    assert dims == [1, len(counts)] and tz == "" and first == data[:1]
    for sent, count in zip(data, counts, strict=True):
        assert (sent is None) if count == NAT else same(sent, count * multiple * UNITS[unit])


@settings(deadline=None, max_examples=60)
@given(ticks())
@example(("ns", 1, [2**51 - 1, -(2**51)] * 200 + [2**51] * 200 + [NAT] + [3] * 700))
def test_every_numpy_duration_is_the_nearest_double(drawn):
    unit, multiple, counts = drawn
    array = np.array(counts, "i8").view(f"m8[{multiple}{unit}]")
    (dims, data), (_, first) = lengths(array, array[0])
    assert dims == [1, len(counts)] and first == data[:1]
    for sent, count in zip(data, counts, strict=True):
        exact = count * multiple * UNITS[unit]
        assert sent == (None if count == NAT else float(exact))


@settings(deadline=None, max_examples=40)
@given(st.lists(st.timedeltas(), min_size=20))
@example([timedelta.min, timedelta.max, timedelta.resolution, -timedelta.resolution])
def test_every_timedelta_is_the_nearest_double(values):
    for value, (dims, data) in zip(values, lengths(*values), strict=True):
        assert dims == [1, 1] and data == [float(Fraction(value // MICROSECOND, 1000))]


@given(st.lists(st.integers(-292_000, 292_000), min_size=1), st.sampled_from(("Y", "M", "3M")))
@settings(deadline=None, max_examples=40)
def test_calendar_units(counts, unit):
    array = np.array([*counts, NAT], "i8").view(f"M8[{unit}]")
    days = array.astype("M8[D]").astype("i8").tolist()[:-1]
    ((_, data, _),) = times(array)
    assert data == [*([day * 86_400_000, 0] for day in days), None]


@pytest.mark.parametrize("order", "<>")
@pytest.mark.parametrize("layout", LAYOUTS.values(), ids=LAYOUTS)
def test_layouts(layout, order):
    counts = np.arange(-30, 30).reshape(3, 5, 4) * 10**9
    dates, spans = (layout(counts.astype(f"{order}{kind}8[ns]")) for kind in "Mm")
    dims = list(dates.shape) if dates.ndim > 1 else [1, dates.size]
    exact = [count / 10**6 for count in dates.astype("i8").ravel("F").tolist()]
    assert list(times(dates)) == [(dims, [[each, 0] for each in exact], "")]
    assert list(lengths(spans)) == [(dims, exact)]


def test_pandas_values_keep_their_nanoseconds():
    pd = pytest.importorskip("pandas")
    stamps = [
        pd.Timestamp(np.datetime64(-1, "ns")),
        pd.Timestamp.max.tz_localize(ZoneInfo("Europe/Dublin")),
        pd.Timestamp("1700-01-01T00:00:00.000000001", tz=timezone(HOUR)),
        pd.Timestamp("2021-10-31T01:30Z").tz_convert("Europe/Dublin"),
    ]
    zones = ["", "Europe/Dublin", "+01:00", "Europe/Dublin"]
    sent = list(times(*stamps))
    assert [tz for _, _, tz in sent] == zones
    for stamp, (_, data, _) in zip(stamps, sent, strict=True):
        assert same(data[0], Fraction(stamp.value, 10**6))
    spans = [pd.Timedelta(1, "ns"), pd.Timedelta(days=-50, nanoseconds=-1)]
    for span, (_, data) in zip(spans, lengths(*spans), strict=True):
        assert data == [float(Fraction(span.value, 10**6))]


def test_nothing_but_NaT_needs_no_unit():
    nothing = [np.datetime64("NaT"), np.array(["NaT"], "M8[Y]"), np.zeros((0, 3), "M8")]
    assert [data for _, data, _ in times(*nothing)] == [[None], [None], []]
    nothing = [np.timedelta64("NaT"), np.array(["NaT"], "m8[Y]"), np.zeros((0, 3), "m8")]
    assert list(lengths(*nothing)) == [([1, 1], [None]), ([1, 1], [None]), ([0, 3], [])]


def ticked(kind, unit, count):
    return np.array([0, count], "i8").view(f"{kind}8[{unit}]" if unit else f"{kind}8")


def unsupported(what):
    return TypeError(f"conversion of {what} to ZORVAN not supported")


def no_unit(name, unit):
    return unsupported(f"numpy.{name} with unit '{unit}'")


def out_of_range(name, unit):
    return OverflowError(f"a value of numpy.{name} with unit '{unit}' is out of range for ZORVAN")


def offset_error(kind, what):
    return kind(f"conversion of a datetime to ZORVAN not supported: its {what}")


NO_OFFSET = offset_error(TypeError, "time zone gives no offset from UTC")
NO_SECONDS = offset_error(ValueError, "offset from UTC is no whole number of seconds")
NO_TIMEDELTA = TypeError("tzinfo.utcoffset() must return None or")
LOST = LookupError("lost")


@pytest.mark.parametrize(
    "value, error",
    [
        (date(2021, 7, 4), unsupported("Python data type 'datetime.date'")),
        (time(1), unsupported("Python data type 'datetime.time'")),
        (ticked("M", "", 1), no_unit("datetime64", "generic")),
        (np.timedelta64(1), no_unit("timedelta64", "generic")),
        (ticked("m", "3M", 1), no_unit("timedelta64", "3M")),
        (np.timedelta64(1, "Y"), no_unit("timedelta64", "Y")),
        *(
            (ticked(name[0], unit, sign * (most + 1)), out_of_range(name[1:], unit))
            for name in ("Mdatetime64", "mtimedelta64")
            for sign in (1, -1)
            for unit, most in {"ms": MOST // 1000, "25s": MOST // 25_000_000, "7as": MOST // 7}.items()
        ),
        (ticked("M", "Y", 292_001), out_of_range("datetime64", "Y")),
        (ticked("M", "M", -MOST), out_of_range("datetime64", "M")),
        (EPOCH.replace(tzinfo=timezone(MICROSECOND)), NO_SECONDS),
        (EPOCH.replace(tzinfo=Zone(None)), NO_OFFSET),
        (EPOCH.replace(tzinfo=Zone(None, zone="UTC")), NO_OFFSET),
        (EPOCH.replace(tzinfo=Zone(5)), NO_TIMEDELTA),
        (EPOCH.replace(tzinfo=Zone(LOST)), LOST),
        (EPOCH.replace(tzinfo=Zone(LOST, zone="UTC")), LOST),
    ],
)
@pytest.mark.parametrize("wrap", [lambda value: value, lambda value: [1, {"a": value}]])
def test_bad_input(value, error, wrap):
    with pytest.raises(type(error)) as raised:
        py_pb.py_to_serialized_str([wrap(value)])
    assert str(raised.value).startswith(str(error))


class LyingDelta(timedelta):
    days = 10**12


def test_lies_about_zones():
    with pytest.raises(ValueError, match="its offset from UTC is not less than a day"):
        py_pb.py_to_serialized_str([EPOCH.replace(tzinfo=Zone(LyingDelta(hours=1)))])

    class Raising(Zone):
        @property
        def key(self):
            raise LookupError("no key")

    with pytest.raises(LookupError, match="no key"):
        py_pb.py_to_serialized_str([EPOCH.replace(tzinfo=Raising(HOUR))])


@pytest.mark.parametrize(
    "name",
    ["datetime.datetime", "datetime.timedelta", "numpy.datetime64", "numpy.timedelta64",
     "pandas.Timestamp", "pandas._libs.tslibs.timedeltas.Timedelta"],
)  # fmt: skip
def test_forged_names_are_unsupported(name):
    module, _, bare = name.rpartition(".")
    forged = type(bare, (), {"__module__": module, "tzinfo": None, "days": 1, "seconds": 1,
                             "microseconds": 1, "to_timedelta64": lambda self: None})  # fmt: skip
    with pytest.raises(TypeError, match=f"conversion of Python data type '{name}' to ZORVAN"):
        py_pb.py_to_serialized_str([forged()])


def test_a_forged_array_of_dates_is_unsupported():
    dtype = type("dtype", (), {"kind": "M"})
    forged = type("ndarray", (), {"__module__": "numpy", "dtype": dtype})
    with pytest.raises(TypeError, match="conversion of Python data type 'ndarray' to ZORVAN"):
        py_pb.py_to_serialized_str([forged()])
