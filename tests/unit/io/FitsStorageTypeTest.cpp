#include "io/FitsStorageType.h"

#include <gtest/gtest.h>

#include <cmath>

namespace project_lumen::io {
namespace {

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

}  // namespace
}  // namespace project_lumen::io
