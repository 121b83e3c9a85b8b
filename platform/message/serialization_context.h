// Converts between data arrays and generated ZORVAN_Array messages, for programs that build or
// read messages field by field. Bulk traffic goes through codec.h without them.
#pragma once

#include <memory>

#include "foundation/zorvandata/protobuf/array.pb.h"
#include "zorvandata/array.h"
#include "zorvandata/array_factory.h"

namespace foundation::zorvandata::protobuf {

class SerializationContext {
 public:
  // The newly allocated message belongs to the caller. Throws like codec.h.
  ZORVAN_Array* convertToProtobuf(const Array& array) const;
  // Consumes the message. Throws like codec.h.
  Array convertFromProtobuf(std::unique_ptr<ZORVAN_Array> message) const;
};

}  // namespace foundation::zorvandata::protobuf
