// Where an encoder puts fields: two passes over the same code, one measures, one writes.
#pragma once

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstdint>
#include <cstring>

#include "message/short_vector.h"
#include "message/varints.h"
#include "zorvandata/buffer.h"

namespace foundation::protobuf {

// Lengths and choices in the order of writing.
using Plan = ShortVector<size_t, 32>;

// Both sinks take the same calls. The lengths of nested messages and columns, and the choices made
// on the way, go into a plan while measuring and come out of it, in the same order, while writing.
class MeasuringSink {
 public:
  explicit MeasuringSink(Plan& plan) : plan_(plan) {}
  size_t size() const { return size_; }

  template <class Choose>
  size_t choice(Choose&& choose) {
    const size_t chosen = choose();
    plan_.push_back(chosen);
    return chosen;
  }
  // A length-delimited field of known size, of which `body` puts the bytes when it comes to
  // writing.
  template <class Body>
  void sized(int field, size_t size, Body&&) {
    number(field, size);
    size_ += size;
  }
  // A length-delimited field whose content is what `body` puts.
  template <class Body>
  void nested(int field, Body&& body) {
    const size_t slot = plan_.size();
    plan_.push_back(0);
    const size_t before = size_;
    body();
    const size_t length = size_ - before;
    plan_[slot] = length;
    number(field, length);
  }
  // A field that is a number, or the beginning of one of so many bytes.
  void number(int field, uint64_t value) {
    size_ += varintSize(static_cast<uint64_t>(field) << 3) + varintSize(value);
  }
  void varint(uint64_t value) { size_ += varintSize(value); }
  template <class Value>
  void varints(size_t count, const Value& value) {
    for (size_t i = 0; i < count; ++i) size_ += varintSize(value(i));
  }
  template <class T, class Value>
  void each(size_t count, const Value&) {
    size_ += count * sizeof(T);
  }
  void bytes(const void*, size_t size) { size_ += size; }
  void buffer(const zorvandata::Buffer& buffer) { size_ += buffer.size(); }

 private:
  Plan& plan_;
  size_t size_ = 0;
};

class WritingSink {
 public:
  WritingSink(const Plan& plan, uint8_t* out) : next_(plan.begin()), out_(out) {}

  template <class Choose>
  size_t choice(Choose&&) {
    return *next_++;
  }
  template <class Body>
  void sized(int field, size_t size, Body&& body) {
    number(field, size, google::protobuf::internal::WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
    body();
  }
  template <class Body>
  void nested(int field, Body&& body) {
    number(field, *next_++, google::protobuf::internal::WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
    body();
  }
  void number(int field, uint64_t value, int wireType = 0) {
    const uint64_t tag = static_cast<uint64_t>(field) << 3 | wireType;
    if (tag < 0x80 && value < 0x80) {
      out_[0] = static_cast<uint8_t>(tag);
      out_[1] = static_cast<uint8_t>(value);
      out_ += 2;
    } else {
      varint(tag);
      varint(value);
    }
  }
  void varint(uint64_t value) {
    if (value < 0x80) {
      *out_++ = static_cast<uint8_t>(value);
    } else {
      out_ = google::protobuf::io::CodedOutputStream::WriteVarint64ToArray(value, out_);
    }
  }
  template <class Value>
  void varints(size_t count, const Value& value) {
    out_ = writeVarints(count, value, out_);
  }
  // Numbers of one size, value(0), ..., value(count - 1).
  template <class T, class Value>
  void each(size_t count, const Value& value) {
    uint8_t* out = out_;
    for (size_t i = 0; i < count; ++i) {
      const auto number = static_cast<T>(value(i));
      std::memcpy(out + i * sizeof(T), &number, sizeof(T));
    }
    out_ += count * sizeof(T);
  }
  void bytes(const void* data, size_t size) {
    if (size) std::memcpy(out_, data, size);
    out_ += size;
  }
  void buffer(const zorvandata::Buffer& buffer) {
    buffer.copyTo(out_);
    out_ += buffer.size();
  }

 private:
  const size_t* next_;
  uint8_t* out_;
};

}  // namespace foundation::protobuf
