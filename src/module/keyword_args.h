// The keywords that both module functions share.
#pragma once

#include <cstdint>

#include "util/python_api.h"

namespace PythonZorvanDataArray {

// Which function the keywords were given to.
enum class KeywordMode : uint32_t { kToSerialized = 0, kToPython = 1 };

struct KeywordArgs {
  int64_t nargout = 1;
  uint32_t schema = 1;  // 1 ZORVAN_PARAMS, 2 ZORVAN_RESULT; checked, and otherwise without effect
  bool failed = false;  // a Python error is set
};

// Reads the keywords in the order in which the caller wrote them. NULL stands for none. An int
// `nargout` ends the reading: keywords after it are not looked at. kToPython ignores all keywords
// but `schema`.
KeywordArgs parseKeywordArgs(PyObject* kwargs, KeywordMode mode);

}  // namespace PythonZorvanDataArray
