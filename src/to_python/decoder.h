// One conversion of the engine's values to Python objects. What belongs to a conversion is in the
// decoder that is passed along: there is no other state, so conversions may interleave and nest.
//
// Everything throws: PythonErrorSet with a Python error pending, exceptions of the data-array
// library or std::bad_alloc. Runs with the interpreter lock held; Python code can run in all of it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "to_python/time_objects.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/tape_reader.h"

namespace PythonZorvanDataArray::detail {

// How values without elements show themselves: in lists as empty lists, elsewhere as they are.
enum class Empties { kAsTheyAre, kAsLists };

class TapeValues;

class Decoder {
 public:
  Decoder() = default;
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // The elements of the one cell of a tape as a list.
  PythonUtil::PyObjectWithGuard outputs(const foundation::zorvandata::Tape& tape);
  // The object that an array is.
  PythonUtil::PyObjectWithGuard array(const foundation::zorvandata::Array& array);
  // The items of a cell as a list.
  PythonUtil::PyObjectWithGuard list(const foundation::zorvandata::Items& items, Empties empties);

  // The maker of the dates of a datetime's zone, kept until another zone is asked for.
  const DatetimeMaker& datetimeMaker(const foundation::zorvandata::RecordReader& datetime);

 private:
  friend class TapeValues;
  class OnTape;

  TapeValues* innermost_ = nullptr;      // of the tapes that values are being made of
  std::optional<std::string> lastZone_;  // the name, if it has one
  std::shared_ptr<const DatetimeMaker> lastMaker_;
};

// The str that stored text is. InvalidTextException when it is no such text; UnicodeDecodeError,
// that of Python's strict UTF-16 decoder, for a lone surrogate.
PythonUtil::PyObjectWithGuard makeText(std::string_view utf8);
// Strings as a list of str, missing ones as None.
PythonUtil::PyObjectWithGuard makeTexts(const foundation::zorvandata::Texts& texts);
// The text of UTF-16 units; UnicodeDecodeError likewise.
PythonUtil::PyObjectWithGuard makeText(std::u16string_view units);

// Engine objects, told apart by class: each gives a new reference or throws.
PythonUtil::PyObjectWithGuard makeDatetime(Decoder& decoder,
                                           const foundation::zorvandata::RecordReader& object);
PythonUtil::PyObjectWithGuard makeDuration(const foundation::zorvandata::RecordReader& object);
PythonUtil::PyObjectWithGuard makeDictionary(Decoder& decoder,
                                             const foundation::zorvandata::Array& object);
PythonUtil::PyObjectWithGuard makeTable(Decoder& decoder,
                                        const foundation::zorvandata::Array& object);
PythonUtil::PyObjectWithGuard makeTimetable(Decoder& decoder,
                                            const foundation::zorvandata::Array& object);
// The tzinfo of a datetime, None for one without a zone.
PythonUtil::PyObjectWithGuard zoneOf(const foundation::zorvandata::RecordReader& datetime);
// A zorvan.object on the array as it is.
PythonUtil::PyObjectWithGuard makeZorvanObject(const foundation::zorvandata::Array& array);

// The TypeErrors for arrays that have no counterpart in Python.
[[noreturn]] void refuseSparse();
[[noreturn]] void refuseType(foundation::zorvandata::ArrayType type);

}  // namespace PythonZorvanDataArray::detail
