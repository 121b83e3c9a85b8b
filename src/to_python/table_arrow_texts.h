// Columns of texts in the form in which pandas keeps texts by default where it has Arrow, without
// an object for each text.
#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "util/python_api.h"
#include "zorvandata/item_list.h"

namespace PythonZorvanDataArray::detail {

// The text at a position, UTF-8 as the data-array library stores it; nothing for a missing one. The
// text must stay where it is until the column is made.
using TextAt = std::function<std::optional<std::string_view>(size_t)>;

// New reference to a pandas array, NULL with a Python error set. Nothing, and no error, when a list
// of str is the way: for few texts, where pandas keeps them otherwise, and for texts with lone
// surrogates, which cannot be had at all.
std::optional<PyObject*> makeArrowTexts(size_t count, const TextAt& textAt);
// Likewise of the elements of a string array; shares the memory of a column.
std::optional<PyObject*> makeArrowTexts(const foundation::zorvandata::ItemList& strings);

}  // namespace PythonZorvanDataArray::detail
