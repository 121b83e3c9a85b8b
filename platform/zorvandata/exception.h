// Exceptions of the data-array library. Every failure of the library is one of these or a
// std::bad_alloc; a call that throws has changed nothing.
#pragma once

#include <exception>
#include <string>

namespace foundation::zorvandata {

class Exception : public std::exception {
 public:
  Exception(std::string message, int id) : message_(std::move(message)), id_(id) {}
  const char* what() const noexcept override { return message_.c_str(); }
  int getExceptionID() const noexcept { return id_; }

 private:
  std::string message_;
  int id_;
};

class EArrayIndexOutOfRange : public Exception {
 public:
  EArrayIndexOutOfRange() : Exception("Array index is out of range.", 1) {}
};

class EArrayUnknownDataType : public Exception {
 public:
  EArrayUnknownDataType() : Exception("Unknown DataType field in zorvan::data::Array.", 8) {}
};

class NonAsciiCharInInputDataException : public Exception {
 public:
  NonAsciiCharInInputDataException()
      : Exception("Input data can only contain ASCII characters.", 15) {}
};

// A view or cast whose type is not the array's.
class InvalidArrayTypeException : public Exception {
 public:
  explicit InvalidArrayTypeException(const std::string& details)
      : Exception("Array type mismatch: " + details, 101) {}
};

// Dimensions whose product overflows, or that do not fit the data given for them.
class InvalidDimensionsException : public Exception {
 public:
  explicit InvalidDimensionsException(const std::string& details)
      : Exception("Invalid array dimensions: " + details, 102) {}
};

// A field or property that is not there, or is named twice.
class InvalidFieldNameException : public Exception {
 public:
  explicit InvalidFieldNameException(const std::string& details)
      : Exception("Invalid field name: " + details, 103) {}
};

// A missing string read as if it had a value.
class MissingStringException : public Exception {
 public:
  MissingStringException() : Exception("Missing string value", 104) {}
};

// Bytes that are no valid text.
class InvalidTextException : public Exception {
 public:
  InvalidTextException() : Exception("Text is not valid UTF-8.", 106) {}
};

// Arrays nested deeper than kMaxNesting levels.
class NestingTooDeepException : public Exception {
 public:
  NestingTooDeepException() : Exception("Arrays are nested too deeply.", 105) {}
};

// Bytes that are no encoded array.
class MalformedMessageException : public Exception {
 public:
  explicit MalformedMessageException(const std::string& details)
      : Exception("Malformed array message: " + details, 107) {}
};

}  // namespace foundation::zorvandata
