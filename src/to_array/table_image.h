// What the engine's tables and timetables look like from inside: value objects whose fields, their
// order, types and constants the engine relies on to rebuild them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zorvandata/array.h"
#include "zorvandata/tape_builder.h"

namespace PythonZorvanDataArray::detail {

// The variables of a table, in order, one of which may be the times of its rows.
struct TableVariables {
  std::vector<std::string> names;  // UTF-8
  std::vector<foundation::zorvandata::Array> data;
  size_t rows = 0;
  std::optional<size_t> times;
};

// Appends a timetable if there are times, else a table.
void appendTable(foundation::zorvandata::TapeBuilder& tape, const TableVariables& variables);

}  // namespace PythonZorvanDataArray::detail
