// Field numbers of the messages, as the .proto files beside this one state them.
#pragma once

namespace foundation::protobuf {

// The version of the format: the only one there is.
constexpr unsigned kVersion = 1;

// Payloads of so many bytes and more begin at a multiple of kAlignment bytes of the message.
constexpr unsigned kAlignedFrom = 4096;
constexpr unsigned kAlignment = 16;

namespace envelope_field {
enum : int { kArrays = 1, kNargout = 2, kError = 3, kVersion = 4, kTape = 5 };
}
namespace error_field {
enum : int { kMessage = 1, kIdentifier = 2, kStack = 3 };
}
namespace frame_field {
enum : int { kFile = 1, kFunctionName = 2, kLine = 3 };
}
namespace array_field {
enum : int {
  kType = 1,
  kDims = 2,
  kElements = 3,
  kChildren = 4,
  kNames = 5,
  kClassName = 6,
  kTape = 7,
  kTextLen = 8,
  kText = 9,
  kRows = 10,
  kColStarts = 11,
  kRef = 12,
};
}
namespace tape_field {
enum : int {
  kKinds = 1,
  kCounts = 2,
  kInts = 3,
  kReals = 4,
  kDense = 5,
  kTextLen = 6,
  kText = 7,
  kShapes = 8,
  kChildren = 9,
};
}
// Of arrays and tapes; nobody reads it.
constexpr int kPadding = 15;

}  // namespace foundation::protobuf
