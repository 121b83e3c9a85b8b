#include "types/ndpy_array_bridge.h"

#include <memory>
#include <stdexcept>
#include <string>

#include "util/py_object_guard_getter.h"
#include "zorvandata/array_impl.h"

namespace PythonNdPyArray {

const NdArrayCapi* ndpyCapsule = nullptr;
PyObject* ndpyDouble = nullptr;

namespace {

using foundation::zorvandata::allocateStorage;
using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::codeOf;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::makeDense;
using foundation::zorvandata::Storage;
using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

constexpr char kPackage[] = "zorvanmultidimarrayforpython";

// Below this size a copy costs less than keeping the exporter busy.
constexpr size_t kCopiedSize = 16;

// Sets the pending Python error aside for a scope in which Python code may run.
class PendingErrorAside {
 public:
  PendingErrorAside() { PyErr_Fetch(&type_, &value_, &traceback_); }
  ~PendingErrorAside() { PyErr_Restore(type_, value_, traceback_); }
  PendingErrorAside(const PendingErrorAside&) = delete;
  PendingErrorAside& operator=(const PendingErrorAside&) = delete;

 private:
  PyObject* type_ = nullptr;
  PyObject* value_ = nullptr;
  PyObject* traceback_ = nullptr;
};

// The elements of a description, held until the last data array on them is gone. They belong to
// somebody else, so they are never written through this.
class DescribedStorage : public Storage {
 public:
  DescribedStorage() = default;
  DescribedStorage(const DescribedStorage&) = delete;
  DescribedStorage& operator=(const DescribedStorage&) = delete;
  ~DescribedStorage() override {
    if (!description_.release) return;
    const PendingErrorAside aside;
    ndpyCapsule->release_description(&description_);
  }

  const std::byte* data() override {
    if (description_.elements) return static_cast<const std::byte*>(description_.elements);
    if (!gathered_) {
      auto gathered = allocateStorage(description_.byte_count);
      copyTo(const_cast<std::byte*>(gathered->data()));
      gathered_ = std::move(gathered);
    }
    return gathered_->data();
  }
  void copyTo(std::byte* out) override { description_.copy_elements(&description_, out); }
  bool writable() const override { return false; }
  bool isSettled() const override { return false; }

  // To be filled in once, before the storage is used.
  NdArrayDescription& description() { return description_; }

 private:
  NdArrayDescription description_{};
  std::shared_ptr<Storage> gathered_;
};

// Makes 1 of every byte other than 0.
void makeLogical(std::byte* bytes, size_t size) {
  constexpr size_t kBlock = 64;  // of fixed size, so that the compiler uses vector instructions
  const auto normalize = [](std::byte byte) { return std::byte{byte != std::byte{0}}; };
  size_t i = 0;
  for (; i + kBlock <= size; i += kBlock) {
    for (size_t j = 0; j < kBlock; ++j) bytes[i + j] = normalize(bytes[i + j]);
  }
  for (; i < size; ++i) bytes[i] = normalize(bytes[i]);
}

Buffer bufferOf(const std::shared_ptr<DescribedStorage>& storage) {
  const size_t size = storage->description().byte_count;
  // Logical elements are 0 or 1 everywhere else; whoever shares the memory may put other bytes
  // there, now or before the elements are read.
  const bool isLogical = storage->description().type == codeOf(ArrayType::LOGICAL);
  if (size > kCopiedSize && !isLogical) return Buffer::shared(storage, size);

  Buffer copy = Buffer::uninitialized(size);
  std::byte* bytes = copy.mutableData();
  if (size > 0) storage->copyTo(bytes);
  if (isLogical) makeLogical(bytes, size);
  return copy;
}

Array arrayOf(const std::shared_ptr<DescribedStorage>& storage) {
  const NdArrayDescription& description = storage->description();
  const Dimensions dims(std::vector<size_t>(description.dims, description.dims + description.ndim));
  return makeDense(static_cast<ArrayType>(description.type), dims, bufferOf(storage));
}

// What a Python array on lent memory keeps alive.
struct LentElements {
  std::shared_ptr<Storage> storage;
  std::vector<size_t> dims;

  static void release(void* self) noexcept { delete static_cast<LentElements*>(self); }
};

// The buffer's own storage when only the buffer and the returned pointer own it, else a copy.
std::shared_ptr<Storage> exclusiveStorage(const Buffer& buffer) {
  std::shared_ptr<Storage> storage = buffer.toStorage();
  if (storage->writable() && storage.use_count() <= 2) return storage;
  auto copy = allocateStorage(buffer.size());
  buffer.copyTo(const_cast<std::byte*>(copy->data()));
  return copy;
}

std::string searchPathText() {
  std::string text;
  PyObject* path = PySys_GetObject("path");
  const Py_ssize_t count = path && PyList_Check(path) ? PyList_Size(path) : 0;
  for (Py_ssize_t i = 0; i < count; ++i) {
    PyObject* entry = PyList_GetItem(path, i);
    if (!PyUnicode_Check(entry)) continue;
    Py_ssize_t size = 0;
    const char* utf8 = PyUnicode_AsUTF8AndSize(entry, &size);
    if (!utf8) PyErr_Clear();
    if (utf8 && size > 0) text.append(utf8, static_cast<size_t>(size)).append("\n");
  }
  return text;
}

const NdArrayCapi* importCapsule() {
  const auto* capi = static_cast<const NdArrayCapi*>(PyCapsule_Import(NDARRAY_CAPSULE_NAME, 0));
  if (!capi) throw std::runtime_error("Unable to import capsule");
  if (capi->abi_version != NDARRAY_CAPI_VERSION || capi->struct_size != sizeof(NdArrayCapi)) {
    throw std::runtime_error(
        std::string(kPackage) + " offers version " + std::to_string(capi->abi_version) + " (" +
        std::to_string(capi->struct_size) + " bytes) of its native interface; version " +
        std::to_string(NDARRAY_CAPI_VERSION) + " (" + std::to_string(sizeof(NdArrayCapi)) +
        " bytes) is required");
  }
  return capi;
}

}  // namespace

void initPythonNdPyArray() {
  const auto package = PyObjectWithGuard::owned(PyImport_ImportModule(kPackage));
  if (!package) {
    const PendingErrorAside importError;  // reading the path clears what errors it meets
    throw std::runtime_error(std::string("Unable to import ") + kPackage + "; sys.path: \n" +
                             searchPathText());
  }
  const NdArrayCapi* capsule = importCapsule();
  ndpyDouble = initTypeObject(package.get(), "double");
  ndpyCapsule = capsule;
}

PyObject* initTypeObject(PyObject* module, const char* name) {
  PyObjectWithGuard type = PyObjectGuardGetter::getAttrString(module, name, true);
  if (!type) {
    throw std::runtime_error(std::string("unable to retrieve type object '") + name + "'");
  }
  return type.release();
}

bool exportsBuffer(PyObject* object) { return ndpyCapsule->exports_buffer(object) != 0; }

std::optional<Array> arrayFromTypedObject(PyObject* object, ArrayType type) {
  const auto storage = std::make_shared<DescribedStorage>();
  if (ndpyCapsule->describe_array(object, codeOf(type), &storage->description()) != 0) {
    return std::nullopt;
  }
  return arrayOf(storage);
}

std::optional<Array> arrayFromBuffer(PyObject* object) {
  const auto storage = std::make_shared<DescribedStorage>();
  if (ndpyCapsule->describe_buffer(object, &storage->description()) != 0) return std::nullopt;
  return arrayOf(storage);
}

PyObject* ndArrayFromArray(const Array& array) {
  const Buffer& buffer = array.impl().buffer();
  auto lent = std::make_unique<LentElements>();
  lent->storage = exclusiveStorage(buffer);
  lent->dims = array.getDimensions();

  NdArrayDescription description{};
  description.type = codeOf(array.getType());
  description.ndim = static_cast<uint32_t>(lent->dims.size());
  description.dims = lent->dims.data();
  description.elements = lent->storage->data();
  description.byte_count = buffer.size();
  description.owner = lent.get();
  description.release = LentElements::release;

  PyObject* result = ndpyCapsule->make_array(&description);
  if (result) static_cast<void>(lent.release());
  return result;
}

}  // namespace PythonNdPyArray
