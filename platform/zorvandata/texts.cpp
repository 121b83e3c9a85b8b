#include "zorvandata/texts.h"

#include <algorithm>

#include "zorvandata/tape_reader.h"
#include "zorvandata/text.h"

namespace foundation::zorvandata {

std::optional<std::string_view> TextCursor::next() {
  const uint64_t code = readVarint(codes_);
  if (TapeReader::isNumber(code)) return numbered_[static_cast<size_t>(code / 2)];
  if (TapeReader::isMissing(code)) return std::nullopt;
  const std::string_view text(bytes_, TapeReader::lengthOf(code));
  bytes_ += text.size();
  if (takesNumber(text.size())) {
    if (numbered_.size() < kTextNumbers) {
      numbered_.push_back(text);
    } else {
      numbered_[count_ % kTextNumbers] = text;
    }
    ++count_;
  }
  return text;
}

void checkTexts(std::string_view codes, std::string_view bytes) {
  if (isAscii(bytes)) return;
  const auto* next = reinterpret_cast<const uint8_t*>(codes.data());
  const uint8_t* end = next + codes.size();
  size_t at = 0;
  while (next != end) {
    const uint64_t code = readVarint(next);
    if (TapeReader::isNumber(code) || TapeReader::isMissing(code)) continue;
    const size_t length = TapeReader::lengthOf(code);
    checkUtf8(bytes.substr(at, length));
    at += length;
  }
}

Texts Texts::missing(size_t count) { return Texts(count, Buffer::zeros(count), Buffer(), false); }

Texts Texts::of(const std::vector<std::optional<std::string_view>>& texts) {
  TextsBuilder builder;
  for (const auto& text : texts) builder.append(text);
  return builder.finish();
}

std::optional<std::string_view> Texts::operator[](size_t i) const {
  // Small texts lie inside this object, which may be moved.
  const auto* bytes = reinterpret_cast<const char*>(bytes_.data());
  if (!index_) {
    auto index = std::make_shared<std::vector<Place>>();
    index->reserve(count_);
    forEach([&](const auto& text) {
      index->push_back(text ? Place{text->data() - bytes, text->size()} : Place{-1, 0});
    });
    index_ = std::move(index);
  }
  const Place& place = (*index_)[i];
  if (place.start < 0) return std::nullopt;
  return std::string_view(bytes + place.start, place.length);
}

std::vector<std::optional<std::string_view>> Texts::toVector() const {
  std::vector<std::optional<std::string_view>> texts;
  texts.reserve(count_);
  forEach([&texts](const auto& text) { texts.push_back(text); });
  return texts;
}

Texts Texts::with(size_t i, std::optional<std::string_view> text) const {
  auto texts = toVector();
  texts[i] = text;
  return of(texts);
}

// A text that was spelled out: where it stands and its number.
struct TextSink::Slot {
  size_t start;
  uint32_t length;
  uint32_t serial;  // counted from 1; 0 where there is none
};

void TextSink::appendSpelled(std::string_view text) {
  appendLength(text.size());
  bytes_.append(text.data(), text.size());
  // Longer ones do not count: they may as well have been lent.
  if (!takesNumber(text.size())) return;
  ++numbered_;
  if (left_ == 0 && --pause_ == 0) left_ = kWindow;
}

namespace {

// The ends and the length, which tell most texts apart.
uint64_t hashOf(std::string_view text) {
  uint64_t first = 0;
  uint64_t last = 0;
  if (text.size() >= sizeof(first)) {
    std::memcpy(&first, text.data(), sizeof(first));
    std::memcpy(&last, text.data() + text.size() - sizeof(last), sizeof(last));
  } else {
    for (const char byte : text) first = first << 8 | static_cast<unsigned char>(byte);
  }
  return (first ^ (last << 7 | last >> 57) ^ text.size()) * 0x9E3779B97F4A7C15u;
}

}  // namespace

// Texts with one hash have two slots; what does not find room there is spelled out once more.
void TextSink::appendKnown(std::string_view text) {
  constexpr size_t kPairs = 2 * kTextNumbers;
  constexpr int kPairBits = 11;
  static_assert(kPairs == size_t{1} << kPairBits);
  if (!slots_) slots_ = std::make_unique<Slot[]>(2 * kPairs);
  Slot* pair = &slots_[2 * (hashOf(text) >> (64 - kPairBits))];
  const auto isText = [&](const Slot& slot) {
    return slot.length == text.size() && slot.serial != 0 &&
           slot.serial + kTextNumbers > numbered_ &&
           std::memcmp(bytes_.data() + slot.start, text.data(), text.size()) == 0;
  };
  const Slot* known = isText(pair[0]) ? &pair[0] : isText(pair[1]) ? &pair[1] : nullptr;
  if (known) {
    putCode(2 * uint64_t{(known->serial - 1) % kTextNumbers} + 1);
    hasRepeated_ = true;
    ++found_;
  } else {
    Slot& older = pair[0].serial <= pair[1].serial ? pair[0] : pair[1];
    older = {bytes_.size(), static_cast<uint32_t>(text.size()), numbered_ + 1};
    appendLength(text.size());
    bytes_.append(text.data(), text.size());
    ++numbered_;
  }
  if (--left_ == 0) decide();
}

// One in eight is worth going on; otherwise it is tried again after a pause, each time a longer
// one.
void TextSink::decide() {
  if (found_ >= kWindow / 8) {
    left_ = kWindow;
  } else {
    pause_ = nextPause_;
    nextPause_ = std::min(2 * nextPause_, uint32_t{1} << 24);
  }
  found_ = 0;
}

Texts TextsBuilder::finish() {
  return Texts(count_, Buffer::copyOf(codes_.data(), codes_.size()),
               Buffer::copyOf(bytes_.data(), bytes_.size()), sink_.hasRepeated());
}

TextSink::TextSink(ByteStream& codes, ByteStream& bytes) : codes_(codes), bytes_(bytes) {}
TextSink::~TextSink() = default;

}  // namespace foundation::zorvandata
