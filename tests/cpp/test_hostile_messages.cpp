#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <random>
#include <set>

#include "counted_memory.h"
#include "message/codec.h"
#include "sample_arrays.h"
#include "wire.h"
#include "zorvandata/exception.h"
#include "zorvandata/limits.h"

namespace foundation::zorvandata::protobuf {
namespace {

using foundation::protobuf::common::decodeEnvelope;
using foundation::protobuf::common::encodeEnvelope;
using foundation::protobuf::common::readOutline;
using foundation::protobuf::common::readValues;
using sample::describe;
using sample::Form;
using namespace wire;  // NOLINT: the vocabulary of this file

// Why a message is refused, nothing for one that is read.
std::string reasonOf(const std::string& message) {
  try {
    decodeEnvelope(message);
  } catch (const Exception& e) {
    return e.what();
  }
  return "";
}

// Decoding either refuses the bytes or gives arrays that survive another round trip.
void expectRefusedOrSound(const std::string& message) {
  Array arrays;
  try {
    arrays = decodeEnvelope(message).arrays;
  } catch (const Exception&) {
    return;
  }
  const std::string again = encodeEnvelope({arrays, {}, {}});
  ASSERT_EQ(describe(decodeEnvelope(again).arrays), describe(arrays))
      << ::testing::PrintToString(message);
}

// As an encoder here writes them, and with items that are messages of their own.
std::vector<std::string> smallMessages(size_t largest) {
  std::vector<std::string> messages;
  for (const auto& [name, array] : sample::everyKind()) {
    for (const std::string& message : {encodeEnvelope({sample::cell({array}), 1, {}}),
                                       bytes(1, plainMessage(array, Form::kChildren)),
                                       bytes(1, plainMessage(array, Form::kTape))}) {
      if (message.size() <= largest) messages.push_back(message);
    }
  }
  return messages;
}

TEST(HostileMessages, TruncationAtEveryOffset) {
  for (const std::string& message : smallMessages(1000)) {
    for (size_t length = 0; length < message.size(); ++length) {
      const std::string cut = message.substr(0, length);
      expectRefusedOrSound(cut);
      expectRefusedOrSound(bytes(1, cut));
    }
  }
}

TEST(HostileMessages, EveryBitFlipped) {
  for (std::string message : smallMessages(250)) {
    for (size_t bit = 0; bit < 8 * message.size(); ++bit) {
      const char before = message[bit / 8];
      message[bit / 8] = static_cast<char>(before ^ (1 << bit % 8));
      expectRefusedOrSound(message);
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
    expectRefusedOrSound(noise);
    expectRefusedOrSound(bytes(1, noise));
    std::string message = messages[below(messages.size())];
    const std::string& other = messages[below(messages.size())];
    const size_t from = below(other.size());
    message.replace(below(message.size()), below(8), other.substr(from, below(16)));
    expectRefusedOrSound(message);
  }
}

// ---- what is refused ----

const std::string kCell = ofType(24), kStruct = ofType(25);
const std::string kDouble = ofType(4) + bytes(3, "12345678");
const std::string kChild = bytes(4, kDouble);

// Reasons, as far as they matter, and arrays.
using Refused = std::vector<std::pair<const char*, std::string>>;

void expectRefused(const Refused& cases) {
  for (const auto& [reason, array] : cases) {
    const std::string found = reasonOf(bytes(1, array));
    EXPECT_NE(found.find(reason), std::string::npos)
        << found << " instead of " << reason << " for " << ::testing::PrintToString(array);
    EXPECT_EQ(found.empty(), *reason == '\0') << ::testing::PrintToString(array);
  }
}

TEST(HostileMessages, DimensionsAndItems) {
  constexpr auto kOverflow = "the product of the dimensions overflows";
  constexpr auto kPayload = "Invalid array dimensions: they do not match the payload";
  constexpr auto kItems = "the dimensions do not match the items";
  constexpr auto kReferences = "the dimensions do not match the references";
  constexpr auto kUnknown = "Unknown DataType field in zorvan::data::Array.";
  const uint64_t half = uint64_t{1} << 32;
  const std::string names = bytes(5, "a") + bytes(5, "b") + bytes(5, "c") + bytes(5, "d");
  expectRefused({
      {kOverflow, ofType(6) + dims(half, half)},
      {kOverflow, kCell + bytes(2, numbers({half, half, 0}))},
      {kOverflow, kCell + bytes(2, numbers({half, 0, half}))},
      {"", kCell + bytes(2, numbers({half, 0, half / 4}))},
      {kPayload, ofType(14) + dims(half, half >> 4)},
      {kPayload, kDouble + dims(2, 1)},
      {kPayload, ofType(4) + bytes(3, "123456789")},
      {"a logical is neither 0 nor 1", ofType(1) + bytes(3, "\2")},
      {"they do not match the items", kStruct + dims(half, half >> 2) + names},
      {kItems, kCell + dims(2, 1) + kChild},
      {kItems, kCell + kChild + kChild},
      {kItems, kCell + dims(1, half)},
      {kItems, kCell + onTape({24, 2, 1, 1}, bytes(3, zeros(2)))},
      {kItems, kStruct + dims(2, 1) + bytes(5, "a") + kChild},
      {"both in children and on a tape",
       kCell + dims(1, 2) + kChild + onTape({24, 1, 1}, bytes(3, zeros(1)))},
      {"too few children", kCell + onTape({24, 1, 0})},
      {"too many children", kCell + onTape({24, 1, 0}, bytes(9, kDouble) + bytes(9, kDouble))},
      {"no cell", kCell + onTape({4}, bytes(4, zeros(8)))},
      {kReferences, ofType(28) + dims(2, 1) + bytes(12, "\1\2\3")},
      {"breaks off", ofType(28) + dims(2, 1) + bytes(12, "\1")},
      {"breaks off", ofType(4) + bytes(2, "\x80")},
      {kUnknown, ofType(33)},
      {kUnknown, ofType(half + 4)},
      {kUnknown, ofType(UINT64_MAX)},
  });
}

TEST(HostileMessages, TextsAndNames) {
  constexpr auto kUtf8 = "Text is not valid UTF-8.";
  const std::string string = ofType(3), days = ofType(29);
  const auto text = [](const std::string& codes, const std::string& joined) {
    return bytes(8, codes) + bytes(9, joined);
  };
  std::string many;
  for (int i = 0; i < 40; ++i) many += bytes(5, "name " + std::to_string(i));
  expectRefused({
      {"a stream ends too soon", string + text("\10", "a")},
      {"a stream ends too soon", string + text(varint(UINT64_MAX - 1), "a")},
      {"a stream of numbers ends too soon", string + dims(1, 3) + text("\4", "a")},
      {"longer than their lengths say", string + text("\2", "a")},
      {"longer than their lengths say", string + dims(0, 0) + text("\2", "")},
      {"no such number", string + text("\1", "")},
      {"a text is missing", days + text(zeros(1), "")},
      {kUtf8, string + text("\4", "\xFF")},
      {kUtf8, string + dims(1, 2) + text("\4\4", "\xC3\xA9")},
      {kUtf8, days + bytes(6, "\xFF") + text("\4", "a")},
      {kUtf8, ofType(28) + bytes(6, "\xFF") + bytes(12, "\1")},
      {kUtf8, kStruct + bytes(5, "\xFF") + kChild},
      {kUtf8, ofType(27) + dims(0, 0) + bytes(6, "\xFF")},
      {"a name is empty", kStruct + dims(0, 0) + bytes(5, "a") + bytes(5, "")},
      {"a name stands twice", kStruct + dims(0, 0) + bytes(5, "a") + bytes(5, "b") + bytes(5, "a")},
      {"a name stands twice", ofType(26) + dims(0, 0) + many + bytes(5, "name 7")},
      {"", ofType(26) + dims(0, 0) + many + bytes(5, "name")},
  });
}

TEST(HostileMessages, SparseParts) {
  constexpr auto kRows = "the rows of a column do not ascend";
  constexpr auto kParts = "the sparse array's parts do not fit together";
  const auto sparse = [](uint64_t columns, const std::string& rows, const std::string& starts,
                         size_t values) {
    return ofType(31) + dims(2, columns) + bytes(10, rows) + bytes(11, starts) +
           bytes(3, zeros(8 * values));
  };
  expectRefused({
      {"", sparse(1, "\1", zeros(1) + "\1", 1)},
      {kRows, sparse(1, "\2", zeros(1) + "\1", 1)},
      {kRows, sparse(1, "\1\1", zeros(1) + "\2", 2)},
      {kParts, sparse(1, "\1\1", zeros(1) + "\1", 1)},
      {kParts, sparse(1, "", zeros(3), 0)},
      {"breaks off", sparse(1, "\1", zeros(1) + "\2", 2)},
      {"breaks off", sparse(1, "\1", zeros(1), 1)},
      {"breaks off", sparse(1, "", "", 0)},
      {"column starts begin elsewhere", sparse(1, "\1", "\1\1", 0)},
      {"column starts do not ascend", sparse(2, "\1", zeros(1) + "\1" + zeros(1), 0)},
      {"a sparse array has two dimensions", ofType(31) + bytes(2, "\2\1\1")},
      {"they do not match the payload", sparse(1, "\1", zeros(1) + "\1", 0)},
  });
}

TEST(HostileMessages, FieldsThatTheTypeDoesNotUse) {
  for (int code = 0; isKnownCode(code); ++code) {
    const auto type = static_cast<ArrayType>(code);
    std::set<uint64_t> used;
    if (isDense(type)) used = {3};
    if (isSparse(type)) used = {3, 10, 11};
    if (type == ArrayType::ZORVAN_STRING) used = {8, 9};
    if (type >= ArrayType::CELL && type <= ArrayType::VALUE_OBJECT) used = {4, 7};
    if (type >= ArrayType::STRUCT && type <= ArrayType::VALUE_OBJECT) used.insert(5);
    if (type >= ArrayType::OBJECT && type <= ArrayType::ENUMERATION) used.insert(6);
    if (type == ArrayType::HANDLE_OBJECT_REF) used.insert(12);
    if (type == ArrayType::ENUMERATION) used.insert({8, 9});
    for (uint64_t field = 3; field <= 12; ++field) {
      const std::string array = bytes(field, "") + dims(0, 0) + ofType(static_cast<uint64_t>(code));
      const bool isRefused =
          reasonOf(bytes(1, array)).find("its type does not use") != std::string::npos;
      EXPECT_EQ(isRefused, used.count(field) == 0) << nameOf(type) << ' ' << field;
    }
  }
}

TEST(HostileMessages, FieldsOfAnotherWireTypeOrTwice) {
  const struct {
    const char* name;
    std::vector<uint64_t> within;  // fields
    std::set<uint64_t> known, varints, repeated;
  } messages[] = {
      {"array", {1}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 15}, {1}, {4, 5, 15}},
      {"tape", {5}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 15}, {}, {9, 15}},
  };
  const std::string prefix = "Malformed array message: a field ";
  for (const auto& [name, within, known, varints, repeated] : messages) {
    const auto reason = [&fields = within](std::string message) {
      for (const uint64_t field : fields) message = bytes(field, message);
      return reasonOf(message);
    };
    for (const uint64_t field : known) {
      SCOPED_TRACE(name + std::string(" field ") + std::to_string(field));
      const bool isVarint = varints.count(field) > 0;
      const std::string right = isVarint ? number(field, 1) : bytes(field, "");
      for (const std::string& wrong :
           {isVarint ? bytes(field, "\1") : number(field, 1), varint(field << 3 | 1) + "12345678",
            varint(field << 3 | 5) + "1234", varint(field << 3 | 3) + varint(field << 3 | 4)}) {
        EXPECT_EQ(reason(wrong), prefix + "has another wire type");
      }
      EXPECT_NE(reason(right), prefix + "has another wire type");
      EXPECT_EQ(reason(right + right) == prefix + "stands twice", repeated.count(field) == 0);
    }
  }
}

TEST(HostileMessages, VersionsAndPlaces) {
  const std::string values = bytes(5, tape({24, 0}));
  EXPECT_EQ(reasonOf(number(4, 1) + values), "");
  for (const std::string& message :
       {number(4, 0), values + number(4, 2), bytes(1, kDouble) + values, bytes(5, ""),
        bytes(5, tape({4}, bytes(4, zeros(8))))}) {
    EXPECT_NE(reasonOf(message), "") << ::testing::PrintToString(message);
  }
}

TEST(HostileMessages, FieldsThatBreakOff) {
  constexpr auto kReason = "its fields break off";
  expectRefused({
      {kReason, ofType(4) + claiming(3, 9, "12345678")},
      {kReason, ofType(4) + claiming(3, (uint64_t{1} << 32) + 8, "12345678")},
      {kReason, ofType(4) + claiming(3, 0xFFFFFFFF, "12345678")},
      {kReason, kCell + bytes(4, kCell + claiming(4, 5, ""))},
      {kReason, kCell + onTape({24, 0}, claiming(15, 1, ""))},
      {kReason, kDouble + std::string(12, '\xFF')},
      {kReason, kDouble + zeros(2)},
      {kReason, kDouble + "\x1C"},  // the end of no group
      {kReason, ofType(4) + std::string(100'000, '\x0B')},
  });
}

// ---- what it takes ----

// Messages within messages, built from the inside.
std::string nested(int levels, const std::string& before, bool areOnTapes,
                   std::string message = kCell + dims(0, 0)) {
  while (--levels > 0) {
    message = before + (areOnTapes ? onTape({24, 1, 0}, bytes(9, message)) : bytes(4, message));
  }
  return bytes(1, message);
}

TEST(HostileMessages, NestingEndsAtTheLimit) {
  for (const bool areOnTapes : {false, true}) {
    EXPECT_EQ(reasonOf(nested(kMaxNesting - 1, kCell, areOnTapes)), "");
    for (const int levels : {kMaxNesting, 3000}) {
      EXPECT_EQ(reasonOf(nested(levels, kCell, areOnTapes)), "Arrays are nested too deeply.");
    }
    EXPECT_NE(reasonOf(nested(3000, "", areOnTapes)), "");
  }
}

// Different names, as short as text can be where there are very many, each with something before
// it.
std::string names(size_t count, const std::string& before) {
  std::string all;
  for (size_t i = 0; i < count; ++i) {
    all += before;
    for (const size_t step : {1, 127, 127 * 127}) all += static_cast<char>(1 + i / step % 127);
  }
  return all;
}

struct Bomb {
  const char* name;
  std::string (*of)(size_t);
};

std::string cellsOf(size_t n, const std::string& child) {
  return bytes(1, kCell + dims(1, n) + repeated(bytes(4, child), n));
}
// A run, of which `counts` follow its length.
std::string run(size_t n, const std::vector<uint64_t>& kinds, const std::string& streams,
                const std::string& counts = "") {
  const std::string head = bytes(2, varint(n) + counts) + streams;
  return bytes(5, bytes(1, "\x40" + varint(kinds.size()) + numbers(kinds)) + head);
}
std::string ones(size_t n) { return std::string(n, '\1'); }

constexpr Bomb kBombs[] = {
    {"no fields", [](size_t n) { return repeated(bytes(1, ""), n); }},
    {"structs", [](size_t n) { return cellsOf(n, kStruct); }},
    {"scalars", [](size_t n) { return cellsOf(n, ofType(6) + bytes(3, "x")); }},
    {"tapes",
     [](size_t n) {
       return cellsOf(n, kCell + dims(0, 1) + onTape({24, 0}));
     }},
    {"children of a tape", [](size_t n) { return run(n, {0}, repeated(bytes(9, ""), n)); }},
    {"ints", [](size_t n) { return run(n, {1}, bytes(3, zeros(n))); }},
    {"matrices",
     [](size_t n) {
       return run(n, {66, 4}, "", zeros(2 * n));
     }},
    {"no texts", [](size_t n) { return run(n, {3}, bytes(6, zeros(n))); }},
    {"texts",
     [](size_t n) {
       return run(n, {2}, bytes(6, repeated("\4", n)) + bytes(7, repeated("x", n)));
     }},
    {"kinds",
     [](size_t n) {
       return bytes(5, bytes(1, "\x18" + varint(n) + repeated("\x18" + zeros(1), n)));
     }},
    {"extents",
     [](size_t n) {
       return bytes(5, tape({24, 1, 66, 6}, bytes(2, varint(n) + ones(n)) + bytes(5, "x")));
     }},
    {"dims", [](size_t n) { return bytes(1, ofType(6) + bytes(2, ones(n)) + bytes(3, "x")); }},
    {"handles", [](size_t n) { return bytes(1, ofType(28) + dims(1, n) + bytes(12, ones(n))); }},
    {"missing strings",
     [](size_t n) { return bytes(1, ofType(3) + dims(1, n) + bytes(8, zeros(n))); }},
    {"the same member",
     [](size_t n) {
       const std::string texts = bytes(8, "\6" + ones(n - 1)) + bytes(9, "\xC3\xA9");
       return bytes(1, ofType(29) + dims(1, n) + texts);
     }},
    {"columns",
     [](size_t n) { return bytes(1, ofType(31) + dims(0, n) + bytes(11, zeros(n + 1))); }},
    {"names", [](size_t n) { return bytes(1, kStruct + dims(0, 0) + names(n, "\x2A\3")); }},
    {"the same name",
     [](size_t n) { return bytes(1, kStruct + dims(0, 0) + repeated(bytes(5, "a"), n)); }},
    {"names of a shape",
     [](size_t n) {
       return bytes(5, tape({24, 0}, bytes(8, zeros(1) + varint(n) + names(n, "\3"))));
     }},
    {"shapes",
     [](size_t n) {
       return bytes(5, tape({24, 0}, bytes(8, repeated(zeros(1) + "\1\1a", n))));
     }},
    {"padding", [](size_t n) { return bytes(1, kDouble + repeated(bytes(15, ""), n)); }},
};

TEST(HostileMessages, MemoryStaysWithinTheMessageAndAMebibyte) {
  decodeEnvelope(bytes(1, kDouble));  // makes what is made once and kept
  for (const Bomb& bomb : kBombs) {
    const std::string message = bomb.of(2'000'000);
    const size_t peak = counted::peakOf([&message] {
      try {
        Tape tape;
        readValues(readOutline(message), nullptr, tape);
      } catch (const Exception&) {  // refused is as good as read
      }
    });
    EXPECT_LT(peak, message.size() + (1 << 20)) << bomb.name << ": " << message.size();
  }
}

// Of reading all there is and writing it again.
std::chrono::duration<double> timeOf(const std::string& message) {
  auto least = std::chrono::duration<double>::max();
  for (int round = 0; round < 3; ++round) {
    const auto start = std::chrono::steady_clock::now();
    try {
      encodeEnvelope(decodeEnvelope(message));
    } catch (const Exception&) {  // refused is as good as read
    }
    least =
        std::min<std::chrono::duration<double>>(least, std::chrono::steady_clock::now() - start);
  }
  return least;
}

TEST(HostileMessages, TimeGrowsWithTheMessage) {
  constexpr size_t kSome = 20'000, kTimes = 16;
  constexpr std::chrono::milliseconds kNoise{20};
  for (const Bomb& bomb : kBombs) {
    const auto some = timeOf(bomb.of(kSome));
    EXPECT_LT(timeOf(bomb.of(kTimes * kSome)), 4 * kTimes * some + kNoise) << bomb.name;
  }
  // What is within others is not read again for each of them.
  constexpr size_t kMany = 1'000'000;
  const std::string ints = kCell + dims(1, kMany) +
                           onTape({64, 1, 12}, bytes(2, varint(kMany)) + bytes(3, zeros(kMany)));
  EXPECT_LT(timeOf(nested(kMaxNesting - 1, kCell, true, ints)),
            10 * timeOf(nested(2, kCell, true, ints)) + kNoise);
}

}  // namespace
}  // namespace foundation::zorvandata::protobuf
