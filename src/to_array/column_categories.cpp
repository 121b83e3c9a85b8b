#include "to_array/column_categories.h"

#include <string>
#include <unordered_map>
#include <vector>

#include "dataarray/category_codes.h"
#include "to_array/pandas_objects.h"
#include "to_array/text_converters.h"
#include "types/ndpy_array_bridge.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/text.h"
#include "zorvandata/visitor.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::ShapeBytes;
using foundation::zorvandata::TapeBuilder;
using foundation::zorvandata::TapeReader;
using foundation::zorvandata::TypedArray;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;
using PythonUtil::raise;

namespace {

// Texts by the order in which they first came.
class UniqueValues {
 public:
  // The code of the text, a new one if it is new: counted from 1 and cut.
  uint8_t codeOf(std::string text) {
    const auto [place, isNew] = positions_.emplace(std::move(text), order_.size() + 1);
    if (isNew) order_.push_back(&place->first);
    return static_cast<uint8_t>(place->second);
  }
  void append(TapeBuilder& tape) const {
    tape.openGrid(Dimensions(order_.size(), 1));
    for (const std::string* text : order_) {
      tape.element();
      tape.text(*text);
    }
    tape.closeCell();
  }

 private:
  std::unordered_map<std::string, size_t> positions_;
  std::vector<const std::string*> order_;
};

// Applied to the codes of a pandas categorical.
class CategoricalOfCodes {
 public:
  // The categories as a list.
  explicit CategoricalOfCodes(const PyObjectWithGuard& categories) : categories_(categories) {}

  template <class T>
  Array operator()(const TypedArray<T>& codes) const {
    if constexpr (isCode<T>) {
      return convert(codes, usedCodes(codes));
    } else {
      raise(PyExc_TypeError, "the codes of a pandas.DataFrame column are no integers");
    }
  }

 private:
  // The position among the codes, which begin at -1, the code of gaps; beyond all of them for a
  // code below.
  template <class T>
  static size_t indexOf(T code) {
    return static_cast<size_t>(code) + 1;
  }

  // Which codes rows have, from -1 on.
  template <class T>
  std::vector<char> usedCodes(const TypedArray<T>& codes) const {
    const auto count = static_cast<size_t>(PyList_Size(categories_.get())) + 1;
    std::vector<char> used(count);
    const T* code = codes.begin();
    const size_t rows = codes.getNumberOfElements();
    for (size_t i = 0; i < rows; ++i) {
      const size_t index = indexOf(code[i]);
      if (index >= count) {
        raise(PyExc_ValueError, "a code of a pandas.DataFrame column has no category");
      }
      used[index] = 1;
    }
    return used;
  }

  // str(category) as UTF-8.
  std::string categoryText(size_t position) const {
    const PyObjectWithGuard category = listItem(categories_, position);
    const auto text = PyObjectWithGuard::owned(PyObject_Str(category.get()));
    const std::optional<std::u16string> units = convertPyStrToUstring(text.get());
    if (!units) throw PythonErrorSet();
    return foundation::zorvandata::toUtf8(*units);
  }

  template <class T>
  Array convert(const TypedArray<T>& codes, const std::vector<char>& used) const {
    UniqueValues values;
    std::vector<uint8_t> codeOf(used.size());
    for (size_t i = 0; i < used.size(); ++i) {
      if (used[i]) codeOf[i] = values.codeOf(i == 0 ? std::string() : categoryText(i - 1));
    }
    TapeBuilder tape;
    tape.openRecord(ArrayType::VALUE_OBJECT,
                    tape.shape(ShapeBytes("categorical", {"categoryNames", "codes"}).bytes()));
    values.append(tape);
    tape.array(getTypedArrayFromUniqueValues(codes, codeOf));
    tape.closeRecord();
    return TapeReader(*tape.finish()).arrayHere();
  }

  template <class T>
  static Array getTypedArrayFromUniqueValues(const TypedArray<T>& codes,
                                             const std::vector<uint8_t>& codeOf) {
    const size_t rows = codes.getNumberOfElements();
    Buffer buffer = Buffer::uninitialized(rows);
    auto* out = reinterpret_cast<uint8_t*>(buffer.mutableData());
    const T* code = codes.begin();
    for (size_t i = 0; i < rows; ++i) out[i] = codeOf[indexOf(code[i])];
    return makeDense(ArrayType::UINT8, Dimensions(rows, 1), std::move(buffer));
  }

  const PyObjectWithGuard& categories_;
};

}  // namespace

Array handleCategoricalColumn(FrameColumns& columns, PyObject* series) {
  const auto values = attributeOf(series, "array");
  const auto categories = resultOf(attributeOf(values.get(), "categories").get(), "tolist");
  const auto numbers = attributeOf(values.get(), "codes");
  std::optional<Array> codes = PythonNdPyArray::arrayFromBuffer(numbers.get());
  if (!codes) throw PythonErrorSet();
  // The text of a category of a class of its own is made by code that may change the codes.
  if (!arePlain(categories.get())) {
    columns.beforeForeignCode();
    codes = makeDense(codes->getType(), codes->dimensions(), codes->impl().buffer().settled());
  }
  return foundation::zorvandata::applyVisitor(*codes, CategoricalOfCodes(categories));
}

}  // namespace PythonZorvanDataArray::detail
