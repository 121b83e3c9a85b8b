#include "message/codec.h"

#include <climits>
#include <stdexcept>

#include "message/array_encoder.h"
#include "message/field_reader.h"
#include "message/fields.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"

namespace foundation::protobuf::common {
namespace {

using zorvandata::Array;
using zorvandata::ArrayType;
using zorvandata::ItemList;

template <class Sink>
void putNumber(Sink& sink, int field, int32_t value) {
  // Negative numbers travel sign-extended to 64 bits.
  sink.number(field, static_cast<uint64_t>(int64_t{value}));
}

template <class Sink>
void putText(Sink& sink, int field, const std::string& text) {
  sink.nested(field, [&] { sink.bytes(text.data(), text.size()); });
}

template <class Sink>
void putError(Sink& sink, const EngineError& error) {
  putText(sink, error_field::kMessage, error.message);
  if (error.identifier) putText(sink, error_field::kIdentifier, *error.identifier);
  for (const StackFrame& frame : error.stack) {
    sink.nested(error_field::kStack, [&] {
      putText(sink, frame_field::kFile, frame.file);
      putText(sink, frame_field::kFunctionName, frame.functionName);
      putNumber(sink, frame_field::kLine, frame.line);
    });
  }
}

StackFrame readFrame(std::string_view bytes) {
  StackFrame frame;
  FieldReader reader(bytes);
  while (reader.next()) {
    if (reader.number() == frame_field::kFile && reader.isBytes()) {
      frame.file = reader.bytes();
    } else if (reader.number() == frame_field::kFunctionName && reader.isBytes()) {
      frame.functionName = reader.bytes();
    } else if (reader.number() == frame_field::kLine && reader.isVarint()) {
      frame.line = static_cast<int32_t>(reader.value());
    }
  }
  return frame;
}

void readError(std::string_view bytes, EngineError& error) {
  FieldReader reader(bytes);
  while (reader.next()) {
    if (reader.number() == error_field::kMessage && reader.isBytes()) {
      error.message = reader.bytes();
    } else if (reader.number() == error_field::kIdentifier && reader.isBytes()) {
      error.identifier = std::string(reader.bytes());
    } else if (reader.number() == error_field::kStack && reader.isMessage()) {
      error.stack.push_back(readFrame(reader.bytes()));
    }
  }
}

}  // namespace

template <class Sink>
void EnvelopeEncoder::put(Sink& sink) const {
  for (const zorvandata::Item item : arrays_.items()) {
    putNested(sink, envelope_field::kArrays, item);
  }
  if (nargout_) putNumber(sink, envelope_field::kNargout, *nargout_);
  if (error_) sink.nested(envelope_field::kError, [&] { putError(sink, *error_); });
}

EnvelopeEncoder::EnvelopeEncoder(const Array& arrays, std::optional<int32_t> nargout,
                                 const EngineError* error)
    : arrays_(arrays.impl()), nargout_(nargout), error_(error) {
  if (arrays_.type() != ArrayType::CELL) {
    throw zorvandata::InvalidArrayTypeException(
        "the values of a message must come in a cell array (a tuple, list or set of arguments), "
        "found " +
        std::string(nameOf(arrays_.type())));
  }
  MeasuringSink sink(plan_);
  put(sink);
  size_ = sink.size();
  if (size_ > INT_MAX) {
    throw std::length_error("message of " + std::to_string(size_) +
                            " bytes exceeds the limit of 2 GiB");
  }
}

void EnvelopeEncoder::write(uint8_t* out) const {
  WritingSink sink(plan_, out);
  put(sink);
}

std::string encodeEnvelope(const Envelope& envelope) {
  const EnvelopeEncoder encoder(envelope.arrays, envelope.nargout,
                                envelope.error ? &*envelope.error : nullptr);
  std::string bytes(encoder.size(), '\0');
  encoder.write(reinterpret_cast<uint8_t*>(bytes.data()));
  return bytes;
}

EnvelopeOutline readOutline(std::string_view bytes) {
  EnvelopeOutline outline;
  FieldReader reader(bytes);
  while (reader.next()) {
    if (reader.number() == envelope_field::kArrays && reader.isMessage()) {
      outline.arrays.push_back({reader.bytes(), reader.cut()});
    } else if (reader.number() == envelope_field::kNargout && reader.isVarint()) {
      outline.nargout = static_cast<int32_t>(reader.value());
    } else if (reader.number() == envelope_field::kError && reader.isMessage()) {
      if (!outline.error) outline.error.emplace();
      readError(reader.bytes(), *outline.error);
    }
  }
  outline.broken = reader.broken();
  return outline;
}

Array decodeArrays(const EnvelopeOutline& outline, std::shared_ptr<const void> owner) {
  ItemList items = decodeEach(outline.arrays, std::move(owner));
  const auto dims = zorvandata::Dimensions::row(items.size());
  return makeArray(ArrayType::CELL, dims, std::move(items));
}

Envelope decodeEnvelope(std::string_view bytes) {
  EnvelopeOutline outline = readOutline(bytes);
  return {decodeArrays(outline), outline.nargout, std::move(outline.error)};
}

}  // namespace foundation::protobuf::common

namespace foundation::zorvandata::protobuf {

std::string encodeArray(const Array& array) {
  foundation::protobuf::Plan plan;
  foundation::protobuf::MeasuringSink measure(plan);
  putArray(measure, array.impl());
  if (measure.size() > INT_MAX) throw std::length_error("array message exceeds the limit of 2 GiB");
  std::string bytes(measure.size(), '\0');
  foundation::protobuf::WritingSink write(plan, reinterpret_cast<uint8_t*>(bytes.data()));
  putArray(write, array.impl());
  return bytes;
}

Array decodeArray(std::string_view bytes) {
  return foundation::protobuf::decodeArray({bytes, false});
}

}  // namespace foundation::zorvandata::protobuf
