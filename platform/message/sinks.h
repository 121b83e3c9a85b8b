// Where an encoder puts fields: two passes over the same code, one measures, one writes.
#pragma once

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "message/varints.h"
#include "zorvandata/buffer.h"

namespace foundation::protobuf {

// Both sinks take the same calls. The lengths of nested messages and columns, and the choices made
// on the way, go into a plan while measuring and come out of it, in the same order, while writing.
class MeasuringSink {
 public:
  explicit MeasuringSink(std::vector<size_t>& plan) : plan_(plan) {}
  size_t size() const { return size_; }

  template <class Choose>
  size_t choice(Choose&& choose) {
    plan_.push_back(choose());
    return plan_.back();
  }
  // A length-delimited field of known size, of which `body` puts the bytes when it comes to
  // writing.
  template <class Body>
  void sized(int field, size_t size, Body&&) {
    tag(field);
    varint(size);
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
    tag(field);
    varint(length);
  }
  void tag(int field) { varint(static_cast<uint64_t>(field) << 3); }
  void varint(uint64_t value) { size_ += varintSize(value); }
  template <class Value>
  void varints(size_t count, const Value& value) {
    for (size_t i = 0; i < count; ++i) size_ += varintSize(value(i));
  }
  template <class Value>
  void eachByte(size_t count, const Value&) {
    size_ += count;
  }
  void bytes(const void*, size_t size) { size_ += size; }
  void buffer(const zorvandata::Buffer& buffer) { size_ += buffer.size(); }

 private:
  std::vector<size_t>& plan_;
  size_t size_ = 0;
};

class WritingSink {
 public:
  WritingSink(const std::vector<size_t>& plan, uint8_t* out) : next_(plan.data()), out_(out) {}

  template <class Choose>
  size_t choice(Choose&&) {
    return *next_++;
  }
  template <class Body>
  void sized(int field, size_t size, Body&& body) {
    tag(field, google::protobuf::internal::WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
    varint(size);
    body();
  }
  template <class Body>
  void nested(int field, Body&& body) {
    tag(field, google::protobuf::internal::WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
    varint(*next_++);
    body();
  }
  void tag(int field, int wireType = 0) { varint(static_cast<uint64_t>(field) << 3 | wireType); }
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
  // Numbers of one byte.
  template <class Value>
  void eachByte(size_t count, const Value& value) {
    uint8_t* out = out_;
    for (size_t i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(value(i));
    out_ += count;
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
