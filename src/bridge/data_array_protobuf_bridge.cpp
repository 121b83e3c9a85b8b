#include "bridge/data_array_protobuf_bridge.h"

#include <algorithm>
#include <iostream>

#include "message/codec.h"
#include "util/reference.h"
#include "zorvandata/array_factory.h"
#include "zorvandata/buffer.h"

namespace zds::client::zorvandata::protobuf {

using foundation::protobuf::common::EngineError;
using foundation::protobuf::common::EnvelopeEncoder;
using foundation::protobuf::common::EnvelopeOutline;
using foundation::protobuf::common::StackFrame;
using foundation::zorvandata::Array;
using foundation::zorvandata::Lender;
using foundation::zorvandata::TapeBuilder;
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

PyObjectWithGuard mdata2protobuf(const TapeBuilder& args, long nargout) {
  const EnvelopeEncoder encoder(args, static_cast<int32_t>(nargout));
  auto bytes = PythonUtil::checked(
      PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(encoder.size())));
  char* out = PyBytes_AsString(bytes.get());
  foundation::zorvandata::adviseHugePages(out, encoder.size());
  encoder.write(reinterpret_cast<uint8_t*>(out));
  return bytes;
}

void reportBrokenResult(const char* reason) {
  std::cerr << "Exception thrown from protobuf2mdata with the following content:\n"
            << reason << std::endl;
}

bool protobuf2mdata(std::string_view bytes, const Lender& lender, Result& result) {
  try {
    const EnvelopeOutline outline = foundation::protobuf::common::readOutline(bytes);
    if (outline.error) {
      result.error = errorStruct(*outline.error);
    } else {
      readValues(outline, &lender, result.arrays);
    }
    return true;
  } catch (const std::exception& error) {
    reportBrokenResult(error.what());
  } catch (...) {
    std::cerr << "unknown exception" << std::endl;
  }
  return false;
}

std::string serializedArray(const Array& array) {
  return foundation::zorvandata::protobuf::encodeArray(array);
}

void stripNonAscii(std::string& text) {
  const auto isNonAscii = [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; };
  text.erase(std::remove_if(text.begin(), text.end(), isNonAscii), text.end());
}

}  // namespace zds::client::zorvandata::protobuf
