#include "to_python/time_values.h"

#include <algorithm>
#include <string>

#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::nameOf;

bool isOneObject(const Array& array, const char* className) {
  if (array.getNumberOfElements() == 1) return true;
  setPythonErrorStr(
      PyExc_ValueError,
      std::string("only a scalar ").append(className).append(" can be returned from ZORVAN"));
  return false;
}

std::optional<size_t> findProperty(const ObjectElement& object, const char* name) {
  const std::vector<std::string>& names = object.objects.layout()->names;
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return std::nullopt;
  return object.objects.itemIndex(static_cast<size_t>(found - names.begin()), object.element);
}

std::optional<size_t> typedProperty(const ObjectElement& object, const char* className,
                                    const char* name, std::initializer_list<ArrayType> types) {
  const std::optional<size_t> position = findProperty(object, name);
  if (!position) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(PropertyNotFoundInObject, name, className));
    return std::nullopt;
  }
  const ArrayType type = object.objects.items()[*position].type();
  if (std::find(types.begin(), types.end(), type) != types.end()) return position;
  setPythonErrorStr(PyExc_TypeError, std::string("property '")
                                         .append(name)
                                         .append("' of ZORVAN ")
                                         .append(className)
                                         .append(" object has type ")
                                         .append(nameOf(type)));
  return std::nullopt;
}

}  // namespace PythonZorvanDataArray::detail
