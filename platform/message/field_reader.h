// Reads the fields of one message out of a contiguous run of bytes.
#pragma once

#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "message/varints.h"

namespace foundation::protobuf {

// The bytes still to be read. Read by hand: a coded stream for each of many small messages and
// columns costs more than what is in them.
class ByteCursor {
 public:
  explicit ByteCursor(std::string_view bytes)
      : at_(reinterpret_cast<const uint8_t*>(bytes.data())), end_(at_ + bytes.size()) {}

  bool atEnd() const { return at_ == end_; }
  size_t left() const { return static_cast<size_t>(end_ - at_); }
  // False when the bytes are no varint of at most 64 bits.
  bool readVarint(uint64_t& value) {
    if (at_ == end_) return false;
    if (*at_ < 0x80) {
      value = *at_++;
      return true;
    }
    return (left() >= sizeof(uint64_t) && readShortVarint(at_, value)) || readLongVarint(value);
  }
  // See varints.h.
  template <class Put>
  size_t readShortVarints(size_t count, const Put& put) {
    return protobuf::readShortVarints(count, put, at_, end_);
  }
  // A byte further on, of which there must be as many left.
  uint8_t peek(size_t offset) const { return at_[offset]; }
  // Moves past that many bytes, of which there must be as many left.
  std::string_view take(size_t count) {
    const std::string_view taken(reinterpret_cast<const char*>(at_), count);
    at_ += count;
    return taken;
  }

 private:
  bool readLongVarint(uint64_t& value);

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
  bool isFixed64() const { return kind_ == Kind::kFixed64; }
  // A length-delimited field with all its bytes.
  bool isBytes() const { return kind_ == Kind::kBytes && !cut_; }
  // A length-delimited field, possibly cut off by the end of the bytes.
  bool isMessage() const { return kind_ == Kind::kBytes; }
  bool cut() const { return cut_; }

  uint64_t value() const { return value_; }
  std::string_view bytes() const { return field_; }

 private:
  enum class Kind { kVarint, kFixed64, kBytes, kOther };

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

// A repeated number field, packed or not or both: its encoded values end to end.
class Column {
 public:
  // Takes the reader's current field if it is one of the column's.
  void addVarints(const FieldReader& field);
  void addFixed64(const FieldReader& field);

  std::string_view bytes() const { return joined_ ? std::string_view(*joined_) : first_; }

 private:
  void append(std::string_view bytes);

  std::string_view first_;
  std::unique_ptr<std::string> joined_;  // set once there is more than one piece
};

// Takes the varints of a column one by one.
class VarintCursor {
 public:
  explicit VarintCursor(std::string_view bytes) : cursor_(bytes) {}
  // Throws MalformedMessageException when there is no further value.
  uint64_t next() {
    uint64_t value = 0;
    if (!cursor_.readVarint(value)) throwTooShort();
    return value;
  }
  // Calls put(i, number) for each of so many values; throws likewise.
  template <class Put>
  void take(size_t count, const Put& put) {
    size_t i = cursor_.readShortVarints(count, put);
    for (; i < count; ++i) put(i, next());
  }
  bool atEnd() const { return cursor_.atEnd(); }

 private:
  [[noreturn]] static void throwTooShort();

  ByteCursor cursor_;
};

// All values of a column; throws MalformedMessageException.
std::vector<size_t> readVarints(std::string_view bytes);

}  // namespace foundation::protobuf
