// What both directions of categorical columns agree on.
#pragma once

#include <type_traits>

namespace PythonZorvanDataArray::detail {

// Whether codes of categories may be of an element type: integers of any width.
template <class T>
constexpr bool isCode =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char16_t>;

}  // namespace PythonZorvanDataArray::detail
