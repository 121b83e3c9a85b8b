"""Dates and durations that go out and come back equal: all that is said to be exact, by property."""

import zoneinfo
from datetime import datetime, timedelta, timezone
from zoneinfo import ZoneInfo

import numpy
import py_pb
import pytest
from hypothesis import example, given, settings
from hypothesis import strategies as st

UTC = timezone.utc
EPOCH = datetime(1970, 1, 1, tzinfo=UTC)
SECOND, MICROSECOND = timedelta(seconds=1), timedelta(microseconds=1)
ZONES = [
    "Africa/Casablanca",  # summer time below standard time
    "Africa/Monrovia",  # offsets with seconds until 1972
    "America/St_Johns",  # half hours, and changes one minute after midnight
    "Asia/Kathmandu",  # quarter hours
    "Asia/Manila",  # a day left out in 1844
    "Australia/Lord_Howe",  # summer time of half an hour
    "Europe/Berlin",
    "Europe/Dublin",  # winter time below standard time
    "Pacific/Apia",  # a day left out in 2011
    "Pacific/Kwajalein",  # a day twice in 1969
]
INT64 = st.integers(-(2**63) + 1, 2**63 - 1)


def round_trip(*values):
    return py_pb.serialized_str_to_py(py_pb.py_to_serialized_str(values))


def identity(date):
    """All that there is to a date; a fold counts only where it decides."""
    offset = date.utcoffset()
    return type(date), date.replace(tzinfo=None, fold=0), offset, str(date.tzinfo)


def changes(zone, first=1840, last=2040):
    """The UTC times at which a zone's offset changes, to the second."""

    def offset(time):
        return time.astimezone(zone).utcoffset()

    day = datetime(first, 1, 1, tzinfo=UTC)
    while day.year < last:
        low, day = day, day + timedelta(days=5)
        if offset(low) != offset(day):
            high = day
            while high - low > SECOND:
                middle = low + (high - low) // SECOND // 2 * SECOND
                low, high = (middle, high) if offset(middle) == offset(low) else (low, middle)
            yield high


@pytest.mark.parametrize("name", ZONES)
def test_both_sides_of_every_change_of_a_zone(name):
    zone = ZoneInfo(name)
    times = [
        (change + step).astimezone(zone)
        for change in changes(zone)
        for step in (-3600 * SECOND, -SECOND, -MICROSECOND, 0 * SECOND, MICROSECOND, 3599 * SECOND)
    ]
    assert len(times) > 10
    dates = list(map(identity, round_trip(*times)))
    assert dates == list(map(identity, times))
    (dates,) = round_trip(times)
    assert [each.fold for each in dates] == [each.fold for each in times]


def test_every_zone_of_the_database():
    for name in sorted(zoneinfo.available_timezones()):
        zone = ZoneInfo(name)
        times = [datetime(year, month, 28, 23, 59, 59, 999999, zone)
                 for year in (1, 1800, 1900, 1950, 2024, 9999) for month in (1, 7, 12)]  # fmt: skip
        times += [datetime.min.replace(tzinfo=zone), datetime.max.replace(tzinfo=zone)]
        back = round_trip(*times)
        assert list(map(identity, back)) == list(map(identity, times))
        assert {each.tzinfo for each in back} == {zone}


@given(date=st.datetimes(), zone=st.sampled_from(ZONES), fold=st.integers(0, 1))
@example(date=datetime(2011, 12, 30, 12), zone="Pacific/Apia", fold=0)
@example(date=datetime(1969, 9, 30, 12), zone="Pacific/Kwajalein", fold=1)
def test_any_date_in_a_zone_keeps_its_instant(date, zone, fold):
    when = date.replace(tzinfo=ZoneInfo(zone), fold=fold)
    (back,) = round_trip(when)
    assert back.tzinfo is when.tzinfo
    assert back - EPOCH == when - EPOCH


@given(date=st.datetimes(), seconds=st.integers(-86399, 86399))
def test_any_date_without_a_zone_or_with_an_offset(date, seconds):
    zone = timezone(timedelta(seconds=seconds))
    dates = [date, date.replace(tzinfo=zone)]
    back = round_trip(*dates)
    assert back == dates
    assert [each.tzinfo for each in back] == [None, zone]


@pytest.mark.parametrize("unit", ["ns", "us"])
@given(counts=st.lists(INT64, min_size=2, max_size=20))
@example(counts=[2**63 - 1, -(2**63) + 1])
@example(counts=[2**63 - 1, -(2**63)])
@example(counts=[2**62 // 1000 * 1000, -(2**62) // 1000 * 1000])
def test_any_array_of_dates(unit, counts):
    sent = numpy.array(counts, "i8").view(f"M8[{unit}]")
    (back,) = round_trip(sent)
    whole = all(count % 1000 == 0 for count in counts if count != -(2**63))
    assert back.dtype == ("M8[us]" if whole else sent.dtype)
    assert numpy.array_equal(back.astype(sent.dtype), [sent], equal_nan=True)


@given(count=INT64)
@example(count=2**63 - 1)
def test_any_single_nanosecond(count):
    sent = numpy.datetime64(count, "ns")
    (back,) = round_trip(sent)
    assert isinstance(back, datetime if count % 1000 == 0 else numpy.datetime64)
    assert numpy.datetime64(back) == sent


YEARS_139 = timedelta(days=139 * 365.25) // MICROSECOND
DAYS_50 = timedelta(days=50) // MICROSECOND * 1000


@given(counts=st.lists(st.integers(-YEARS_139, YEARS_139), min_size=2))
@example(counts=[YEARS_139, YEARS_139 - 1, 1 - YEARS_139])
def test_any_microseconds_of_139_years(counts):
    lengths = [timedelta(microseconds=count) for count in counts]
    assert round_trip(*lengths) == lengths
    sent = numpy.array(counts, "i8").view("m8[us]")
    (back,) = round_trip(sent)
    assert back.dtype == sent.dtype
    assert back.tolist() == [lengths]


@given(counts=st.lists(st.integers(-DAYS_50, DAYS_50), min_size=2))
@example(counts=[DAYS_50, DAYS_50 - 1, 1 - DAYS_50])
def test_any_nanoseconds_of_50_days(counts):
    sent = numpy.array(counts, "i8").view("m8[ns]")
    assert [numpy.timedelta64(each) for each in round_trip(*sent)] == list(sent)
    (back,) = round_trip(sent)
    assert numpy.array_equal(back, [sent])


@pytest.mark.parametrize("unit", ["Y", "M", "W", "D", "h", "m", "s", "ms", "25s", "ps"])
def test_every_unit(unit):
    dates = numpy.array([[-3, 0, 7], [1, 2**17, -(2**17)]], "i8").view(f"M8[{unit}]")
    if unit == "ps":
        dates = dates.astype("i8").__mul__(1000).view("M8[ps]")  # nanoseconds are the finest
    (back,) = round_trip(dates)
    assert back.shape == (2, 3)
    assert (back == dates).all()


@settings(deadline=None)  # the first import takes its time
@given(count=INT64, zone=st.sampled_from([None, "UTC", "Asia/Kathmandu"]))
def test_any_pandas_timestamp(count, zone):
    pandas = pytest.importorskip("pandas")
    # pandas' least and greatest times have no room for an offset beside them
    sent = pandas.Timestamp(count // 2, tz=zone)
    (back,) = round_trip(sent)
    if sent.nanosecond:
        assert back == sent.to_datetime64()
    else:
        assert back == sent.to_pydatetime()
        assert str(getattr(back, "tzinfo", None)) == str(zone)


@pytest.mark.parametrize(
    "dtype, bits", [("M8[ns]", 63), ("M8[us]", 63), ("m8[ns]", 51), ("m8[us]", 52)]
)
def test_long_arrays(dtype, bits):
    """Every size of number in turn, most in long runs of their own, and NaT in between."""
    numbers = numpy.random.default_rng(1).integers(-(2**63) + 1, 2**63 - 1, (bits, 777))
    numbers >>= numpy.arange(64 - bits, 64)[:, None]
    numbers[::7, ::300] = -(2**63)
    for sent in (numbers.view(dtype), numbers[::-1].view(dtype), numbers[3:4].view(dtype)):
        (back,) = round_trip(sent)
        assert back.dtype == dtype
        assert numpy.array_equal(back.view("i8"), sent.view("i8"))
