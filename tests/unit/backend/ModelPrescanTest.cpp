#include "backend/ModelPrescan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "WireMessage.h"

namespace project_lumen::backend {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;
using namespace test;  // NOLINT(google-build-using-namespace): the message builders of these tests

constexpr std::uint64_t kFloat = 1;
constexpr std::uint64_t kInt64 = 7;
constexpr std::uint64_t kFloat16 = 10;

// 1.0 and -2.0 at half and at single precision, little-endian.
const std::string kHalves("\x00\x3C\x00\xC0", 4);
const std::string kSingles("\x00\x00\x80\x3F\x00\x00\x00\xC0", 8);

std::string Prepared(const std::string& model) {
  const Bytes bytes = PrepareModel(ToBytes(model));
  return {bytes.begin(), bytes.end()};
}

std::string ModelWith(const std::string& tensor) {
  return Graph(Initializer(tensor));
}

std::string TestModel(const std::string& name) {
  return std::string(NEBULEX_TEST_MODELS) + "/" + name;
}

std::string FileContent(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void ExpectUnchanged(const std::string& model) {
  EXPECT_EQ(Prepared(model), model);
}

void ExpectRefused(const std::string& model, const std::string& message) {
  EXPECT_THAT([&] { Prepared(model); }, ThrowsMessage<std::runtime_error>(message));
}

TEST(ModelPrescan, ExpandsAHalfPrecisionPayloadInPlace) {
  EXPECT_EQ(
      Prepared(
          ModelWith(Dims({2}) + DataType(kFloat) + DelimitedField(8, "name") + RawData(kHalves))),
      ModelWith(Dims({2}) + DataType(kFloat) + DelimitedField(8, "name") + RawData(kSingles)));
}

TEST(ModelPrescan, KeepsTheOrderOfATensorsFields) {
  EXPECT_EQ(
      Prepared(ModelWith(RawData(kHalves) + DelimitedField(8, "name") + DataType(kFloat) +
                         Dims({1, 2}))),
      ModelWith(RawData(kSingles) + DelimitedField(8, "name") + DataType(kFloat) + Dims({1, 2})));
}

TEST(ModelPrescan, KeepsWhatStandsAroundAnExpandedInitializer) {
  const std::string before = VarintField(1, 8) + DelimitedField(2, "producer");
  const std::string after = DelimitedField(8, "opset") + Fixed32Field(99, "abcd");
  const std::string nodes = DelimitedField(1, "node") + Fixed64Field(77, "12345678");
  const std::string halves = Initializer(Dims({2}) + DataType(kFloat) + RawData(kHalves));
  const std::string singles = Initializer(Dims({2}) + DataType(kFloat) + RawData(kSingles));
  const std::string other = Initializer(Dims({1}) + DataType(kInt64) + RawData("12345678"));
  EXPECT_EQ(Prepared(before + Graph(nodes + halves + other + halves + nodes) + after),
            before + Graph(nodes + singles + other + singles + nodes) + after);
}

TEST(ModelPrescan, WritesLongerLengthsWhereTheyAreNeeded) {
  // 100 bytes of payload have a length of one byte, 200 one of two; the lengths around them follow.
  std::string halves;
  std::string singles;
  for (int i = 0; i < 25; ++i) {
    halves += kHalves;
    singles += kSingles;
  }
  const auto model = [](const std::string& payload) {
    return ModelWith(Dims({50}) + DataType(kFloat) + RawData(payload));
  };
  ASSERT_EQ(model(halves).size(), 4 + 4 + 2 + 100U);
  ASSERT_EQ(model(singles).size(), 6 + 4 + 3 + 200U);
  EXPECT_EQ(Prepared(model(halves)), model(singles));
}

TEST(ModelPrescan, ShortensNeedlesslyLongLengthsAroundAnExpandedPayload) {
  const std::string tensor = DataType(kFloat) + std::string("\x4A\x82\x80\x00\x00\x3C", 6);
  EXPECT_EQ(Prepared(std::string("\x3A\x8A\x80\x00", 4) + Initializer(tensor)),
            Graph(Initializer(DataType(kFloat) + RawData(kSingles.substr(0, 4)))));
}

TEST(ModelPrescan, TakesNoDimsAsOneElement) {
  EXPECT_EQ(Prepared(ModelWith(DataType(kFloat) + RawData(kHalves.substr(0, 2)))),
            ModelWith(DataType(kFloat) + RawData(kSingles.substr(0, 4))));
}

TEST(ModelPrescan, ReadsPackedAndSingleDimsTogether) {
  const std::string fields = PackedDims({1, 2}) + Dims({1}) + PackedDims({}) + DataType(kFloat);
  EXPECT_EQ(Prepared(ModelWith(fields + RawData(kHalves))), ModelWith(fields + RawData(kSingles)));
}

TEST(ModelPrescan, ExpandsTheLastOfSeveralRawData) {
  const std::string fields = Dims({2}) + DataType(kFloat) + RawData("unused");
  EXPECT_EQ(Prepared(ModelWith(fields + RawData(kHalves))), ModelWith(fields + RawData(kSingles)));
  ExpectUnchanged(ModelWith(Dims({2}) + DataType(kFloat) + RawData(kHalves) + RawData(kSingles)));
}

TEST(ModelPrescan, TheLastOfSeveralDataTypesCounts) {
  ExpectUnchanged(ModelWith(Dims({2}) + DataType(kFloat) + DataType(kInt64) + RawData(kHalves)));
}

TEST(ModelPrescan, ExpandsInitializersOfEveryGraphField) {
  const std::string halves = ModelWith(Dims({2}) + DataType(kFloat) + RawData(kHalves));
  const std::string singles = ModelWith(Dims({2}) + DataType(kFloat) + RawData(kSingles));
  EXPECT_EQ(Prepared(halves + halves), singles + singles);
}

TEST(ModelPrescan, LeavesAModelWithoutHalfPrecisionPayloadsAsItIs) {
  for (const char* name : {"identity", "pattern", "fails_on_tiles", "sequence_output", "empty"}) {
    const std::string path = TestModel(std::string(name) + ".onnx");
    const Bytes prepared = LoadPreparedModel(path);
    EXPECT_EQ(std::string(prepared.begin(), prepared.end()), FileContent(path)) << name;
  }
}

TEST(ModelPrescan, LeavesNeedlesslyLongVarintsAsTheyAreWhenNothingIsExpanded) {
  ExpectUnchanged(std::string("\x88\x00\x87\x80\x00", 5) + std::string("\x3A\x82\x00\x08\x01", 5));
}

TEST(ModelPrescan, LeavesSinglePrecisionPayloadsAsTheyAre) {
  ExpectUnchanged(ModelWith(Dims({2}) + DataType(kFloat) + RawData(kSingles)));
}

TEST(ModelPrescan, LeavesFloatDataAsItIs) {
  ExpectUnchanged(ModelWith(Dims({2}) + DataType(kFloat) + DelimitedField(4, kSingles)));
}

TEST(ModelPrescan, LeavesOtherElementTypesAsTheyAre) {
  ExpectUnchanged(ModelWith(Dims({2}) + DataType(kFloat16) + RawData(kHalves)));
  ExpectUnchanged(ModelWith(Dims({2}) + RawData(kHalves)));
}

TEST(ModelPrescan, LeavesPayloadsOfAnyOtherSizeAsTheyAre) {
  ExpectUnchanged(ModelWith(Dims({2}) + DataType(kFloat) + RawData("12345")));
}

TEST(ModelPrescan, LeavesTensorsWithoutElementsAsTheyAre) {
  ExpectUnchanged(ModelWith(Dims({0, 5}) + DataType(kFloat) + RawData("")));
}

TEST(ModelPrescan, SkipsKnownFieldNumbersOfOtherWireTypes) {
  ExpectUnchanged(VarintField(7, 3) + Graph(VarintField(5, 3)) +
                  ModelWith(Fixed32Field(1, "abcd") + DelimitedField(2, "\x01") +
                            VarintField(9, 2) + Dims({2}) + Fixed64Field(9, "12345678")));
}

TEST(ModelPrescan, SkipsFieldNumbersThatLookLikeKnownOnesInThirtyTwoBits) {
  constexpr std::uint64_t kAlias = (std::uint64_t{1} << 32U) + 7;
  ExpectUnchanged(DelimitedField(kAlias, "\xFF\xFF"));
}

TEST(ModelPrescan, CountsElementsUpToTheLimit) {
  constexpr std::uint64_t kLimit = 4611686018427387903;
  ExpectUnchanged(ModelWith(Dims({kLimit}) + DataType(kFloat) + RawData(kHalves)));
  ExpectRefused(ModelWith(Dims({kLimit + 1})), "ONNX initializer size overflows host size_t.");
}

TEST(ModelPrescan, RefusesNegativeDims) {
  ExpectRefused(ModelWith(Dims({static_cast<std::uint64_t>(-1)}) + DataType(kFloat)),
                "ONNX initializer size overflows host size_t.");
}

TEST(ModelPrescan, RefusesDimsWhoseProductOverflows) {
  constexpr std::uint64_t kHalfOfAll = std::uint64_t{1} << 32U;
  ExpectRefused(ModelWith(Dims({kHalfOfAll, kHalfOfAll})), "ONNX initializer dimensions overflow.");
  ExpectRefused(ModelWith(PackedDims({kHalfOfAll, kHalfOfAll})),
                "ONNX initializer dimensions overflow.");
}

TEST(ModelPrescan, RefusesAPackedRunThatIsCut) {
  ExpectRefused(ModelWith(std::string("\x0A\x01\x80", 3)), "Truncated ONNX protobuf varint.");
  ExpectRefused(ModelWith(std::string("\x0A\x05\x01", 3)),
                "Truncated ONNX protobuf length-delimited field.");
}

TEST(ModelPrescan, AnInitializerMayNotReachBeyondItsGraph) {
  // The initializer's five bytes exist in the file, but only two of them in the graph.
  ExpectRefused(std::string("\x3A\x04\x2A\x05\x10\x01\x10\x01\x10", 9),
                "Invalid ONNX initializer length.");
}

TEST(ModelPrescan, RefusesEveryPrefixOfAModelOrKeepsItsFields) {
  const std::string whole = VarintField(1, 8) +
                            Graph(Initializer(Dims({2}) + DataType(kFloat) + RawData(kHalves))) +
                            DelimitedField(8, "opset");
  int complete = 0;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    try {
      Prepared(whole.substr(0, length));
      ++complete;
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), testing::AnyOf(HasSubstr("Truncated ONNX protobuf"),
                                               HasSubstr("Invalid ONNX graph length.")));
    }
  }
  // Nothing, the first field, and the first two fields are messages of their own.
  EXPECT_EQ(complete, 3);
}

struct Corruption {
  const char* file;
  const char* message;
};

class CorruptModel : public testing::TestWithParam<Corruption> {};

TEST_P(CorruptModel, IsRefusedWithItsMessage) {
  const std::string path = TestModel(GetParam().file + std::string(".onnx"));
  EXPECT_THAT([&] { LoadPreparedModel(path); },
              ThrowsMessage<std::runtime_error>(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Files, CorruptModel,
    testing::Values(Corruption{"truncated_varint", "Truncated ONNX protobuf varint."},
                    Corruption{"invalid_varint", "Invalid ONNX protobuf varint."},
                    Corruption{"graph_length", "Invalid ONNX graph length."},
                    Corruption{"initializer_length", "Invalid ONNX initializer length."},
                    Corruption{"raw_data_length", "Invalid ONNX raw_data length."},
                    Corruption{"dims_overflow", "ONNX initializer dimensions overflow."},
                    Corruption{"size_overflow", "ONNX initializer size overflows host size_t."},
                    Corruption{"truncated_fixed64", "Truncated ONNX protobuf fixed64 field."},
                    Corruption{"truncated_fixed32", "Truncated ONNX protobuf fixed32 field."},
                    Corruption{"truncated_delimited",
                               "Truncated ONNX protobuf length-delimited field."},
                    Corruption{"group_wire_type", "Unsupported ONNX protobuf wire type."}),
    [](const auto& test) { return std::string(test.param.file); });

}  // namespace
}  // namespace project_lumen::backend
