#include <gtest/gtest.h>

#include "counted_memory.h"
#include "tape_values.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/limits.h"
#include "zorvandata/tape_check.h"

namespace foundation::zorvandata {
namespace {

using namespace values;  // NOLINT: the vocabulary of this file

// ---- the form ----

std::string describeNumbers(std::string_view stream) {
  std::string described;
  const auto* at = reinterpret_cast<const uint8_t*>(stream.data());
  for (const uint8_t* end = at + stream.size(); at != end;) {
    described += (described.empty() ? "" : " ") + std::to_string(readVarint(at));
  }
  return described;
}

TEST(Tape, RandomValuesComeBackAndHaveOneForm) {
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    Generator random(seed);
    const size_t depth = 1 + random.below(6);
    Value value = cell({});
    for (size_t i = random.below(6); i > 0; --i) {
      value.items.push_back(value.items.empty() ? random.any(depth)
                                                : random.like(value.items[0], depth));
    }
    value.dims[1] = value.items.size();
    const auto tape = written([&](TapeBuilder& builder) { build(builder, value); });
    const Streams streams = streamsOf(*tape);
    Tape same = received(streams, tape->children);
    ASSERT_EQ(check(same, kAnyChildren), value.items.size());
    EXPECT_EQ(same.repeatsTexts, tape->repeatsTexts);
    TapeReader reader(same);
    ASSERT_EQ(read(reader), value) << describeKinds(same.kinds);
    const Array array = TapeReader(same).array();
    EXPECT_EQ(array.impl().depth(), toArray(value).impl().depth());
    ASSERT_EQ(streamsOf(*written([&](TapeBuilder& again) { again.array(array); })), streams);
    ASSERT_NO_FATAL_FAILURE(expectSound(same));
  }
}

// Values in a notation of one character each: digits are doubles, letters char rows, [] cells, {}
// structs with as many fields as values.
Value parse(const char*& at) {
  const char next = *at++;
  if (next >= '0' && next <= '9') return number(next - '0');
  if (next >= 'a') {
    if (next != '{') return charRow(std::u16string(1, static_cast<char16_t>(next)));
  }
  Value value = cell({});
  while (*at != ']' && *at != '}') value.items.push_back(parse(at));
  ++at;
  value.dims[1] = value.items.size();
  if (next == '[') return value;
  value.type = ArrayType::STRUCT;
  value.dims = {1, 1};
  for (size_t i = 0; i < value.items.size(); ++i) value.names.emplace_back(i + 1, 'f');
  return value;
}

TEST(Tape, RunsAreWidenedAtTheFirstMisfit) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"[]", "CELL 0", ""},
      {"[1]", "CELL 1 DOUBLE", ""},
      {"[12]", "RUN 1 DOUBLE", "2"},
      {"[1a]", "CELL 2 DOUBLE CHAR", ""},
      {"[123a4]", "CELL 5 DOUBLE DOUBLE DOUBLE CHAR DOUBLE", ""},
      {"[[1][23]]", "CELL 2 CELL 1 DOUBLE RUN 1 DOUBLE", "2"},
      {"[[12][3]]", "RUN 3 RUN 1 DOUBLE", "2 2 1"},
      {"[[][12]]", "CELL 2 CELL 0 RUN 1 DOUBLE", "2"},
      {"[[12][]]", "RUN 3 RUN 1 DOUBLE", "2 2 0"},
      {"[[12][]a]", "CELL 3 RUN 1 DOUBLE RUN 1 DOUBLE CHAR", "2 0"},
      {"[[12][3a]]", "CELL 2 RUN 1 DOUBLE CELL 2 DOUBLE CHAR", "2"},
      {"[[12][a]]", "CELL 2 RUN 1 DOUBLE CELL 1 CHAR", "2"},
      {"[[12][34][ab]]", "CELL 3 RUN 1 DOUBLE RUN 1 DOUBLE RUN 1 CHAR", "2 2 2"},
      {"[{}{}]", "CELL 2 STRUCT 0 STRUCT 0", ""},
      {"[[[][]][[][]]]", "CELL 2 CELL 2 CELL 0 CELL 0 CELL 2 CELL 0 CELL 0", ""},
      {"[{1}{2}]", "RUN 3 STRUCT 1 DOUBLE", "2"},
      {"[{12}{1a}]", "CELL 2 STRUCT 1 DOUBLE DOUBLE STRUCT 1 DOUBLE CHAR", ""},
      {"[{1}{12}]", "CELL 2 STRUCT 1 DOUBLE STRUCT 2 DOUBLE DOUBLE", ""},
      {"[{1[23]}{4[]}{5[a]}]",
       "CELL 3 STRUCT 1 DOUBLE RUN 1 DOUBLE STRUCT 1 DOUBLE RUN 1 DOUBLE STRUCT 1 DOUBLE CELL 1 "
       "CHAR",
       "2 0"},
      {"[[[12][3]][[4][5a]6]]",
       "CELL 2 RUN 3 RUN 1 DOUBLE CELL 3 RUN 1 DOUBLE CELL 2 DOUBLE CHAR DOUBLE", "2 2 1 1"},
  };
  for (const auto& [text, kinds, counts] : cases) {
    const char* at = text;
    const Value value = parse(at);
    const auto tape = written([&](TapeBuilder& builder) { build(builder, value); });
    EXPECT_EQ(describeKinds(tape->kinds), kinds) << text;
    EXPECT_EQ(describeNumbers(tape->counts), counts) << text;
  }
}

// At a misfit all kinds are written out: also those of lists without elements, of which there may
// be any number.
TEST(Tape, EmptyListsDoNotMultiplyKinds) {
  constexpr size_t kMany = 10000;
  Value first = cell({});
  for (size_t i = 0; i < kMany; ++i) first.items.push_back(i % 2 ? number(1) : charRow(u"a"));
  first.dims[1] = kMany;
  Value value = cell({cell({first, first})});
  value.items.resize(kMany, cell({}));
  value.items.push_back(number(1));
  value.dims[1] = value.items.size();
  const auto tape = written([&](TapeBuilder& builder) { build(builder, value); });
  EXPECT_LT(tape->kinds.size(), 20 * kMany);
}

TEST(Tape, NestingEndsAtTheLimit) {
  const auto nest = [](TapeBuilder& builder, int levels, const std::function<void()>& innermost) {
    for (int i = 0; i < levels; ++i) {
      builder.openCell(2);
      builder.element();
    }
    innermost();
    for (int i = 0; i < levels; ++i) {
      builder.element();
      builder.real(1);
      builder.closeCell();
    }
  };
  // What can stand in the innermost cell, and how many levels it takes.
  const std::pair<int, std::function<void(TapeBuilder&)>> cases[] = {
      {0, [](TapeBuilder& b) { b.text("a"); }},
      {1, [](TapeBuilder& b) { b.dense(ArrayType::INT8, Dimensions(0, 0)); }},
      {1, [](TapeBuilder& b) { b.openStrings(Dimensions(0, 0)); }},
      {1,
       [](TapeBuilder& b) {
         b.array(makeDense(ArrayType::INT8, Dimensions(5000, 1), Buffer::zeros(5000)));
       }},
      {1, [](TapeBuilder& b) { b.openRecord(ArrayType::STRUCT, 0), b.closeRecord(); }},
  };
  for (const auto& [own, innermost] : cases) {
    const int levels = kMaxNesting - own;
    const auto tape =
        written([&, &put = innermost](TapeBuilder& b) { nest(b, levels, [&] { put(b); }); });
    const Streams streams = streamsOf(*tape);
    Tape sound = received(streams, tape->children);
    EXPECT_EQ(check(sound, 1), 2u);
    TapeReader reader(sound);
    EXPECT_EQ(read(reader), valueOf(TapeReader(sound).array()));
    Tape deeper = received(streams, tape->children);
    EXPECT_THROW(check(deeper, 1, 2), NestingTooDeepException);
    TapeBuilder builder;
    EXPECT_THROW(nest(builder, levels + 1, [&, &put = innermost] { put(builder); }),
                 NestingTooDeepException);
  }
}

TEST(Tape, ItemsAreFoundInAnyOrder) {
  constexpr size_t kCount = 1000;
  Generator random(7);
  for (const bool isRun : {false, true}) {
    Value value = cell({});
    for (size_t i = 0; i < kCount; ++i) {
      value.items.push_back(isRun ? cell(std::vector<Value>(i % 4 + 2, number(1))) : random.any(2));
    }
    value.dims[1] = kCount;
    const auto tape = written([&](TapeBuilder& builder) { build(builder, value); });
    Array array = TapeReader(*tape).array();
    const Items& items = array.impl().items();
    for (int round = 0; round < 3000; ++round) {
      const size_t i = random.below(kCount);
      ASSERT_EQ(valueOf(items.get(i)), value.items[i]) << i;
    }
    EXPECT_EQ(array.impl().depth(), toArray(value).impl().depth());
    value.items[3] = number(5);
    array.mutableImpl().items().set(3, toArray(number(5)));
    EXPECT_EQ(valueOf(array), value);
  }
}

// ---- texts ----

using Text = std::optional<std::string>;

// What makes the i-th text of a sequence, and whether some are told by their numbers.
std::vector<std::tuple<const char*, std::function<Text(size_t)>, bool>> sequences() {
  const auto cycle = [](size_t period) {
    return [period](size_t i) -> Text { return "text " + std::to_string(i % period); };
  };
  // Among ones that are found always, so that all are looked for.
  const auto between = [=](size_t period) {
    return [cycle, period](size_t i) { return i % 2 ? cycle(period)(i / 2) : "same"; };
  };
  return {
      {"all different", cycle(SIZE_MAX), false},
      {"few", cycle(3), true},
      {"as often as it is found out", cycle(400), true},
      {"numbers go round", between(400), true},
      {"one less than there are numbers", between(kTextNumbers - 1), true},
      {"as many as there are numbers", between(kTextNumbers), true},
      {"one more than there are numbers", between(kTextNumbers + 1), true},
      {"longest that takes a number", [](size_t) { return std::string(255, 'x'); }, true},
      {"too long for one", [](size_t) { return std::string(256, 'x'); }, false},
      {"one byte, which a number would not shorten", [](size_t) { return "x"; }, false},
      {"shortest that is looked for", [](size_t) { return "xy"; }, true},
      {"empty", [](size_t) { return ""; }, false},
      {"missing", [](size_t) { return std::nullopt; }, false},
      {"of all sorts",
       [](size_t i) -> Text {
         if (i % 7 == 0) return std::nullopt;
         return std::string(i % 11 > 0 ? i % 40 : 300, static_cast<char>('a' + i % 3));
       },
       true},
      {"different at first",
       [](size_t i) { return i < 9000 ? std::to_string(i) : std::string("same"); }, true},
  };
}

TEST(TapeTexts, AnySequenceComesBack) {
  constexpr size_t kCount = 20000;
  for (const auto& [name, at, isRepeated] : sequences()) {
    SCOPED_TRACE(name);
    std::vector<Text> expected;
    TextsBuilder builder;
    TapeBuilder tapeBuilder;
    tapeBuilder.openStrings(Dimensions::row(kCount));
    for (size_t i = 0; i < kCount; ++i) {
      expected.push_back(at(i));
      builder.append(expected.back());
      tapeBuilder.stringElement(expected.back());
    }
    const Texts texts = builder.finish();
    EXPECT_EQ(texts.areRepeated(), isRepeated);
    const auto view = [](const Buffer& buffer) {
      return std::string_view(reinterpret_cast<const char*>(buffer.data()), buffer.size());
    };
    checkTextCodes(view(texts.codes()), view(texts.bytes()), kCount, true);
    const auto tape = tapeBuilder.finish();
    EXPECT_EQ(tape->textLengths, view(texts.codes()));
    TapeReader reader(*tape);
    reader.kind();
    reader.extents();
    const Texts changed = texts.with(kCount / 2, "new");
    size_t i = 0;
    texts.forEach([&](const auto& text) {
      const size_t random = i * 7919 % kCount;
      ASSERT_EQ(text, expected[i]) << i;
      ASSERT_EQ(reader.text(), expected[i]) << i;
      ASSERT_EQ(texts[random], expected[random]) << random;
      ASSERT_EQ(changed[i], i == kCount / 2 ? "new" : expected[i]) << i;
      ++i;
    });
  }
}

TEST(TapeTexts, AreLookedUpAfterTheFirstFew) {
  TextsBuilder builder;
  for (int i = 0; i < 19; ++i) builder.append("ab");
  const Texts texts = builder.finish();
  EXPECT_EQ(
      std::string_view(reinterpret_cast<const char*>(texts.codes().data()), texts.codes().size()),
      std::string(17, 2 * (2 + 1)) + std::string(2, 2 * 16 + 1));
}

// ---- memory ----

constexpr size_t kMany = 1000000;

using Item = std::function<void(TapeBuilder&, size_t)>;

// What writes the i-th of that many items of a sort.
std::vector<std::pair<const char*, Item>> sortsOfItems() {
  const auto mixed = [](TapeBuilder& b, size_t i) { i % 2 ? b.real(1) : b.integer(i % 100); };
  const auto listOf = [](size_t count) {
    return [count](TapeBuilder& b, size_t i) {
      b.openCell(count);
      for (size_t j = 0; j < count; ++j) {
        b.element();
        b.integer(static_cast<int64_t>(i % 100));
      }
      b.closeCell();
    };
  };
  const auto record = [](TapeBuilder& b, uint64_t shape) {
    b.openRecord(ArrayType::STRUCT, shape);
    b.logical(true);
    b.closeRecord();
  };
  return {
      {"doubles", [](TapeBuilder& b, size_t i) { b.real(static_cast<double>(i)); }},
      {"logicals", [](TapeBuilder& b, size_t) { b.logical(true); }},
      {"mixed", mixed},
      {"a misfit at the end",
       [](TapeBuilder& b, size_t i) { i + 1 < kMany ? b.real(1) : b.text("a"); }},
      {"texts", [](TapeBuilder& b, size_t i) { b.text(std::to_string(i)); }},
      {"empty texts", [](TapeBuilder& b, size_t) { b.text(""); }},
      {"missing", [](TapeBuilder& b, size_t) { b.string(std::nullopt); }},
      {"empty cells", listOf(0)},
      {"cells of two", listOf(2)},
      {"cells of one or two", [=](TapeBuilder& b, size_t i) { listOf(1 + i % 2)(b, i); }},
      {"dense", [](TapeBuilder& b, size_t) { b.dense(ArrayType::INT8, Dimensions(0, 0)); }},
      {"no strings", [](TapeBuilder& b, size_t) { b.openStrings(Dimensions(0, 1)); }},
      {"records",
       [=](TapeBuilder& b, size_t) { record(b, b.shape(ShapeBytes("", {"name"}).bytes())); }},
      {"records of a shape each",
       [=](TapeBuilder& b, size_t i) {
         record(b, b.shape(ShapeBytes("", {std::to_string(i)}).bytes()));
       }},
      {"one record",
       [=](TapeBuilder& b, size_t i) {
         if (i + 1 < kMany) return b.real(1);
         ShapeBytes shape("", kMany);
         for (size_t name = 0; name < kMany; ++name) shape.add(std::to_string(name));
         b.openRecord(ArrayType::STRUCT, b.shape(shape.bytes()));
         for (size_t name = 0; name < kMany; ++name) b.logical(true);
         b.closeRecord();
       }},
  };
}

TEST(TapeMemory, StaysWithinWhatTheStreamsAsk) {
  for (const auto& [name, item] : sortsOfItems()) {
    const auto write = [&, &write = item](TapeBuilder& builder) {
      builder.openCell(kMany);
      for (size_t i = 0; i < kMany; ++i) {
        builder.element();
        write(builder, i);
      }
      builder.closeCell();
    };
    std::shared_ptr<const Tape> written;
    const size_t building = counted::peakOf([&] {
      TapeBuilder builder;
      write(builder);
      written = builder.finish();
    });
    const Streams streams = streamsOf(*written);
    const size_t size = sizeOf(streams);
    EXPECT_LT(building, 3 * size + (1 << 20)) << name << ": " << size;
    Tape tape = received(streams);
    const size_t checking = counted::peakOf([&] { EXPECT_EQ(check(tape, 0), kMany); });
    EXPECT_LT(checking, size + (1 << 20)) << name << ": " << size;
  }
}

}  // namespace
}  // namespace foundation::zorvandata
