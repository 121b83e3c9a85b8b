#include <gtest/gtest.h>

#include <sstream>

#include "tape_values.h"
#include "wire.h"
#include "zorvandata/exception.h"

namespace foundation::zorvandata {
namespace {

using namespace values;  // NOLINT: the vocabulary of this file

// Streams of a line: numbers behind the letter of each stream, bytes as they are behind a quote.
Streams parseStreams(const std::string& line) {
  Streams streams;
  std::istringstream words(line);
  size_t stream = kKinds;
  for (std::string word; words >> word;) {
    if (const size_t letter = std::string_view("KCIRDLTS").find(word); letter < kStreams) {
      stream = letter;
      continue;
    }
    std::string bytes = word.substr(1);
    if (word[0] != '\'' && stream == kReals) {
      const double value = std::stod(word);
      bytes.assign(reinterpret_cast<const char*>(&value), sizeof(value));
    } else if (word[0] != '\'') {
      bytes = wire::varint(std::stoull(word));
    }
    streams[stream].insert(streams[stream].end(), bytes.begin(), bytes.end());
  }
  for (auto& bytes : streams) bytes.shrink_to_fit();
  return streams;
}

constexpr const char* kEnds = "a stream ends too soon";
constexpr const char* kNumbers = "a stream of numbers ends too soon";
constexpr const char* kKindsEnd = "the kinds end too soon";
constexpr const char* kLonger = "a stream is longer";
constexpr const char* kFew = "too few values";
constexpr const char* kRange = "out of its type's range";
constexpr const char* kExtents = "other extents than elements";
constexpr const char* kOverflow = "dimensions overflows";
constexpr const char* kElsewhere = "ends elsewhere";
constexpr const char* kNoCell = "holds no cell";

// What is said of the streams of a line: nothing where there is no mistake.
constexpr std::pair<const char*, const char*> kLines[] = {
    {"", "K 24 1 4 R 1"},
    {kNoCell, ""},
    {kNoCell, "K 4 R 1"},
    {kNoCell, "K 65 24 0 C 0 0"},
    {kKindsEnd, "K 24 1"},
    {kKindsEnd, "K 64 2 4 C 0"},
    {kKindsEnd, "K 24 18446744073709551615"},
    {kNumbers, "K 24"},
    {kNumbers, "K 24 1 12 I '\xff\xff\xff\xff\xff\xff\xff\xff\xff\x02"},
    {kNumbers, "K 24 1 12 I '\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x01"},
    {"", "K 24 1 12 I 18446744073709551615"},
    {kEnds, "K 24 1 4 R '1234567"},
    {kEnds, "K 64 1 4 C 2305843009213693952"},
    {kLonger, "K 24 0 0"},
    {kLonger, "K 24 0 C 0"},
    {kLonger, "K 24 0 I 0"},
    {kLonger, "K 24 0 R 0"},
    {kLonger, "K 24 0 D 0"},
    {kLonger, "K 24 0 L 2"},
    {kLonger, "K 24 0 T 'a"},
    {"no such kind", "K 24 1 28"},
    {"no such kind", "K 24 1 68"},
    {"no such kind", "K 24 1 65 66 4 C 0 0"},
    {"no such kind", "K 24 1 65 65 24 0 C 0 0 0 0"},
    {"no such child", "K 24 1 0"},
    {"of no dense type", "K 24 1 66 3 C 0 0"},
    {"no such shape", "K 24 1 25 1"},
    {"", "K 24 1 25 0"},
    {"a struct has a class", "K 24 1 25 1 S 1 67 0"},
    {"", "K 24 1 26 1 S 1 67 0"},
    {"a shape is empty", "K 24 0 S 0 0"},
    {"a name is empty", "K 24 0 S 0 1 0 0"},
    {"stands twice", "K 24 0 S 0 2 1 97 1 97"},
    {"stands twice", "K 24 0 S 0 13 '\1a\1b\1c\1d\1e\1f\1g\1h\1i\1j\1k\1l\1b"},
    {"", "K 24 0 S 0 13 '\1a\1b\1c\1d\1e\1f\1g\1h\1i\1j\1k\1l\1m"},
    {"more names than bytes", "K 24 0 S 0 4294967296 1 97"},
    {kEnds, "K 24 0 S 0 1 2 97"},
    {kEnds, "K 24 0 S 2 97"},
    {"not valid UTF-8", "K 24 0 S 0 1 1 '\xff"},
    {"not valid UTF-8", "K 24 0 S 1 '\xff 0"},
    {"no such number", "K 24 1 2 L 1"},
    {"no such number", "K 24 2 2 2 L 2 1"},
    {"no such number", "K 24 2 2 2 L 4 3 T 'a"},
    {"", "K 24 2 2 2 L 4 1 T 'a"},
    {"a text is missing", "K 24 1 2 L 0"},
    {"", "K 24 1 3 L 0"},
    {kEnds, "K 24 1 2 L 6 T 'a"},
    {kFew, "K 64 2 24 0 C 1"},
    {kFew, "K 64 2 25 0 C 4294967296"},
    {kFew, "K 64 6 24 2 24 0 24 0 C 1"},
    {kFew, "K 64 7 24 3 1 24 0 24 0 C 1 I 2"},
    {kFew,
     "K 64 37 24 17 64 1 4 24 0 24 0 24 0 24 0 24 0 24 0 24 0 24 0 24 0 24 0 24 0 24 0 24 0 24 0 "
     "24 "
     "0 24 0 C 1 1 R 1"},
    {"", "K 64 4 24 2 1 1 C 1 I 2 2"},
    {"", "K 64 2 99 99 C 0"},
    {"", "K 64 0 C 0"},
    {kElsewhere, "K 64 2 4 4 C 1 R 1"},
    {kElsewhere, "K 64 2 24 2 1 1 C 1 I 2 2"},
    {kElsewhere, "K 64 0 1 C 1 I 2"},
    {kRange, "K 24 1 1 I 4"},
    {kRange, "K 24 1 6 I 257"},
    {kRange, "K 24 1 9 I 1"},
    {kRange, "K 24 1 21 I 0 8589934592"},
    {"", "K 24 1 21 I 0 8589934590"},
    {"a single is none", "K 24 1 5 R 0.1"},
    {"a single is none", "K 24 1 15 R 1 1e300"},
    {"", "K 24 3 5 5 5 R nan -inf 0.5"},
    {"neither 0 nor 1", "K 24 1 66 1 C 0 2 D 1 2"},
    {kEnds, "K 24 1 66 4 C 0 1 D '1234567"},
    {kEnds, "K 24 1 66 4 C 0 2305843009213693952"},
    {kOverflow, "K 24 1 67 C 2 4294967296 2147483648"},
    {kOverflow, "K 24 1 67 C 3 4294967296 0 4294967296"},
    {kOverflow, "K 24 1 67 C 1 18446744073709551615"},
    {"", "K 24 1 67 C 3 4294967296 0 1073741824"},
    {kNumbers, "K 24 1 67 C 4294967296 1 1"},
    {kNumbers, "K 24 1 67 C 0 4294967296"},
    {kExtents, "K 24 1 65 24 1 1 C 2 1 2"},
    {kExtents, "K 24 1 65 25 1 24 1 1 C 1 2 S 0 1 1 97"},
    {kExtents, "K 24 1 65 25 1 64 1 1 C 1 2 3 S 0 1 1 97"},
    {"", "K 24 1 65 25 1 64 1 1 C 1 2 2 I 2 2 S 0 1 1 97"},
    {"", "K 24 2 65 25 1 24 1 1 65 64 1 1 C 0 1 0 1 I 2 2 S 0 1 1 97"},
    {"values lie in no cell", "K 24 1 65 25 1 1 C 0 1 S 0 1 1 97"},
};

TEST(TapeCheck, RefusesWhatIsNoTape) {
  for (const auto& [reason, line] : kLines) {
    SCOPED_TRACE(line);
    const Streams streams = parseStreams(line);
    Tape tape = received(streams);
    std::string refused;
    try {
      check(tape, 0);
      expectSound(tape);
    } catch (const Exception& e) {
      refused = e.what();
    }
    EXPECT_EQ(refused.empty(), *reason == '\0');
    EXPECT_NE(refused.find(reason), std::string::npos) << refused << " instead of " << reason;
  }
}

TEST(TapeCheck, FindsANameThatStandsTwiceAmongMany) {
  for (const size_t count : {13, 1000, 200000}) {
    for (const size_t twice : {count, count / 3, count - 1}) {
      ShapeBytes shape("", count);
      for (size_t i = 0; i + 1 < count; ++i) shape.add(std::to_string(i));
      shape.add(std::to_string(twice == count - 1 ? 0 : twice));
      Streams streams = parseStreams("K 24 0");
      streams[kShapes].assign(shape.bytes().begin(), shape.bytes().end());
      Tape tape = received(streams);
      if (twice == count) {
        EXPECT_EQ(check(tape, 0), 0u);
      } else {
        EXPECT_THROW(check(tape, 0), InvalidFieldNameException) << twice << " of " << count;
      }
    }
  }
}

// A few changes of random bytes, or of a stretch by one of another tape.
Streams changed(Generator& random, const std::vector<Streams>& originals) {
  Streams streams = originals[random.below(originals.size())];
  for (size_t changes = 1 + random.below(3); changes > 0; --changes) {
    const size_t which = random.below(3) > 0 ? random.below(2) : random.below(kStreams);
    const std::vector<char>& other = originals[random.below(originals.size())][which];
    std::vector<char>& stream = streams[which];
    const size_t at = random.below(stream.size() + 1);
    const auto place = stream.begin() + static_cast<std::ptrdiff_t>(at);
    const size_t change = random.below(5);
    if (change == 0) {
      stream.resize(at);
    } else if (change == 1) {
      stream.insert(place, other.begin(), other.end());
    } else if (change == 2) {
      stream.insert(place, static_cast<char>(random.below(70)));
    } else if (at < stream.size()) {
      *place = static_cast<char>(*place ^ (1 << random.below(8)));
    }
    stream.shrink_to_fit();
  }
  return streams;
}

TEST(TapeCheck, ChangedTapesAreRefusedOrSound) {
  std::vector<Streams> originals;
  for (unsigned seed = 0; originals.size() < 500; ++seed) {
    Generator random(seed);
    const auto tape = written([&](TapeBuilder& builder) {
      build(builder, random.like(cell({random.any(4), random.any(3)}), 4));
    });
    const bool isCell = tape->kinds[0] == 24 || tape->kinds[0] == 64;
    const bool isSmall = tape->kinds.size() < 300 && !tape->children;
    if (isCell && isSmall) originals.push_back(streamsOf(*tape));
  }
  Generator random(1);
  size_t sound = 0;
  for (int round = 0; round < 30000; ++round) {
    const Streams streams = changed(random, originals);
    Tape tape = received(streams);
    try {
      check(tape, 0);
    } catch (const Exception&) {
      continue;  // refused is as good as sound
    }
    try {
      ASSERT_NO_FATAL_FAILURE(expectSound(tape)) << describeKinds(tape.kinds);
      ++sound;
    } catch (const InvalidTextException&) {  // of texts only those that are read are looked at
    }
  }
  EXPECT_GT(sound, 1000u);
}

}  // namespace
}  // namespace foundation::zorvandata
