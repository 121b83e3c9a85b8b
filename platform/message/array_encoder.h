// Writes data arrays as messages, in two passes over the same code: one measures, one writes.
#pragma once

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "zorvandata/array_impl.h"

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
  void varint(uint64_t value) {
    size_ += google::protobuf::io::CodedOutputStream::VarintSize64(value);
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
  void nested(int field, Body&& body) {
    tag(field, google::protobuf::internal::WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
    varint(*next_++);
    body();
  }
  void tag(int field, int wireType = 0) { varint(static_cast<uint64_t>(field) << 3 | wireType); }
  void varint(uint64_t value) {
    out_ = google::protobuf::io::CodedOutputStream::WriteVarint64ToArray(value, out_);
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

// The fields of one ZORVAN_Array message for an item or an array.
template <class Sink>
void putItem(Sink& sink, const zorvandata::Item& item);
template <class Sink>
void putArray(Sink& sink, const zorvandata::ArrayImpl& array);

}  // namespace foundation::protobuf
