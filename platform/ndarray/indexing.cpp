#include "indexing.h"

#include <cstring>

#include "array_object.h"
#include "number.h"
#include "strided_copy.h"

namespace ndarray {

namespace {

// The elements that a key selects.
struct Selection {
  char* base;
  Extents extents;
  Strides strides;
  bool is_element;
};

class KeyReader {
 public:
  explicit KeyReader(const ArrayObject& array) : array_(array), base_(array.elements()) {}

  // The items are borrowed from a tuple, which nobody can change.
  Selection read(const std::vector<PyObject*>& items) {
    std::size_t ellipses = 0;
    for (PyObject* item : items) ellipses += item == Py_Ellipsis;
    if (ellipses > 1) raise(PyExc_IndexError, "an index can have only one Ellipsis");
    const std::size_t indexed = items.size() - ellipses;
    const std::size_t dimensions = array_.extents.size();
    if (indexed > dimensions) {
      raise(PyExc_IndexError, std::to_string(indexed) + " indices for an array of " +
                                  std::to_string(dimensions) + " dimensions");
    }
    for (PyObject* item : items) {
      if (item == Py_Ellipsis) {
        takeWhole(dimensions - indexed);
      } else if (PySlice_Check(item)) {
        takeSlice(item);
      } else {
        takeIndex(item);
      }
    }
    takeWhole(dimensions - extents_.size());
    return {base_, std::move(extents_), std::move(strides_), ints_ == dimensions};
  }

 private:
  void takeWhole(std::size_t count) {
    for (; count != 0; --count) take(0, 1, array_.extents[extents_.size()]);
  }

  void takeSlice(PyObject* slice) {
    Py_ssize_t start = 0;
    Py_ssize_t stop = 0;
    Py_ssize_t step = 0;
    if (PySlice_Unpack(slice, &start, &stop, &step) != 0) throw PythonError{};
    const Py_ssize_t extent = array_.extents[extents_.size()];
    const Py_ssize_t count = PySlice_AdjustIndices(extent, &start, &stop, step);
    // The step of fewer than two elements is never walked, and might be beyond all bounds.
    take(count == 0 ? 0 : start, count < 2 ? 1 : step, count);
  }

  void takeIndex(PyObject* item) {
    if (PyBool_Check(item) || !PyIndex_Check(item)) {
      raise(PyExc_TypeError, "indices are ints, slices, an Ellipsis or tuples of them, not '" +
                                 typeNameOf(item) + "'");
    }
    const Py_ssize_t index = PyNumber_AsSsize_t(item, PyExc_IndexError);
    if (index == -1 && PyErr_Occurred() != nullptr) throw PythonError{};
    const std::size_t dimension = extents_.size();
    const Py_ssize_t extent = array_.extents[dimension];
    if (index < -extent || index >= extent) {
      raise(PyExc_IndexError, "index " + std::to_string(index) + " is out of range for dimension " +
                                  std::to_string(dimension) + " of extent " +
                                  std::to_string(extent));
    }
    take(index < 0 ? index + extent : index, 1, 1);
    ++ints_;
  }

  void take(Py_ssize_t start, Py_ssize_t step, Py_ssize_t count) {
    const Py_ssize_t stride = array_.strides[extents_.size()];
    base_ += start * stride;
    strides_.push_back(step * stride);
    extents_.push_back(count);
  }

  const ArrayObject& array_;
  char* base_;
  Extents extents_;
  Strides strides_;
  std::size_t ints_ = 0;
};

Selection select(const ArrayObject& array, PyObject* key) {
  std::vector<PyObject*> items{key};
  if (PyTuple_Check(key)) {
    items.resize(static_cast<std::size_t>(PyTuple_Size(key)));
    for (std::size_t i = 0; i < items.size(); ++i) {
      items[i] = PyTuple_GetItem(key, static_cast<Py_ssize_t>(i));
    }
  }
  return KeyReader(array).read(items);
}

Ref copyOf(ElementType type, const Selection& selection) {
  Ref result = makeArray(type, selection.extents);
  const std::size_t component_size = type.info().component_size;
  const auto copy = copyFunction(ElementConversion::kNone, component_size, type.componentCount());
  copy({selection.base, selection.extents.size(), selection.extents.data(),
        selection.strides.data()},
       arrayIn(result)->elements());
  return result;
}

// Writes the element to every place along the dimensions before `dimension`.
void fill(const Selection& selection, std::size_t dimension, char* base, const char* element,
          std::size_t element_size) {
  if (dimension == 0) {
    std::memcpy(base, element, element_size);
    return;
  }
  --dimension;
  for (Py_ssize_t i = 0; i < selection.extents[dimension]; ++i) {
    fill(selection, dimension, base + i * selection.strides[dimension], element, element_size);
  }
}

Ref itemOf(const ArrayObject& array, PyObject* key) {
  const Selection selection = select(array, key);
  if (selection.is_element) return elementToPython(array.type, selection.base);
  return copyOf(array.type, selection);
}

}  // namespace

Py_ssize_t firstExtent(PyObject* self) noexcept { return arrayIn(self)->extents[0]; }

PyObject* getItem(PyObject* self, PyObject* key) noexcept {
  return guardedObject([&] { return itemOf(*arrayIn(self), key); });
}

PyObject* getRow(PyObject* self, Py_ssize_t index) noexcept {
  return guardedObject([&] {
    const Ref key = Ref::take(PyLong_FromSsize_t(index));
    return itemOf(*arrayIn(self), key.get());
  });
}

int setItem(PyObject* self, PyObject* key, PyObject* value) noexcept {
  return guarded(-1, [&] {
    const ArrayObject& array = *arrayIn(self);
    if (value == nullptr) raise(PyExc_TypeError, "elements of an array cannot be deleted");
    const Selection selection = select(array, key);
    char element[16];
    storeElement(array.type, numberFromPython(value, array.type.element_class), element);
    fill(selection, selection.extents.size(), selection.base, element, array.type.size());
    return 0;
  });
}

}  // namespace ndarray
