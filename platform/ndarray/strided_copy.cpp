#include "strided_copy.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "shape.h"

namespace ndarray {

namespace {

// Element policies: kSize bytes are written for each element. Elements kDenseStep bytes apart, if
// that is not 0, are copied by copyDense, faster than one by one.

template <std::size_t size>
struct Plain {
  static constexpr std::size_t kSize = size;
  static constexpr std::ptrdiff_t kDenseStep = size;
  static void copy(const char* from, char* to) { std::memcpy(to, from, size); }
  static void copyDense(const char* from, char* to, std::size_t count) {
    std::memcpy(to, from, count * size);
  }
};

template <class Unsigned>
Unsigned load(const char* from) {
  Unsigned value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

std::uint16_t swapBytes(std::uint16_t value) { return __builtin_bswap16(value); }
std::uint32_t swapBytes(std::uint32_t value) { return __builtin_bswap32(value); }
std::uint64_t swapBytes(std::uint64_t value) { return __builtin_bswap64(value); }

template <class Unsigned, std::size_t components>
struct Swapped {
  static constexpr std::size_t kSize = sizeof(Unsigned) * components;
  static constexpr std::ptrdiff_t kDenseStep = 0;
  static void copy(const char* from, char* to) {
    for (std::size_t offset = 0; offset < kSize; offset += sizeof(Unsigned)) {
      const Unsigned value = swapBytes(load<Unsigned>(from + offset));
      std::memcpy(to + offset, &value, sizeof value);
    }
  }
};

// IEEE 754 binary16 to binary32, exact; NaN payloads are kept.
std::uint32_t widenHalf(std::uint16_t half) {
  const std::uint32_t sign = static_cast<std::uint32_t>(half & 0x8000u) << 16;
  const std::uint32_t exponent = (half >> 10) & 0x1Fu;
  std::uint32_t mantissa = half & 0x3FFu;
  if (exponent == 0x1F) return sign | 0x7F800000u | mantissa << 13;
  if (exponent != 0) return sign | (exponent + 112) << 23 | mantissa << 13;
  if (mantissa == 0) return sign;
  std::uint32_t shifted = 113;
  for (; (mantissa & 0x400u) == 0; mantissa <<= 1) --shifted;
  return sign | shifted << 23 | (mantissa & 0x3FFu) << 13;
}

template <bool swap>
struct Half {
  static constexpr std::size_t kSize = 4;
  static constexpr std::ptrdiff_t kDenseStep = 0;
  static void copy(const char* from, char* to) {
    const std::uint16_t half = load<std::uint16_t>(from);
    const std::uint32_t bits = widenHalf(swap ? swapBytes(half) : half);
    std::memcpy(to, &bits, sizeof bits);
  }
};

struct Bool {
  static constexpr std::size_t kSize = 1;
  static constexpr std::ptrdiff_t kDenseStep = 1;
  static void copy(const char* from, char* to) { *to = *from != 0 ? 1 : 0; }
  // In blocks of a constant size, which compilers turn into vector instructions.
  static void copyDense(const char* from, char* to, std::size_t count) {
    constexpr std::size_t kBlock = 64;
    std::size_t i = 0;
    for (; i + kBlock <= count; i += kBlock) {
      char block[kBlock];
      std::memcpy(block, from + i, kBlock);
      for (char& element : block) element = element != 0 ? 1 : 0;
      std::memcpy(to + i, block, kBlock);
    }
    for (; i < count; ++i) copy(from + i, to + i);
  }
};

// One loop of the copy; steps are in bytes.
struct Axis {
  std::ptrdiff_t extent;
  std::ptrdiff_t source_step;
  std::ptrdiff_t out_step;
};

// The fewest loops that visit the layout: axes of one element are left out, axes that continue
// each other are joined. Holds at least one axis; the first is the one that is contiguous in out.
struct Axes {
  Axes(const StridedLayout& source, std::size_t element_size) {
    std::ptrdiff_t out_step = static_cast<std::ptrdiff_t>(element_size);
    for (std::size_t i = 0; i < source.dimensions; ++i) {
      const std::ptrdiff_t extent = source.extents[i];
      add({extent, source.strides[i], out_step});
      out_step *= extent;
    }
    empty = out_step == 0;
    if (count == 0) axes[count++] = {1, 0, 0};
  }

  void add(const Axis& axis) {
    if (axis.extent == 1) return;
    Axis* last = count == 0 ? nullptr : &axes[count - 1];
    if (last != nullptr && axis.source_step == last->source_step * last->extent) {
      last->extent *= axis.extent;
    } else {
      axes[count++] = axis;
    }
  }

  // The axis along which the source lies most densely.
  std::size_t densest() const {
    const auto closer = [](const Axis& a, const Axis& b) {
      return std::abs(a.source_step) < std::abs(b.source_step);
    };
    return static_cast<std::size_t>(std::min_element(axes, axes + count, closer) - axes);
  }

  Axis axes[kMaxDimensions];
  std::size_t count = 0;
  bool empty = false;
};

template <class Element>
void copyLine(const Axis& axis, const char* from, char* out) {
  if constexpr (Element::kDenseStep != 0) {
    if (axis.source_step == Element::kDenseStep) {
      return Element::copyDense(from, out, static_cast<std::size_t>(axis.extent));
    }
  }
  for (std::ptrdiff_t i = 0; i < axis.extent; ++i) {
    Element::copy(from, out);
    from += axis.source_step;
    out += Element::kSize;
  }
}

// Copies a few elements down a column; a constant count, once inlined, becomes straight code.
template <class Element>
inline void copyColumn(std::ptrdiff_t count, std::ptrdiff_t source_step, const char* from,
                       char* out) {
#pragma GCC unroll 8
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    Element::copy(from + i * source_step, out + i * static_cast<std::ptrdiff_t>(Element::kSize));
  }
}

// Transposes the plane of `line`, contiguous in out, and `across`, dense in the source. Small
// tiles keep the lines of both sides in the cache until they are used up; panels a few columns
// wide keep the number of memory pages in use below what the processor can remember.
template <class Element>
void copyPlane(const Axis& line, const Axis& across, const char* from, char* out) {
  constexpr std::ptrdiff_t kSize = Element::kSize;
  constexpr std::ptrdiff_t kTile = 8;
  constexpr std::ptrdiff_t kPanel = std::max<std::ptrdiff_t>(16, 128 / kSize);
  for (std::ptrdiff_t panel = 0; panel < across.extent; panel += kPanel) {
    const std::ptrdiff_t panel_end = std::min(panel + kPanel, across.extent);
    for (std::ptrdiff_t row = 0; row < line.extent; row += kTile) {
      const std::ptrdiff_t rows = std::min(kTile, line.extent - row);
      for (std::ptrdiff_t column = panel; column < panel_end; ++column) {
        const char* source = from + row * line.source_step + column * across.source_step;
        char* target = out + row * kSize + column * across.out_step;
        if (rows == kTile) {
          copyColumn<Element>(kTile, line.source_step, source, target);
        } else {
          copyColumn<Element>(rows, line.source_step, source, target);
        }
      }
    }
  }
}

// Calls copy(from, out) at every position of the axes that are not taken out by `skip`.
template <class Copy>
void forEachPosition(const Axes& axes, std::size_t skip, const char* from, char* out, Copy copy) {
  std::ptrdiff_t index[kMaxDimensions] = {};
  for (;;) {
    copy(from, out);
    std::size_t i = 1;
    for (; i < axes.count; ++i) {
      if (i == skip) continue;
      const Axis& axis = axes.axes[i];
      from += axis.source_step;
      out += axis.out_step;
      if (++index[i] < axis.extent) break;
      index[i] = 0;
      from -= axis.source_step * axis.extent;
      out -= axis.out_step * axis.extent;
    }
    if (i == axes.count) return;
  }
}

template <class Element>
void copyElements(const StridedLayout& source, void* out) noexcept {
  const Axes axes(source, Element::kSize);
  if (axes.empty) return;
  const Axis& line = axes.axes[0];
  const std::size_t dense = axes.densest();
  if (dense == 0) {
    forEachPosition(axes, 0, source.base, static_cast<char*>(out),
                    [&](const char* from, char* to) { copyLine<Element>(line, from, to); });
  } else {
    const Axis& across = axes.axes[dense];
    forEachPosition(
        axes, dense, source.base, static_cast<char*>(out),
        [&](const char* from, char* to) { copyPlane<Element>(line, across, from, to); });
  }
}

CopyFunction plainCopy(std::size_t element_size) {
  switch (element_size) {
    case 1:
      return copyElements<Plain<1>>;
    case 2:
      return copyElements<Plain<2>>;
    case 4:
      return copyElements<Plain<4>>;
    case 8:
      return copyElements<Plain<8>>;
    default:
      return copyElements<Plain<16>>;
  }
}

template <std::size_t components>
CopyFunction swappingCopy(std::size_t component_size) {
  switch (component_size) {
    case 2:
      return copyElements<Swapped<std::uint16_t, components>>;
    case 4:
      return copyElements<Swapped<std::uint32_t, components>>;
    case 8:
      return copyElements<Swapped<std::uint64_t, components>>;
    default:
      return plainCopy(components);
  }
}

}  // namespace

CopyFunction copyFunction(ElementConversion conversion, std::size_t component_size,
                          std::size_t components) {
  switch (conversion) {
    case ElementConversion::kNone:
      break;
    case ElementConversion::kSwapBytes:
      return components == 1 ? swappingCopy<1>(component_size) : swappingCopy<2>(component_size);
    case ElementConversion::kWidenHalf:
      return copyElements<Half<false>>;
    case ElementConversion::kWidenHalfSwap:
      return copyElements<Half<true>>;
    case ElementConversion::kNormalizeBool:
      return copyElements<Bool>;
  }
  return plainCopy(component_size * components);
}

}  // namespace ndarray
