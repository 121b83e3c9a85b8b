#include "to_array/date_time_ticks.h"

#include <algorithm>

#include "to_array/date_time_objects.h"
#include "types/ndpy_array_bridge.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"
#include "util/type_names.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayTypeOf;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Storage;
using PythonUtil::PyObjectWithGuard;

namespace {

const int64_t* dataOf(const Array& counts) {
  return reinterpret_cast<const int64_t*>(counts.impl().buffer().data());
}

struct UnitText {
  std::string name;
  int multiple;

  std::string full() const { return multiple == 1 ? name : std::to_string(multiple) + name; }
};

std::optional<UnitText> readUnit(const PyObjectWithGuard& numpy, const PyObjectWithGuard& dtype) {
  const auto unit =
      PyObjectWithGuard::owned(PyObject_CallMethod(numpy.get(), "datetime_data", "O", dtype.get()));
  const char* name = nullptr;
  UnitText text;
  if (!unit || !PyArg_ParseTuple(unit.get(), "si", &name, &text.multiple)) return std::nullopt;
  text.name = name;
  return text;
}

// The counts in the array's own byte order; NULL with a Python error set.
PyObjectWithGuard viewAsIntegers(const PyObjectWithGuard& array, const PyObjectWithGuard& dtype) {
  const auto order = PyObjectWithGuard::owned(PyObject_GetAttrString(dtype.get(), "byteorder"));
  const auto type =
      PyObjectWithGuard::owned(order ? PyUnicode_FromFormat("%Ui8", order.get()) : nullptr);
  if (!type) return {};
  return PyObjectWithGuard::owned(PyObject_CallMethod(array.get(), "view", "O", type.get()));
}

// Elements that are computed from ticks when they are written out, not before. The ticks stay where
// they are until then; should Python code change them meanwhile, those out of range become NaT.
class TickStorage final : public Storage {
 public:
  TickStorage(Array counts, TickUnit unit, TickUnit::Conversion conversion, size_t size)
      : counts_(std::move(counts)), unit_(unit), conversion_(conversion), size_(size) {}

  const std::byte* data() override {
    if (!computed_) {
      auto computed = foundation::zorvandata::allocateStorage(size_);
      copyTo(const_cast<std::byte*>(computed->data()));
      computed_ = std::move(computed);
    }
    return computed_->data();
  }
  void copyTo(std::byte* out) override {
    (unit_.*conversion_)(dataOf(counts_), counts_.getNumberOfElements(), out);
  }
  bool writable() const override { return false; }
  bool isSettled() const override { return false; }

 private:
  Array counts_;
  TickUnit unit_;
  TickUnit::Conversion conversion_;
  size_t size_;
  std::shared_ptr<Storage> computed_;
};

void setUnsupportedUnit(const char* type, const std::string& unit) {
  setPythonErrorStr(PyExc_TypeError, "conversion of " + std::string(type) + " with unit '" + unit +
                                         "' to ZORVAN not supported");
}

void setOutOfRange(const char* type, const std::string& unit) {
  setPythonErrorStr(PyExc_OverflowError, "a value of " + std::string(type) + " with unit '" + unit +
                                             "' is out of range for ZORVAN");
}

}  // namespace

std::optional<NumpyTicks> NumpyTicks::read(PyObject* obj) {
  if (!isInstanceOf(obj, "numpy", "ndarray") && !isInstanceOf(obj, "numpy", "generic")) {
    setPythonErrorStr(PyExc_TypeError,
                      formatMessage(UnsupportedPythonData, getUnqualifiedName(obj)));
    return std::nullopt;
  }
  if (!PythonNdPyArray::ndpyCapsule) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(CapsuleIsNull));
    return std::nullopt;
  }
  const auto numpy = PyObjectWithGuard::owned(PyImport_ImportModule("numpy"));
  if (!numpy) return std::nullopt;
  const auto array =
      PyObjectWithGuard::owned(PyObject_CallMethod(numpy.get(), "asarray", "O", obj));
  if (!array) return std::nullopt;
  const auto dtype = PyObjectWithGuard::owned(PyObject_GetAttrString(array.get(), "dtype"));
  if (!dtype) return std::nullopt;
  const std::optional<UnitText> unit = readUnit(numpy, dtype);
  if (!unit) return std::nullopt;
  const PyObjectWithGuard integers = viewAsIntegers(array, dtype);
  if (!integers) return std::nullopt;
  std::optional<Array> counts = PythonNdPyArray::arrayFromBuffer(integers.get());
  if (!counts) return std::nullopt;
  return NumpyTicks(std::move(*counts), TickUnit::make(unit->name, unit->multiple), unit->full());
}

std::optional<size_t> NumpyTicks::firstNaT() const {
  const int64_t* first = dataOf(counts_);
  const int64_t* end = first + counts_.getNumberOfElements();
  const int64_t* found = std::find(first, end, kNoTick);
  if (found == end) return std::nullopt;
  return static_cast<size_t>(found - first);
}

bool NumpyTicks::areAllNaT() const {
  const int64_t* first = dataOf(counts_);
  return std::all_of(first, first + counts_.getNumberOfElements(),
                     [](int64_t tick) { return tick == kNoTick; });
}

template <class T>
std::optional<Array> NumpyTicks::toMilliseconds(const char* typeName, bool isMeaningful,
                                                TickUnit::Conversion conversion) const {
  if (!isMeaningful && !areAllNaT()) {
    setUnsupportedUnit(typeName, unitName_);
    return std::nullopt;
  }
  const TickUnit unit = isMeaningful ? *unit_ : TickUnit();
  const size_t count = counts_.getNumberOfElements();
  if (!unit.covers(dataOf(counts_), count)) {
    setOutOfRange(typeName, unitName_);
    return std::nullopt;
  }
  const size_t size = count * sizeof(T);
  auto storage = std::make_shared<TickStorage>(counts_, unit, conversion, size);
  return makeDense(ArrayTypeOf<T>::value, counts_.dimensions(),
                   Buffer::shared(std::move(storage), size));
}

std::optional<Array> NumpyTicks::toTimes() const {
  return toMilliseconds<TimePair>("numpy.datetime64", unit_.has_value(), &TickUnit::toPairs);
}

std::optional<Array> NumpyTicks::toLengths() const {
  const bool isLength = unit_ && !unit_->isCalendar();
  return toMilliseconds<double>("numpy.timedelta64", isLength, &TickUnit::toMilliseconds);
}

}  // namespace PythonZorvanDataArray::detail
