// Columns of texts in the form in which pandas keeps texts by default where it has Arrow, without
// an object for each text.
#pragma once

#include <cstdint>
#include <optional>

#include "util/python_api.h"
#include "zorvandata/item_column.h"

namespace PythonZorvanDataArray::detail {

// The elements of a string array as a pandas array, which may share their memory. New reference,
// NULL with a Python error set. Nothing, and no error, when a list of str is the way: for few
// texts, where pandas keeps them otherwise, and for texts with lone surrogates, which cannot be had
// at all.
std::optional<PyObject*> makeArrowTexts(const foundation::zorvandata::ItemList& strings);

// Likewise of `count` texts, each given by its position, an integer of any type, among those of a
// column that misses none.
template <class Position>
std::optional<PyObject*> makeArrowTexts(const foundation::zorvandata::TextColumn& distinct,
                                        const Position* positions, size_t count);

}  // namespace PythonZorvanDataArray::detail
