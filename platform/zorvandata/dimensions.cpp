#include "zorvandata/dimensions.h"

#include <cstdint>

#include "zorvandata/exception.h"

namespace foundation::zorvandata {

Dimensions::Dimensions(const std::vector<size_t>& extents) : first_{1, 1} {
  if (extents.size() == 1) {
    first_[1] = extents[0];
  } else if (extents.size() >= 2) {
    first_ = {extents[0], extents[1]};
    rest_.assign(extents.begin() + 2, extents.end());
  }
  checkProduct();
}

std::vector<size_t> Dimensions::toVector() const {
  std::vector<size_t> extents(first_.begin(), first_.end());
  extents.insert(extents.end(), rest_.begin(), rest_.end());
  return extents;
}

void Dimensions::checkProduct() {
  size_t product = 1;
  bool empty = false;
  for (size_t i = 0; i < count(); ++i) {
    const size_t extent = (*this)[i];
    if (extent == 0) {
      empty = true;
    } else if (__builtin_mul_overflow(product, extent, &product) || product > PTRDIFF_MAX) {
      throw InvalidDimensionsException("the product of the dimensions overflows");
    }
  }
  elements_ = empty ? 0 : product;
}

}  // namespace foundation::zorvandata
