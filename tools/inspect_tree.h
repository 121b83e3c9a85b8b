// The inspector's tree for people.
#pragma once

#include <ostream>
#include <string_view>

#include "message/envelope.h"

namespace tools {

// Writes what the envelope holds, one line an array and its first elements only. Output errors
// stay in the stream's state.
void writeTree(std::ostream& out, std::string_view messageName,
               const foundation::protobuf::common::Envelope& envelope);

}  // namespace tools
