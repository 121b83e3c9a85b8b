// Bytes that grow at their end, the first few of them without heap memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace foundation::zorvandata {

class ByteStream {
 public:
  size_t size() const { return static_cast<size_t>(end_ - begin_); }
  uint8_t* data() { return begin_; }
  const uint8_t* data() const { return begin_; }
  std::string_view bytes() const { return {reinterpret_cast<const char*>(begin_), size()}; }

  // The end, after which there is room for so many bytes; throws std::bad_alloc. Adding to the
  // stream otherwise than by moveEnd ends the pointer.
  uint8_t* room(size_t count) {
    if (static_cast<size_t>(limit_ - end_) < count) grow(count);
    return end_;
  }
  // To what room() returned, or beyond it within the room.
  void moveEnd(uint8_t* end) { end_ = end; }

  void push(uint8_t byte) {
    uint8_t* out = room(1);
    *out = byte;
    end_ = out + 1;
  }
  void append(const void* bytes, size_t count) {
    uint8_t* out = room(count);
    if (count) std::memcpy(out, bytes, count);
    end_ = out + count;
  }
  // Puts bytes into the middle.
  void insert(size_t position, const void* bytes, size_t count) {
    room(count);
    std::memmove(begin_ + position + count, begin_ + position, size() - position);
    std::memcpy(begin_ + position, bytes, count);
    end_ += count;
  }
  // Takes bytes out of the middle.
  void erase(size_t position, size_t count) {
    std::memmove(begin_ + position, begin_ + position + count, size() - position - count);
    end_ -= count;
  }
  void truncate(size_t size) { end_ = begin_ + size; }

  ByteStream(const ByteStream&) = delete;
  ByteStream& operator=(const ByteStream&) = delete;

 protected:
  ByteStream(uint8_t* few, size_t size) : few_(few), begin_(few), end_(few), limit_(few + size) {}
  ~ByteStream() {
    if (begin_ != few_) std::free(begin_);
  }

 private:
  void grow(size_t count);

  uint8_t* few_;
  uint8_t* begin_;
  uint8_t* end_;
  uint8_t* limit_;
};

template <size_t kFew>
class ShortByteStream final : public ByteStream {
 public:
  ShortByteStream() : ByteStream(few_, kFew) {}

 private:
  alignas(8) uint8_t few_[kFew];
};

}  // namespace foundation::zorvandata
