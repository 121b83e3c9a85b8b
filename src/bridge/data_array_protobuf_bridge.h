// Between values and the serialized messages that carry them: the arguments of a call out, the
// results or the engine's error back.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "util/py_object_guard.h"
#include "zorvandata/array.h"
#include "zorvandata/tape_builder.h"

namespace zds::client::zorvandata::protobuf {

// A bytes object holding the ZORVAN_Params message of the elements of the one cell on the tape, in
// order, and of the low 32 bits of nargout. The message is written straight into its memory.
// Throws.
PythonUtil::PyObjectWithGuard mdata2protobuf(const foundation::zorvandata::TapeBuilder& args,
                                             long nargout);

// What a ZORVAN_Result message holds: a tape of one 1-by-n cell, its arrays, or, when it carries an
// error, a 1-by-1 struct with the fields "message", "identifier" and "stack_as_str".
struct Result {
  foundation::zorvandata::Tape arrays;
  std::optional<foundation::zorvandata::Array> error;
};

// Reads a message of which the lender keeps the bytes: the result refers to them. Bytes that are no
// message are read as far as they go. False when an array in them makes no sense: the reason is
// then on standard error, and no Python error is set.
bool protobuf2mdata(std::string_view bytes, const foundation::zorvandata::Lender& lender,
                    Result& result);
// To be called in a catch block for what was found wrong only when a value was made.
void reportBrokenResult(const char* reason);

// The bytes by which one array travels; equal arrays have equal ones.
std::string serializedArray(const foundation::zorvandata::Array& array);

// Removes every byte of 0x80 and above.
void stripNonAscii(std::string& text);

}  // namespace zds::client::zorvandata::protobuf
