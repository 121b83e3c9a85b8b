// Variables of the engine's tables as columns of a data frame. All throws PythonErrorSet with a
// Python error pending.
#pragma once

#include "to_python/decoder.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// Refuses variables of kinds that a data frame cannot have, with the TypeError or ValueError that
// tells why. Tables inside of tables are to be flattened first.
void checkVariable(const foundation::zorvandata::Array& values);

// What pandas makes a column of: an array of numpy's or its own, or a list.
PythonUtil::PyObjectWithGuard makeColumn(Decoder& decoder,
                                         const foundation::zorvandata::Array& values);

// Of an object of class datetime or duration.
PythonUtil::PyObjectWithGuard makeTimeColumn(const foundation::zorvandata::Array& times);

}  // namespace PythonZorvanDataArray::detail
