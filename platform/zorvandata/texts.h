// The texts of a string or enumeration array, as they travel: a code for each text and the texts
// end to end (docs/wire-format.md tells the codes). They never change; copies share them.
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "zorvandata/buffer.h"
#include "zorvandata/byte_stream.h"
#include "zorvandata/tape.h"
#include "zorvandata/varints.h"

namespace foundation::zorvandata {

class Texts {
 public:
  Texts() = default;
  // Codes and bytes that are known to be right.
  Texts(size_t count, Buffer codes, Buffer bytes, bool areRepeated)
      : count_(count),
        codes_(std::move(codes)),
        bytes_(std::move(bytes)),
        areRepeated_(areRepeated) {}
  // `count` missing ones.
  static Texts missing(size_t count);
  static Texts of(const std::vector<std::optional<std::string_view>>& texts);

  size_t size() const { return count_; }
  const Buffer& codes() const { return codes_; }
  const Buffer& bytes() const { return bytes_; }
  // Whether some text is told by its number.
  bool areRepeated() const { return areRepeated_; }

  // A text, nothing for a missing one; valid while these texts are. The first time an index of all
  // is made: who needs them in order is better served by forEach.
  std::optional<std::string_view> operator[](size_t i) const;
  // Calls read(text) for each, in order.
  template <class Read>
  void forEach(const Read& read) const;
  std::vector<std::optional<std::string_view>> toVector() const;
  // These texts with another one in a place.
  Texts with(size_t i, std::optional<std::string_view> text) const;

 private:
  size_t count_ = 0;
  Buffer codes_;
  Buffer bytes_;
  bool areRepeated_ = false;
  // Where each text lies; -1 for a missing one.
  struct Place {
    int64_t start;
    size_t length;
  };
  mutable std::shared_ptr<const std::vector<Place>> index_;
};

// Throws InvalidTextException unless all texts are of the kind that text.h has; codes and bytes
// must go together. One that is told by its number is looked at where it is spelled out.
void checkTexts(std::string_view codes, std::string_view bytes);

// Steps over texts, in order.
class TextCursor {
 public:
  TextCursor(const uint8_t* codes, const char* bytes) : codes_(codes), bytes_(bytes) {}
  explicit TextCursor(const Texts& texts)
      : TextCursor(reinterpret_cast<const uint8_t*>(texts.codes().data()),
                   reinterpret_cast<const char*>(texts.bytes().data())) {}

  std::optional<std::string_view> next();

 private:
  const uint8_t* codes_;
  const char* bytes_;
  std::vector<std::string_view> numbered_;  // by number
  size_t count_ = 0;
};

template <class Read>
void Texts::forEach(const Read& read) const {
  TextCursor cursor(*this);
  for (size_t i = 0; i < count_; ++i) read(cursor.next());
}

// Gathers texts for one of two owners: a tape and a string array.
class TextSink {
 public:
  TextSink(ByteStream& codes, ByteStream& bytes);
  ~TextSink();
  TextSink(const TextSink&) = delete;
  TextSink& operator=(const TextSink&) = delete;

  // A text of the kind that text.h has. One that stood before, not long ago, may be told by its
  // number; whether it is worth looking is decided by the texts alone, so that equal texts always
  // give equal bytes.
  void append(std::string_view text) {
    // A number takes as much room as a text of one byte.
    if (left_ > 0 && text.size() > 1 && takesNumber(text.size())) {
      appendKnown(text);
    } else {
      appendSpelled(text);
    }
  }
  void appendMissing() { codes_.push(0); }
  // A text of which the bytes lie elsewhere.
  void appendLength(size_t length) { putCode(2 * (uint64_t{length} + 1)); }

  bool hasRepeated() const { return hasRepeated_; }

 private:
  struct Slot;

  void putCode(uint64_t code) { codes_.moveEnd(writeVarint(code, codes_.room(kLongestVarint))); }
  void appendSpelled(std::string_view text);
  void appendKnown(std::string_view text);
  void decide();

  ByteStream& codes_;
  ByteStream& bytes_;
  std::unique_ptr<Slot[]> slots_;
  uint32_t numbered_ = 0;  // texts that have taken a number
  uint32_t left_ = 0;      // texts to look up before it is decided whether to go on
  uint32_t found_ = 0;
  uint32_t pause_ = kFew;  // texts not to look up before it is tried
  uint32_t nextPause_ = kFirstPause;
  bool hasRepeated_ = false;

  static constexpr uint32_t kFew = 16;
  static constexpr uint32_t kWindow = 512;
  static constexpr uint32_t kFirstPause = 4096;
};

// Gathers the texts of an array.
class TextsBuilder {
 public:
  TextsBuilder() : sink_(codes_, bytes_) {}

  void append(std::optional<std::string_view> text) {
    ++count_;
    text ? sink_.append(*text) : sink_.appendMissing();
  }
  size_t size() const { return count_; }
  Texts finish();

 private:
  ShortByteStream<256> codes_;
  ShortByteStream<256> bytes_;
  TextSink sink_;
  size_t count_ = 0;
};

}  // namespace foundation::zorvandata
