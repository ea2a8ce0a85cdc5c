#include "backend/ProtobufWire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace project_lumen::backend {
namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;

ProtobufReader ReaderOf(const Bytes& bytes) {
  return {bytes, {0, bytes.size()}};
}

Bytes Encode(std::uint64_t value) {
  Bytes bytes;
  AppendVarint(bytes, value);
  return bytes;
}

TEST(Varint, HoldsSevenBitsAByteLeastSignificantFirst) {
  EXPECT_THAT(Encode(0), ElementsAre(0x00));
  EXPECT_THAT(Encode(127), ElementsAre(0x7F));
  EXPECT_THAT(Encode(128), ElementsAre(0x80, 0x01));
  EXPECT_THAT(Encode(300), ElementsAre(0xAC, 0x02));
}

TEST(Varint, OfTheLargestNumberTakesTenBytes) {
  EXPECT_THAT(Encode(std::numeric_limits<std::uint64_t>::max()),
              ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01));
}

TEST(Varint, SizeIsTheNumberOfBytesWritten) {
  for (unsigned bit = 0; bit < 64; ++bit) {
    const std::uint64_t value = std::uint64_t{1} << bit;
    EXPECT_EQ(VarintSize(value), bit / 7 + 1) << value;
    EXPECT_EQ(Encode(value).size(), bit / 7 + 1) << value;
  }
  EXPECT_EQ(VarintSize(0), 1U);
}

TEST(ProtobufReader, ReadsVarints) {
  const Bytes bytes = {0x00, 0xAC, 0x02, 0xFF, 0xFF, 0xFF, 0xFF,
                       0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01};
  ProtobufReader reader = ReaderOf(bytes);
  EXPECT_EQ(reader.ReadVarint(), 0U);
  EXPECT_EQ(reader.ReadVarint(), 300U);
  EXPECT_EQ(reader.ReadVarint(), std::numeric_limits<std::uint64_t>::max());
  EXPECT_TRUE(reader.AtEnd());
}

TEST(ProtobufReader, ReadsVarintsWithNeedlessZeroGroups) {
  const Bytes bytes = {0x85, 0x80, 0x00};
  EXPECT_EQ(ReaderOf(bytes).ReadVarint(), 5U);
}

TEST(ProtobufReader, RefusesAVarintThatEndsEarly) {
  const Bytes bytes = {0x80, 0x80};
  EXPECT_THAT([&] { ReaderOf(bytes).ReadVarint(); },
              ThrowsMessage<std::runtime_error>("Truncated ONNX protobuf varint."));
}

TEST(ProtobufReader, RefusesAVarintThatReachesSixtyFourBits) {
  const Bytes bytes(10, 0x80);
  EXPECT_THAT([&] { ReaderOf(bytes).ReadVarint(); },
              ThrowsMessage<std::runtime_error>("Invalid ONNX protobuf varint."));
}

TEST(ProtobufReader, ReadsFieldNumbersBeyondThirtyTwoBits) {
  // Field 2^40 + 3 of wire type 5 has the key 2^43 + 29.
  const Bytes bytes = {0x9D, 0x80, 0x80, 0x80, 0x80, 0x80, 0x02};
  const FieldKey key = ReaderOf(bytes).ReadKey();
  EXPECT_EQ(key.number, (std::uint64_t{1} << 40U) + 3);
  EXPECT_EQ(key.type, WireType::kFixed32);
}

TEST(ProtobufReader, RefusesGroupsAndUnknownWireTypes) {
  for (const unsigned type : {3U, 4U, 6U, 7U}) {
    const Bytes bytes = {static_cast<std::uint8_t>(8 + type), 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_THAT([&] { ReaderOf(bytes).ReadKey(); },
                ThrowsMessage<std::runtime_error>("Unsupported ONNX protobuf wire type."));
  }
}

TEST(ProtobufReader, SkipsEachWireTypeByItsSize) {
  const Bytes varint = {0x80, 0x01};
  const Bytes fixed64(8);
  const Bytes fixed32(4);
  const Bytes delimited = {0x02, 0xAA, 0xBB};
  for (const auto& [bytes, type] : {std::pair{varint, WireType::kVarint},
                                    {fixed64, WireType::kFixed64},
                                    {fixed32, WireType::kFixed32},
                                    {delimited, WireType::kLengthDelimited}}) {
    ProtobufReader reader = ReaderOf(bytes);
    reader.SkipValue(type);
    EXPECT_TRUE(reader.AtEnd());
  }
}

TEST(ProtobufReader, RefusesToSkipBeyondTheMessage) {
  const auto skip = [](const Bytes& bytes, WireType type) {
    return [bytes, type] { ReaderOf(bytes).SkipValue(type); };
  };
  EXPECT_THAT(skip({0xFF}, WireType::kVarint),
              ThrowsMessage<std::runtime_error>("Truncated ONNX protobuf varint."));
  EXPECT_THAT(skip(Bytes(7), WireType::kFixed64),
              ThrowsMessage<std::runtime_error>("Truncated ONNX protobuf fixed64 field."));
  EXPECT_THAT(skip(Bytes(3), WireType::kFixed32),
              ThrowsMessage<std::runtime_error>("Truncated ONNX protobuf fixed32 field."));
  EXPECT_THAT(skip({0x02, 0xAA}, WireType::kLengthDelimited),
              ThrowsMessage<std::runtime_error>("Truncated ONNX protobuf length-delimited field."));
}

TEST(ProtobufReader, RefusesALengthThatWouldWrapAround) {
  Bytes bytes;
  AppendVarint(bytes, std::numeric_limits<std::uint64_t>::max());
  bytes.push_back(0);
  EXPECT_THAT([&] { ReaderOf(bytes).ReadDelimited("too long"); },
              ThrowsMessage<std::runtime_error>("too long"));
}

TEST(ProtobufReader, StaysInsideANestedMessage) {
  const Bytes bytes = {0x01, 0x80, 0x01};
  ProtobufReader nested(bytes, {0, 2});
  EXPECT_EQ(nested.ReadVarint(), 1U);
  EXPECT_THAT([&] { nested.ReadVarint(); },
              ThrowsMessage<std::runtime_error>("Truncated ONNX protobuf varint."));
}

TEST(ProtobufReader, TellsWhereALengthAndItsPayloadStand) {
  const Bytes bytes = {0x2A, 0x82, 0x00, 0xAA, 0xBB, 0xCC};
  ProtobufReader reader = ReaderOf(bytes);
  reader.ReadKey();
  const DelimitedValue value = reader.ReadDelimited("too long");
  EXPECT_EQ(value.length.begin, 1U);
  EXPECT_EQ(value.length.end, 3U);
  EXPECT_EQ(value.payload.begin, 3U);
  EXPECT_EQ(value.payload.end, 5U);
}

}  // namespace
}  // namespace project_lumen::backend
