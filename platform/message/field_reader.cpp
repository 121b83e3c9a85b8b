#include "message/field_reader.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstring>
#include <stdexcept>

#include "zorvandata/exception.h"

namespace foundation::protobuf {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;

// A little-endian number.
uint64_t fixed64Of(std::string_view bytes) {
  uint64_t value = 0;
  std::memcpy(&value, bytes.data(), sizeof(value));
  return value;
}

}  // namespace

static_assert(FieldReader::kVarintType == WireFormatLite::WIRETYPE_VARINT &&
              FieldReader::kBytesType == WireFormatLite::WIRETYPE_LENGTH_DELIMITED &&
              FieldReader::kWireTypeBits == WireFormatLite::kTagTypeBits);

bool ByteCursor::readLongVarint(uint64_t& value) {
  uint64_t sum = 0;
  for (int shift = 0; shift < 64; shift += 7) {
    if (at_ == end_) return false;
    const uint8_t byte = *at_++;
    sum |= static_cast<uint64_t>(byte & 0x7F) << shift;
    if (byte < 0x80) {
      value = sum;
      return true;
    }
  }
  return false;
}

void FieldReader::throwTooLong() { throw std::length_error("message exceeds the limit of 2 GiB"); }

bool FieldReader::readAny() {
  if (broken_) return false;
  uint64_t tag = 0;
  cut_ = false;
  broken_ = true;
  if (!cursor_.readVarint(tag) || tag > UINT32_MAX) return false;
  number_ = WireFormatLite::GetTagFieldNumber(static_cast<uint32_t>(tag));
  if (number_ == 0 || !readValue(static_cast<uint32_t>(tag))) return false;
  broken_ = cut_;
  return true;
}

bool FieldReader::readValue(uint32_t tag) {
  switch (WireFormatLite::GetTagWireType(tag)) {
    case WireFormatLite::WIRETYPE_VARINT:
      kind_ = Kind::kVarint;
      return cursor_.readVarint(value_);
    case WireFormatLite::WIRETYPE_FIXED64:
      kind_ = Kind::kFixed64;
      if (cursor_.left() < sizeof(value_)) return false;
      value_ = fixed64Of(cursor_.take(sizeof(value_)));
      return true;
    case WireFormatLite::WIRETYPE_LENGTH_DELIMITED:
      kind_ = Kind::kBytes;
      return readBytes();
    case WireFormatLite::WIRETYPE_END_GROUP:
      return false;
    default:
      kind_ = Kind::kOther;
      return skip(tag);
  }
}

bool FieldReader::readBytes() {
  uint64_t length = 0;
  if (!cursor_.readVarint(length)) return false;
  cut_ = length > cursor_.left();
  field_ = cursor_.take(cut_ ? cursor_.left() : static_cast<size_t>(length));
  return true;
}

// A field of a kind that no message of ours has.
bool FieldReader::skip(uint32_t tag) {
  ByteCursor rest = cursor_;
  const auto size = static_cast<int>(rest.left());
  const std::string_view bytes = rest.take(rest.left());
  CodedInputStream stream(reinterpret_cast<const uint8_t*>(bytes.data()), size);
  if (!WireFormatLite::SkipField(&stream, tag)) return false;
  cursor_.take(static_cast<size_t>(stream.CurrentPosition()));
  return true;
}

void Column::addVarints(const FieldReader& field) {
  if (field.isBytes()) {
    append(field.bytes());
  } else if (field.isVarint()) {
    uint8_t bytes[10];
    const uint8_t* end = CodedOutputStream::WriteVarint64ToArray(field.value(), bytes);
    if (!joined_) joined_ = std::make_unique<std::string>(first_);
    joined_->append(reinterpret_cast<const char*>(bytes), static_cast<size_t>(end - bytes));
  }
}

void Column::addFixed64(const FieldReader& field) {
  if (field.isBytes()) {
    append(field.bytes());
  } else if (field.isFixed64()) {
    const uint64_t value = field.value();
    if (!joined_) joined_ = std::make_unique<std::string>(first_);
    joined_->append(reinterpret_cast<const char*>(&value), sizeof(value));
  }
}

void Column::append(std::string_view bytes) {
  if (bytes.empty()) return;
  if (joined_) {
    joined_->append(bytes);
  } else if (first_.empty()) {
    first_ = bytes;
  } else {
    joined_ = std::make_unique<std::string>(first_);
    joined_->append(bytes);
  }
}

void VarintCursor::throwTooShort() {
  throw zorvandata::MalformedMessageException("a column of numbers is too short");
}

std::vector<size_t> readVarints(std::string_view bytes) {
  std::vector<size_t> values;
  for (VarintCursor cursor(bytes); !cursor.atEnd();) values.push_back(cursor.next());
  return values;
}

}  // namespace foundation::protobuf
