#include "array_text.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "array_object.h"

namespace ndarray {

namespace {

constexpr std::size_t kLongFrom = 201;  // elements
constexpr Py_ssize_t kShownAtEachEnd = 3;
constexpr std::size_t kLineWidth = 88;

template <class T>
std::string componentText(T value) {
  if constexpr (std::is_same_v<T, Logical>) {
    return value.value != 0 ? "True" : "False";
  } else if constexpr (std::is_integral_v<T>) {
    return std::to_string(value);
  } else {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    char digits[32];
    std::string text(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
  }
}

std::string elementText(ElementType type, const char* from) {
  return dispatch(type.element_class, [&](auto component) {
    using T = typename decltype(component)::Type;
    T parts[2] = {};
    std::memcpy(parts, from, type.size());
    if (!type.is_complex) return componentText(parts[0]);
    const std::string imaginary = componentText(parts[1]);
    return componentText(parts[0]) + (imaginary[0] == '-' ? "" : "+") + imaginary + "j";
  });
}

class Writer {
 public:
  // Breaks the line between rows and indents them by that much, unless it is 0.
  Writer(const ArrayObject& array, std::size_t indent) : array_(array), indent_(indent) {}

  bool isAbbreviated() const { return array_.count() >= kLongFrom; }

  std::string write() const { return write(0, array_.elements()); }

 private:
  std::string write(std::size_t dimension, const char* base) const {
    if (dimension == array_.extents.size()) return elementText(array_.type, base);
    const Py_ssize_t extent = array_.extents[dimension];
    const std::string separator = separatorIn(dimension);
    std::string text = "[";
    for (Py_ssize_t i = 0; i < extent; ++i) {
      if (i != 0) text += separator;
      if (isAbbreviated() && i == kShownAtEachEnd && extent > 2 * kShownAtEachEnd + 1) {
        text += "..." + separator;
        i = extent - kShownAtEachEnd;
      }
      text += write(dimension + 1, base + i * array_.strides[dimension]);
    }
    return text + "]";
  }

  std::string separatorIn(std::size_t dimension) const {
    const bool is_row = dimension + 1 == array_.extents.size();
    if (is_row || indent_ == 0) return ", ";
    return ",\n" + std::string(indent_ + dimension + 1, ' ');
  }

  const ArrayObject& array_;
  std::size_t indent_;
};

std::string textOf(const ArrayObject& array) {
  const std::string head = array.type.className() + "(";
  const std::string size = "size=" + toText(array.extents);
  if (array.count() == 0) {
    return head + size + (array.type.is_complex ? ", is_complex=True)" : ")");
  }
  const Writer line(array, 0);
  std::string body = line.write();
  if (head.size() + body.size() >= kLineWidth) body = Writer(array, head.size()).write();
  return head + body + (line.isAbbreviated() ? ", " + size + ")" : ")");
}

}  // namespace

PyObject* represent(PyObject* self) noexcept {
  return guardedObject([&] {
    const std::string text = textOf(*arrayIn(self));
    return Ref::take(
        PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
  });
}

}  // namespace ndarray
