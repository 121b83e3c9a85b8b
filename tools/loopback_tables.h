// Tables and timetables as an engine makes them, for the loopback functions of these names.
//
// Each returns an array of its own.
#pragma once

#include "zorvandata/array.h"

namespace tools {

// Three rows of every plain kind of variable: numbers, truths, texts with a missing one, times,
// lengths of time and cells.
foundation::zorvandata::Array makePlainTable();

// Three instants of a time zone and a variable.
foundation::zorvandata::Array makeZonedTimetable();

// A table inside of a table, between a variable of two columns and a plain one.
foundation::zorvandata::Array makeNestedTable();

// A table with a categorical variable, one of whose rows is undefined.
foundation::zorvandata::Array makeCategoricalTable();

// A table whose rows have names.
foundation::zorvandata::Array makeTableWithRowNames();

}  // namespace tools
