#include "io/fits/FitsStorage.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "support/ExpectMessage.h"

namespace project_lumen::io {
namespace {

using test::ExpectMessage;

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr const char* kScalingMessage =
    "FITS integer output requires finite, nonzero source scaling.";

// --- Types ---

TEST(FitsTypeName, NamesEveryStorageTypeAndNoOther) {
  EXPECT_STREQ(FitsTypeName(8), "uint8");
  EXPECT_STREQ(FitsTypeName(10), "int8");
  EXPECT_STREQ(FitsTypeName(16), "int16");
  EXPECT_STREQ(FitsTypeName(20), "uint16");
  EXPECT_STREQ(FitsTypeName(32), "int32");
  EXPECT_STREQ(FitsTypeName(40), "uint32");
  EXPECT_STREQ(FitsTypeName(64), "int64");
  EXPECT_STREQ(FitsTypeName(80), "uint64");
  EXPECT_STREQ(FitsTypeName(-32), "float32");
  EXPECT_STREQ(FitsTypeName(-64), "float64");
  EXPECT_STREQ(FitsTypeName(24), "unknown");
}

TEST(FitsFixedDivisor, IsTheLargestValueOfTheEquivalentType) {
  EXPECT_EQ(FitsFixedDivisor(8, 8), 255.0);
  EXPECT_EQ(FitsFixedDivisor(8, 10), 127.0);
  EXPECT_EQ(FitsFixedDivisor(16, 16), 32767.0);
  EXPECT_EQ(FitsFixedDivisor(16, 20), 65535.0);
  EXPECT_EQ(FitsFixedDivisor(32, 32), 2147483647.0);
  EXPECT_EQ(FitsFixedDivisor(32, 40), 4294967295.0);
}

TEST(FitsFixedDivisor, IsTwoTo63ForBoth64BitTypes) {
  EXPECT_EQ(FitsFixedDivisor(64, 64), std::ldexp(1.0, 63));
  EXPECT_EQ(FitsFixedDivisor(64, 80), std::ldexp(1.0, 63));
}

TEST(FitsFixedDivisor, IsOneForFloatsAndForScaledIntegers) {
  EXPECT_EQ(FitsFixedDivisor(-32, -32), 1.0);
  EXPECT_EQ(FitsFixedDivisor(-64, -64), 1.0);
  EXPECT_EQ(FitsFixedDivisor(16, -32), 1.0);
  EXPECT_EQ(FitsFixedDivisor(32, -64), 1.0);
}

TEST(PhysicalLimits, AreThoseOfTheIntegerType) {
  EXPECT_EQ(PhysicalLimits(10)->minimum, -128.0);
  EXPECT_EQ(PhysicalLimits(10)->maximum, 127.0);
  EXPECT_EQ(PhysicalLimits(40)->minimum, 0.0);
  EXPECT_EQ(PhysicalLimits(40)->maximum, 4294967295.0);
}

TEST(PhysicalLimits, DoNotExistBeyond32BitsAndForFloats) {
  for (const int type : {64, 80, -32, -64}) {
    EXPECT_FALSE(PhysicalLimits(type).has_value());
  }
}

// --- Values ---

FitsImageInfo Format(int bitpix, int equivalentType, double bscale, double bzero) {
  FitsImageInfo info;
  info.bitpix = bitpix;
  info.equivalentType = equivalentType;
  info.bscale = bscale;
  info.bzero = bzero;
  return info;
}

std::int64_t Encode(double physical, const FitsImageInfo& info) {
  ClipCount clips;
  return EncodeStorageValue(physical, info, clips);
}

TEST(EncodeStorageValue, SubtractsTheOffsetOfUnsignedTypes) {
  const FitsImageInfo uint16 = Format(16, 20, 1.0, 32768.0);
  EXPECT_EQ(Encode(0.0, uint16), -32768);
  EXPECT_EQ(Encode(65535.0, uint16), 32767);
  EXPECT_EQ(Encode(4294967295.0, Format(32, 40, 1.0, 2147483648.0)), 2147483647);
  EXPECT_EQ(Encode(-128.0, Format(8, 10, 1.0, -128.0)), 0);
  EXPECT_EQ(Encode(127.0, Format(8, 10, 1.0, -128.0)), 255);
}

TEST(EncodeStorageValue, RoundsHalfAwayFromZero) {
  const FitsImageInfo int16 = Format(16, 16, 1.0, 0.0);
  EXPECT_EQ(Encode(2.5, int16), 3);
  EXPECT_EQ(Encode(-2.5, int16), -3);
  EXPECT_EQ(Encode(2.4999, int16), 2);
}

TEST(EncodeStorageValue, DividesByTheScale) {
  // (1.0 - 0.5) / 0.25 = 2
  EXPECT_EQ(Encode(1.0, Format(16, -32, 0.25, 0.5)), 2);
  EXPECT_EQ(Encode(1.0, Format(16, -32, -0.25, 0.5)), -2);
}

TEST(EncodeStorageValue, ClampsToThePhysicalLimitsAndCounts) {
  const FitsImageInfo uint16 = Format(16, 20, 1.0, 32768.0);
  ClipCount clips;
  EXPECT_EQ(EncodeStorageValue(70000.0, uint16, clips), 32767);
  EXPECT_EQ(clips.samples, 1U);
  EXPECT_EQ(clips.atUpperLimit, 1U);
  EXPECT_EQ(EncodeStorageValue(-1.0, uint16, clips), -32768);
  EXPECT_EQ(clips.samples, 2U);
  EXPECT_EQ(clips.atUpperLimit, 1U);
  EncodeStorageValue(65535.0, uint16, clips);
  EncodeStorageValue(0.0, uint16, clips);
  EXPECT_EQ(clips.samples, 2U);
}

TEST(EncodeStorageValue, InfinitiesAreClampedWhereTheTypeHasLimits) {
  ClipCount clips;
  EXPECT_EQ(EncodeStorageValue(INFINITY, Format(8, 8, 1.0, 0.0), clips), 255);
  EXPECT_EQ(EncodeStorageValue(-INFINITY, Format(8, 8, 1.0, 0.0), clips), 0);
  EXPECT_EQ(clips.samples, 2U);
  EXPECT_EQ(clips.atUpperLimit, 1U);
}

TEST(EncodeStorageValue, ScaledIntegersAreHeldAtTheLimitsOfTheirStorage) {
  ClipCount clips;
  const FitsImageInfo scaled = Format(16, -32, 0.001, 0.0);
  EXPECT_EQ(EncodeStorageValue(40.0, scaled, clips), 32767);
  EXPECT_EQ(clips.atUpperLimit, 1U);
  EXPECT_EQ(EncodeStorageValue(-40.0, scaled, clips), -32768);
  EXPECT_EQ(clips.samples, 2U);
  EXPECT_EQ(clips.atUpperLimit, 1U);
}

TEST(EncodeStorageValue, WithANegativeScaleTheLowestStoredNumberIsTheUpperLimit) {
  ClipCount clips;
  EXPECT_EQ(EncodeStorageValue(40.0, Format(16, -32, -0.001, 0.0), clips), -32768);
  EXPECT_EQ(clips.samples, 1U);
  EXPECT_EQ(clips.atUpperLimit, 1U);
}

TEST(EncodeStorageValue, AValueBeyondBothLimitsCountsOnce) {
  // Physical limits of int32 hold first, then those of the 16 stored bits.
  ClipCount clips;
  EXPECT_EQ(EncodeStorageValue(3e9, Format(16, 32, 1.0, 5.0), clips), 32767);
  EXPECT_EQ(clips.samples, 1U);
  EXPECT_EQ(clips.atUpperLimit, 1U);
}

TEST(EncodeStorageValue, SixtyFourBitsAreClippedBeforeTheyBecomeIntegers) {
  const FitsImageInfo int64 = Format(64, 64, 1.0, 0.0);
  ClipCount clips;
  EXPECT_EQ(EncodeStorageValue(kTwoTo63, int64, clips), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(EncodeStorageValue(1e300, int64, clips), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(clips.samples, 2U);
  EXPECT_EQ(clips.atUpperLimit, 2U);
  EXPECT_EQ(EncodeStorageValue(-1e300, int64, clips), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(clips.samples, 3U);
  EXPECT_EQ(clips.atUpperLimit, 2U);
}

TEST(EncodeStorageValue, SixtyFourBitLimitsThemselvesAreNotClipped) {
  const FitsImageInfo int64 = Format(64, 64, 1.0, 0.0);
  ClipCount clips;
  EXPECT_EQ(EncodeStorageValue(-kTwoTo63, int64, clips), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(EncodeStorageValue(kTwoTo63 - 1024.0, int64, clips), 9223372036854774784);
  EXPECT_EQ(clips.samples, 0U);
}

TEST(EncodeStorageValue, Uint64HasItsOffset) {
  const FitsImageInfo uint64 = Format(64, 64, 1.0, kTwoTo63);
  ClipCount clips;
  EXPECT_EQ(EncodeStorageValue(0.0, uint64, clips), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(EncodeStorageValue(kTwoTo63, uint64, clips), 0);
  EXPECT_EQ(clips.samples, 0U);
  EncodeStorageValue(-2048.0, uint64, clips);
  EXPECT_EQ(clips.samples, 1U);
  EXPECT_EQ(clips.atUpperLimit, 0U);
}

TEST(EncodeStorageValue, ScalingMustBeFiniteAndNotZero) {
  for (const auto& [bscale, bzero] : {std::pair(0.0, 0.0),
                                      {static_cast<double>(NAN), 0.0},
                                      {static_cast<double>(INFINITY), 0.0},
                                      {1.0, static_cast<double>(NAN)},
                                      {1.0, static_cast<double>(-INFINITY)}}) {
    const FitsImageInfo format = Format(16, 16, bscale, bzero);
    ExpectMessage<std::invalid_argument>([&] { Encode(1.0, format); }, kScalingMessage);
    ExpectMessage<std::invalid_argument>([&] { RequireIntegerScaling(format); }, kScalingMessage);
  }
}

TEST(EncodeStorageValue, NonFiniteStorageValuesAreRefused) {
  constexpr const char* kMessage =
      "Processed FITS value cannot be encoded in source storage units.";
  ExpectMessage<std::invalid_argument>([] { Encode(NAN, Format(16, 20, 1.0, 32768.0)); }, kMessage);
  ExpectMessage<std::invalid_argument>([] { Encode(INFINITY, Format(64, 64, 1.0, 0.0)); },
                                       kMessage);
  ExpectMessage<std::invalid_argument>([] { Encode(1e300, Format(32, -64, 1e-300, 0.0)); },
                                       kMessage);
}

TEST(EncodeFloatValue, ScalesAndRoundsToTheStoredPrecision) {
  EXPECT_EQ(EncodeFloatValue(0.1, Format(-32, -32, 1.0, 0.0)), static_cast<double>(0.1F));
  EXPECT_EQ(EncodeFloatValue(0.1, Format(-64, -64, 1.0, 0.0)), 0.1);
  EXPECT_EQ(EncodeFloatValue(1.0, Format(-64, -64, 4.0, 0.5)), 0.125);
}

TEST(EncodeFloatValue, NonFiniteSamplesAreRefused) {
  for (const float sample : {NAN, INFINITY, -INFINITY}) {
    ExpectMessage<std::invalid_argument>(
        [&] { EncodeFloatValue(static_cast<double>(sample), Format(-32, -32, 1.0, 0.0)); },
        "Processed FITS output contains a non-finite sample.");
  }
}

TEST(EncodeFloatValue, ValuesBeyondTheFormatAreRefused) {
  constexpr const char* kMessage =
      "Processed FITS physical value exceeds the source floating-point format.";
  ExpectMessage<std::invalid_argument>([] { EncodeFloatValue(1e39, Format(-32, -32, 1.0, 0.0)); },
                                       kMessage);
  ExpectMessage<std::invalid_argument>(
      [] { EncodeFloatValue(1e300, Format(-64, -64, 1e-300, 0.0)); }, kMessage);
  ExpectMessage<std::invalid_argument>([] { EncodeFloatValue(1.0, Format(-64, -64, 0.0, 0.0)); },
                                       kMessage);
  EXPECT_EQ(EncodeFloatValue(1e39, Format(-64, -64, 1.0, 0.0)), 1e39);
}

TEST(DecodeStorageValue, AppliesScaleAndOffset) {
  EXPECT_EQ(DecodeStorageValue(-32768, Format(16, 20, 1.0, 32768.0)), 0.0);
  EXPECT_EQ(DecodeStorageValue(3, Format(16, -32, 0.25, 0.5)), 1.25);
  EXPECT_EQ(DecodeFloatValue(0.125, Format(-32, -32, 4.0, 0.5)), 1.0);
}

}  // namespace
}  // namespace project_lumen::io
