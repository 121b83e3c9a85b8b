#include "zorvandata/byte_stream.h"

#include <algorithm>

namespace foundation::zorvandata {

// By realloc, which moves the pages of large memory instead of their content.
void ByteStream::grow(size_t count) {
  constexpr size_t kFirst = 1024;
  constexpr size_t kDoubleUntil = size_t{1} << 20;
  const size_t used = size();
  const auto capacity = static_cast<size_t>(limit_ - begin_);
  const size_t grown = capacity < kDoubleUntil ? 2 * capacity : capacity + capacity / 2;
  if (count > SIZE_MAX / 2 - used) throw std::bad_alloc();
  const size_t wanted = std::max({kFirst, grown, used + count});
  auto* bytes = static_cast<uint8_t*>(std::realloc(begin_ == few_ ? nullptr : begin_, wanted));
  if (!bytes) throw std::bad_alloc();
  if (begin_ == few_) std::memcpy(bytes, few_, used);
  begin_ = bytes;
  end_ = bytes + used;
  limit_ = bytes + wanted;
}

}  // namespace foundation::zorvandata
