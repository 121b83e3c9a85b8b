// Variables of the engine's tables as data frames can have them: each of them one column.
#pragma once

#include <vector>

#include "to_python/table_image.h"

namespace PythonZorvanDataArray::detail {

// The variables in their order, those of tables among them replaced in place by the table's own
// ("outer_inner"), those of several columns by one for each column ("name_1", "name_2", ...).
// Throws PythonErrorSet for what cannot be flattened and for every variable that checkVariable
// refuses.
std::vector<TableVariable> flattenNestedTable(const std::vector<TableVariable>& variables);

}  // namespace PythonZorvanDataArray::detail
