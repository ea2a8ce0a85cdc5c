#include "io/files/DecodedSize.h"

#include <gtest/gtest.h>

#include <limits>

namespace project_lumen::io {
namespace {

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20U;

TEST(LargestDecodedSize, Is64MebibytesForSmallFiles) {
  EXPECT_EQ(LargestDecodedSize(0), 64 * kMebibyte);
  EXPECT_EQ(LargestDecodedSize(16384), 64 * kMebibyte);
}

TEST(LargestDecodedSize, GrowsWithTheFileBeyondThat) {
  EXPECT_EQ(LargestDecodedSize(16385), 64 * kMebibyte + 4096);
  EXPECT_EQ(LargestDecodedSize(kMebibyte), 4096 * kMebibyte);
}

TEST(LargestDecodedSize, DoesNotOverflow) {
  EXPECT_EQ(LargestDecodedSize(std::uint64_t{1} << 60U), std::numeric_limits<std::uint64_t>::max());
}

TEST(IsReadableSize, HasLimitsForSidesAndPixels) {
  EXPECT_TRUE(IsReadableSize(1, 1));
  EXPECT_TRUE(IsReadableSize(1'048'576, 1024));
  EXPECT_TRUE(IsReadableSize(32'768, 32'768));
  EXPECT_FALSE(IsReadableSize(32'769, 32'768));
  EXPECT_FALSE(IsReadableSize(1'048'577, 1));
  EXPECT_FALSE(IsReadableSize(1, 1'048'577));
  EXPECT_FALSE(IsReadableSize(0, 5));
  EXPECT_FALSE(IsReadableSize(5, 0));
}

}  // namespace
}  // namespace project_lumen::io
