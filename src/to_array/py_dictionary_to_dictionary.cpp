#include "to_array/py_dictionary_to_dictionary.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <unordered_set>

#include "bridge/data_array_protobuf_bridge.h"
#include "dataarray/array_predicates.h"
#include "to_array/mapping_items.h"
#include "util/message_catalogue.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/tape_reader.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::Tape;
using foundation::zorvandata::TapeBuilder;
using foundation::zorvandata::TapeReader;
using PythonUtil::PyObjectWithGuard;

namespace {

using Objects = std::vector<PyObjectWithGuard>;

const ConversionOptions& getOptionsWithinDict() {
  static const ConversionOptions options = [] {
    ConversionOptions made;
    made.setConvertPyStrToString(true);
    return made;
  }();
  return options;
}

void appendVersionNumber(TapeBuilder& tape) {
  constexpr uint64_t kVersion = 1;
  tape.scalar(ArrayType::UINT64, &kVersion);
}

bool arrayDimsAreCompatible(size_t keyElements, size_t valueElements) {
  return keyElements != 1 || valueElements <= 1;
}

bool areAllExactly(const Objects& objects, PyTypeObject* type) {
  return std::all_of(objects.begin(), objects.end(),
                     [type](const auto& object) { return Py_TYPE(object.get()) == type; });
}

// Whether every object's type is the first one's or a subtype of it.
bool isHomogeneous(const Objects& objects) {
  PyTypeObject* first = Py_TYPE(objects.front().get());
  return std::all_of(objects.begin(), objects.end(), [first](const auto& object) {
    return PyType_IsSubtype(Py_TYPE(object.get()), first) != 0;
  });
}

// Doubles in a cell as one array; anything else as it is.
Array combineDoubles(const Array& cell) {
  const auto& part = cell.impl().items().onTape().front();
  const bool areDoubles =
      part.isRun() && part.first().peek() == foundation::zorvandata::kindOf(ArrayType::DOUBLE);
  if (!areDoubles) return cell;
  TapeReader reader = part.first();
  const size_t size = part.size() * sizeof(double);
  return makeDense(ArrayType::DOUBLE, cell.dimensions(),
                   foundation::zorvandata::Buffer::copyOf(reader.reals(part.size()), size));
}

// Several keys, or values, as one N-by-1 array: converted one by one, in the form that suits all of
// them.
class ItemsOfDictionary {
 public:
  explicit ItemsOfDictionary(const Objects& objects)
      : objects_(objects),
        form_(areAllExactly(objects, &PyUnicode_Type) ? Form::kStrings
              : isHomogeneous(objects)                ? Form::kPerhapsDoubles
                                                      : Form::kCell) {}

  void open(Encoder& to) const {
    const Dimensions dims(objects_.size(), 1);
    form_ == Form::kStrings ? to.tape().openStrings(dims) : to.tape().openGrid(dims);
  }
  void append(Encoder& to, size_t i) const {
    if (form_ == Form::kStrings) return to.appendStringElement(objects_[i].get());
    to.tape().element();
    to.append(objects_[i].get(), getOptionsWithinDict());
  }
  Array close(Encoder& to) const {
    if (form_ == Form::kStrings) return finish(to);
    to.tape().closeCell();
    const Array cell = finish(to);
    return form_ == Form::kPerhapsDoubles ? combineDoubles(cell) : cell;
  }

 private:
  enum class Form { kStrings, kPerhapsDoubles, kCell };

  const Objects& objects_;
  Form form_;
};

// Objects that differ to Python may be one and the same to the engine. The keys of a dict that are
// all of the same plain type cannot.
bool mayCollapse(const MappingItems& items) {
  if (!items.fromDict) return true;
  PyTypeObject* first = Py_TYPE(items.keys.front().get());
  const bool plain = first == &PyUnicode_Type || first == &PyLong_Type || first == &PyFloat_Type;
  return !plain || !areAllExactly(items.keys, first);
}

// Equal to nothing, itself included.
bool isNaN(const Array& key) {
  return key.getType() == ArrayType::DOUBLE && key.dimensions().isScalar() &&
         std::isnan(double{key[0]});
}

// ValueError when two keys are the same array.
void checkDistinct(const Array& keys) {
  using zds::client::zorvandata::protobuf::serializedArray;
  std::unordered_set<std::string> seen;
  const size_t count = keys.getNumberOfElements();
  for (size_t i = 0; i < count; ++i) {
    const Array key = foundation::zorvandata::detail::elementAsArray(keys, i);
    if (isNaN(key) || seen.insert(serializedArray(key)).second) continue;
    PythonUtil::raise(PyExc_ValueError,
                      "key at position " + std::to_string(i) +
                          " of the mapping is the same to ZORVAN as one before it");
  }
}

void appendConfigured(Encoder& to, const Array& keys, const Array& values) {
  const Level level(to);
  TapeBuilder& tape = to.tape();
  tape.openRecord(ArrayType::STRUCT, to.shape(Encoder::kDictionaryData));
  appendVersionNumber(tape);
  tape.logical(shouldBeMarkedCombined(keys));
  tape.logical(shouldBeMarkedCombined(values));
  tape.array(keys);
  tape.array(values);
  tape.closeRecord();
}

Array wrapInCell(const Array& value) {
  return makeArray(ArrayType::CELL, Dimensions::scalar(),
                   foundation::zorvandata::Items(std::vector<Array>{value}));
}

// Where keys and values are converted apart from each other. Not on the stack, of which a deep nest
// of mappings would take too much.
struct Sides {
  explicit Sides(Encoder& to)
      : keys(std::make_unique<Encoder>(to, 1)), values(std::make_unique<Encoder>(to, 1)) {
    keys->standBeside(*values);
    values->standBeside(*keys);
  }

  std::unique_ptr<Encoder> keys;
  std::unique_ptr<Encoder> values;
};

void appendOneItem(Encoder& to, const MappingItems& items) {
  const Sides sides(to);
  sides.keys->append(items.keys[0].get(), getOptionsWithinDict());
  sides.values->append(items.values[0].get(), getOptionsWithinDict());
  const Array key = finish(*sides.keys);
  const Array value = finish(*sides.values);
  const bool isLoneKey = key.getNumberOfElements() == 1;
  const Array storedKey = !isLoneKey && shouldBeStoredAsCell(key) ? wrapInCell(key) : key;
  const Array storedValue = shouldBeStoredAsCell(value) ? wrapInCell(value) : value;
  if (!arrayDimsAreCompatible(storedKey.getNumberOfElements(), storedValue.getNumberOfElements())) {
    PythonUtil::raise(PyExc_ValueError, formatMessage(KeyValueDimsMustMatch));
  }
  appendConfigured(to, storedKey, storedValue);
}

void appendSeveralItems(Encoder& to, const MappingItems& items) {
  const ItemsOfDictionary keys(items.keys);
  const ItemsOfDictionary values(items.values);
  const Sides sides(to);
  keys.open(*sides.keys);
  values.open(*sides.values);
  for (size_t i = 0; i < items.size(); ++i) {
    keys.append(*sides.keys, i);
    values.append(*sides.values, i);
  }
  const Array keyArray = keys.close(*sides.keys);
  if (mayCollapse(items)) checkDistinct(keyArray);
  const Array valueArray = values.close(*sides.values);
  appendConfigured(to, keyArray, valueArray);
}

}  // namespace

void PyDictionaryToDictionary::append(Encoder& to, PyObject* obj, const Options&) const {
  const Level level(to);
  const MappingItems items = readMapping(to, obj);
  TapeBuilder& tape = to.tape();
  tape.openRecord(ArrayType::VALUE_OBJECT, to.shape(Encoder::kDictionary));
  if (items.size() == 0) {
    const Level data(to);
    tape.openRecord(ArrayType::STRUCT, to.shape(Encoder::kNoDictionaryData));
    appendVersionNumber(tape);
    tape.logical(true);
    tape.closeRecord();
  } else if (items.size() == 1) {
    appendOneItem(to, items);
  } else {
    appendSeveralItems(to, items);
  }
  tape.closeRecord();
}

}  // namespace PythonZorvanDataArray::detail
