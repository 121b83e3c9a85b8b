// The functions of the loopback engine.
#pragma once

#include <string>
#include <string_view>

#include "message/envelope.h"

namespace tools {

// The answer to a call: at most nargout outputs (one when the message does not say), or an error,
// also when there is no function of that name.
foundation::protobuf::common::Envelope callFunction(
    std::string_view name, const foundation::protobuf::common::Envelope& parameters);

// One line a function: its name and what it returns.
std::string describeFunctions();

}  // namespace tools
