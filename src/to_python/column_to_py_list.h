// Columns of many elements as Python lists, without a converter's call for each of them.
#pragma once

#include "util/python_api.h"
#include "zorvandata/item_list.h"

namespace PythonZorvanDataArray::detail {

// What elements without elements become.
enum class Empties {
  kAsLists,   // an empty list each, as in cells
  kAsTheyAre  // what their converter makes of them, as in fields and string arrays
};

// New reference to a list of the elements, each as the converter for it has it; NULL with a Python
// error set.
PyObject* itemsToList(const foundation::zorvandata::ItemList& items, Empties empties);

}  // namespace PythonZorvanDataArray::detail
