// What the two messages hold, as plain values: the arrays of a call or its result.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zorvandata/array.h"

namespace foundation::protobuf::common {

struct StackFrame {
  std::string file;
  std::string functionName;
  int32_t line = 0;
};

// Why the engine ended a call.
struct EngineError {
  std::string message;
  std::optional<std::string> identifier;
  std::vector<StackFrame> stack;
};

// A ZORVAN_Params message (arrays, nargout) or a ZORVAN_Result message (arrays or error).
struct Envelope {
  zorvandata::Array arrays;  // a cell array, one element an array
  std::optional<int32_t> nargout;
  std::optional<EngineError> error;
};

}  // namespace foundation::protobuf::common
