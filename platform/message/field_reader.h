// Reads the fields of one message out of a contiguous run of bytes.
#pragma once

#include <google/protobuf/io/coded_stream.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::protobuf {

// Steps from field to field:  while (reader.next()) switch (reader.number()) ...
// The views it hands out refer to the bytes it was made of.
class FieldReader {
 public:
  // At most 2 GiB; throws std::length_error beyond.
  explicit FieldReader(std::string_view bytes);

  // Moves to the next field; false at the end, or where the bytes are no field any more.
  bool next();
  // True when the bytes broke off: next() returned false before their end, or the current field is
  // longer than they are.
  bool broken() const { return broken_; }

  int number() const { return number_; }
  bool isVarint() const { return kind_ == Kind::kVarint; }
  bool isFixed64() const { return kind_ == Kind::kFixed64; }
  // A length-delimited field with all its bytes.
  bool isBytes() const { return kind_ == Kind::kBytes && !cut_; }
  // A length-delimited field, possibly cut off by the end of the bytes.
  bool isMessage() const { return kind_ == Kind::kBytes; }
  bool cut() const { return cut_; }

  uint64_t value() const { return value_; }
  std::string_view bytes() const { return field_; }

 private:
  enum class Kind { kVarint, kFixed64, kBytes, kOther };

  bool readValue(uint32_t tag);
  bool readBytes();

  google::protobuf::io::CodedInputStream stream_;
  Kind kind_ = Kind::kOther;
  int number_ = 0;
  bool cut_ = false;
  bool broken_ = false;
  uint64_t value_ = 0;
  std::string_view field_;
};

// A repeated number field, packed or not or both: its encoded values end to end.
class Column {
 public:
  // Takes the reader's current field if it is one of the column's.
  void addVarints(const FieldReader& field);
  void addFixed64(const FieldReader& field);

  std::string_view bytes() const { return joined_ ? std::string_view(*joined_) : first_; }

 private:
  void append(std::string_view bytes);

  std::string_view first_;
  std::unique_ptr<std::string> joined_;  // set once there is more than one piece
};

// Takes the varints of a column one by one.
class VarintCursor {
 public:
  explicit VarintCursor(std::string_view bytes);
  // Throws MalformedMessageException when there is no further value.
  uint64_t next();
  bool atEnd() { return stream_.CurrentPosition() == size_; }

 private:
  google::protobuf::io::CodedInputStream stream_;
  int size_;
};

// All values of a column; throws MalformedMessageException.
std::vector<size_t> readVarints(std::string_view bytes);

}  // namespace foundation::protobuf
