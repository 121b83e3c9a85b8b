#include "to_python/decoder.h"

#include "to_python/numbers.h"
#include "to_python/tape_values.h"
#include "to_python/time_values.h"
#include "to_python/vectors.h"
#include "types/ndpy_array_bridge.h"
#include "types/zorvan_object_type.h"
#include "util/message_catalogue.h"
#include "zorvandata/text.h"
#include "zorvandata/visitor.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::codeOf;
using foundation::zorvandata::ContainerHead;
using foundation::zorvandata::Items;
using foundation::zorvandata::RecordReader;
using foundation::zorvandata::Tape;
using foundation::zorvandata::TapeItems;
using foundation::zorvandata::TapeReader;
using foundation::zorvandata::Texts;
using foundation::zorvandata::TypedArray;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;
using PythonUtil::raise;

namespace {

// The only element of a dense array.
struct MakeNumber {
  template <class T>
  PyObject* operator()(const TypedArray<T>& array) const {
    if constexpr (isDense(TypedArray<T>::kType) && !std::is_same_v<T, char16_t>) {
      return convertNumericElem<T>(*array.begin());
    } else {
      refuseType(array.getType());
    }
  }
};

PyObjectWithGuard makeDense(const Array& array) {
  if (array.getType() == ArrayType::CHAR) {
    if (!isVector(array)) raise(PyExc_ValueError, formatMessage(CharArrayFromZorvan));
    const auto* units = reinterpret_cast<const char16_t*>(array.impl().buffer().data());
    return makeText(std::u16string_view(units, array.getNumberOfElements()));
  }
  if (array.getNumberOfElements() == 1) {
    return checked(foundation::zorvandata::applyVisitor(array, MakeNumber()));
  }
  if (!PythonNdPyArray::ndpyCapsule) raise(PyExc_ValueError, formatMessage(CapsuleIsNull));
  return checked(PythonNdPyArray::ndArrayFromArray(array));
}

PyObjectWithGuard makeStrings(const Array& array) {
  const Texts& texts = array.impl().texts();
  if (array.getNumberOfElements() == 1) {
    const auto text = texts[0];
    return text ? makeText(*text) : PyObjectWithGuard::newReference(Py_None);
  }
  if (!isVector(array)) raise(PyExc_ValueError, formatMessage(StringArrayFromZorvan));
  return makeTexts(texts);
}

PyObjectWithGuard makeDict(Decoder& decoder, const Array& record) {
  if (record.getNumberOfElements() != 1) {
    raise(PyExc_ValueError, formatMessage(StructArrayFromZorvan));
  }
  const auto values = decoder.list(record.impl().items(), Empties::kAsTheyAre);
  auto dict = checked(PyDict_New());
  const std::vector<std::string>& names = record.impl().layout()->names;
  for (size_t i = 0; i < names.size(); ++i) {
    const auto key = makeText(names[i]);
    PyObject* value = PyList_GetItem(values.get(), static_cast<Py_ssize_t>(i));
    PythonUtil::check(PyDict_SetItem(dict.get(), key.get(), value));
  }
  return dict;
}

PyObjectWithGuard makeObject(Decoder& decoder, const Array& array) {
  const std::string& className = array.impl().layout()->className;
  if (className == "datetime") {
    requireOneObject(array, "datetime");
    return makeDatetime(decoder, RecordReader(array));
  }
  if (className == "duration") {
    requireOneObject(array, "duration");
    return makeDuration(RecordReader(array));
  }
  if (className == "dictionary") return makeDictionary(decoder, array);
  if (className == "table") return makeTable(decoder, array);
  if (className == "timetable") return makeTimetable(decoder, array);
  if (className == "missing") return PyObjectWithGuard::newReference(Py_None);
  return makeZorvanObject(array);
}

}  // namespace

PyObjectWithGuard Decoder::outputs(const Tape& tape) {
  TapeReader reader(tape);
  const ContainerHead head(reader);
  return TapeValues(*this, tape).list(reader, head.items, head.isRun, Empties::kAsLists);
}

// The maker of what lies on the tape of some items: the one at work on it, else one for as long as
// this lives.
class Decoder::OnTape {
 public:
  OnTape(Decoder& decoder, const Items& items) {
    if (items.onTape().empty()) return;
    const Tape& tape = *items.onTape().front().tape();
    values_ = decoder.innermost_;
    while (values_ && !values_->isOf(tape)) values_ = values_->outer();
    if (!values_) {
      own_ = std::make_unique<TapeValues>(decoder, tape);
      values_ = own_.get();
    }
  }
  TapeValues* operator->() const { return values_; }

 private:
  std::unique_ptr<TapeValues> own_;
  TapeValues* values_ = nullptr;
};

PyObjectWithGuard Decoder::array(const Array& array) {
  const ArrayType type = array.getType();
  if (isDense(type)) return makeDense(array);
  if (isSparse(type)) refuseSparse();
  switch (type) {
    case ArrayType::ZORVAN_STRING:
      return makeStrings(array);
    case ArrayType::CELL:
      if (!isVector(array)) raise(PyExc_ValueError, formatMessage(CellArrayFromZorvan));
      return list(array.impl().items(), Empties::kAsLists);
    case ArrayType::STRUCT:
      return makeDict(*this, array);
    case ArrayType::VALUE_OBJECT: {
      const OnTape allProperties(*this, array.impl().items());
      return makeObject(*this, array);
    }
    case ArrayType::HANDLE_OBJECT_REF:
      return makeZorvanObject(array);
    default:
      refuseType(type);
  }
}

PyObjectWithGuard Decoder::list(const Items& items, Empties empties) {
  const OnTape values(*this, items);
  const std::vector<TapeItems>& parts = items.onTape();
  if (parts.size() == 1) {
    TapeReader reader = parts[0].first();
    return values->list(reader, parts[0].size(), parts[0].isRun(), empties);
  }
  auto list = checked(PyList_New(static_cast<Py_ssize_t>(items.size())));
  for (size_t i = 0; i < items.size(); ++i) {
    const Array item = items.get(i);
    const bool isEmptyList = item.isEmpty() && empties == Empties::kAsLists;
    auto object = isEmptyList ? checked(PyList_New(0)) : array(item);
    PythonUtil::check(PyList_SetItem(list.get(), static_cast<Py_ssize_t>(i), object.release()));
  }
  return list;
}

PyObjectWithGuard makeText(std::string_view utf8) {
  PyObject* text =
      PyUnicode_DecodeUTF8(utf8.data(), static_cast<Py_ssize_t>(utf8.size()), "strict");
  if (text) return PyObjectWithGuard::owned(text);
  if (!PyErr_ExceptionMatches(PyExc_UnicodeDecodeError)) throw PythonErrorSet();
  PyErr_Clear();
  // A lone surrogate, if anything: what is wrong with it is told in terms of the UTF-16 text.
  return makeText(std::u16string_view(foundation::zorvandata::toUtf16(utf8)));
}

PyObjectWithGuard makeText(std::u16string_view units) {
  int byteOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? -1 : 1;
  return checked(PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(units.data()),
                                       static_cast<Py_ssize_t>(units.size() * sizeof(char16_t)),
                                       "strict", &byteOrder));
}

PyObjectWithGuard makeTexts(const Texts& texts) {
  auto list = checked(PyList_New(static_cast<Py_ssize_t>(texts.size())));
  Py_ssize_t i = 0;
  texts.forEach([&](const auto& text) {
    auto object = text ? makeText(*text) : PyObjectWithGuard::newReference(Py_None);
    PythonUtil::check(PyList_SetItem(list.get(), i++, object.release()));
  });
  return list;
}

PyObjectWithGuard makeZorvanObject(const Array& array) {
  auto object = checked(zorvanObject_new_internal(zorvanObjectType, nullptr, nullptr));
  ZorvanObject& record = *zorvanObjectRecord(object.get());
  record.array = array;
  record.typeCode = codeOf(array.getType());
  record.dims = array.getDimensions();
  return object;
}

void refuseSparse() { raise(PyExc_TypeError, formatMessage(SparseNotSupported)); }

void refuseType(ArrayType type) {
  raise(PyExc_TypeError, formatMessage(UnsupportedZorvanType, codeOf(type)));
}

}  // namespace PythonZorvanDataArray::detail
