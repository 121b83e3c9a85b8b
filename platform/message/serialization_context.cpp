#include "message/serialization_context.h"

#include <google/protobuf/io/coded_stream.h>

#include "message/codec.h"
#include "zorvandata/exception.h"
#include "zorvandata/limits.h"

namespace foundation::zorvandata::protobuf {
namespace {

void requireDone(bool done) {
  if (!done) throw MalformedMessageException("the message does not serialize");
}

}  // namespace

ZORVAN_Array* SerializationContext::convertToProtobuf(const Array& array) const {
  auto message = std::make_unique<ZORVAN_Array>();
  const std::string bytes = encodeArray(array);
  google::protobuf::io::CodedInputStream stream(reinterpret_cast<const uint8_t*>(bytes.data()),
                                                static_cast<int>(bytes.size()));
  stream.SetRecursionLimit(2 * kMaxNesting);
  requireDone(message->MergeFromCodedStream(&stream));
  return message.release();
}

Array SerializationContext::convertFromProtobuf(std::unique_ptr<ZORVAN_Array> message) const {
  std::string bytes;
  requireDone(message->SerializeToString(&bytes));
  return decodeArray(bytes);
}

}  // namespace foundation::zorvandata::protobuf
