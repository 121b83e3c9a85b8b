// Makes Python objects of the items of one tape, in order: every kind of item is made in one place.
#pragma once

#include <vector>

#include "to_python/decoder.h"

namespace PythonZorvanDataArray::detail {

class TapeValues {
 public:
  // Both must outlive this. What the decoder meets of the same tape meanwhile is made here.
  TapeValues(Decoder& decoder, const foundation::zorvandata::Tape& tape);
  ~TapeValues();
  TapeValues(const TapeValues&) = delete;
  TapeValues& operator=(const TapeValues&) = delete;

  // Whether this makes the items of the tape, or of a copy of it, which has the same streams.
  bool isOf(const foundation::zorvandata::Tape& tape) const {
    return tape.kinds.data() == tape_.kinds.data();
  }
  TapeValues* outer() const { return outer_; }

  // The next item of the reader, which moves past it.
  PythonUtil::PyObjectWithGuard item(foundation::zorvandata::TapeReader& reader, Empties empties);
  // So many items as a list; those of a run all have the kinds that begin where the reader is.
  PythonUtil::PyObjectWithGuard list(foundation::zorvandata::TapeReader& reader, size_t count,
                                     bool isRun, Empties empties);

 private:
  // What the objects of a class become.
  enum class Becomes { kUnknown, kDatetime, kDuration, kNone, kArray };
  struct Shape {
    uint32_t firstKey = 0;  // of structs,
    uint32_t keys = 0;      // once there was one
    Becomes becomes = Becomes::kUnknown;
    bool isMet = false;
  };
  // A text that stands again.
  struct Numbered {
    PythonUtil::PyObjectWithGuard text;
    size_t serial = 0;
  };

  PyObject* make(foundation::zorvandata::TapeReader& reader, Empties empties);
  PyObject* makeText(foundation::zorvandata::TapeReader& reader, Empties empties);
  PyObject* makeList(foundation::zorvandata::TapeReader& reader);
  PyObject* makeDict(foundation::zorvandata::TapeReader& reader);
  PyObject* makeLongDict(foundation::zorvandata::TapeReader& reader,
                         const foundation::zorvandata::ContainerHead& head);
  PyObject* makeObject(foundation::zorvandata::TapeReader& reader);
  PyObject* makeArray(foundation::zorvandata::TapeReader& reader, Empties empties);
  Numbered& numbered(size_t serial);
  PyObject* makeNumbered(const foundation::zorvandata::TapeReader& reader, uint64_t code);
  bool fillUniform(PyObject* list, foundation::zorvandata::TapeReader& reader, size_t count,
                   Empties empties);
  void fillTexts(PyObject* list, foundation::zorvandata::TapeReader& reader, size_t count,
                 Empties empties);
  void fillSingly(PyObject* list, foundation::zorvandata::TapeReader& reader, size_t from,
                  size_t end, Empties empties);
  size_t fillDecoded(PyObject* list, foundation::zorvandata::TapeReader& reader, size_t from,
                     size_t count, Empties empties);
  Shape& shapeOf(uint64_t shape);

  Decoder& decoder_;
  TapeValues* outer_;
  const foundation::zorvandata::Tape& tape_;
  foundation::zorvandata::ShortVector<Shape, 8> shapes_;     // by number
  foundation::zorvandata::ShortVector<PyObject*, 24> keys_;  // held
  std::vector<Numbered> numbered_;                           // by serial, going round
  bool decodesSingly_;                                       // texts, as they are short or ASCII
};

}  // namespace PythonZorvanDataArray::detail
