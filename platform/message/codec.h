// The one codec between values and messages.
//
// Writing measures first and then writes forward into memory of exactly that size. Reading goes
// over the bytes once, trusts none of them, and refers to them from then on. Both throw
// std::exception of their own or of the data-array library; no state outlives a call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "message/array_message.h"
#include "message/envelope.h"
#include "message/message_writer.h"
#include "zorvandata/array.h"
#include "zorvandata/tape_builder.h"

namespace foundation::protobuf::common {

// The message of an envelope's parts, which must live, unchanged, until write has returned.
class EnvelopeEncoder {
 public:
  // `values` holds one 1-by-n cell of the arguments or outputs; `error` may be NULL. Throws
  // InvalidArrayTypeException when it holds something else, or std::length_error when the message
  // would exceed 2 GiB.
  EnvelopeEncoder(const zorvandata::TapeBuilder& values, std::optional<int32_t> nargout,
                  const EngineError* error = nullptr);

  size_t size() const { return size_; }
  // Writes size() bytes.
  void write(uint8_t* out) const;

 private:
  const zorvandata::TapeBuilder& values_;
  std::optional<int32_t> nargout_;
  const EngineError* error_;
  Size tape_;
  size_t size_ = 0;
};

std::string encodeEnvelope(const Envelope& envelope);

// A message whose arrays are still encoded; refers to the bytes it was read from.
struct EnvelopeOutline {
  std::string_view bytes;
  size_t tapes = 0;
  MessageBytes tape;  // the last of them
  size_t arrays = 0;  // that lie in the field of that name
  std::optional<uint64_t> version;
  std::optional<int32_t> nargout;
  std::optional<EngineError> error;
  bool broken = false;  // the bytes broke off
  size_t whole = 0;     // how many bytes there are without a field that is cut off
};

// Reads the outline of either message. Bytes that are no message are not an error: what was read
// before they broke off is kept. Fields of another wire type are, and single ones that stand twice:
// MalformedMessageException.
EnvelopeOutline readOutline(std::string_view bytes);

// The values of an outline, made sure of: one 1-by-n cell. `lender`, who may be NULL where the
// bytes live as long as all that is made of the tape, keeps them, and must live as long as the tape
// does. Throws when the message is of another version or an array makes no sense: dimensions that
// overflow or do not match the payload, unknown types, fields that the type does not use, indices
// out of range, malformed fields, nesting beyond kMaxNesting. What it takes in memory is less than
// the bytes and 1 MiB.
void readValues(const EnvelopeOutline& outline, const zorvandata::Lender* lender,
                zorvandata::Tape& tape);

// A message and what keeps its bytes.
Envelope decodeEnvelope(std::string bytes);
// The arrays of an outline as a 1-by-n cell array that keeps a copy of the bytes.
zorvandata::Array decodeArrays(const EnvelopeOutline& outline);

}  // namespace foundation::protobuf::common

namespace foundation::zorvandata::protobuf {

// One ZORVAN_Array message.
std::string encodeArray(const Array& array);
Array decodeArray(std::string_view bytes);

}  // namespace foundation::zorvandata::protobuf
