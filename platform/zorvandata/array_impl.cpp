#include "zorvandata/array_impl.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "zorvandata/exception.h"
#include "zorvandata/text.h"

namespace foundation::zorvandata {

size_t Layout::find(const std::string& name) const {
  return static_cast<size_t>(std::find(names.begin(), names.end(), name) - names.begin());
}

bool operator==(const Layout& a, const Layout& b) {
  return a.className == b.className && a.names == b.names;
}

std::shared_ptr<const Layout> makeLayout(std::string className, std::vector<std::string> names) {
  checkUtf8(className);
  std::unordered_set<std::string_view> seen;
  for (const std::string& name : names) {
    checkUtf8(name);
    if (name.empty()) throw InvalidFieldNameException("a name is empty");
    if (!seen.insert(name).second) throw InvalidFieldNameException("'" + name + "' stands twice");
  }
  auto layout = std::make_shared<Layout>();
  layout->className = std::move(className);
  layout->names = std::move(names);
  return layout;
}

ArrayImpl::ArrayImpl(ArrayType type, Dimensions dimensions, Content&& content,
                     std::shared_ptr<const Layout> layout)
    : type_(type),
      dimensions_(std::move(dimensions)),
      layout_(std::move(layout)),
      content_(std::move(content)) {}

ArrayImpl::ArrayImpl(const ArrayImpl& other)
    : type_(other.type_),
      dimensions_(other.dimensions_),
      layout_(other.layout_),
      content_(other.content_) {}

int ArrayImpl::depth() const {
  const auto* list = std::get_if<Items>(&content_);
  return 1 + (list ? list->depth() : 0);
}

void ArrayImpl::release() const noexcept {
  // An only owner has nobody to race with.
  if (!shared() || owners_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

void ArrayImpl::throwWrongContent() {
  throw InvalidArrayTypeException("the array's elements are of another kind");
}

void ArrayImpl::addName(const std::string& name) {
  std::vector<std::string> names = layout_->names;
  names.push_back(name);
  auto layout = makeLayout(layout_->className, std::move(names));
  Items& list = items();
  list.reserve(list.size() + elements());
  const Array empty = makeDense(ArrayType::DOUBLE, Dimensions(), Buffer());
  for (size_t i = 0; i < elements(); ++i) list.append(empty);
  layout_ = std::move(layout);
}

Array makeArray(ArrayType type, const Dimensions& dimensions, ArrayImpl::Content&& content,
                std::shared_ptr<const Layout> layout) {
  return Array::adopt(new ArrayImpl(type, dimensions, std::move(content), std::move(layout)));
}

Array makeDense(ArrayType type, const Dimensions& dimensions, Buffer buffer) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(dimensions.elements(), elementSize(type), &bytes) ||
      bytes != buffer.size()) {
    throw InvalidDimensionsException("they ask for " + std::to_string(dimensions.elements()) +
                                     " elements of " + std::to_string(elementSize(type)) +
                                     " bytes, the data has " + std::to_string(buffer.size()) +
                                     " bytes");
  }
  return makeArray(type, dimensions, std::move(buffer));
}

Array makeSparse(ArrayType type, const Dimensions& dimensions, SparseContent content) {
  const auto require = [](bool holds) {
    if (!holds) throw InvalidDimensionsException("the sparse array's parts do not fit together");
  };
  const std::vector<size_t>& rows = content.rows;
  const std::vector<size_t>& starts = content.columnStarts;
  require(dimensions.count() == 2 && starts.size() - 1 == dimensions[1] && starts.front() == 0 &&
          starts.back() == rows.size());
  require(content.values.size() == rows.size() * elementSize(sparseValueType(type)));
  for (size_t column = 0; column < dimensions[1]; ++column) {
    require(starts[column] <= starts[column + 1] && starts[column + 1] <= rows.size());
    for (size_t k = starts[column]; k < starts[column + 1]; ++k) {
      require(rows[k] < dimensions[0] && (k == starts[column] || rows[k - 1] < rows[k]));
    }
  }
  return makeArray(type, dimensions, std::make_shared<const SparseContent>(std::move(content)));
}

Array makeScalar(ArrayType type, const void* value) {
  return makeArray(type, Dimensions::scalar(), Buffer::copyOf(value, elementSize(type)));
}

Array makeCharRow(std::u16string_view units) {
  return makeArray(ArrayType::CHAR, Dimensions::row(units.size()),
                   Buffer::copyOf(units.data(), units.size() * sizeof(char16_t)));
}

}  // namespace foundation::zorvandata
