#include "to_python/conversion_scope.h"

#include <unordered_map>

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Layout;
using PythonUtil::PyObjectWithGuard;

namespace {

struct KnownKeys {
  std::shared_ptr<const Layout> layout;  // keeps the address its own
  std::shared_ptr<const FieldKeys> keys;
};

constexpr size_t kMostLayouts = 256;

// Empty between conversions, so it owns no Python object when the interpreter ends.
std::unordered_map<const Layout*, KnownKeys>& knownKeys() {
  static std::unordered_map<const Layout*, KnownKeys> known;
  return known;
}

}  // namespace

ConversionScope::ConversionScope() : collecting_(PyGC_Disable() != 0) {}

ConversionScope::~ConversionScope() {
  if (!knownKeys().empty()) knownKeys().clear();
  if (collecting_) PyGC_Enable();
}

std::shared_ptr<const FieldKeys> makeFieldKeys(const Layout& layout) {
  auto keys = std::make_shared<FieldKeys>();
  keys->reserve(layout.names.size());
  for (const std::string& name : layout.names) {
    keys->push_back(PyObjectWithGuard::owned(
        PyUnicode_DecodeUTF8(name.data(), static_cast<Py_ssize_t>(name.size()), "strict")));
    if (!keys->back()) return nullptr;
  }
  return keys;
}

std::shared_ptr<const FieldKeys> sharedFieldKeys(const std::shared_ptr<const Layout>& layout) {
  auto& known = knownKeys();
  const auto found = known.find(layout.get());
  if (found != known.end()) return found->second.keys;
  auto keys = makeFieldKeys(*layout);
  if (!keys) return nullptr;
  if (known.size() >= kMostLayouts) known.clear();
  known[layout.get()] = {layout, keys};
  return keys;
}

}  // namespace PythonZorvanDataArray::detail
