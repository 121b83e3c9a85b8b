#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <functional>

#include "foundation/protobuf/common.pb.h"
#include "foundation/zorvandata/protobuf/array.pb.h"
#include "message/codec.h"
#include "message/serialization_context.h"
#include "sample_arrays.h"
#include "wire.h"
#include "zorvandata/limits.h"

namespace foundation::zorvandata::protobuf {
namespace {

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
using sample::record;
using sample::strings;
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
  const std::pair<const char*, Array> innermost[] = {
      {"scalar", kFactory.createScalar(1.0)},
      {"matrix", counting(Kind::INT8, {2, 2})},
      {"cell", cell({})},
      {"untouched", kFactory.createCellArray({1, 1})},
      {"struct", record({})},
      {"strings", strings({1, 2}, {})}};
  for (const auto& [name, value] : innermost) {
    for (int levels = kMaxNesting - 2; levels <= kMaxNesting + 1; ++levels) {
      SCOPED_TRACE(std::string(name) + " in " + std::to_string(levels) + " cells");
      Array array;
      try {
        array = sample::nested(levels, value);
      } catch (const NestingTooDeepException&) {
        EXPECT_GE(levels, kMaxNesting - 1);
        continue;
      }
      EXPECT_LE(levels, kMaxNesting);
      EXPECT_NO_THROW(EXPECT_TRUE(decodeArray(encodeArray(array)) == array));
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
    *static_cast<bool*>(same) =
        decodeArray(encodeArray(cells)) == cells && decodeArray(encodeArray(records)) == records;
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

// Of few arrays the outline lies in place, of more on the heap.
TEST(Outline, HoldsAnyNumberOfArrays) {
  for (const size_t count : {0, 1, 8, 9, 16, 17, 40}) {
    std::vector<Array> arrays;
    for (size_t i = 0; i < count; ++i) arrays.push_back(kFactory.createScalar(uint64_t{i}));
    const Array all = cell(arrays);
    const std::string bytes = encodeEnvelope({all, 1, {}});
    auto outline = readOutline(bytes);
    auto moved = std::move(outline.arrays);
    EXPECT_EQ(outline.arrays.size(), 0U);  // NOLINT(bugprone-use-after-move): told to be empty
    EXPECT_EQ(moved.size(), count);
    outline.arrays.push_back({"", false});
    EXPECT_EQ(outline.arrays[0].bytes, "");
    EXPECT_TRUE(std::all_of(moved.begin(), moved.end(), [](const auto& array) {
      return decodeArray(array.bytes).getType() == Kind::UINT64;
    }));
    EXPECT_EQ(describe(decodeEnvelope(bytes).arrays), describe(all));
  }
}

TEST(GeneratedClasses, ReadDenseArraysAsWritten) {
  const Message message =
      parsed(encodeArray(sample::dense<int16_t>(Kind::INT16, {3, 1, 2}, {1, -2, 3, 0x1234, 5, 6})));
  EXPECT_EQ(message.type(), INT16);
  ASSERT_EQ(message.dims_size(), 3);
  EXPECT_EQ(message.dims(0) * 100 + message.dims(1) * 10 + message.dims(2), 312u);
  EXPECT_EQ(message.elements(), std::string("\1\0\xFE\xFF\3\0\x34\x12\5\0\6\0", 12));
  const Message scalar = parsed(encodeArray(kFactory.createScalar(true)));
  EXPECT_EQ(scalar.dims_size(), 0);
  EXPECT_EQ(scalar.elements(), "\1");
  EXPECT_EQ(parsed(encodeArray(kFactory.createCharArray(u"a\u0416"))).elements(),
            std::string("a\0\x16\x04", 4));
}

TEST(GeneratedClasses, ReadTextsAsWritten) {
  const Message message =
      parsed(encodeArray(strings({1, 4}, {u"", std::nullopt, u"\u00E9", std::u16string{0xD800}})));
  EXPECT_EQ(message.type(), ZORVAN_STRING);
  EXPECT_EQ(std::vector<uint64_t>(message.text_len().begin(), message.text_len().end()),
            (std::vector<uint64_t>{1, 0, 3, 4}));
  EXPECT_EQ(message.text(), "\xC3\xA9\xED\xA0\x80");
}

TEST(GeneratedClasses, ReadMixedCellsAsWritten) {
  const Message message =
      parsed(encodeArray(cell({kFactory.createScalar(int8_t{-3}), kFactory.createScalar(2.5),
                               kFactory.createCharArray("ab"), counting(Kind::INT8, {2, 2}),
                               kFactory.createScalar(UINT64_MAX), cell({})})));
  EXPECT_EQ(message.kinds(), std::string("\6\4\2\0\15\0", 6));
  EXPECT_EQ(std::vector<int64_t>(message.ints().begin(), message.ints().end()),
            (std::vector<int64_t>{-3, -1}));
  ASSERT_EQ(message.reals_size(), 1);
  EXPECT_EQ(message.reals(0), 2.5);
  EXPECT_EQ(message.text(), "ab");
  ASSERT_EQ(message.children_size(), 2);
  EXPECT_EQ(message.children(0).type(), INT8);
  EXPECT_EQ(message.children(1).type(), CELL);
}

// What was read as a column is one element each again as soon as one of them changes.
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

TEST(GeneratedClasses, ReadRecordsAndNamesAsWritten) {
  const Array one = kFactory.createScalar(1.0);
  const Array row = record({{"x", one}, {"y", kFactory.createCharArray("t")}});
  const Message message = parsed(encodeArray(cell({row, row, row})));
  EXPECT_EQ(message.item_type(), STRUCT);
  EXPECT_EQ(message.names(1), "y");
  ASSERT_EQ(message.children_size(), 2);
  EXPECT_EQ(message.children(0).dims(1), 3u);
  EXPECT_EQ(message.children(0).elements().size(), 24u);
  EXPECT_EQ(message.children(1).text(), "ttt");
  const Message days =
      parsed(encodeArray(kFactory.createEnumerationArray({1, 1}, std::string("Days"), {"Mo"})));
  EXPECT_EQ(days.class_name(), "Days");
  EXPECT_EQ(days.text(), "Mo");
  const Message sparse = parsed(encodeArray(kFactory.createSparseArray(
      Kind::SPARSE_DOUBLE, 9, 2, {8, 0}, {0, 1, 2}, counting(Kind::DOUBLE, {1, 2}))));
  EXPECT_EQ(sparse.rows(0), 8u);
  EXPECT_EQ(sparse.col_starts(2), 2u);
  EXPECT_EQ(sparse.elements().size(), 16u);
}

// A message put together with the generated class.
struct Made {
  Message message;

  Made(protobuf::ArrayType type, std::initializer_list<uint64_t> dims) {
    message.set_type(type);
    for (const uint64_t extent : dims) message.add_dims(extent);
  }
  Made& of(protobuf::ArrayType type) { return message.set_item_type(type), *this; }
  Made& data(const char* bytes, size_t size) { return message.set_elements(bytes, size), *this; }
  Made& mixing(const char* codes, size_t size) { return message.set_kinds(codes, size), *this; }
  Made& named(const char* name) { return message.add_names(name), *this; }
  Made& inClass(const char* name) { return message.set_class_name(name), *this; }
  Made& child(const Made& made) { return *message.add_children() = made.message, *this; }
  Made& integer(int64_t value) { return message.add_ints(value), *this; }
  Made& real(double value) { return message.add_reals(value), *this; }
  Made& column(uint64_t row, uint64_t end) {
    return message.add_rows(row), message.add_col_starts(0), message.add_col_starts(end), *this;
  }
  Made& texts(std::initializer_list<uint64_t> lengths, const char* joined) {
    for (const uint64_t length : lengths) message.add_text_len(length);
    return message.set_text(joined), *this;
  }
};

TEST(Decoder, ReadsEveryFormOfItems) {
  const Made truth = Made(LOGICAL, {}).data("\1", 1), empty = Made(DOUBLE, {0, 0});
  const Array yes = kFactory.createScalar(true), none = counting(Kind::DOUBLE, {0, 0});
  const Array missing = strings({1, 1}, {std::nullopt}),
              pair = kFactory.createScalar(std::complex(1., -2.));
  const Array yesRecord = record({{"f", yes}});
  Made handles = Made(HANDLE_OBJECT_REF, {}).inClass("H");
  handles.message.add_ref(UINT64_MAX);
  const std::tuple<const char*, Made, Array> cases[] = {
      {"children only", Made(CELL, {1, 2}).child(truth).child(empty), cell({yes, none})},
      {"struct", Made(STRUCT, {}).named("a").child(empty).named("b").child(truth),
       record({{"a", none}, {"b", yes}})},
      {"without dims", Made(CELL, {}).child(truth), cell({yes})},
      {"logical ints", Made(CELL, {2}).of(LOGICAL).integer(1).integer(0),
       cell({yes, kFactory.createScalar(false)})},
      {"int8 ints", Made(CELL, {1}).of(INT8).integer(-128),
       cell({kFactory.createScalar(int8_t{-128})})},
      {"uint64 by its bits", Made(CELL, {1}).of(UINT64).integer(-1),
       cell({kFactory.createScalar(UINT64_MAX)})},
      {"int64 elements", Made(CELL, {1}).of(INT64).data("\1\0\0\0\0\0\0\x80", 8),
       cell({kFactory.createScalar(INT64_MIN + 1)})},
      {"char rows", Made(CELL, {2}).of(CHAR).texts({1, 2}, "x"),
       cell({kFactory.createCharArray(""), kFactory.createCharArray("x")})},
      {"strings", Made(CELL, {2, 1}).of(ZORVAN_STRING).texts({0, 3}, "\xC3\xA9"),
       kFactory.createCellArray({2, 1}, {missing, strings({1, 1}, {u"\u00E9"})})},
      {"mixed",
       Made(CELL, {4})
           .mixing("\16\0\3\1", 4)
           .real(1)
           .real(-2)
           .child(empty)
           .texts({0}, "")
           .integer(1),
       cell({pair, none, missing, yes})},
      {"records",
       Made(CELL, {2}).of(STRUCT).named("f").child(
           Made(CELL, {2}).of(LOGICAL).integer(1).integer(1)),
       cell({yesRecord, yesRecord})},
      {"handles", handles, kFactory.createHandleArray({1, 1}, std::string("H"), {UINT64_MAX})},
      {"sparse", Made(SPARSE_LOGICAL, {2, 1}).column(1, 1).data("\1", 1),
       kFactory.createSparseArray(Kind::SPARSE_LOGICAL, 2, 1, {1}, {0, 1}, yes)},
  };
  for (const auto& [name, made, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(describe(decodeArray(made.message.SerializeAsString())), describe(expected));
  }
}

TEST(Decoder, ReadsOldStyleObjects) {
  const Made made = Made(OBJECT, {1, 1}).inClass("Old").named("p").child(Made(DOUBLE, {0, 0}));
  const Array array = decodeArray(made.message.SerializeAsString());
  EXPECT_EQ(describe(array), "(OBJECT 1 1 class:Old name:p = (DOUBLE 0 0 = ) )");
  EXPECT_EQ(describe(decodeArray(encodeArray(array))), describe(array));
}

TEST(Decoder, ReadsWhatOtherWritersMayWrite) {
  using wire::bytes;
  using wire::number;
  const Array expected = sample::dense<uint8_t>(Kind::UINT8, {2, 1}, {7, 9});
  const std::string elements = bytes(3, "\7\11"), type = number(1, 7);
  const std::pair<const char*, std::string> cases[] = {
      {"another order", elements + bytes(2, "\2\1") + type},
      {"unpacked", type + number(2, 2) + number(2, 1) + elements},
      {"packed in pieces", type + bytes(2, "\2") + elements + bytes(2, "\1")},
      {"packed and unpacked", type + bytes(2, "\2") + number(2, 1) + elements},
      {"unpacked, then packed", type + number(2, 2) + bytes(2, "\1") + elements},
      {"the last one counts", number(1, 4) + bytes(3, "xyz") + type + bytes(2, "\2\1") + elements},
      {"unknown varint, bytes and fixed", number(99, 5) + bytes(500, "what") + "\xFD\x3E" + "1234" +
                                              "\xF9\x3E" + "12345678" + type + bytes(2, "\2\1") +
                                              elements},
      {"unknown group",
       "\xFB\x3E" + number(3, 1) + "\xFC\x3E" + type + bytes(2, "\2\1") + elements},
      {"known number of another wire type",
       bytes(1, "\4") + number(3, 4) + type + bytes(2, "\2\1") + elements},
      {"long varints", "\x08\x87\x80" + std::string(1, '\0') + bytes(2, "\2\1") + elements},
  };
  for (const auto& [name, message] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(describe(decodeArray(message)), describe(expected));
  }
  EXPECT_EQ(describe(decodeArray("")), "(UNKNOWN 1 1 = )");
}

EngineError someError() {
  return {"it \xFF failed", "a:b", {{"f.z", "inner", -3}, {"", "outer", INT32_MAX}}};
}

TEST(Envelopes, ParametersAreReadByTheGeneratedClassAndAreAResult) {
  for (const int32_t nargout : {0, 3, -1, INT32_MIN}) {
    const Envelope envelope{cell({kFactory.createScalar(1.0), cell({})}), nargout, std::nullopt};
    const std::string bytes = encodeEnvelope(envelope);
    ZORVAN_Params params;
    ASSERT_TRUE(params.ParseFromString(bytes));
    EXPECT_EQ(params.nargout(), nargout);
    ASSERT_EQ(params.arrays_size(), 2);
    EXPECT_EQ(params.arrays(0).type(), DOUBLE);
    ZORVAN_Result result;
    ASSERT_TRUE(result.ParseFromString(bytes));
    EXPECT_EQ(result.arrays_size(), 2);
    EXPECT_FALSE(result.has_error());
    const Envelope back = decodeEnvelope(bytes);
    EXPECT_EQ(back.nargout, nargout);
    EXPECT_EQ(describe(back.arrays), describe(envelope.arrays));
  }
  EXPECT_THROW(encodeEnvelope({kFactory.createScalar(1.0), {}, {}}), InvalidArrayTypeException);
  EXPECT_EQ(encodeEnvelope({cell({}), {}, {}}), "");
}

TEST(Envelopes, ErrorsKeepEveryPart) {
  const std::string bytes = encodeEnvelope({cell({}), std::nullopt, someError()});
  ZORVAN_Result result;
  ASSERT_TRUE(result.ParseFromString(bytes));
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
  // A message given twice is merged.
  const auto twice =
      decodeEnvelope(wire::bytes(3, wire::bytes(1, "m")) + wire::bytes(3, wire::bytes(2, "i")));
  EXPECT_EQ(twice.error->message + *twice.error->identifier, "mi");
  EXPECT_EQ(decodeEnvelope(wire::bytes(3, "")).error->message, "");
}

TEST(Envelopes, KeepWhatWasReadBeforeTheBreak) {
  const Array first = counting(Kind::DOUBLE, {1, 9}),
              second = cell({first, kFactory.createScalar(1)});
  const std::string bytes = encodeEnvelope({cell({first, second}), 2, someError()});
  const size_t firstEnds = wire::bytes(1, encodeArray(first)).size();
  const size_t arraysEnd = firstEnds + wire::bytes(1, encodeArray(second)).size();
  for (size_t length = 0; length < bytes.size(); ++length) {
    SCOPED_TRACE(length);
    const auto outline = readOutline(std::string_view(bytes).substr(0, length));
    ASSERT_GE(outline.arrays.size(), size_t{length >= firstEnds} + (length >= arraysEnd));
    if (length < arraysEnd + 2) {
      EXPECT_FALSE(outline.nargout || outline.error);
      continue;
    }
    EXPECT_EQ(outline.nargout, 2);
    EXPECT_EQ(describe(decodeArrays(outline)), describe(cell({first, second})));
  }
}

}  // namespace
}  // namespace foundation::zorvandata::protobuf
