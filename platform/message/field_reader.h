// Reads the fields of one message out of a contiguous run of bytes.
#pragma once

#include <climits>
#include <cstdint>
#include <string_view>

#include "zorvandata/varints.h"

namespace foundation::protobuf {

// The bytes still to be read. Read by hand: a coded stream for each of many small messages costs
// more than what is in them.
class ByteCursor {
 public:
  explicit ByteCursor(std::string_view bytes)
      : at_(reinterpret_cast<const uint8_t*>(bytes.data())), end_(at_ + bytes.size()) {}

  bool atEnd() const { return at_ == end_; }
  size_t left() const { return static_cast<size_t>(end_ - at_); }
  // False when the bytes are no varint of at most 64 bits.
  bool readVarint(uint64_t& value) { return zorvandata::readVarint(at_, end_, value); }
  // A byte further on, of which there must be as many left.
  uint8_t peek(size_t offset) const { return at_[offset]; }
  // Moves past that many bytes, of which there must be as many left.
  std::string_view take(size_t count) {
    const std::string_view taken(reinterpret_cast<const char*>(at_), count);
    at_ += count;
    return taken;
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

// Steps from field to field:  while (reader.next()) switch (reader.number()) ...
// The views it hands out refer to the bytes it was made of.
class FieldReader {
 public:
  // The wire types of the usual fields, in the last bits of a tag.
  static constexpr unsigned kVarintType = 0;
  static constexpr unsigned kBytesType = 2;
  static constexpr unsigned kWireTypes = 7;
  static constexpr unsigned kWireTypeBits = 3;

  // At most 2 GiB; throws std::length_error beyond.
  explicit FieldReader(std::string_view bytes) : cursor_(bytes) {
    if (bytes.size() > INT_MAX) throwTooLong();
  }

  // Moves to the next field; false at the end, or where the bytes are no field any more.
  bool next() { return readShort() || (!cursor_.atEnd() && readAny()); }
  // True when the bytes broke off: next() returned false before their end, or the current field is
  // longer than they are.
  bool broken() const { return broken_; }

  int number() const { return number_; }
  bool isVarint() const { return kind_ == Kind::kVarint; }
  // A length-delimited field with all its bytes.
  bool isBytes() const { return kind_ == Kind::kBytes && !cut_; }
  // A length-delimited field, possibly cut off by the end of the bytes.
  bool isMessage() const { return kind_ == Kind::kBytes; }
  bool cut() const { return cut_; }

  // How many bytes are left behind the current field.
  size_t left() const { return cursor_.left(); }

  uint64_t value() const { return value_; }
  std::string_view bytes() const { return field_; }

 private:
  enum class Kind { kVarint, kBytes, kOther };

  // The usual field, of which the tag and the number or length are a byte each. False, without
  // having moved, for any other.
  bool readShort() {
    if (broken_ || cursor_.left() < 2) return false;
    const unsigned tag = cursor_.peek(0);
    const unsigned value = cursor_.peek(1);
    const bool isVarint = (tag & kWireTypes) == kVarintType;
    const bool isBytes = (tag & kWireTypes) == kBytesType && value <= cursor_.left() - 2;
    if (tag >= 0x80 || tag <= kWireTypes || value >= 0x80 || !(isVarint || isBytes)) return false;
    number_ = static_cast<int>(tag >> kWireTypeBits);
    kind_ = isVarint ? Kind::kVarint : Kind::kBytes;
    cut_ = false;
    cursor_.take(2);
    value_ = value;
    field_ = cursor_.take(isVarint ? 0 : value);
    return true;
  }
  [[noreturn]] static void throwTooLong();
  bool readAny();
  bool readValue(uint32_t tag);
  bool readBytes();
  bool skip(uint32_t tag);

  ByteCursor cursor_;
  Kind kind_ = Kind::kOther;
  int number_ = 0;
  bool cut_ = false;
  bool broken_ = false;
  uint64_t value_ = 0;
  std::string_view field_;
};

}  // namespace foundation::protobuf
