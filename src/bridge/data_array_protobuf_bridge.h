// Between data arrays and the serialized messages that carry them: the arguments of a call out,
// the results or the engine's error back.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "util/py_object_guard.h"
#include "zorvandata/array.h"

namespace zds::client::zorvandata::protobuf {

// A bytes object holding the ZORVAN_Params message of the cell array's elements, in order, and of
// the low 32 bits of nargout. The message is written straight into its memory. Empty, with
// ValueError (MemoryError) set, when it cannot be made.
std::optional<PythonUtil::PyObjectWithGuard> mdata2protobuf(
    const foundation::zorvandata::Array& args, long nargout);

// What a ZORVAN_Result message holds: a 1-by-n cell array of its arrays or, when it carries an
// error, a 1-by-1 struct with the fields "message", "identifier" and "stack_as_str". Bytes that
// are no message are read as far as they go. Empty when an array in them makes no sense: the
// reason is then on standard error, and no Python error is set.
// With an owner, that keeps the bytes from changing, the array may refer to them.
std::optional<foundation::zorvandata::Array> protobuf2mdata(
    std::string_view bytes, std::shared_ptr<const void> owner = nullptr);

// The bytes by which one array travels; equal arrays have equal ones.
std::string serializedArray(const foundation::zorvandata::Array& array);

// Removes every byte of 0x80 and above.
void stripNonAscii(std::string& text);

}  // namespace zds::client::zorvandata::protobuf
