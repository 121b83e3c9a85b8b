#include "bridge/data_array_protobuf_bridge.h"

#include <algorithm>
#include <iostream>

#include "message/codec.h"
#include "util/python_error.h"
#include "zorvandata/array_factory.h"
#include "zorvandata/buffer.h"

namespace zds::client::zorvandata::protobuf {

using foundation::protobuf::common::EngineError;
using foundation::protobuf::common::EnvelopeEncoder;
using foundation::protobuf::common::EnvelopeOutline;
using foundation::protobuf::common::StackFrame;
using foundation::zorvandata::Array;
using foundation::zorvandata::standalone::ClientArrayFactory;
using PythonUtil::PyObjectWithGuard;

namespace {

std::string describe(const std::vector<StackFrame>& stack) {
  std::string text;
  for (const StackFrame& frame : stack) {
    text += "Error in => file: " + frame.file + ", function name: " + frame.functionName +
            ", at line: " + std::to_string(frame.line) + "\n";
  }
  return text;
}

Array errorStruct(const EngineError& error) {
  const ClientArrayFactory factory;
  Array result = factory.createStructArray({1, 1}, {"message", "identifier", "stack_as_str"});
  std::string message = error.message;
  stripNonAscii(message);
  result[0]["message"] = factory.createCharArray(message);
  if (error.identifier) result[0]["identifier"] = factory.createScalar(*error.identifier);
  result[0]["stack_as_str"] = factory.createCharArray(describe(error.stack));
  return result;
}

}  // namespace

std::optional<PyObjectWithGuard> mdata2protobuf(const Array& args, long nargout) {
  try {
    const EnvelopeEncoder encoder(args, static_cast<int32_t>(nargout));
    auto bytes = PyObjectWithGuard::owned(
        PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(encoder.size())));
    if (!bytes) return std::nullopt;
    char* out = PyBytes_AsString(bytes.get());
    foundation::zorvandata::adviseHugePages(out, encoder.size());
    encoder.write(reinterpret_cast<uint8_t*>(out));
    return bytes;
  } catch (...) {
    PythonUtil::setPythonErrorFromException();
    return std::nullopt;
  }
}

std::optional<Array> protobuf2mdata(std::string_view bytes, std::shared_ptr<const void> owner) {
  try {
    const EnvelopeOutline outline = foundation::protobuf::common::readOutline(bytes);
    return outline.error ? errorStruct(*outline.error) : decodeArrays(outline, std::move(owner));
  } catch (const std::exception& error) {
    std::cerr << "Exception thrown from protobuf2mdata with the following content:\n"
              << error.what() << std::endl;
  } catch (...) {
    std::cerr << "unknown exception" << std::endl;
  }
  return std::nullopt;
}

std::string serializedArray(const Array& array) {
  return foundation::zorvandata::protobuf::encodeArray(array);
}

void stripNonAscii(std::string& text) {
  const auto isNonAscii = [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; };
  text.erase(std::remove_if(text.begin(), text.end(), isNonAscii), text.end());
}

}  // namespace zds::client::zorvandata::protobuf
