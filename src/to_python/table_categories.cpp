#include "to_python/table_categories.h"

#include <string>
#include <vector>

#include "dataarray/category_codes.h"
#include "to_python/table_arrow_texts.h"
#include "to_python/table_image.h"
#include "to_python/text_converters.h"
#include "to_python/vectors.h"
#include "util/python_error.h"
#include "zorvandata/visitor.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::nameOf;
using foundation::zorvandata::TextColumn;
using foundation::zorvandata::TextColumnBuilder;
using foundation::zorvandata::TypedArray;
using PythonUtil::PyObjectWithGuard;

namespace {

std::optional<std::vector<PyObjectWithGuard>> makeStrs(const std::vector<std::string>& texts) {
  std::vector<PyObjectWithGuard> strs;
  for (const std::string& text : texts) {
    strs.push_back(PyObjectWithGuard::owned(makeText(text)));
    if (!strs.back()) return std::nullopt;
  }
  return strs;
}

// Applied to an array of codes.
class NamesOfCodes {
 public:
  // By code; that of code 0 is empty.
  explicit NamesOfCodes(const std::vector<std::string>& names) : names_(names) {}

  template <class T>
  PyObject* operator()(const TypedArray<T>& codes) const {
    if constexpr (isCode<T>) {
      const size_t count = codes.getNumberOfElements();
      const T* code = codes.begin();
      if (!areNamed(code, count)) return nullptr;
      if (const auto arrow = makeArrowTexts(texts(), code, count)) return *arrow;
      const auto strs = makeStrs(names_);
      if (!strs) return nullptr;
      return makeList(
          count, [&](size_t i) { return Py_NewRef((*strs)[static_cast<size_t>(code[i])].get()); });
    } else {
      setPythonErrorStr(PyExc_TypeError, std::string("codes of ZORVAN categorical have type ") +
                                             nameOf(TypedArray<T>::kType));
      return nullptr;
    }
  }

 private:
  TextColumn texts() const {
    TextColumnBuilder builder(ArrayType::ZORVAN_STRING, names_.size());
    for (const std::string& name : names_) builder.append(name);
    return builder.finish();
  }

  template <class T>
  bool areNamed(const T* codes, size_t count) const {
    for (size_t i = 0; i < count; ++i) {
      // A negative code is greater than all others as an unsigned one.
      if (static_cast<uint64_t>(codes[i]) < names_.size()) continue;
      setTableError("code " + std::to_string(codes[i]) + " of ZORVAN categorical, which has " +
                    std::to_string(names_.size() - 1) + " categories");
      return false;
    }
    return true;
  }

  const std::vector<std::string>& names_;
};

}  // namespace

PyObject* makeCategoricalColumn(const Array& categorical) {
  const auto categoryNames = propertyOf(categorical, "categoryNames", kTextTypes);
  if (!categoryNames) return nullptr;
  const auto codes = propertyOf(categorical, "codes");
  if (!codes) return nullptr;
  auto names = textsOf(*categoryNames, "categorical", "categoryNames");
  if (!names) return nullptr;
  names->insert(names->begin(), "");
  return foundation::zorvandata::applyVisitor(*codes, NamesOfCodes(*names));
}

}  // namespace PythonZorvanDataArray::detail
