// One conversion of Python values: the tape that they are appended to and what is known of those
// before. There is no other state of a conversion, so conversions may interleave and nest.
#pragma once

#include <optional>
#include <string>

#include "to_array/dict_shapes.h"
#include "util/nested_call.h"
#include "util/py_object_guard.h"
#include "util/python_error.h"
#include "zorvandata/array.h"
#include "zorvandata/tape_builder.h"

namespace PythonZorvanDataArray::detail {

class ConvertToZorvanDataArray;

// How the caller wants values converted.
class ConversionOptions {
 public:
  // A str becomes a string instead of a char row.
  bool getConvertPyStrToString() const { return convertPyStrToString_; }
  void setConvertPyStrToString(bool on) { convertPyStrToString_ = on; }
  // The value is a column or cell of a table.
  bool getIfOriginatedFromTable() const { return originatedFromTable_; }
  void setOriginatedFromTable() { originatedFromTable_ = true; }

 private:
  bool convertPyStrToString_ = false;
  bool originatedFromTable_ = false;
};

class Encoder {
 public:
  Encoder() = default;
  // Of a value that is converted apart from the one that it is in, at so many levels below those
  // that are open there. The outer encoder must outlive this one.
  explicit Encoder(Encoder& outer, int levels = 0)
      : outer_(&outer), outerLevels_(outer.levels() + levels) {}
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  foundation::zorvandata::TapeBuilder& tape() { return tape_; }
  int levels() const { return outerLevels_ + tape_.depth(); }

  // Appends any supported object. Like all functions here it throws as converters do.
  void append(PyObject* obj, const ConversionOptions& options = {});
  // The elements of a list or tuple of exactly these types, as a 1-by-n cell; extents of their own
  // if any are given.
  void appendSequence(PyObject* sequence, const foundation::zorvandata::Dimensions* grid = nullptr,
                      const ConversionOptions& options = {});
  // An exact dict as a struct.
  void appendDict(PyObject* dict);
  // An exact str.
  void appendText(PyObject* str, bool asString);
  // As an element of a string array that is open.
  void appendStringElement(PyObject* str);

  // The number of a shape that values of one Python type always have.
  enum WellKnown { kDatetime, kDuration, kDictionary, kDictionaryData, kNoDictionaryData, kShapes };
  uint64_t shape(WellKnown which);

  // The text of a zone of a type whose names never change, if it is the one that was met last.
  const std::string* knownZone(PyObject* tzinfo) const {
    return lastZone_.get() == tzinfo ? &lastZoneText_ : nullptr;
  }
  void rememberZone(PyObject* tzinfo, std::string text) {
    lastZone_ = PythonUtil::PyObjectWithGuard::newReference(tzinfo);
    lastZoneText_ = std::move(text);
  }

  // Before Python code runs that is not the interpreter's own: copies what values so far have lent,
  // so that what is sent are the values as they were when they were walked.
  void beforeForeignCode() {
    for (Encoder* each = this; each; each = each->outer_) {
      each->tape_.settle();
      if (each->beside_) each->beside_->tape_.settle();
    }
  }
  // Another encoder within the same outer one, whose values are to be settled together with these.
  void standBeside(Encoder& other) { beside_ = &other; }

 private:
  friend class Level;

  // Calls use(UTF-8) with the text of an exact str.
  template <class Use>
  void withUtf8(PyObject* str, const Use& use);
  void lendText(PyObject* str, foundation::zorvandata::ArrayType type);
  size_t appendUniform(PyObject* sequence, size_t from, size_t count, uint8_t kind);
  const ConvertToZorvanDataArray& converterOf(PyObject* obj);

  foundation::zorvandata::TapeBuilder tape_;
  DictShapes shapes_;
  Encoder* outer_ = nullptr;
  Encoder* beside_ = nullptr;
  int outerLevels_ = 0;
  // Asking a str for its UTF-8 is free for ASCII text but leaves a copy inside any other.
  bool lastWasAscii_ = true;

  uint64_t wellKnown_[kShapes] = {};
  PythonUtil::PyObjectWithGuard lastZone_;
  std::string lastZoneText_;

  // The converter of the type that was met last, held so that its address stays its own.
  PythonUtil::PyObjectWithGuard lastType_;
  const ConvertToZorvanDataArray* lastConverter_ = nullptr;
};

// Bounds how deep values nest, so that hostile depth is an error and never a crash: one for each
// level of a recursion, for as long as it runs. Throws PythonErrorSet with RecursionError set.
class Level {
 public:
  explicit Level(const Encoder& encoder);

 private:
  PythonUtil::NestedCall call_;
};

// The one value of an encoder, which has it no more, as an array.
foundation::zorvandata::Array finish(Encoder& encoder);
// The object as an array, within another value; throws.
foundation::zorvandata::Array toArray(Encoder& outer, PyObject* obj,
                                      const ConversionOptions& options = {});

}  // namespace PythonZorvanDataArray::detail
