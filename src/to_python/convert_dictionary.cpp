// The engine's dictionary as a zorvan.dictionary.
#include <functional>

#include "to_python/decoder.h"
#include "to_python/numbers.h"
#include "types/zorvan_dictionary_type.h"
#include "util/message_catalogue.h"
#include "zorvandata/visitor.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::applyVisitor;
using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::StructArray;
using foundation::zorvandata::TextCursor;
using foundation::zorvandata::TypedArray;
using foundation::zorvandata::ValueObject;
using foundation::zorvandata::ZorvanPropertyIdentifier;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;

namespace {

[[noreturn]] void fail(const std::string& text) { PythonUtil::raise(PyExc_ValueError, text); }

// How many keys or values an array holds: a char array is one text.
size_t countOf(const Array& array) {
  return array.getType() == ArrayType::CHAR ? 1 : array.getNumberOfElements();
}

// Gives the keys or values of an array one by one.
using Entries = std::function<PyObjectWithGuard()>;

// Applied to the array, which must outlive the entries.
class MakeEntries {
 public:
  explicit MakeEntries(Decoder& decoder) : decoder_(decoder) {}

  template <class T>
  Entries operator()(const TypedArray<T>& array) const {
    constexpr ArrayType kType = TypedArray<T>::kType;
    if constexpr (kType == ArrayType::CHAR) {
      return [this, text = Array(array)] { return decoder_.array(text); };
    } else if constexpr (isDense(kType)) {
      return [next = array.begin()]() mutable { return checked(convertNumericElem<T>(*next++)); };
    } else if constexpr (kType == ArrayType::ZORVAN_STRING) {
      return [cursor = TextCursor(array.impl().texts())]() mutable {
        const auto text = cursor.next();
        return text ? makeText(*text) : PyObjectWithGuard::newReference(Py_None);
      };
    } else if constexpr (kType == ArrayType::CELL) {
      // Elements have no order of their own to wait for.
      return [list = std::make_shared<PyObjectWithGuard>(
                  decoder_.list(array.impl().items(), Empties::kAsTheyAre)),
              i = Py_ssize_t{0}]() mutable {
        return PyObjectWithGuard::newReference(PyList_GetItem(list->get(), i++));
      };
    } else {
      fail(formatMessage(UnspecifiedTypeNotConvertibleToZORVANDotDictionary));
    }
  }

 private:
  Decoder& decoder_;
};

// A single key may have an array without elements as its value, which then stands for itself.
bool isLoneEmptyValue(const Array& keys, const Array& values) {
  return countOf(keys) == 1 && countOf(values) == 0;
}

// Keys or values of a type that no converter takes.
void checkType(const Array& array) {
  const ArrayType type = array.getType();
  if (isSparse(type)) refuseSparse();
  if (type == ArrayType::UNKNOWN) refuseType(type);
  if (type == ArrayType::ENUMERATION || type == ArrayType::OBJECT) {
    fail(formatMessage(UnspecifiedTypeNotConvertibleToZORVANDotDictionary));
  }
}

void fill(Decoder& decoder, PyObject* dict, const Array& keys, const Array& values) {
  checkType(keys);
  checkType(values);
  const MakeEntries makeEntries(decoder);
  const size_t count = countOf(keys);
  if (isLoneEmptyValue(keys, values)) {
    const auto key = applyVisitor(keys, makeEntries)();
    const auto value = decoder.array(values);
    return PythonUtil::check(PyDict_SetItem(dict, key.get(), value.get()));
  }
  if (count == 0) return;
  const Entries nextKey = applyVisitor(keys, makeEntries);
  const Entries nextValue = applyVisitor(values, makeEntries);
  for (size_t i = 0; i < count; ++i) {
    const auto key = nextKey();
    const auto value = nextValue();
    PythonUtil::check(PyDict_SetItem(dict, key.get(), value.get()));
  }
  if (static_cast<size_t>(PyDict_Size(dict)) == count) return;
  fail("keys of a ZORVAN dictionary are equal in Python");
}

Array dataOf(const Array& array) {
  if (array.getNumberOfElements() != 1) {
    fail("only a scalar dictionary can be returned from ZORVAN");
  }
  const ValueObject dictionary = array[0];
  const ZorvanPropertyIdentifier property("data");
  if (!dictionary.hasProperty(property)) {
    fail(formatMessage(PropertyNotFoundInObject, "data", "dictionary"));
  }
  const StructArray data(dictionary[property]);
  if (data.getNumberOfElements() != 1) {
    fail("the data of a ZORVAN dictionary is not a scalar struct");
  }
  return data;
}

Array fieldOf(const Array& data, const std::string& name) {
  const auto& layout = *data.impl().layout();
  if (layout.find(name) == layout.names.size()) {
    fail(formatMessage(PropertyNotFoundInObject, name, "dictionary"));
  }
  return foundation::zorvandata::detail::readField(data, 0, name);
}

}  // namespace

PyObjectWithGuard makeDictionary(Decoder& decoder, const Array& array) {
  const Array data = dataOf(array);
  const auto dict = checked(PyDict_New());
  const auto& layout = *data.impl().layout();
  if (layout.find("Unconfigured") == layout.names.size()) {
    const Array keys = fieldOf(data, "Key");
    const Array values = fieldOf(data, "Value");
    if (countOf(keys) != countOf(values) && !isLoneEmptyValue(keys, values)) {
      fail("a ZORVAN dictionary has " + std::to_string(countOf(keys)) + " keys and " +
           std::to_string(countOf(values)) + " values");
    }
    fill(decoder, dict.get(), keys, values);
  }
  return checked(zorvanDictionary_new_with_contents(dict.get()));
}

}  // namespace PythonZorvanDataArray::detail
