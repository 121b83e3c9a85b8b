// Dimensions of a data array: at least two extents whose product is known to fit.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace foundation::zorvandata {

// Invariant: the product of the extents (zeros counted as ones) fits a signed size. No extents
// mean 1-by-1, a single extent N means 1-by-N.
class Dimensions {
 public:
  Dimensions() : Dimensions(0, 0) {}
  Dimensions(size_t rows, size_t columns) : first_{rows, columns}, elements_(rows * columns) {
    if ((rows | columns) > UINT32_MAX / 2) checkProduct();
  }
  // Throws InvalidDimensionsException when the product of the extents overflows.
  explicit Dimensions(const std::vector<size_t>& extents);

  static Dimensions scalar() { return Dimensions(1, 1); }
  static Dimensions row(size_t columns) { return Dimensions(1, columns); }

  size_t count() const { return 2 + rest_.size(); }
  size_t operator[](size_t i) const { return i < 2 ? first_[i] : rest_[i - 2]; }
  size_t elements() const { return elements_; }
  bool isScalar() const { return elements_ == 1 && count() == 2; }
  bool isRow() const { return count() == 2 && first_[0] == 1; }
  std::vector<size_t> toVector() const;

  friend bool operator==(const Dimensions& a, const Dimensions& b) {
    return a.first_ == b.first_ && a.rest_ == b.rest_;
  }
  friend bool operator!=(const Dimensions& a, const Dimensions& b) { return !(a == b); }

 private:
  void checkProduct();

  std::array<size_t, 2> first_;
  std::vector<size_t> rest_;
  size_t elements_ = 0;
};

}  // namespace foundation::zorvandata
