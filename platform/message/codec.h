// The one codec between data arrays and messages.
//
// Encoding measures first and then writes forward into memory of exactly that size. Decoding reads
// the bytes once, trusts none of them, and copies what it keeps unless told that it may refer to
// it. Both throw std::exception of their own or of the data-array library; no state outlives a
// call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "message/array_decoder.h"
#include "message/envelope.h"
#include "message/sinks.h"
#include "zorvandata/array.h"

namespace foundation::protobuf::common {

// The message of an envelope's parts, which must live, unchanged, until write has returned.
class EnvelopeEncoder {
 public:
  // `error` may be NULL. Throws InvalidArrayTypeException when the arrays are no cell array,
  // or std::length_error when the message would exceed 2 GiB.
  EnvelopeEncoder(const zorvandata::Array& arrays, std::optional<int32_t> nargout,
                  const EngineError* error = nullptr);

  size_t size() const { return size_; }
  // Writes size() bytes.
  void write(uint8_t* out) const;

 private:
  template <class Sink>
  void put(Sink& sink) const;

  const zorvandata::ArrayImpl& arrays_;
  std::optional<int32_t> nargout_;
  const EngineError* error_;
  Plan plan_;  // lengths and forms in writing order
  size_t size_ = 0;
};

std::string encodeEnvelope(const Envelope& envelope);

// A message whose arrays are still encoded; refers to the bytes it was read from.
struct EnvelopeOutline {
  ArrayMessages arrays;
  std::optional<int32_t> nargout;
  std::optional<EngineError> error;
  bool broken = false;  // the bytes broke off
};

// Reads the outline of either message. Bytes that are no message are not an error: what was read
// before they broke off is kept.
EnvelopeOutline readOutline(std::string_view bytes);

// The outline's arrays as a 1-by-n cell array. Throws when an array makes no sense: dimensions
// that overflow or do not match the payload, unknown type codes, indices out of range, malformed
// fields, nesting beyond kMaxNesting. Memory stays within a small multiple of the bytes.
//
// If the bytes stay as they are while `owner` is held, long columns of values inside cells and the
// DOUBLE and COMPLEX_DOUBLE properties of value objects refer to them, at any address, and hold it;
// otherwise, and all else, is copied.
zorvandata::Array decodeArrays(const EnvelopeOutline& outline,
                               std::shared_ptr<const void> owner = nullptr);

// Both together.
Envelope decodeEnvelope(std::string_view bytes);

}  // namespace foundation::protobuf::common

namespace foundation::zorvandata::protobuf {

// One ZORVAN_Array message.
std::string encodeArray(const Array& array);
Array decodeArray(std::string_view bytes);

}  // namespace foundation::zorvandata::protobuf
