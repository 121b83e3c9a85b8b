// Writes the messages: sizes first, then forward into memory of exactly that size.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "message/fields.h"
#include "zorvandata/array.h"
#include "zorvandata/byte_stream.h"
#include "zorvandata/tape_builder.h"
#include "zorvandata/varints.h"

namespace foundation::protobuf {

// A number of bytes that stays the largest there is when it would be more.
class Size {
 public:
  Size(size_t bytes = 0) : bytes_(bytes) {}  // NOLINT: numbers of bytes are sizes
  Size& operator+=(Size more) {
    if (__builtin_add_overflow(bytes_, more.bytes_, &bytes_)) bytes_ = SIZE_MAX;
    return *this;
  }
  friend Size operator+(Size a, Size b) { return a += b; }
  size_t bytes() const { return bytes_; }

 private:
  size_t bytes_;
};

// Of a field of a number that fits four bits.
inline Size numberSize(uint64_t value) { return 1 + zorvandata::varintSize(value); }
inline Size fieldSize(Size content) {
  return Size(1 + zorvandata::varintSize(content.bytes())) + content;
}
// Left out when empty.
inline Size streamSize(size_t content) { return content == 0 ? Size() : fieldSize(content); }
// With the padding that a long one has around it.
Size payloadSize(size_t content);

// The content of a ZORVAN_Tape message.
Size tapeSize(const zorvandata::TapeBuilder& tape);
// The content of a ZORVAN_Array message of an array that is no child of another in memory.
Size arraySize(const zorvandata::Array& array);

class MessageWriter {
 public:
  explicit MessageWriter(uint8_t* out) : begin_(out), out_(out) {}

  void number(int field, uint64_t value) {
    tag(field, 0);
    varint(value);
  }
  // What the caller then writes.
  void nested(int field, Size size) {
    tag(field, 2);
    varint(size.bytes());
  }
  void bytes(int field, std::string_view content) {
    nested(field, content.size());
    raw(content.data(), content.size());
  }
  void stream(int field, const zorvandata::ByteStream& content) {
    if (content.size() > 0) bytes(field, content.bytes());
  }
  // As payloadSize has it; `copy` writes the content to where it is told.
  template <class Copy>
  void payload(int field, size_t size, const Copy& copy) {
    const size_t before = size < kAlignedFrom ? 0 : padBefore(size);
    nested(field, size);
    copy(out_);
    out_ += size;
    if (size >= kAlignedFrom) padding(kAlignment - 1 - before);
  }

  void tape(const zorvandata::TapeBuilder& tape);
  void array(const zorvandata::Array& array);

 private:
  // In place, where a byte of the caller's is not overwritten.
  void varint(uint64_t value) {
    while (value >= 0x80) {
      *out_++ = static_cast<uint8_t>(value | 0x80);
      value >>= 7;
    }
    *out_++ = static_cast<uint8_t>(value);
  }
  void tag(int field, unsigned wireType) {
    *out_++ = static_cast<uint8_t>(static_cast<unsigned>(field) << 3 | wireType);
  }
  // Most streams of a small message are shorter than a call would take.
  void raw(const void* bytes, size_t size) {
    const auto* from = static_cast<const uint8_t*>(bytes);
    if (size > 16) {
      std::memcpy(out_, from, size);
    } else if (size >= 8) {
      copyEnds<uint64_t>(from, size);
    } else if (size >= 4) {
      copyEnds<uint32_t>(from, size);
    } else {
      for (size_t i = 0; i < size; ++i) out_[i] = from[i];
    }
    out_ += size;
  }
  // Both overlap where the size is less than two.
  template <class Word>
  void copyEnds(const uint8_t* from, size_t size) {
    Word first;
    Word last;
    std::memcpy(&first, from, sizeof(Word));
    std::memcpy(&last, from + size - sizeof(Word), sizeof(Word));
    std::memcpy(out_, &first, sizeof(Word));
    std::memcpy(out_ + size - sizeof(Word), &last, sizeof(Word));
  }
  size_t padBefore(size_t size);
  void padding(size_t size);

  const uint8_t* begin_;
  uint8_t* out_;
};

}  // namespace foundation::protobuf
