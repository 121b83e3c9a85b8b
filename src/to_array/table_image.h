// What the engine's tables and timetables look like from inside: value objects whose fields, their
// order, types and constants the engine relies on to rebuild them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zorvandata/array.h"
#include "zorvandata/tape_builder.h"

namespace PythonZorvanDataArray::detail {

// The times of a timetable's rows, and the name of that dimension.
struct RowTimes {
  std::string name;
  foundation::zorvandata::Array data;
};

// The variables of a table, in order. Texts are UTF-8.
struct TableVariables {
  std::vector<std::string> names;
  std::vector<foundation::zorvandata::Array> data;  // as many columns
  size_t rows = 0;
};

// Appends a timetable if there are times, else a table.
void appendTable(foundation::zorvandata::TapeBuilder& tape, const TableVariables& variables,
                 const std::optional<RowTimes>& times);

}  // namespace PythonZorvanDataArray::detail
