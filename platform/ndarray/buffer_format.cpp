#include "buffer_format.h"

#include <cstring>

namespace ndarray {

namespace {

std::optional<ElementClass> integerClass(bool is_signed, std::size_t size) {
  switch (size) {
    case 1:
      return is_signed ? ElementClass::kInt8 : ElementClass::kUint8;
    case 2:
      return is_signed ? ElementClass::kInt16 : ElementClass::kUint16;
    case 4:
      return is_signed ? ElementClass::kInt32 : ElementClass::kUint32;
    case 8:
      return is_signed ? ElementClass::kInt64 : ElementClass::kUint64;
    default:
      return std::nullopt;
  }
}

std::optional<ElementClass> classOfCode(char code, std::size_t size) {
  if (code == '\0') return std::nullopt;
  if (std::strchr("bhilqn", code) != nullptr) return integerClass(true, size);
  if (std::strchr("BHILQN", code) != nullptr) return integerClass(false, size);
  if (code == 'd' && size == 8) return ElementClass::kDouble;
  if (code == 'f' && size == 4) return ElementClass::kSingle;
  if (code == 'e' && size == 2) return ElementClass::kSingle;
  if (code == '?' && size == 1) return ElementClass::kLogical;
  return std::nullopt;
}

bool isForeignOrder(char prefix) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return prefix == '>' || prefix == '!';
#else
  return prefix == '<';
#endif
}

std::optional<BufferFormat> complexIntegerFormat(const char* format, std::size_t item_size) {
  for (std::size_t i = 0; i < kClassCount; ++i) {
    const ElementType type{static_cast<ElementClass>(i), true};
    if (type.format() != nullptr && std::strcmp(type.format(), format) == 0 &&
        type.size() == item_size) {
      return BufferFormat{type, ElementConversion::kNone, type.info().component_size};
    }
  }
  return std::nullopt;
}

ElementConversion conversionOf(char code, bool swap) {
  if (code == 'e') return swap ? ElementConversion::kWidenHalfSwap : ElementConversion::kWidenHalf;
  if (code == '?') return ElementConversion::kNormalizeBool;
  return swap ? ElementConversion::kSwapBytes : ElementConversion::kNone;
}

}  // namespace

std::optional<BufferFormat> parseBufferFormat(const char* format, std::size_t item_size) {
  if (*format == 'T') return complexIntegerFormat(format, item_size);
  const bool has_prefix = *format != '\0' && std::strchr("@=<>!^", *format) != nullptr;
  const bool swap = has_prefix && isForeignOrder(*format);
  const char* code = has_prefix ? format + 1 : format;
  const bool is_complex = *code == 'Z';
  if (is_complex) ++code;
  if (*code == '\0' || code[1] != '\0') return std::nullopt;
  if (is_complex && *code != 'f' && *code != 'd') return std::nullopt;
  const std::size_t component_size = is_complex ? item_size / 2 : item_size;
  const std::optional<ElementClass> element_class = classOfCode(*code, component_size);
  if (!element_class || component_size * (is_complex ? 2 : 1) != item_size) return std::nullopt;
  return BufferFormat{{*element_class, is_complex}, conversionOf(*code, swap), component_size};
}

}  // namespace ndarray
