#include <gtest/gtest.h>
#include <pthread.h>

#include <numeric>

#include "foundation/protobuf/common.pb.h"
#include "foundation/zorvandata/protobuf/array.pb.h"
#include "message/codec.h"
#include "message/fields.h"
#include "message/serialization_context.h"
#include "sample_arrays.h"
#include "wire.h"
#include "zorvandata/limits.h"

namespace foundation::zorvandata::protobuf {
namespace {

using foundation::protobuf::kAlignedFrom;
using foundation::protobuf::kAlignment;
using foundation::protobuf::common::decodeArrays;
using foundation::protobuf::common::decodeEnvelope;
using foundation::protobuf::common::encodeEnvelope;
using foundation::protobuf::common::EngineError;
using foundation::protobuf::common::Envelope;
using foundation::protobuf::common::readOutline;
using foundation::protobuf::common::ZORVAN_Params;
using foundation::protobuf::common::ZORVAN_Result;
using sample::cell;
using sample::counting;
using sample::describe;
using sample::Form;
using sample::plainMessage;
using sample::record;
using sample::strings;
using namespace wire;  // NOLINT: the vocabulary of this file
using Message = ZORVAN_Array;
using Kind = foundation::zorvandata::ArrayType;

const ArrayFactory kFactory;

Message parsed(const std::string& bytes) {
  Message message;
  EXPECT_TRUE(message.ParseFromString(bytes));
  return message;
}

TEST(RoundTrip, EveryKindOfArrayComesBackBitForBit) {
  for (const auto& [name, array] : sample::everyKind()) {
    SCOPED_TRACE(name + ' ' + describe(array));
    const std::string bytes = encodeArray(array);
    const Array back = decodeArray(bytes);
    EXPECT_EQ(describe(back), describe(array));
    EXPECT_EQ(encodeArray(back), bytes);
    const Array both = cell({array, array});
    EXPECT_EQ(describe(decodeArray(encodeArray(both))), describe(both));
    // Arrays of tapes refer to what they were read from, whatever becomes of the others.
    const Array inside = decodeArray(encodeArray(both))[1];
    EXPECT_EQ(describe(inside), describe(array));
  }
}

// Equal values are equal bytes once they were read, whatever they looked like before.
void expectCanonical(const std::string& message, const Array& expected) {
  const Array array = decodeArray(message);
  EXPECT_EQ(describe(array), describe(expected));
  EXPECT_EQ(array, decodeArray(encodeArray(expected)));
  EXPECT_TRUE(encodeArray(array) == encodeArray(expected));
  const std::string encoded = encodeEnvelope({cell({expected}), {}, {}});
  const std::string onTape = bytes(1, std::string("\x18\1\0", 3)) + bytes(9, message);
  for (const std::string& envelope : {bytes(1, message), bytes(5, onTape), encoded}) {
    EXPECT_TRUE(encodeEnvelope(decodeEnvelope(envelope)) == encoded);
  }
}

TEST(RoundTrip, EveryFormIsTheSameOnceItWasRead) {
  for (const auto& [name, array] : sample::everyKind()) {
    for (const Form form : {Form::kChildren, Form::kTape}) {
      SCOPED_TRACE(name + (form == Form::kTape ? " on tapes" : " as children"));
      if (name.find("odd") == std::string::npos) expectCanonical(plainMessage(array, form), array);
      EXPECT_EQ(describe(decodeArray(plainMessage(array, form))), describe(array));
    }
  }
}

TEST(RoundTrip, GoesThroughTheGeneratedClasses) {
  const SerializationContext context;
  for (const auto& [name, array] : sample::everyKind()) {
    SCOPED_TRACE(name);
    std::unique_ptr<Message> message(context.convertToProtobuf(array));
    EXPECT_EQ(message->unknown_fields(), "");
    EXPECT_EQ(describe(context.convertFromProtobuf(std::move(message))), describe(array));
  }
}

// The deepest arrays that may be encoded, around each kind of innermost value.
TEST(RoundTrip, WhatCanBeEncodedCanBeDecoded) {
  const std::tuple<const char*, Array, int> innermost[] = {
      {"scalar", kFactory.createScalar(1.0), kMaxNesting},
      {"text", kFactory.createCharArray(u"text"), kMaxNesting},
      {"missing", strings({1, 1}, {}), kMaxNesting},
      {"matrix", counting(Kind::INT8, {2, 2}), kMaxNesting - 1},
      {"long matrix", counting(Kind::INT8, {64, 64}), kMaxNesting - 1},
      {"cell", cell({}), kMaxNesting - 1},
      {"untouched", kFactory.createCellArray({1, 1}), kMaxNesting - 2},
      {"struct", record({}), kMaxNesting - 1},
      {"structs", kFactory.createStructArray({2, 1}, {"f"}), kMaxNesting - 2},
      {"strings", strings({1, 2}, {}), kMaxNesting - 1}};
  for (const auto& [name, value, deepest] : innermost) {
    for (int levels = kMaxNesting - 3; levels <= kMaxNesting + 1; ++levels) {
      SCOPED_TRACE(std::string(name) + " in " + std::to_string(levels) + " cells");
      if (levels > deepest) {
        EXPECT_THROW(encodeEnvelope({sample::nested(levels, value), {}, {}}),
                     NestingTooDeepException);
        continue;
      }
      const Array array = sample::nested(levels, value);
      EXPECT_EQ(decodeArray(encodeArray(array)), array);
      EXPECT_EQ(decodeEnvelope(encodeEnvelope({array, {}, {}})).arrays, array);
    }
  }
}

TEST(RoundTrip, DeepestArrayFitsASmallStack) {
#ifdef __SANITIZE_ADDRESS__
  constexpr size_t kStack = size_t{8} * 512 * 1024;  // its frames are larger
#else
  constexpr size_t kStack = size_t{512} * 1024;
#endif
  const auto body = [](void* same) -> void* {
    const Array one = kFactory.createScalar(1.0);
    const Array cells = sample::nested(kMaxNesting - 1, one);
    Array records = one;
    for (int i = 0; i < kMaxNesting / 2 - 1; ++i) {
      records = cell({record({{"f", records}}), record({{"f", one}})});
    }
    const Array children = sample::nested(kMaxNesting - 2, cell({}));
    *static_cast<bool*>(same) = decodeArray(encodeArray(cells)) == cells &&
                                decodeArray(encodeArray(records)) == records &&
                                decodeArray(plainMessage(children, Form::kChildren)) == children &&
                                decodeArray(plainMessage(children, Form::kTape)) == children;
    return nullptr;
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kStack), 0);
  pthread_t thread;
  bool same = false;
  ASSERT_EQ(pthread_create(&thread, &attributes, body, &same), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  EXPECT_TRUE(same);
}

TEST(GeneratedClasses, ReadArraysAsTheyAreSimplestToWrite) {
  for (const auto& [name, array] : sample::everyKind()) {
    Message message = parsed(encodeArray(array));
    if (message.has_tape()) continue;
    message.clear_padding();
    const Message plain = parsed(plainMessage(array, Form::kChildren));
    EXPECT_EQ(message.SerializeAsString(), plain.SerializeAsString()) << name;
  }
}

TEST(GeneratedClasses, ReadTextsAgainByTheirNumbers) {
  const Array same = strings({3000, 1}, std::vector<std::optional<std::u16string>>(3000, u"same"));
  const Message message = parsed(encodeArray(same));
  EXPECT_EQ(message.text_len(2999) % 2, 1u);
  EXPECT_LT(message.text().size(), 100u);
  EXPECT_EQ(describe(decodeArray(encodeArray(same))), describe(same));
}

// One value a column.
std::vector<size_t> starts(size_t columns) {
  std::vector<size_t> all(columns + 1);
  std::iota(all.begin(), all.end(), size_t{0});
  return all;
}

// Wherever they come to stand, and at no cost that depends on it.
TEST(Alignment, LongPayloadsBeginAtMultiplesOfSixteen) {
  std::vector<double> numbers(600);
  std::vector<Array> list;
  for (double& value : numbers) {
    value = static_cast<double>(list.size()) + 0.1;
    list.push_back(kFactory.createScalar(value));
  }
  const std::string content(reinterpret_cast<const char*>(numbers.data()), 8 * numbers.size());
  const auto payload = [&](size_t size) {
    return kFactory.createArrayWithData(Kind::UINT8, {size, 1}, content.data(), size);
  };
  const std::pair<const char*, Array> cases[] = {
      {"just long enough", payload(kAlignedFrom)},
      {"longer", payload(kAlignedFrom + 1)},
      {"in a record", record({{"f", cell({counting(Kind::INT8, {9, 999}), payload(4111)})}})},
      {"sparse",
       kFactory.createSparseArray(Kind::SPARSE_DOUBLE, 1, 600, std::vector<size_t>(600),
                                  starts(600), sample::dense(Kind::DOUBLE, {600}, numbers))},
      {"list", cell(list)},
  };
  for (const auto& [name, array] : cases) {
    size_t size = 0;
    for (size_t offset = 2; offset < 2 + 2 * kAlignment; ++offset) {
      SCOPED_TRACE(std::string(name) + " at " + std::to_string(offset));
      const Array before = cell(std::vector<Array>(offset, kFactory.createScalar(true)));
      const std::string message = encodeEnvelope({cell({before, array}), 1, {}});
      EXPECT_EQ(message.find(content.substr(0, kAlignedFrom)) % kAlignment, 0u);
      EXPECT_EQ(message.size(), size > 0 ? size + 1 : message.size());
      size = message.size();
      EXPECT_EQ(decodeEnvelope(message).arrays, cell({before, array}));
    }
  }
  const auto sizeOf = [&](size_t bytes) { return encodeArray(payload(bytes)).size(); };
  EXPECT_EQ(sizeOf(kAlignedFrom), sizeOf(kAlignedFrom - 1) + 1 + 19);
}

// What lies on a tape is an array for each element as soon as one of them changes.
TEST(RoundTrip, ElementsThatWereReadCanBeChanged) {
  const Array changed = record({{"new", kFactory.createCharArray("value")}});
  for (const auto& [name, array] : sample::everyKind()) {
    if (array.getType() != Kind::CELL || array.isEmpty()) continue;
    SCOPED_TRACE(name);
    Array expected = array;
    Array back = decodeArray(encodeArray(array));
    const Array untouched = back;
    for (const size_t i : {size_t{0}, array.getNumberOfElements() - 1}) {
      expected[i] = changed;
      back[i] = changed;
    }
    EXPECT_EQ(describe(back), describe(expected));
    EXPECT_EQ(describe(untouched), describe(array));
  }
}

// Forms that no encoder here writes; those of whole arrays are among the plain messages.
TEST(Decoder, ReadsEveryFormOfItems) {
  const std::string kCell = ofType(24), one = kCell + dims(1, 1), two = kCell + bytes(2, "\2");
  const std::string truth = ofType(1) + bytes(3, "\1"), empty = ofType(4) + dims(0, 0);
  const std::string f = numbers({0, 1, 1, 'f'}), unused = numbers({1, 'C', 0});
  const Array yes = kFactory.createScalar(true), none = counting(Kind::DOUBLE, {0, 0});
  const Array text = kFactory.createCharArray("x"), missing = strings({1, 1}, {});
  const Array yesRecord = record({{"f", yes}}), three = cell({text, text, text});
  Array column = kFactory.createStructArray({2, 1}, {"f"});
  column[0]["f"] = column[1]["f"] = yes;
  const auto counts = [](const std::vector<uint64_t>& values) { return bytes(2, numbers(values)); };
  const std::string yesInts = bytes(3, "\2\2"), yesInt = bytes(3, "\2");
  const std::tuple<const char*, std::string, Array> cases[] = {
      {"children without dims", kCell + bytes(4, truth), cell({yes})},
      {"one extent", two + bytes(4, truth) + bytes(4, empty), cell({yes, none})},
      {"fields", ofType(25) + bytes(4, empty) + bytes(4, truth) + bytes(5, "a") + bytes(5, "b"),
       record({{"a", none}, {"b", yes}})},
      {"fields on a tape",
       ofType(25) + dims(2, 1) + bytes(5, "f") + onTape({64, 1, 1}, counts({2}) + yesInts), column},
      {"children of a tape",
       two + onTape({64, 1, 0}, bytes(9, truth) + bytes(9, empty) + counts({2})),
       cell({yes, none})},
      {"run of none", kCell + dims(1, 0) + onTape({64, 3, 99, 98, 97}, counts({0})), cell({})},
      {"run of one", one + onTape({64, 1, 1}, counts({1}) + yesInt), cell({yes})},
      {"alike, but no run", two + onTape({24, 2, 1, 1}, yesInts), cell({yes, yes})},
      {"alike up to extents",
       two + onTape({24, 2, 66, 1, 66, 1}, counts({2, 1, 1, 0, 2}) + bytes(5, "\1\1\1")),
       cell({yes, sample::dense<uint8_t>(Kind::LOGICAL, {1, 2}, {1, 1})})},
      {"row by extents", one + onTape({24, 1, 65, 24, 1, 1}, counts({2, 1, 1}) + yesInt),
       cell({cell({yes})})},
      {"row of three extents", one + onTape({24, 1, 65, 24, 1, 1}, counts({3, 1, 1, 1}) + yesInt),
       cell({kFactory.createCellArray({1, 1, 1}, {yes})})},
      {"number by extents", one + onTape({24, 1, 66, 1}, counts({1, 1}) + bytes(5, "\1")),
       cell({yes})},
      {"char row by extents",
       one + onTape({24, 1, 66, 2}, counts({0, 1}) + bytes(5, numbers({'x', 0}))), cell({text})},
      {"long matrix on a tape",
       one + onTape({24, 1, 66, 6}, counts({0, 5000}) + bytes(5, zeros(5000))),
       cell({kFactory.createArray(Kind::INT8, {1, 5000})})},
      {"string by extents", one + onTape({24, 1, 67}, counts({0, 1}) + bytes(6, zeros(1))),
       cell({missing})},
      {"text again, and spelled out",
       kCell + dims(1, 3) + onTape({24, 3, 2, 2, 2}, bytes(6, "\4\1\4") + bytes(7, "xx")), three},
      {"strings again",
       one + bytes(4, ofType(3) + dims(1, 3) + bytes(8, "\4\1\4") + bytes(9, "xx")),
       cell({strings({1, 3}, {u"x", u"x", u"x"})})},
      {"record by extents",
       one + onTape({24, 1, 65, 25, 1, 24, 1, 1}, counts({0, 1}) + yesInt + bytes(8, f)),
       cell({yesRecord})},
      {"records",
       one + onTape({24, 1, 65, 25, 1, 24, 2, 1, 1}, counts({1, 2}) + yesInts + bytes(8, f)),
       cell({column})},
      {"shapes that are the same or unused",
       two + onTape({24, 2, 25, 2, 1, 25, 3, 1}, yesInts + bytes(8, unused + f + f)),
       cell({yesRecord, yesRecord})},
      {"uint64 by its bits", one + onTape({24, 1, 13}, bytes(3, "\1")),
       cell({kFactory.createScalar(UINT64_MAX)})},
      {"tape in a tape", one + onTape({24, 1, 0}, bytes(9, one + onTape({24, 1, 1}, yesInt))),
       cell({cell({yes})})},
  };
  for (const auto& [name, message, expected] : cases) {
    SCOPED_TRACE(name);
    expectCanonical(message, expected);
  }
  const Array old = decodeArray(ofType(26) + bytes(6, "Old") + bytes(5, "p") + bytes(4, empty));
  EXPECT_EQ(describe(old), "(OBJECT 1 1 class:Old name:p = (DOUBLE 0 0 = ) )");
  EXPECT_EQ(describe(decodeArray(encodeArray(old))), describe(old));
}

TEST(Decoder, ReadsWhatOtherWritersMayWrite) {
  const std::string elements = bytes(3, "\7\11"), type = ofType(7),
                    all = type + dims(2, 1) + elements;
  const std::pair<const char*, std::string> cases[] = {
      {"another order", elements + dims(2, 1) + type},
      {"padding anywhere",
       bytes(15, "") + elements + bytes(15, "x") + type + dims(2, 1) + bytes(15, "")},
      {"unknown varints and bytes", number(99, 5) + bytes(500, "what") + all + number(13, 1)},
      {"unknown fixed", "\xFD\x3E" + std::string("1234\xF9\x3E") + "12345678" + all},
      {"unknown group", "\xFB\x3E" + number(3, 1) + "\xFC\x3E" + all},
      {"long varints", "\x08\x87\x80" + zeros(1) + dims(2, 1) + elements},
  };
  for (const auto& [name, message] : cases) {
    SCOPED_TRACE(name);
    expectCanonical(message, sample::dense<uint8_t>(Kind::UINT8, {2, 1}, {7, 9}));
  }
  EXPECT_EQ(describe(decodeArray("")), "(UNKNOWN 1 1 = )");
}

EngineError someError() {
  return {"it \xFF failed", "a:b", {{"f.z", "inner", -3}, {"", "outer", INT32_MAX}}};
}

TEST(Envelopes, ParametersAreReadByTheGeneratedClassAndAreAResult) {
  for (const int32_t nargout : {0, 3, -1, INT32_MIN}) {
    const Envelope envelope{cell({kFactory.createScalar(1.0), cell({})}), nargout, std::nullopt};
    const std::string message = encodeEnvelope(envelope);
    ZORVAN_Params params;
    ASSERT_TRUE(params.ParseFromString(message));
    EXPECT_EQ(params.nargout(), nargout);
    EXPECT_EQ(params.version(), 1u);
    EXPECT_EQ(params.arrays_size(), 0);
    EXPECT_EQ(params.tape().kinds(), std::string("\x18\2\4\x18\0", 5));
    ZORVAN_Result result;
    ASSERT_TRUE(result.ParseFromString(message));
    EXPECT_EQ(result.tape().reals(0), 1.0);
    EXPECT_FALSE(result.has_error());
    const Envelope back = decodeEnvelope(message);
    EXPECT_EQ(back.nargout, nargout);
    EXPECT_EQ(describe(back.arrays), describe(envelope.arrays));
  }
  EXPECT_THROW(encodeEnvelope({kFactory.createScalar(1.0), {}, {}}), InvalidArrayTypeException);
  EXPECT_EQ(describe(decodeEnvelope("").arrays), describe(cell({})));
}

TEST(Envelopes, ErrorsKeepEveryPart) {
  ZORVAN_Result result;
  ASSERT_TRUE(result.ParseFromString(encodeEnvelope({cell({}), std::nullopt, someError()})));
  EXPECT_EQ(result.error().identifier(), "a:b");
  EXPECT_EQ(result.error().stack(0).line(), -3);
  result.mutable_error()->clear_identifier();
  const EngineError read = *decodeEnvelope(result.SerializeAsString()).error;
  EXPECT_EQ(read.message, "it \xFF failed");
  EXPECT_FALSE(read.identifier.has_value());
  ASSERT_EQ(read.stack.size(), 2u);
  EXPECT_EQ(read.stack[0].file, "f.z");
  EXPECT_EQ(read.stack[1].functionName, "outer");
  EXPECT_EQ(read.stack[1].line, INT32_MAX);
  EXPECT_EQ(decodeEnvelope(bytes(3, "")).error->message, "");
}

TEST(Envelopes, KeepWhatWasReadBeforeTheBreak) {
  const Array first = counting(Kind::DOUBLE, {1, 9});
  const Array second = cell({first, kFactory.createScalar(1)});
  const std::string firstField = bytes(1, plainMessage(first, Form::kChildren));
  const std::string arrays = firstField + bytes(1, encodeArray(second));
  const std::string message = arrays + number(2, 2) + bytes(3, bytes(1, "failed"));
  for (size_t length = 0; length < message.size(); ++length) {
    SCOPED_TRACE(length);
    const auto outline = readOutline(std::string_view(message).substr(0, length));
    EXPECT_EQ(outline.nargout.has_value(), length >= arrays.size() + 2);
    EXPECT_EQ(outline.error.has_value(), length >= arrays.size() + 4);
    if (length == firstField.size() || length >= arrays.size()) {
      EXPECT_EQ(decodeArrays(outline),
                length < arrays.size() ? cell({first}) : cell({first, second}));
    }
  }
}

}  // namespace
}  // namespace foundation::zorvandata::protobuf
