#include "zorvandata/element_types.h"

namespace foundation::zorvandata {

const char* nameOf(ArrayType type) {
  switch (type) {
#define ZORVAN_NAME(name, ...) \
  case ArrayType::name:        \
    return #name;
    ZORVAN_DENSE_TYPES(ZORVAN_NAME)
    ZORVAN_ITEM_TYPES(ZORVAN_NAME)
    ZORVAN_OTHER_TYPES(ZORVAN_NAME)
#undef ZORVAN_NAME
  }
  return "?";
}

}  // namespace foundation::zorvandata
