// The way from what a result message holds to a Python object.
#pragma once

#include <optional>

#include "util/py_object_guard.h"
#include "zorvandata/array.h"
#include "zorvandata/tape.h"

namespace PythonZorvanDataArray {

// The list of the elements of the one cell on the tape, or the object that the engine's error is.
// Throws like the decoder, and InvalidTextException where bytes of the message turn out to be no
// text. The cyclic garbage collector is paused meanwhile.
PythonUtil::PyObjectWithGuard createPyObject(
    const foundation::zorvandata::Tape& tape,
    const std::optional<foundation::zorvandata::Array>& error);

}  // namespace PythonZorvanDataArray
