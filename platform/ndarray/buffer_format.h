// What the format of an exported buffer means in terms of element types. Pure.
#pragma once

#include <cstddef>
#include <optional>

#include "element_types.h"
#include "strided_copy.h"

namespace ndarray {

struct BufferFormat {
  ElementType type;              // of the result
  ElementConversion conversion;  // from what lies in the buffer
  std::size_t component_size;    // in the buffer
};

// Understands the single codes of the struct module that are numbers or bools, "Z" before a float
// code for complex numbers, byte order prefixes ('^', "unaligned", too), and the records by which
// this package exports complex integers. The item size decides the width of integers, whose codes
// mean different sizes on different machines. Nothing when there is no counterpart.
std::optional<BufferFormat> parseBufferFormat(const char* format, std::size_t item_size);

}  // namespace ndarray
