#include "to_python/create_py_object.h"

#include "to_python/decoder.h"

namespace PythonZorvanDataArray {
namespace {

// A result is a tree of many new containers, which the collector would search again and again in
// vain. The state found is restored; scopes may be nested.
class CollectorPause {
 public:
  CollectorPause() : collecting_(PyGC_Disable() != 0) {}
  ~CollectorPause() {
    if (collecting_) PyGC_Enable();
  }
  CollectorPause(const CollectorPause&) = delete;
  CollectorPause& operator=(const CollectorPause&) = delete;

 private:
  bool collecting_;
};

}  // namespace

PythonUtil::PyObjectWithGuard createPyObject(
    const foundation::zorvandata::Tape& tape,
    const std::optional<foundation::zorvandata::Array>& error) {
  const CollectorPause pause;
  detail::Decoder decoder;
  return error ? decoder.array(*error) : decoder.outputs(tape);
}

}  // namespace PythonZorvanDataArray
