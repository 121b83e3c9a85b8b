// The element types: eleven classes of components, of which the ten number classes have a complex
// twin that stores interleaved (real, imaginary) pairs. Constant tables and pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace ndarray {

enum class ElementClass : std::uint8_t {
  kDouble,
  kSingle,
  kInt8,
  kUint8,
  kInt16,
  kUint16,
  kInt32,
  kUint32,
  kInt64,
  kUint64,
  kLogical,
};

constexpr std::size_t kClassCount = 11;

constexpr bool isIntegerClass(ElementClass element_class) {
  return element_class > ElementClass::kSingle && element_class < ElementClass::kLogical;
}

// A component of class kLogical as it lies in memory: 0 or 1.
struct Logical {
  std::uint8_t value;
};

struct ClassInfo {
  const char* name;
  std::int32_t code;           // of the real element type
  std::size_t component_size;  // also its alignment
  const char* format;          // buffer format of the real element type
  const char* complex_format;  // of the complex one; null for logical
};

const ClassInfo& classInfo(ElementClass element_class);

struct ElementType {
  ElementClass element_class;
  bool is_complex;

  const ClassInfo& info() const { return classInfo(element_class); }
  std::size_t componentCount() const { return is_complex ? 2 : 1; }
  std::size_t size() const { return info().component_size * componentCount(); }
  std::int32_t code() const { return info().code + (is_complex ? 10 : 0); }
  const char* format() const { return is_complex ? info().complex_format : info().format; }
  std::string className() const { return std::string("zorvan.") + info().name; }

  bool operator==(const ElementType& other) const { return code() == other.code(); }
  bool operator!=(const ElementType& other) const { return !(*this == other); }
};

// Nothing when no element type has the code.
std::optional<ElementType> elementTypeOfCode(std::int32_t code);

template <class T>
struct Component {
  using Type = T;
};

// Calls visit with a Component<T> whose T is the C++ type of the class.
template <class Visit>
decltype(auto) dispatch(ElementClass element_class, Visit&& visit) {
  switch (element_class) {
    case ElementClass::kDouble:
      return visit(Component<double>{});
    case ElementClass::kSingle:
      return visit(Component<float>{});
    case ElementClass::kInt8:
      return visit(Component<std::int8_t>{});
    case ElementClass::kUint8:
      return visit(Component<std::uint8_t>{});
    case ElementClass::kInt16:
      return visit(Component<std::int16_t>{});
    case ElementClass::kUint16:
      return visit(Component<std::uint16_t>{});
    case ElementClass::kInt32:
      return visit(Component<std::int32_t>{});
    case ElementClass::kUint32:
      return visit(Component<std::uint32_t>{});
    case ElementClass::kInt64:
      return visit(Component<std::int64_t>{});
    case ElementClass::kUint64:
      return visit(Component<std::uint64_t>{});
    case ElementClass::kLogical:
      break;
  }
  return visit(Component<Logical>{});
}

}  // namespace ndarray
