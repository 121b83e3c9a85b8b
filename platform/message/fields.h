// Field numbers of the messages, as the .proto files beside this one state them.
#pragma once

namespace foundation::protobuf {

namespace envelope_field {
enum : int { kArrays = 1, kNargout = 2, kError = 3 };
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
  kItemType = 7,
  kKinds = 8,
  kInts = 9,
  kReals = 10,
  kTextLen = 11,
  kText = 12,
  kTextIndex = 13,
  kRows = 14,
  kColStarts = 15,
  kRef = 16,
};
}

// A mixed item's kind byte: the code of its type, or this for one that lies in `children`.
constexpr unsigned char kChildKind = 0;

}  // namespace foundation::protobuf
