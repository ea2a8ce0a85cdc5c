#include "io/files/PathSuffix.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace project_lumen::io {
namespace {

TEST(LowercaseSuffix, TakesTheLastCharactersInLowerCase) {
  EXPECT_EQ(LowercaseSuffix("dir/M31.TIF", 4), ".tif");
  EXPECT_EQ(LowercaseSuffix(".png", 4), ".png");
  EXPECT_EQ(LowercaseSuffix("abc", 0), "");
}

TEST(LowercaseSuffix, ShorterPathIsOutOfRange) {
  try {
    LowercaseSuffix("abc", 4);
    FAIL() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid string position");
  }
}

TEST(LowercaseSuffix, NonAsciiBytesAreKept) {
  EXPECT_EQ(LowercaseSuffix("\xC3\x89", 2), "\xC3\x89");
}

TEST(IsFitsPath, AcceptsTheSixEndingsInAnyCase) {
  for (const char* path : {"a.fit", "a.fits", "a.fts", "a.fit.gz", "a.fits.gz", "a.fts.gz",
                           "A.FITS", "image.FITS.GZ", "m31[1].fits", ".fit"}) {
    EXPECT_TRUE(IsFitsPath(path)) << path;
  }
}

TEST(IsFitsPath, RefusesEverythingElse) {
  for (const char* path : {"", "fits", "image.fz", "a.fits.fz", "a.gz", "a.fits ", "a.tif"}) {
    EXPECT_FALSE(IsFitsPath(path)) << path;
  }
}

TEST(IsLossyPath, TakesTheNamesOfJpegInAnyCase) {
  for (const std::string path : {"a.jpg", "a.JPEG", "a.jpe"}) {
    EXPECT_TRUE(IsLossyPath(path)) << path;
  }
  for (const std::string path : {"a.png", "a.tif", "a.fits", "jpg"}) {
    EXPECT_FALSE(IsLossyPath(path)) << path;
  }
}

TEST(IsTiffPath, TakesTifAndTiffInAnyCase) {
  EXPECT_TRUE(IsTiffPath("a.tif"));
  EXPECT_TRUE(IsTiffPath("a b.TIFF"));
  EXPECT_FALSE(IsTiffPath("a.tif.png"));
  EXPECT_FALSE(IsTiffPath("tif"));
}

}  // namespace
}  // namespace project_lumen::io
