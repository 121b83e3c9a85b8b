#include "to_python/time_objects.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "to_python/imported_attribute.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

namespace {

constexpr int64_t kSecond = 1'000'000;
constexpr int64_t kDay = 86'400'000'000;
// What a datetime can be at least and at most.
constexpr int64_t kFirst = -719'162 * kDay;
constexpr int64_t kLast = 2'932'897 * kDay - 1;

// How far to move a UTC time so that neither it nor its local time is out of range.
int64_t daysInward(int64_t utc) {
  if (utc < kFirst + kDay) return 2;
  if (utc > kLast - kDay) return -2;
  return 0;
}

struct Date {
  int64_t year;
  int64_t month;
  int64_t day;
};

// The Gregorian date that lies so many days after 0001-01-01. Years are taken to begin in March, so
// that a leap day is the last of its year, its century and its 400 years.
Date dateOf(int64_t days) {
  const int64_t sinceMarch = days + 306;  // from 0000-03-01
  const int64_t era = sinceMarch / 146'097;
  const int64_t ofEra = sinceMarch % 146'097;
  const int64_t yearOfEra = (ofEra - ofEra / 1460 + ofEra / 36'524 - ofEra / 146'096) / 365;
  const int64_t ofYear = ofEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t month = (5 * ofYear + 2) / 153;  // March is 0
  const int64_t day = ofYear - (153 * month + 2) / 5 + 1;
  const int64_t isNextYear = month >= 10 ? 1 : 0;
  return {era * 400 + yearOfEra + isNextYear, month + 3 - 12 * isNextYear, day};
}

}  // namespace

std::shared_ptr<const DatetimeMaker> DatetimeMaker::forZone(PyObject* zone) {
  static ImportedAttribute datetime("datetime", "datetime");
  if (!datetime.get()) return nullptr;
  std::shared_ptr<DatetimeMaker> maker(new DatetimeMaker);
  maker->datetime_ = datetime.get();
  maker->zone_ = PyObjectWithGuard::newReference(zone);
  if (zone != Py_None) {
    maker->fromUtc_ = PyObjectGuardGetter::getAttrString(zone, "fromutc", true);
    if (!maker->fromUtc_) return nullptr;
  }
  return maker;
}

PyObject* DatetimeMaker::make(int64_t microseconds) const {
  return isAware() ? makeAware(microseconds) : makeWallClock(microseconds);
}

// A local time within range may stand for a UTC time outside: at either end of time, where no zone
// changes, the local time is found two days further in and moved back.
PyObject* DatetimeMaker::makeAware(int64_t microseconds) const {
  const int64_t days = daysInward(microseconds);
  const auto utc = PyObjectWithGuard::owned(makeWallClock(microseconds + days * kDay));
  if (!utc) return nullptr;
  auto local =
      PyObjectWithGuard::owned(PyObject_CallFunctionObjArgs(fromUtc_.get(), utc.get(), nullptr));
  if (!local || days == 0) return local.release();
  const auto back = PyObjectWithGuard::owned(makeTimedelta(-days, 0));
  return back ? PyNumber_Add(local.get(), back.get()) : nullptr;
}

PyObject* DatetimeMaker::makeWallClock(int64_t microseconds) const {
  if (microseconds < kFirst || microseconds > kLast) {
    setPythonErrorStr(PyExc_OverflowError, "date value out of range");
    return nullptr;
  }
  const int64_t sinceFirst = microseconds - kFirst;
  const Date date = dateOf(sinceFirst / kDay);
  const int64_t ofDay = sinceFirst % kDay;
  const int64_t seconds = ofDay / kSecond;
  const int64_t fraction = ofDay % kSecond;
  // What a pickled datetime is made of again: a third of the time that seven numbers take.
  const int64_t fields[] = {date.year >> 8,      date.year & 255,   date.month,   date.day,
                            seconds / 3600,      seconds / 60 % 60, seconds % 60, fraction >> 16,
                            fraction >> 8 & 255, fraction & 255};
  char state[std::size(fields)];
  std::transform(std::begin(fields), std::end(fields), state,
                 [](int64_t field) { return static_cast<char>(field); });
  const auto bytes = PyObjectWithGuard::owned(PyBytes_FromStringAndSize(state, sizeof state));
  if (!bytes) return nullptr;
  return PyObject_CallFunctionObjArgs(datetime_, bytes.get(), zone_.get(), nullptr);
}

// As the difference of two dates where they reach: a quarter of the time that the class itself
// takes to make one of numbers.
PyObject* makeTimedelta(int64_t days, int64_t microseconds) {
  static ImportedAttribute timedelta("datetime", "timedelta");
  // Kept for good, so that nothing is released after the interpreter has gone. Not by a static that
  // is made on first use: making them runs Python code, which may let another thread come by here.
  static const DatetimeMaker* naive = nullptr;
  static PyObject* epoch = nullptr;
  if (!naive) {
    auto maker = DatetimeMaker::forZone(Py_None);
    if (!maker) return nullptr;
    if (!naive) naive = (new std::shared_ptr<const DatetimeMaker>(std::move(maker)))->get();
  }
  if (!epoch) epoch = naive->make(0);
  if (!epoch) return nullptr;
  constexpr int64_t kReach = 700'000;  // days
  if (-kReach < days && days < kReach && std::abs(microseconds) <= kDay) {
    const auto date = PyObjectWithGuard::owned(naive->make(days * kDay + microseconds));
    return date ? PyNumber_Subtract(date.get(), epoch) : nullptr;
  }
  if (!timedelta.get()) return nullptr;
  return PyObject_CallFunction(timedelta.get(), "LiL", static_cast<long long>(days), 0,
                               static_cast<long long>(microseconds));
}

}  // namespace PythonZorvanDataArray::detail
