// Sequences of plain values as columns, without a converter's call for each of them.
//
// Plain are the values of exactly the types float, int, bool and str: to read one runs no Python
// code, so that borrowed references hold.
#pragma once

#include <functional>
#include <optional>

#include "util/python_api.h"
#include "zorvandata/item_column.h"

namespace PythonZorvanDataArray::detail {

// Borrowed references to `count` objects that stay alive meanwhile, `step` apart in memory.
struct ObjectSpan {
  PyObject* const* first;
  size_t count;
  size_t step = 1;

  PyObject* operator()(size_t i) const { return first[i * step]; }
};

bool isPlain(PyObject* obj);

// The elements of a list, a tuple or a span if all are plain and of one type and there are enough
// of them to be worth it. Absent otherwise; with a Python error set when one of them fails:
// OverflowError for an int beyond 64 bits, UnicodeEncodeError for a lone surrogate.
std::optional<foundation::zorvandata::ItemList> uniformColumn(PyObject* listOrTuple);
std::optional<foundation::zorvandata::ItemList> uniformColumn(const ObjectSpan& objects);

// The texts of a list of exactly str objects as elements of type CHAR or ZORVAN_STRING; absent like
// above.
std::optional<foundation::zorvandata::ItemList> textColumn(PyObject* list,
                                                           foundation::zorvandata::ArrayType type);

// Plain values of any types; absent with a Python error set.
std::optional<foundation::zorvandata::ItemList> plainItems(const ObjectSpan& objects);

}  // namespace PythonZorvanDataArray::detail
