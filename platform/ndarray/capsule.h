// The package's native interface, see ndarray_capi.h.
#pragma once

#include "ndarray_capi.h"
#include "python_api.h"

namespace ndarray {

// A new capsule; the classes must have been made. Throws PythonError.
Ref makeCapsule();

}  // namespace ndarray
