// ZORVAN_Array and ZORVAN_Tape messages as they were read: first made sure of, then made arrays of
// as somebody asks for them.
//
// Everything is checked before anything is made of it, in one pass that needs no memory for what it
// finds. Arrays refer to the bytes of the message for as long as they live.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "zorvandata/array.h"
#include "zorvandata/tape.h"

namespace foundation::protobuf {

// Bytes of one array or tape inside a message.
struct MessageBytes {
  std::string_view bytes;
  bool cut = false;  // the message ended before they did
};

// Makes sure of a ZORVAN_Array at a level of nesting: every length is held against the bytes left,
// every count against the dimensions, every index against its range; fields are those that the type
// uses. A message that is cut may break off anywhere: what was read before counts, if it makes
// sense. Throws an Exception of the data-array library.
void checkArray(const MessageBytes& message, int level);
// All in a repeated field of a message.
void checkArrays(const MessageBytes& message, int field, int level);

// The array of a message that was made sure of. Long payloads may refer to the bytes, which `owner`
// keeps.
zorvandata::Array makeArray(const MessageBytes& message,
                            const std::shared_ptr<const zorvandata::Tape>& owner);

// Fills in a tape from a ZORVAN_Tape message, whose one cell is at `level`, and makes sure of it.
// Returns how many elements the cell has.
size_t readTape(const MessageBytes& message, int level, zorvandata::Tape& tape);

// Fills in a tape of `count` children: those in a field of a message, which were made sure of.
void readChildren(const MessageBytes& message, int field, size_t count, zorvandata::Tape& tape);

}  // namespace foundation::protobuf
