#include "message/codec.h"

#include <climits>
#include <initializer_list>
#include <stdexcept>

#include "message/field_reader.h"
#include "message/fields.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"

namespace foundation::protobuf::common {
namespace {

using zorvandata::Array;
using zorvandata::ArrayType;
using zorvandata::Buffer;
using zorvandata::Tape;
using zorvandata::TapeBuilder;

// Negative numbers travel sign-extended to 64 bits.
uint64_t wide(int32_t value) { return static_cast<uint64_t>(int64_t{value}); }

Size frameSize(const StackFrame& frame) {
  return fieldSize(frame.file.size()) + fieldSize(frame.functionName.size()) +
         numberSize(wide(frame.line));
}

Size errorSize(const EngineError& error) {
  Size size = fieldSize(error.message.size());
  if (error.identifier) size += fieldSize(error.identifier->size());
  for (const StackFrame& frame : error.stack) size += fieldSize(frameSize(frame));
  return size;
}

void writeError(MessageWriter& writer, const EngineError& error) {
  writer.bytes(error_field::kMessage, error.message);
  if (error.identifier) writer.bytes(error_field::kIdentifier, *error.identifier);
  for (const StackFrame& frame : error.stack) {
    writer.nested(error_field::kStack, frameSize(frame));
    writer.bytes(frame_field::kFile, frame.file);
    writer.bytes(frame_field::kFunctionName, frame.functionName);
    writer.number(frame_field::kLine, wide(frame.line));
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

EnvelopeEncoder::EnvelopeEncoder(const TapeBuilder& values, std::optional<int32_t> nargout,
                                 const EngineError* error)
    : values_(values), nargout_(nargout), error_(error) {
  if (values.outermostType() != ArrayType::CELL) {
    throw zorvandata::InvalidArrayTypeException(
        "the values of a message must come in a cell array (a tuple, list or set of arguments), "
        "found " +
        std::string(nameOf(values.outermostType())));
  }
  tape_ = tapeSize(values);
  Size size = numberSize(kVersion) + fieldSize(tape_);
  if (nargout_) size += numberSize(wide(*nargout_));
  if (error_) size += fieldSize(errorSize(*error_));
  size_ = size.bytes();
  if (size_ > INT_MAX) {
    throw std::length_error("message of " + std::to_string(size_) +
                            " bytes exceeds the limit of 2 GiB");
  }
}

void EnvelopeEncoder::write(uint8_t* out) const {
  MessageWriter writer(out);
  writer.number(envelope_field::kVersion, kVersion);
  writer.nested(envelope_field::kTape, tape_);
  writer.tape(values_);
  if (nargout_) writer.number(envelope_field::kNargout, wide(*nargout_));
  if (!error_) return;
  writer.nested(envelope_field::kError, errorSize(*error_));
  writeError(writer, *error_);
}

std::string encodeEnvelope(const Envelope& envelope) {
  TapeBuilder values;
  values.array(envelope.arrays);
  const EnvelopeEncoder encoder(values, envelope.nargout,
                                envelope.error ? &*envelope.error : nullptr);
  std::string bytes(encoder.size(), '\0');
  encoder.write(reinterpret_cast<uint8_t*>(bytes.data()));
  return bytes;
}

EnvelopeOutline readOutline(std::string_view bytes) {
  EnvelopeOutline outline;
  outline.bytes = bytes;
  FieldReader reader(bytes);
  while (reader.next()) {
    if (!reader.cut()) outline.whole = bytes.size() - reader.left();
    if (reader.number() == envelope_field::kTape && reader.isMessage()) {
      ++outline.tapes;
      outline.tape = {reader.bytes(), reader.cut()};
    } else if (reader.number() == envelope_field::kArrays && reader.isMessage()) {
      ++outline.arrays;
    } else if (reader.number() == envelope_field::kNargout && reader.isVarint()) {
      outline.nargout = static_cast<int32_t>(reader.value());
    } else if (reader.number() == envelope_field::kVersion && reader.isVarint()) {
      outline.version = reader.value();
    } else if (reader.number() == envelope_field::kError && reader.isMessage()) {
      if (!outline.error) outline.error.emplace();
      readError(reader.bytes(), *outline.error);
    }
  }
  outline.broken = reader.broken();
  return outline;
}

void readValues(const EnvelopeOutline& outline, const zorvandata::Lender* lender, Tape& tape) {
  if (outline.version.value_or(kVersion) != kVersion) {
    throw zorvandata::MalformedMessageException("it is of version " +
                                                std::to_string(*outline.version));
  }
  tape.lender = lender;
  constexpr int kOutermost = 1;
  if (outline.tapes > 0) {
    if (outline.tapes > 1 || outline.arrays > 0) {
      throw zorvandata::MalformedMessageException("values lie in more than one place");
    }
    readTape(outline.tape, kOutermost, tape);
    return;
  }
  const MessageBytes message{outline.bytes, outline.broken};
  checkArrays(message, envelope_field::kArrays, kOutermost + 1);
  readChildren(message, envelope_field::kArrays, outline.arrays, tape);
}

namespace {

// A copy of the bytes.
class Copied final : public zorvandata::Lender {
 public:
  explicit Copied(std::string bytes)
      : bytes_(std::make_shared<const std::string>(std::move(bytes))) {}
  const std::string& bytes() const { return *bytes_; }
  std::shared_ptr<const void> hold() const override { return bytes_; }

 private:
  std::shared_ptr<const std::string> bytes_;
};

Array arraysOf(const EnvelopeOutline& outline, const Copied& bytes) {
  Tape tape;
  readValues(outline, &bytes, tape);
  return zorvandata::TapeReader(tape).array();
}

}  // namespace

Array decodeArrays(const EnvelopeOutline& outline) {
  const Copied copy{std::string(outline.bytes)};
  return arraysOf(readOutline(copy.bytes()), copy);
}

Envelope decodeEnvelope(std::string bytes) {
  const Copied own(std::move(bytes));
  EnvelopeOutline outline = readOutline(own.bytes());
  return {arraysOf(outline, own), outline.nargout, std::move(outline.error)};
}

}  // namespace foundation::protobuf::common

namespace foundation::zorvandata::protobuf {

std::string encodeArray(const Array& array) {
  const size_t size = foundation::protobuf::arraySize(array).bytes();
  if (size > INT_MAX) throw std::length_error("array message exceeds the limit of 2 GiB");
  std::string bytes(size, '\0');
  foundation::protobuf::MessageWriter(reinterpret_cast<uint8_t*>(bytes.data())).array(array);
  return bytes;
}

Array decodeArray(std::string_view bytes) {
  foundation::protobuf::checkArray({bytes, false}, 1);
  const auto copy = std::make_shared<const std::string>(bytes);
  auto owner = std::make_shared<Tape>();
  owner->owner = copy;
  return foundation::protobuf::makeArray({*copy, false}, owner);
}

}  // namespace foundation::zorvandata::protobuf
