#include "message/field_reader.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <stdexcept>

namespace foundation::protobuf {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

}  // namespace

static_assert(FieldReader::kVarintType == WireFormatLite::WIRETYPE_VARINT &&
              FieldReader::kBytesType == WireFormatLite::WIRETYPE_LENGTH_DELIMITED &&
              FieldReader::kWireTypeBits == WireFormatLite::kTagTypeBits);

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

}  // namespace foundation::protobuf
