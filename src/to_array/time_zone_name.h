// The text by which a Python time zone goes over.
#pragma once

#include <optional>
#include <string>

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

// The text for a zone-aware datetime: the name of its zone where it has one that zoneinfo knows,
// otherwise its offset from UTC at that moment as "[+-]HH:mm[:ss]". Never empty. Absent with a
// Python error set: what the zone itself raises, TypeError when it gives no offset, ValueError when
// the offset has a fraction of a second.
//
// A name is taken from ZoneInfo's `key`, from the `zone` of pytz and from the path of the zone file
// of dateutil.
std::optional<std::string> timeZoneText(PyObject* aware, PyObject* tzinfo);

}  // namespace PythonZorvanDataArray::detail
