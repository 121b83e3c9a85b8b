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

// One side of the items of a mapping, keys or values, converted apart from what the mapping is in.
// Several objects become an N-by-1 array: a string array if all are texts, doubles if all are
// floats, else a cell.
class Side {
 public:
  Side(Encoder& outer, size_t count)
      : outer_(outer), dims_(count, 1), encoder_(std::make_unique<Encoder>(outer, 1)) {}

  Encoder& encoder() { return *encoder_; }
  void standBeside(Side& other) {
    other_ = &other;
    encoder_->standBeside(*other.encoder_);
  }

  void append(PyObject* object) {
    const bool isText = Py_TYPE(object) == &PyUnicode_Type;
    if (!firstType_) {
      open(isText);
      firstType_ = typeOf(object);
    } else if (!isText && areTexts_) {
      widenToCell();
    }
    if (areTexts_) {
      encoder_->appendStringElement(object);
      texts_.push_back(PyObjectWithGuard::newReference(object));
      return;
    }
    auto* first = reinterpret_cast<PyTypeObject*>(firstType_.get());
    areOfOneType_ = areOfOneType_ && PyType_IsSubtype(Py_TYPE(object), first) != 0;
    appendToCell(object);
  }

  Array close() {
    if (areTexts_) return finish(*encoder_);
    encoder_->tape().closeCell();
    const Array cell = finish(*encoder_);
    return areOfOneType_ ? combineDoubles(cell) : cell;
  }

 private:
  static PyObjectWithGuard typeOf(PyObject* object) {
    return PyObjectWithGuard::newReference(reinterpret_cast<PyObject*>(Py_TYPE(object)));
  }
  void open(bool asTexts) {
    areTexts_ = asTexts;
    asTexts ? encoder_->tape().openStrings(dims_) : encoder_->tape().openGrid(dims_);
  }
  void appendToCell(PyObject* object) {
    encoder_->tape().element();
    encoder_->append(object, getOptionsWithinDict());
  }
  // Once more from the first; texts cannot have changed.
  void widenToCell() {
    encoder_ = std::make_unique<Encoder>(outer_, 1);
    standBeside(*other_);
    other_->standBeside(*this);
    open(false);
    for (const auto& text : texts_) appendToCell(text.get());
    texts_.clear();
  }

  Encoder& outer_;
  Dimensions dims_;
  std::unique_ptr<Encoder> encoder_;  // not on the stack, of which a deep nest would take too much
  Side* other_ = nullptr;
  std::vector<PyObjectWithGuard> texts_;
  PyObjectWithGuard firstType_;
  bool areTexts_ = false;
  bool areOfOneType_ = true;
};

struct Sides {
  Sides(Encoder& to, size_t count) : keys(to, count), values(to, count) {
    keys.standBeside(values);
    values.standBeside(keys);
  }
  Sides(const Sides&) = delete;
  Sides& operator=(const Sides&) = delete;

  Side keys;
  Side values;
};

// Objects that differ to Python may be one and the same to the engine. The keys of a dict that are
// all of the same plain type cannot.
bool mayCollapse(const MappingItems& items) {
  if (!items.areFromDict()) return true;
  PyTypeObject* first = Py_TYPE(items.keys().front().get());
  const bool plain = first == &PyUnicode_Type || first == &PyLong_Type || first == &PyFloat_Type;
  return !plain || !areAllExactly(items.keys(), first);
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

void appendOneItem(Encoder& to, const MappingItems& items) {
  Sides sides(to, 1);
  Encoder& keys = sides.keys.encoder();
  Encoder& values = sides.values.encoder();
  keys.append(items.keys()[0].get(), getOptionsWithinDict());
  values.append(items.value(values, 0).get(), getOptionsWithinDict());
  items.checkLength(values);
  const Array key = finish(keys);
  const Array value = finish(values);
  const bool isLoneKey = key.getNumberOfElements() == 1;
  const Array storedKey = !isLoneKey && shouldBeStoredAsCell(key) ? wrapInCell(key) : key;
  const Array storedValue = shouldBeStoredAsCell(value) ? wrapInCell(value) : value;
  if (!arrayDimsAreCompatible(storedKey.getNumberOfElements(), storedValue.getNumberOfElements())) {
    PythonUtil::raise(PyExc_ValueError, formatMessage(KeyValueDimsMustMatch));
  }
  appendConfigured(to, storedKey, storedValue);
}

void appendSeveralItems(Encoder& to, const MappingItems& items) {
  Sides sides(to, items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    sides.keys.append(items.keys()[i].get());
    sides.values.append(items.value(sides.values.encoder(), i).get());
  }
  items.checkLength(sides.values.encoder());
  const Array keys = sides.keys.close();
  if (mayCollapse(items)) checkDistinct(keys);
  appendConfigured(to, keys, sides.values.close());
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
