#include "to_python/time_values.h"

#include <algorithm>
#include <string>

#include "util/message_catalogue.h"
#include "util/reference.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::RecordReader;
using foundation::zorvandata::TapeReader;
using PythonUtil::raise;

void requireOneObject(const Array& array, const char* className) {
  if (array.getNumberOfElements() == 1) return;
  raise(PyExc_ValueError,
        std::string("only a scalar ").append(className).append(" can be returned from ZORVAN"));
}

TapeReader requireProperty(const RecordReader& object, const char* className, const char* name,
                           std::initializer_list<ArrayType> types) {
  const TapeReader* value = object.find(name);
  if (!value) raise(PyExc_ValueError, formatMessage(PropertyNotFoundInObject, name, className));
  const ArrayType type = value->type();
  if (std::find(types.begin(), types.end(), type) != types.end()) return *value;
  raise(PyExc_TypeError, std::string("property '")
                             .append(name)
                             .append("' of ZORVAN ")
                             .append(className)
                             .append(" object has type ")
                             .append(nameOf(type)));
}

}  // namespace PythonZorvanDataArray::detail
