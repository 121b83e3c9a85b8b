#include "message/field_reader.h"

#include <google/protobuf/wire_format_lite.h>

#include <climits>
#include <stdexcept>

#include "zorvandata/exception.h"

namespace foundation::protobuf {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;

const uint8_t* begin(std::string_view bytes) {
  return reinterpret_cast<const uint8_t*>(bytes.data());
}

int checkedSize(std::string_view bytes) {
  if (bytes.size() > INT_MAX) throw std::length_error("message exceeds the limit of 2 GiB");
  return static_cast<int>(bytes.size());
}

}  // namespace

FieldReader::FieldReader(std::string_view bytes) : stream_(begin(bytes), checkedSize(bytes)) {
  stream_.SetTotalBytesLimit(INT_MAX);
}

bool FieldReader::next() {
  if (broken_) return false;
  const uint32_t tag = stream_.ReadTag();
  if (tag == 0) {
    broken_ = !stream_.ConsumedEntireMessage();
    return false;
  }
  number_ = WireFormatLite::GetTagFieldNumber(tag);
  cut_ = false;
  if (number_ == 0 || !readValue(tag)) {
    broken_ = true;
    return false;
  }
  return true;
}

bool FieldReader::readValue(uint32_t tag) {
  switch (WireFormatLite::GetTagWireType(tag)) {
    case WireFormatLite::WIRETYPE_VARINT:
      kind_ = Kind::kVarint;
      return stream_.ReadVarint64(&value_);
    case WireFormatLite::WIRETYPE_FIXED64:
      kind_ = Kind::kFixed64;
      return stream_.ReadLittleEndian64(&value_);
    case WireFormatLite::WIRETYPE_LENGTH_DELIMITED:
      kind_ = Kind::kBytes;
      return readBytes();
    case WireFormatLite::WIRETYPE_END_GROUP:
      return false;
    default:
      kind_ = Kind::kOther;
      return WireFormatLite::SkipField(&stream_, tag);
  }
}

bool FieldReader::readBytes() {
  uint64_t length = 0;
  if (!stream_.ReadVarint64(&length)) return false;
  const void* data = nullptr;
  int available = 0;
  if (!stream_.GetDirectBufferPointer(&data, &available)) available = 0;
  cut_ = length > static_cast<uint64_t>(available);
  broken_ = cut_;
  const int taken = cut_ ? available : static_cast<int>(length);
  field_ = {static_cast<const char*>(data), static_cast<size_t>(taken)};
  return stream_.Skip(taken);
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

VarintCursor::VarintCursor(std::string_view bytes)
    : stream_(begin(bytes), checkedSize(bytes)), size_(checkedSize(bytes)) {}

uint64_t VarintCursor::next() {
  uint64_t value = 0;
  if (!stream_.ReadVarint64(&value)) {
    throw zorvandata::MalformedMessageException("a column of numbers is too short");
  }
  return value;
}

std::vector<size_t> readVarints(std::string_view bytes) {
  std::vector<size_t> values;
  for (VarintCursor cursor(bytes); !cursor.atEnd();) values.push_back(cursor.next());
  return values;
}

}  // namespace foundation::protobuf
