#include "to_python/table_categories.h"

#include <string>
#include <vector>

#include "dataarray/category_codes.h"
#include "to_python/decoder.h"
#include "to_python/table_arrow_texts.h"
#include "to_python/table_image.h"
#include "to_python/vectors.h"
#include "zorvandata/visitor.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::nameOf;
using foundation::zorvandata::TypedArray;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;

namespace {

// Applied to an array of codes.
class NamesOfCodes {
 public:
  // By code; that of code 0 is empty.
  explicit NamesOfCodes(const std::vector<std::string>& names) : names_(names) {}

  template <class T>
  PyObjectWithGuard operator()(const TypedArray<T>& codes) const {
    if constexpr (isCode<T>) {
      const size_t count = codes.getNumberOfElements();
      const T* code = codes.begin();
      checkNamed(code, count);
      if (auto arrow = makeArrowTexts(names_, code, count)) return std::move(*arrow);
      std::vector<PyObjectWithGuard> strs;
      for (const std::string& name : names_) strs.push_back(makeText(name));
      return checked(makeList(
          count, [&](size_t i) { return Py_NewRef(strs[static_cast<size_t>(code[i])].get()); }));
    } else {
      PythonUtil::raise(PyExc_TypeError, std::string("codes of ZORVAN categorical have type ") +
                                             nameOf(TypedArray<T>::kType));
    }
  }

 private:
  template <class T>
  void checkNamed(const T* codes, size_t count) const {
    for (size_t i = 0; i < count; ++i) {
      // A negative code is greater than all others as an unsigned one.
      if (static_cast<uint64_t>(codes[i]) < names_.size()) continue;
      throwTableError("code " + std::to_string(codes[i]) + " of ZORVAN categorical, which has " +
                      std::to_string(names_.size() - 1) + " categories");
    }
  }

  const std::vector<std::string>& names_;
};

}  // namespace

PyObjectWithGuard makeCategoricalColumn(const Array& categorical) {
  const Array categoryNames = propertyOf(categorical, "categoryNames", kTextTypes);
  const Array codes = propertyOf(categorical, "codes");
  auto names = textsOf(categoryNames, "categorical", "categoryNames");
  names.insert(names.begin(), "");
  return foundation::zorvandata::applyVisitor(codes, NamesOfCodes(names));
}

}  // namespace PythonZorvanDataArray::detail
