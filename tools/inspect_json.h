// The inspector's JSON.
#pragma once

#include <ostream>
#include <string_view>

#include "message/envelope.h"

namespace tools {

// Writes what the envelope holds as one line of JSON. Output errors stay in the stream's state.
void writeJson(std::ostream& out, std::string_view messageName,
               const foundation::protobuf::common::Envelope& envelope);

}  // namespace tools
