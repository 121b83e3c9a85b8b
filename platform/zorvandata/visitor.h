// Type dispatch: calls a visitor with the typed view that matches an array.
#pragma once

#include "zorvandata/exception.h"
#include "zorvandata/typed_array.h"

namespace foundation::zorvandata {

// Returns visitor(TypedArray<T>), or throws EArrayUnknownDataType for arrays without a typed view:
// unknown, object and sparse ones.
template <class Visitor>
decltype(auto) applyVisitor(const Array& array, Visitor&& visitor) {
  switch (array.getType()) {
#define ZORVAN_VISIT(name, code, ...) \
  case ArrayType::name:               \
    return visitor(TypedArray<__VA_ARGS__>(array));
    ZORVAN_DENSE_TYPES(ZORVAN_VISIT)
    ZORVAN_ITEM_TYPES(ZORVAN_VISIT)
#undef ZORVAN_VISIT
    default:
      throw EArrayUnknownDataType();
  }
}

}  // namespace foundation::zorvandata
