#include "to_array/column_categories.h"

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "dataarray/category_codes.h"
#include "to_array/text_converters.h"
#include "types/ndpy_array_bridge.h"
#include "util/py_object_guard.h"
#include "util/python_error.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/text.h"
#include "zorvandata/visitor.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::TypedArray;
using PythonUtil::PyObjectWithGuard;

namespace {

using UniqueValues = std::unordered_set<std::string>;

PyObjectWithGuard attribute(PyObject* obj, const char* name) {
  return PyObjectWithGuard::owned(PyObject_GetAttrString(obj, name));
}

// Nothing, with a Python error set, when the object is empty or has no such attribute.
PyObjectWithGuard attribute(const PyObjectWithGuard& obj, const char* name) {
  return obj ? attribute(obj.get(), name) : PyObjectWithGuard();
}

// str(category) as UTF-8; absent with a Python error set.
std::optional<std::string> categoryText(const PyObjectWithGuard& categories, size_t position) {
  const auto category = PyObjectWithGuard::newReference(
      PyList_GetItem(categories.get(), static_cast<Py_ssize_t>(position)));
  const auto text = PyObjectWithGuard::owned(category ? PyObject_Str(category.get()) : nullptr);
  const std::optional<std::u16string> units = convertPyStrToUstring(text.get());
  if (!units) return std::nullopt;
  return foundation::zorvandata::toUtf8(*units);
}

Array getUniqueValuesCellArray(const UniqueValues& values) {
  ItemList names;
  names.reserve(values.size());
  for (const std::string& value : values) names.appendText(value);
  return makeArray(ArrayType::CELL, Dimensions(values.size(), 1), std::move(names));
}

// The code of the engine's for each of pandas', which begin at -1, the code of gaps. `textOf` is a
// text for each of those, NULL where no row is.
std::vector<uint8_t> codesOfTexts(const UniqueValues& values,
                                  const std::vector<const std::string*>& textOf) {
  std::unordered_map<const std::string*, uint8_t> codeOfText;
  size_t code = 0;
  for (const std::string& value : values) codeOfText[&value] = static_cast<uint8_t>(++code);
  std::vector<uint8_t> codes(textOf.size());
  for (size_t i = 0; i < textOf.size(); ++i) {
    if (textOf[i]) codes[i] = codeOfText[textOf[i]];
  }
  return codes;
}

// Applied to the codes of a pandas categorical; absent with a Python error set.
class CategoricalOfCodes {
 public:
  // The categories as a list.
  explicit CategoricalOfCodes(const PyObjectWithGuard& categories) : categories_(categories) {}

  template <class T>
  std::optional<Array> operator()(const TypedArray<T>& codes) const {
    if constexpr (isCode<T>) {
      const std::optional<std::vector<char>> used = usedCodes(codes);
      return used ? convert(codes, *used) : std::nullopt;
    } else {
      setPythonErrorStr(PyExc_TypeError, "the codes of a pandas.DataFrame column are no integers");
      return std::nullopt;
    }
  }

 private:
  // The position among the codes, which begin at -1; beyond all of them for a code below.
  template <class T>
  static size_t indexOf(T code) {
    return static_cast<size_t>(code) + 1;
  }

  // Which codes rows have, from -1 on.
  template <class T>
  std::optional<std::vector<char>> usedCodes(const TypedArray<T>& codes) const {
    const auto count = static_cast<size_t>(PyList_Size(categories_.get())) + 1;
    std::vector<char> used(count);
    const T* code = codes.begin();
    const size_t rows = codes.getNumberOfElements();
    for (size_t i = 0; i < rows; ++i) {
      const size_t index = indexOf(code[i]);
      if (index >= count) {
        setPythonErrorStr(PyExc_ValueError, "a code of a pandas.DataFrame column has no category");
        return std::nullopt;
      }
      used[index] = 1;
    }
    return used;
  }

  template <class T>
  std::optional<Array> convert(const TypedArray<T>& codes, const std::vector<char>& used) const {
    UniqueValues values;
    std::vector<const std::string*> textOf(used.size());
    for (size_t i = 0; i < used.size(); ++i) {
      if (!used[i]) continue;
      std::optional<std::string> text = i == 0 ? std::string() : categoryText(categories_, i - 1);
      if (!text) return std::nullopt;
      textOf[i] = &*values.insert(std::move(*text)).first;
    }
    static const auto layout =
        foundation::zorvandata::makeLayout("categorical", {"categoryNames", "codes"});
    ItemList items;
    items.append(getUniqueValuesCellArray(values));
    items.append(getTypedArrayFromUniqueValues(codes, codesOfTexts(values, textOf)));
    return makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(), std::move(items), layout);
  }

  // Python code may have run since the codes were looked at, and changed them.
  template <class T>
  static Array getTypedArrayFromUniqueValues(const TypedArray<T>& codes,
                                             const std::vector<uint8_t>& codeOf) {
    const size_t rows = codes.getNumberOfElements();
    Buffer buffer = Buffer::uninitialized(rows);
    auto* out = reinterpret_cast<uint8_t*>(buffer.mutableData());
    const T* code = codes.begin();
    for (size_t i = 0; i < rows; ++i) {
      const size_t index = indexOf(code[i]);
      out[i] = index < codeOf.size() ? codeOf[index] : 0;
    }
    return makeDense(ArrayType::UINT8, Dimensions(rows, 1), std::move(buffer));
  }

  const PyObjectWithGuard& categories_;
};

}  // namespace

std::optional<Array> handleCategoricalColumn(PyObject* series) {
  const PyObjectWithGuard values = attribute(series, "array");
  const PyObjectWithGuard index = attribute(values, "categories");
  const auto categories = PyObjectWithGuard::owned(
      index ? PyObject_CallMethod(index.get(), "tolist", nullptr) : nullptr);
  const PyObjectWithGuard numbers = categories ? attribute(values, "codes") : PyObjectWithGuard();
  const std::optional<Array> codes =
      numbers ? PythonNdPyArray::arrayFromBuffer(numbers.get()) : std::nullopt;
  if (!codes) return std::nullopt;
  return foundation::zorvandata::applyVisitor(*codes, CategoricalOfCodes(categories));
}

}  // namespace PythonZorvanDataArray::detail
