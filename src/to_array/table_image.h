// What the engine's tables and timetables look like from inside: value objects whose fields, their
// order, types and constants the engine relies on to rebuild them.
#pragma once

#include "zorvandata/array.h"
#include "zorvandata/item_list.h"

namespace PythonZorvanDataArray::detail {

// The variables of a table, in order.
struct TableVariables {
  foundation::zorvandata::ItemList names;  // char rows
  foundation::zorvandata::ItemList data;   // as many columns
  size_t rows = 0;
};

// The times of a timetable's rows, and the name of that dimension.
struct RowTimes {
  foundation::zorvandata::Array name;  // a char row
  foundation::zorvandata::Array data;
};

// Both throw what the data-array library throws.
foundation::zorvandata::Array makeTable(TableVariables variables);
foundation::zorvandata::Array makeTimetable(TableVariables variables, const RowTimes& times);

}  // namespace PythonZorvanDataArray::detail
