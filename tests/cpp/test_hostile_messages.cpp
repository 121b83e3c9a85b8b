#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>

#include "message/codec.h"
#include "sample_arrays.h"
#include "wire.h"
#include "zorvandata/exception.h"
#include "zorvandata/limits.h"

// Memory from operator new is counted, to hold decoding to its bound.
namespace {
std::atomic<size_t> liveBytes{0};
std::atomic<size_t> peakBytes{0};
}  // namespace

void* operator new(size_t size) {
  void* block = std::malloc(size ? size : 1);
  if (!block) throw std::bad_alloc();
  const size_t live = liveBytes += malloc_usable_size(block);
  if (live > peakBytes) peakBytes = live;
  return block;
}
void operator delete(void* block) noexcept {
  if (block) liveBytes -= malloc_usable_size(block);
  std::free(block);
}
void operator delete(void* block, size_t) noexcept { operator delete(block); }

namespace foundation::zorvandata::protobuf {
namespace {

using foundation::protobuf::common::decodeEnvelope;
using sample::describe;
using wire::bytes;
using wire::claiming;
using wire::number;

// Decoding either refuses the bytes or gives an array that survives another round trip.
bool refusedOrSound(std::string_view message) {
  Array array;
  try {
    array = decodeArray(message);
  } catch (const std::exception&) {
    return true;
  }
  const std::string again = encodeArray(array);
  return describe(decodeArray(again)) == describe(array);
}

std::vector<std::string> smallMessages(size_t largest) {
  std::vector<std::string> messages;
  for (const auto& sample : sample::everyKind()) {
    std::string message = encodeArray(sample.array);
    if (message.size() <= largest) messages.push_back(std::move(message));
  }
  return messages;
}

TEST(HostileMessages, TruncationAtEveryOffset) {
  for (const std::string& message : smallMessages(1000)) {
    for (size_t length = 0; length < message.size(); ++length) {
      const std::string_view cut = std::string_view(message).substr(0, length);
      ASSERT_TRUE(refusedOrSound(cut)) << ::testing::PrintToString(message) << " at " << length;
      try {
        decodeEnvelope(bytes(1, message).substr(0, length));
      } catch (const Exception&) {  // refused is as good as read
      }
    }
  }
}

TEST(HostileMessages, EveryBitFlipped) {
  for (std::string message : smallMessages(250)) {
    for (size_t bit = 0; bit < 8 * message.size(); ++bit) {
      const char before = message[bit / 8];
      message[bit / 8] = static_cast<char>(before ^ (1 << bit % 8));
      ASSERT_TRUE(refusedOrSound(message)) << ::testing::PrintToString(message);
      message[bit / 8] = before;
    }
  }
}

TEST(HostileMessages, RandomBytesAndRandomSplices) {
  std::mt19937 random(20240607);
  const std::vector<std::string> messages = smallMessages(250);
  const auto below = [&](size_t n) {
    return std::uniform_int_distribution<size_t>(0, n - 1)(random);
  };
  for (int round = 0; round < 20000; ++round) {
    std::string noise(below(64), '\0');
    for (char& byte : noise) byte = static_cast<char>(below(256));
    ASSERT_TRUE(refusedOrSound(noise)) << ::testing::PrintToString(noise);
    std::string message = messages[below(messages.size())];
    const std::string& other = messages[below(messages.size())];
    const size_t from = below(other.size());
    message.replace(below(message.size()), below(8), other.substr(from, below(16)));
    ASSERT_TRUE(refusedOrSound(message)) << ::testing::PrintToString(message);
    try {
      decodeEnvelope(message);
    } catch (const Exception&) {  // refused is as good as read
    }
  }
}

void expectRefused(const std::string& reason, const std::string& message) {
  SCOPED_TRACE(reason + " <- " + ::testing::PrintToString(message));
  try {
    ADD_FAILURE() << "read as " << describe(decodeArray(message));
  } catch (const Exception& e) {
    EXPECT_EQ(e.what(), reason);
  }
}

void expectMalformed(const std::string& details, const std::string& message) {
  expectRefused("Malformed array message: " + details, message);
}

std::string ofType(uint64_t code) { return number(1, code); }
std::string dims(uint64_t rows, uint64_t columns) {
  return bytes(2, wire::varint(rows) + wire::varint(columns));
}
std::string zeros(size_t count) { return std::string(count, '\0'); }

const std::string kCell = ofType(24);
const std::string kDouble = ofType(4) + bytes(3, "12345678");
const std::string kChild = bytes(4, kDouble);

TEST(HostileMessages, DimensionsAndElements) {
  const std::string overflow = "Invalid array dimensions: the product of the dimensions overflows";
  const std::string payload = "Invalid array dimensions: they do not match the payload";
  const uint64_t half = uint64_t{1} << 32;
  expectRefused(overflow, ofType(6) + dims(half, half));
  expectRefused(overflow, kCell + dims(half, half) + number(2, 0));
  expectRefused(payload, ofType(14) + dims(half, half >> 4));
  expectRefused(payload, ofType(25) + dims(half, half >> 2) + bytes(5, "a") + bytes(5, "b") +
                             bytes(5, "c") + bytes(5, "d"));
  expectRefused(payload, kDouble + dims(2, 1));
  expectRefused(payload, ofType(4) + bytes(3, "123456789"));
  expectMalformed("a logical is not 0 or 1", ofType(1) + bytes(3, "\2"));
  expectMalformed("a logical is not 0 or 1", kCell + number(7, 1) + bytes(3, "\2"));
  expectMalformed("the dimensions do not match the items", kCell + dims(2, 1) + kChild);
  expectMalformed("the dimensions do not match the items", kCell + kChild + kChild);
  expectMalformed("the dimensions do not match the items", kCell + dims(1, half));
  expectMalformed("the dimensions do not match the texts", ofType(3) + dims(1, half));
  expectMalformed("the dimensions do not match the references",
                  ofType(28) + dims(2, 1) + number(16, 1));
}

TEST(HostileMessages, TypesAndColumnsOfItems) {
  const std::string range = "an integer is out of its type's range";
  const std::string noInts = "items of this type do not travel as integers";
  const std::string more = "the columns hold more than the kinds ask for";
  const std::string tooShort = "a column of numbers is too short";
  const auto ints = [](uint64_t type, uint64_t value) {
    return kCell + number(7, type) + number(9, value);
  };
  const auto kind = [](char code) { return kCell + bytes(8, std::string(1, code)); };
  for (const uint64_t code : {uint64_t{33}, (uint64_t{1} << 32) + 4, UINT64_MAX}) {
    expectRefused("Unknown DataType field in zorvan::data::Array.", ofType(code) + kChild);
    expectRefused("Unknown DataType field in zorvan::data::Array.", kCell + number(7, code));
  }
  expectRefused("Unknown DataType field in zorvan::data::Array.", kind(33));
  expectMalformed(range, ints(1, 4));                   // logical 2
  expectMalformed(range, ints(6, 256));                 // int8 128
  expectMalformed(range, ints(7, 1));                   // uint8 -1
  expectMalformed(range, ints(11, uint64_t{1} << 33));  // uint32 2^32
  expectMalformed(noInts, ints(4, 2));
  expectMalformed(noInts, kind(24) + number(9, 2));
  expectMalformed("the elements are no whole number of items",
                  kCell + number(7, 4) + bytes(3, "1"));
  expectMalformed("items of this type do not lie in columns", kCell + number(7, 29));
  expectMalformed(tooShort, kind(6));
  expectMalformed(tooShort, kind(4));
  expectMalformed(tooShort, kind(2));
  expectMalformed("a child array is missing", kind(0));
  expectMalformed(more, kind(6) + bytes(9, "\2\2"));
  expectMalformed(more, kind(6) + number(9, 2) + kChild);
  expectMalformed("a char row is missing", kind(2) + number(11, 0));
  expectMalformed("records need one column a name", kCell + number(7, 25) + kChild);
  expectMalformed("records need one column a name", kCell + number(7, 24));
  expectMalformed("only a cell can hold records", ofType(25) + number(7, 24) + kChild);
  expectMalformed("a column of records has another length",
                  kCell + number(7, 25) + bytes(5, "a") + kChild);
}

TEST(HostileMessages, TextsAndNames) {
  const std::string utf8 = "Text is not valid UTF-8.", string = ofType(3);
  expectMalformed("a text is longer than its column", string + number(11, 3) + bytes(12, "a"));
  expectMalformed("a text is longer than its column",
                  string + number(11, UINT64_MAX) + bytes(12, "a"));
  expectMalformed("the dimensions do not match the texts", string + number(11, 1) + bytes(12, "a"));
  expectRefused(utf8, string + number(11, 2) + bytes(12, "\xFF"));
  expectRefused(utf8, ofType(25) + bytes(5, "\xFF") + kChild);
  expectRefused(utf8, ofType(29) + bytes(6, "\xFF") + number(11, 1));
  expectRefused("Invalid field name: 'a' stands twice",
                ofType(25) + bytes(5, "a") + bytes(5, "a") + kChild + kChild);
}

TEST(HostileMessages, RepeatedTexts) {
  const auto texts = [](const std::string& lengths, size_t bytes12, const std::string& indices) {
    return ofType(3) + dims(1, 3) + bytes(11, lengths) + bytes(12, std::string(bytes12, 'x')) +
           bytes(13, indices);
  };
  const std::string dimensions = "the dimensions do not match the texts";
  EXPECT_NO_THROW(decodeArray(texts("\2\1", 1, "\1\1" + zeros(1))));
  expectMalformed("a text's position is out of range", texts("\2\1", 1, "\1\1\2"));
  expectMalformed("a repeated text is too long", texts("\x81\2", 256, zeros(3)));
  expectMalformed(dimensions, texts("\2\1", 1, zeros(2)));
  expectMalformed(dimensions, texts("\2\1", 1, zeros(4)));
  expectMalformed(dimensions, texts("\2\1", 2, zeros(3)));
}

TEST(HostileMessages, SparseParts) {
  const auto sparse = [](const std::string& rows, const std::string& starts, size_t values) {
    return ofType(31) + dims(2, 1) + bytes(14, rows) + bytes(15, starts) +
           bytes(3, zeros(8 * values));
  };
  const std::string parts =
      "Invalid array dimensions: the sparse array's parts do not fit together";
  EXPECT_NO_THROW(decodeArray(sparse("\1", zeros(1) + "\1", 1)));
  expectRefused(parts, sparse("\2", zeros(1) + "\1", 1));
  expectRefused(parts, sparse("\1\1", zeros(1) + "\2", 2));
  expectRefused(parts, sparse("\1", zeros(1) + "\2", 1));
  expectRefused("Invalid array dimensions: they do not match the payload",
                sparse("\1", zeros(1) + "\1", 0));
  expectMalformed("a sparse array has no column starts", sparse("", "", 0));
}

TEST(HostileMessages, FieldsThatBreakOff) {
  const std::string head = ofType(4);
  const std::string broken[] = {
      head + claiming(3, 9, "12345678"),
      head + claiming(3, (uint64_t{1} << 32) + 8, "12345678"),
      head + claiming(3, 0xFFFFFFFF, "12345678"),
      kCell + bytes(4, kCell + claiming(4, 5, "")),
      kDouble + std::string(12, '\xFF'),
      kDouble + zeros(2),
      kDouble + "\x1C",  // the end of no group
  };
  for (const std::string& message : broken) {
    expectMalformed("its fields break off", message);
  }
}

// Messages within messages, built from the inside.
std::string nestedMessages(int levels, const std::string& around) {
  std::string message = number(1, 24) + dims(0, 0);
  while (--levels > 0) message = std::string(around).append(bytes(4, message));
  return message;
}

TEST(HostileMessages, NestingEndsAtTheLimit) {
  EXPECT_NO_THROW(decodeArray(nestedMessages(kMaxNesting, kCell)));
  EXPECT_THROW(decodeArray(nestedMessages(kMaxNesting + 1, kCell)), NestingTooDeepException);
  EXPECT_THROW(decodeArray(nestedMessages(3000, kCell)), NestingTooDeepException);
  EXPECT_THROW(decodeArray(nestedMessages(3000, "")), NestingTooDeepException);
  EXPECT_THROW(decodeArray(number(1, 4) + std::string(100000, '\x0B')), Exception);  // groups
}

std::string repeated(const std::string& piece, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; ++i) all += piece;
  return all;
}

// Records whose only field holds records, and so on: each level costs a few bytes only.
std::string nestedRecords(size_t count, int levels) {
  const std::string head = number(1, 24) + bytes(2, wire::varint(count));
  std::string message = head + number(7, 1) + bytes(3, std::string(count, '\0'));
  const std::string ofRecords = head + number(7, 25) + bytes(5, "f");
  while (--levels > 0) message = std::string(ofRecords).append(bytes(4, message));
  return message;
}

TEST(HostileMessages, MemoryStaysWithinASmallMultipleOfTheMessage) {
  constexpr size_t kCount = 200'000;
  const std::string cell = kCell + dims(1, kCount), none = zeros(kCount), ones(kCount, '\1');
  const std::pair<const char*, std::string> cases[] = {
      {"empty children", cell + repeated(bytes(4, ""), kCount)},
      {"children", cell + repeated(bytes(4, ofType(25)), kCount)},
      {"scalar children", cell + repeated(bytes(4, ofType(6) + bytes(3, "x")), kCount)},
      {"kinds", cell + bytes(8, ones) + bytes(9, none)},
      {"handles", ofType(28) + dims(1, kCount) + bytes(16, ones)},
      {"missing strings", ofType(3) + dims(1, kCount) + bytes(11, none)},
      {"dimensions", ofType(6) + bytes(2, ones) + bytes(3, "x")},
      {"unpacked dimensions", ofType(6) + repeated(number(2, 1), kCount) + bytes(3, "x")},
      {"empty names", ofType(25) + repeated(bytes(5, ""), kCount)},
      {"column starts", ofType(31) + dims(0, kCount - 1) + bytes(15, none)},
      {"records", nestedRecords(kCount, 2)},
      {"records of records", nestedRecords(1000, 50)},
  };
  // Makes the values that are made once and kept.
  decodeArray(kCell + dims(1, 2) + bytes(4, "") + bytes(4, ofType(25)));
  for (const auto& [name, message] : cases) {
    const size_t before = liveBytes;
    peakBytes = before;
    try {
      decodeArray(message);
    } catch (const Exception&) {  // refused is as good as read
    }
    EXPECT_EQ(liveBytes, before) << name;
    EXPECT_LE((peakBytes - before) / message.size(), 60u) << name;
  }
}

}  // namespace
}  // namespace foundation::zorvandata::protobuf
