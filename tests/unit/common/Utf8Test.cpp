#include "common/Utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace project_lumen {
namespace {

const std::string kR = "\xEF\xBF\xBD";  // U+FFFD

TEST(ReplaceInvalidUtf8, ValidTextStays) {
  for (const std::string text :
       {"", "a", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "M 31 \xF0\x9F\x90\xBE.tif"}) {
    EXPECT_EQ(ReplaceInvalidUtf8(text), text);
  }
  EXPECT_EQ(ReplaceInvalidUtf8(std::string("a\0b", 3)), std::string("a\0b", 3));
}

// The examples of The Unicode Standard, tables 3-8 to 3-11.
TEST(ReplaceInvalidUtf8, OverlongFormsAreReplacedByteByByte) {
  EXPECT_EQ(ReplaceInvalidUtf8("\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41"),
            kR + kR + kR + kR + kR + kR + kR + kR + "A");
}

TEST(ReplaceInvalidUtf8, SurrogatesAreReplacedByteByByte) {
  EXPECT_EQ(ReplaceInvalidUtf8("\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41"),
            kR + kR + kR + kR + kR + kR + kR + kR + "A");
}

TEST(ReplaceInvalidUtf8, NumbersBeyondUnicodeAreReplacedByteByByte) {
  EXPECT_EQ(ReplaceInvalidUtf8("\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42"),
            kR + kR + kR + kR + kR + "A" + kR + kR + "B");
}

TEST(ReplaceInvalidUtf8, ATruncatedSequenceIsReplacedOnce) {
  EXPECT_EQ(ReplaceInvalidUtf8("\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"), kR + kR + kR + kR + "A");
  EXPECT_EQ(ReplaceInvalidUtf8("a\xF0\x9F\x90"), "a" + kR);
  EXPECT_EQ(ReplaceInvalidUtf8("\xB5m"), kR + "m");  // "µm" in ISO 8859-1
}

}  // namespace
}  // namespace project_lumen
