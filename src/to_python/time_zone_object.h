// Time zones of the engine as those of Python.
#pragma once

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

// What a zone's name, a str, means: a datetime.timezone for an offset "[+-]HH[:mm[:ss]]", None for
// an empty name, a zoneinfo.ZoneInfo for all others. New reference; NULL with ValueError set for a
// malformed offset, with TypeError for a name that zoneinfo has no zone for.
PyObject* makeTimeZone(PyObject* name);

}  // namespace PythonZorvanDataArray::detail
