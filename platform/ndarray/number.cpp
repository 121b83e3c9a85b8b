#include "number.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

#include "buffer_source.h"

namespace ndarray {

namespace {

template <class T>
T load(const char* from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

template <class T>
Real toReal(T component) {
  if constexpr (std::is_same_v<T, Logical>) {
    return Real::of(std::uint64_t{component.value != 0});
  } else if constexpr (std::is_floating_point_v<T>) {
    return Real::of(static_cast<double>(component));
  } else if constexpr (std::is_signed_v<T>) {
    return Real::of(std::int64_t{component});
  } else {
    return Real::of(std::uint64_t{component});
  }
}

// Calls use with the number in its own type.
template <class Use>
decltype(auto) unpack(const Real& real, Use&& use) {
  switch (real.kind) {
    case Real::Kind::kSigned:
      return use(real.as_signed);
    case Real::Kind::kUnsigned:
      return use(real.as_unsigned);
    case Real::Kind::kFloating:
      break;
  }
  return use(real.as_floating);
}

std::string realText(const Real& real) {
  if (real.kind != Real::Kind::kFloating) {
    return unpack(real, [](auto value) { return std::to_string(value); });
  }
  char* text = PyOS_double_to_string(real.as_floating, 'r', 0, Py_DTSF_ADD_DOT_0, nullptr);
  if (text == nullptr) throw PythonError{};
  std::string result = text;
  PyMem_Free(text);
  return result;
}

[[noreturn]] void raiseOutOfRange(const Real& real, ElementClass target) {
  raise(PyExc_OverflowError,
        realText(real) + " is out of range for " + ElementType{target, false}.className());
}

[[noreturn]] void raiseNoCounterpart(const Real& real, ElementClass target) {
  raise(PyExc_ValueError,
        realText(real) + " has no counterpart in " + ElementType{target, false}.className());
}

float toSingle(const Real& real) {
  return unpack(real, [&](auto value) {
    const float single = static_cast<float>(value);
    if constexpr (std::is_floating_point_v<decltype(value)>) {
      if (std::isinf(single) && !std::isinf(value)) raiseOutOfRange(real, ElementClass::kSingle);
    }
    return single;
  });
}

template <class T>
T toInteger(const Real& real, ElementClass target) {
  return unpack(real, [&](auto value) {
    if constexpr (std::is_floating_point_v<decltype(value)>) {
      if (std::isnan(value)) raiseNoCounterpart(real, target);
      // Both bounds are powers of two or zero, so exact as double.
      const double end = std::ldexp(1.0, std::numeric_limits<T>::digits);
      const double begin = std::is_signed_v<T> ? -end : 0.0;
      if (value < begin || value >= end) raiseOutOfRange(real, target);
      if (std::floor(value) != value) raiseNoCounterpart(real, target);
    } else {
      T result;
      if (__builtin_add_overflow(value, 0, &result)) raiseOutOfRange(real, target);
    }
    return static_cast<T>(value);
  });
}

template <class T>
T fromReal(const Real& real, ElementClass target) {
  if constexpr (std::is_same_v<T, double>) {
    return unpack(real, [](auto value) { return static_cast<double>(value); });
  } else if constexpr (std::is_same_v<T, float>) {
    return toSingle(real);
  } else if constexpr (std::is_same_v<T, Logical>) {
    if (real.kind == Real::Kind::kFloating && std::isnan(real.as_floating)) {
      raiseNoCounterpart(real, target);
    }
    return Logical{static_cast<std::uint8_t>(unpack(real, [](auto value) { return value != 0; }))};
  } else {
    return toInteger<T>(real, target);
  }
}

Real readInteger(PyObject* integer, ElementClass target) {
  int overflow = 0;
  const long long value = PyLong_AsLongLongAndOverflow(integer, &overflow);
  if (overflow == 0) {
    if (value == -1 && PyErr_Occurred() != nullptr) throw PythonError{};
    return Real::of(std::int64_t{value});
  }
  const unsigned long long large = PyLong_AsUnsignedLongLong(integer);
  if (PyErr_Occurred() == nullptr) return Real::of(std::uint64_t{large});
  PyErr_Clear();
  const double rounded = PyLong_AsDouble(integer);
  const bool is_beyond_double = PyErr_Occurred() != nullptr;
  PyErr_Clear();
  if (is_beyond_double || isIntegerClass(target)) {
    raise(PyExc_OverflowError,
          "the integer is out of range for " + ElementType{target, false}.className());
  }
  return Real::of(rounded);
}

Number readSingleElement(PyObject* exporter, ElementClass target) {
  const BufferSource source(exporter);
  if (!source.isScalar()) {
    raise(PyExc_TypeError, "cannot make one " + ElementType{target, false}.className() +
                               " element of an array of size " + toText(source.extents()));
  }
  char element[16];
  source.copyTo(element);
  return loadElement(source.type(), element);
}

}  // namespace

Real Real::of(std::int64_t value) {
  Real real;
  real.as_signed = value;
  return real;
}

Real Real::of(std::uint64_t value) {
  Real real;
  real.kind = Kind::kUnsigned;
  real.as_unsigned = value;
  return real;
}

Real Real::of(double value) {
  Real real;
  real.kind = Kind::kFloating;
  real.as_floating = value;
  return real;
}

Number numberFromPython(PyObject* object, ElementClass target) {
  if (PyFloat_Check(object)) return {Real::of(PyFloat_AsDouble(object)), {}, false};
  if (PyLong_Check(object)) return {readInteger(object, target), {}, false};
  if (PyComplex_Check(object)) {
    return {Real::of(PyComplex_RealAsDouble(object)), Real::of(PyComplex_ImagAsDouble(object)),
            true};
  }
  if (PyObject_CheckBuffer(object)) return readSingleElement(object, target);
  if (PyIndex_Check(object)) {
    const Ref integer = Ref::take(PyNumber_Index(object));
    return {readInteger(integer.get(), target), {}, false};
  }
  // What only rounds to a float may have been another integer.
  const bool has_float = PyType_GetSlot(Py_TYPE(object), Py_nb_float) != nullptr;
  if (isIntegerClass(target) || !has_float) {
    raise(PyExc_TypeError, "cannot make a " + ElementType{target, false}.className() +
                               " element of '" + typeNameOf(object) + "'");
  }
  const double value = PyFloat_AsDouble(object);
  if (PyErr_Occurred() != nullptr) throw PythonError{};
  return {Real::of(value), {}, false};
}

Number loadElement(ElementType type, const char* from) {
  return dispatch(type.element_class, [&](auto component) {
    using T = typename decltype(component)::Type;
    Number number;
    number.is_complex = type.is_complex;
    number.real = toReal(load<T>(from));
    if (type.is_complex) number.imaginary = toReal(load<T>(from + sizeof(T)));
    return number;
  });
}

void storeElement(ElementType type, const Number& number, char* to) {
  if (number.is_complex && !type.is_complex) {
    raise(PyExc_TypeError, "cannot store a complex number in a real " + type.className());
  }
  dispatch(type.element_class, [&](auto component) {
    using T = typename decltype(component)::Type;
    const T parts[2] = {fromReal<T>(number.real, type.element_class),
                        fromReal<T>(number.imaginary, type.element_class)};
    std::memcpy(to, parts, sizeof(T) * type.componentCount());
  });
}

void convertElements(ElementType from_type, const char* from, ElementType to_type, char* to,
                     std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    storeElement(to_type, loadElement(from_type, from), to);
    from += from_type.size();
    to += to_type.size();
  }
}

bool isNonZero(const Number& number) {
  const auto differs = [](auto part) { return part != 0; };
  return unpack(number.real, differs) || unpack(number.imaginary, differs);
}

Ref elementToPython(ElementType type, const char* from) {
  const Number number = loadElement(type, from);
  if (type.is_complex) {
    const auto exact = [](auto part) {
      const double rounded = static_cast<double>(part);
      if constexpr (std::is_integral_v<decltype(part)>) {
        // The bound first: casting what rounded up beyond the type would be undefined.
        const double end = std::ldexp(1.0, std::numeric_limits<decltype(part)>::digits);
        if (rounded >= end || static_cast<decltype(part)>(rounded) != part) {
          raise(PyExc_OverflowError,
                std::to_string(part) + " is not exact as part of a Python complex");
        }
      }
      return rounded;
    };
    return Ref::take(
        PyComplex_FromDoubles(unpack(number.real, exact), unpack(number.imaginary, exact)));
  }
  if (type.element_class == ElementClass::kLogical) {
    return Ref::take(PyBool_FromLong(static_cast<long>(number.real.as_unsigned)));
  }
  switch (number.real.kind) {
    case Real::Kind::kSigned:
      return Ref::take(PyLong_FromLongLong(number.real.as_signed));
    case Real::Kind::kUnsigned:
      return Ref::take(PyLong_FromUnsignedLongLong(number.real.as_unsigned));
    case Real::Kind::kFloating:
      break;
  }
  return Ref::take(PyFloat_FromDouble(number.real.as_floating));
}

}  // namespace ndarray
