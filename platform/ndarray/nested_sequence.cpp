#include "nested_sequence.h"

namespace ndarray {

namespace {

class Reader {
 public:
  explicit Reader(ElementClass target) : target_(target) {}

  void read(PyObject* source) {
    const std::size_t depth = path_.size();
    if (!isSequence(source)) {
      readNumber(source, depth);
      return;
    }
    const Ref items = Ref::take(PySequence_Tuple(source));
    const Py_ssize_t count = PyTuple_Size(items.get());
    enterSequence(depth, count);
    for (Py_ssize_t i = 0; i < count; ++i) {
      path_.push_back(i);
      read(PyTuple_GetItem(items.get(), i));
      path_.pop_back();
    }
    if (count == 0) rank_known_ = true;
  }

  NestedNumbers result() && { return std::move(result_); }

 private:
  // What has items but no length, a zero-dimensional array, is a number.
  static bool isSequence(PyObject* object) {
    if (PyFloat_Check(object) || PyUnicode_Check(object) || !PySequence_Check(object)) return false;
    if (PyObject_Size(object) >= 0) return true;
    if (!PyErr_ExceptionMatches(PyExc_TypeError)) throw PythonError{};
    PyErr_Clear();
    return false;
  }

  void readNumber(PyObject* source, std::size_t depth) {
    if (depth < result_.extents.size()) {
      raise(PyExc_ValueError, place() + " is no sequence where one of " +
                                  std::to_string(result_.extents[depth]) + " was expected");
    }
    rank_known_ = true;
    const Number number = numberFromPython(source, target_);
    result_.any_complex |= number.is_complex;
    result_.numbers.push_back(number);
  }

  void enterSequence(std::size_t depth, Py_ssize_t count) {
    if (depth == result_.extents.size()) {
      if (rank_known_) {
        raise(PyExc_ValueError, place() + " is a sequence where a number was expected");
      }
      if (depth == kMaxDimensions) {
        raise(PyExc_ValueError,
              "sequences are nested deeper than " + std::to_string(kMaxDimensions) + " levels");
      }
      result_.extents.push_back(count);
    } else if (result_.extents[depth] != count) {
      raise(PyExc_ValueError, place() + " has " + std::to_string(count) + " elements where " +
                                  std::to_string(result_.extents[depth]) + " were expected");
    }
  }

  std::string place() const {
    std::string text = "source";
    for (Py_ssize_t index : path_) text += "[" + std::to_string(index) + "]";
    return text;
  }

  ElementClass target_;
  NestedNumbers result_;
  std::vector<Py_ssize_t> path_;
  bool rank_known_ = false;  // no further level of nesting may appear
};

}  // namespace

NestedNumbers readNestedNumbers(PyObject* source, ElementClass target) {
  Reader reader(target);
  reader.read(source);
  return std::move(reader).result();
}

}  // namespace ndarray
