// The elements of cells and string arrays as Python lists.
#pragma once

#include "to_python/element_maker.h"

namespace PythonZorvanDataArray::detail {

// New reference to a list of the elements, each as the converter for it has it; NULL with a Python
// error set.
PyObject* itemsToList(const foundation::zorvandata::ItemList& items, Empties empties);

}  // namespace PythonZorvanDataArray::detail
