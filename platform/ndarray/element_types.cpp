#include "element_types.h"

namespace ndarray {

namespace {

// In the order of ElementClass.
constexpr ClassInfo kClasses[kClassCount] = {
    {"double", 4, 8, "d", "Zd"},
    {"single", 5, 4, "f", "Zf"},
    {"int8", 6, 1, "b", "T{b:real:b:imag:}"},
    {"uint8", 7, 1, "B", "T{B:real:B:imag:}"},
    {"int16", 8, 2, "h", "T{h:real:h:imag:}"},
    {"uint16", 9, 2, "H", "T{H:real:H:imag:}"},
    {"int32", 10, 4, "i", "T{i:real:i:imag:}"},
    {"uint32", 11, 4, "I", "T{I:real:I:imag:}"},
    {"int64", 12, 8, "q", "T{q:real:q:imag:}"},
    {"uint64", 13, 8, "Q", "T{Q:real:Q:imag:}"},
    {"logical", 1, 1, "?", nullptr},
};

}  // namespace

const ClassInfo& classInfo(ElementClass element_class) {
  return kClasses[static_cast<std::size_t>(element_class)];
}

std::optional<ElementType> elementTypeOfCode(std::int32_t code) {
  for (std::size_t i = 0; i < kClassCount; ++i) {
    const ElementType real{static_cast<ElementClass>(i), false};
    if (real.code() == code) return real;
    const ElementType complex{real.element_class, true};
    if (complex.format() != nullptr && complex.code() == code) return complex;
  }
  return std::nullopt;
}

}  // namespace ndarray
