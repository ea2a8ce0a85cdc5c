#include "io/ImageFormat.h"

#include <gtest/gtest.h>

#include <string>

#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

using test::TemporaryFolder;
using test::WriteFileBytes;

constexpr const char* kUnclassified = "OpenCV (format unclassified)";

std::string FormatOf(const std::string& bytes) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("image"), bytes);
  return DetectImageFormat(folder.Path("image"));
}

TEST(DetectImageFormat, NamesTiffInBothByteOrdersAndVersions) {
  EXPECT_EQ(FormatOf(std::string("II\x2A\0\x08\0\0\0", 8)), "TIFF");
  EXPECT_EQ(FormatOf(std::string("II\x2B\0\x08\0\0\0", 8)), "TIFF");
  EXPECT_EQ(FormatOf(std::string("MM\0\x2A\0\0\0\x08", 8)), "TIFF");
  EXPECT_EQ(FormatOf(std::string("MM\0\x2B\0\x08\0\0", 8)), "TIFF");
}

TEST(DetectImageFormat, VersionStandsWhereTheByteOrderPutsIt) {
  EXPECT_EQ(FormatOf(std::string("II\0\x2A\0\0\0\0", 8)), kUnclassified);
  EXPECT_EQ(FormatOf(std::string("MM\x2A\0\0\0\0\0", 8)), kUnclassified);
  EXPECT_EQ(FormatOf(std::string("II\x2C\0\0\0\0\0", 8)), kUnclassified);
}

TEST(DetectImageFormat, NamesTheOtherContainers) {
  EXPECT_EQ(FormatOf("\x89PNG\r\n\x1A\n"), "PNG");
  EXPECT_EQ(FormatOf("\xFF\xD8\xFF\xE0 JFIF"), "JPEG");
  EXPECT_EQ(FormatOf("BM      "), "BMP");
}

TEST(DetectImageFormat, ShortFilesAreNamedByWhatTheyHold) {
  EXPECT_EQ(FormatOf("BM"), "BMP");
  EXPECT_EQ(FormatOf("\xFF\xD8"), kUnclassified);
  EXPECT_EQ(FormatOf("II"), kUnclassified);
  EXPECT_EQ(FormatOf(""), kUnclassified);
}

TEST(DetectImageFormat, WhatCannotBeReadIsUnclassified) {
  const TemporaryFolder folder;
  EXPECT_EQ(DetectImageFormat(folder.Path("missing.tif")), kUnclassified);
  EXPECT_EQ(DetectImageFormat(folder.Folder()), kUnclassified);
}

TEST(DetectImageFormat, NamesAreJustNames) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a b[1] \xC3\xA9.png"), "BM");
  EXPECT_EQ(DetectImageFormat(folder.Path("a b[1] \xC3\xA9.png")), "BMP");
}

bool IsPlain(const std::string& bytes) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("image"), bytes);
  return IsPlainFormat(folder.Path("image"));
}

TEST(IsPlainFormat, KnowsTheFormatsByTheirBeginnings) {
  EXPECT_TRUE(IsPlain("P5 512 512 255\n"));
  EXPECT_TRUE(IsPlain("P7\nWIDTH 4"));
  EXPECT_TRUE(IsPlain("Pf\n4 4"));
  EXPECT_TRUE(IsPlain("RIFF1234WEBPVP8 "));
  EXPECT_TRUE(IsPlain("#?RADIANCE\n"));
}

TEST(IsPlainFormat, IsNothingElse) {
  EXPECT_FALSE(IsPlain(""));
  EXPECT_FALSE(IsPlain("P"));
  EXPECT_FALSE(IsPlain("P5x"));
  EXPECT_FALSE(IsPlain("P8 "));
  EXPECT_FALSE(IsPlain("RIFF1234WAVE"));
  EXPECT_FALSE(IsPlain("NITF02.10"));
  EXPECT_FALSE(IsPlain("<VRTDataset"));
  EXPECT_FALSE(IsPlain(std::string("\0\0\0\x0CjP  \r\n\x87\n....", 16)));
  EXPECT_FALSE(IsPlain(std::string(128, '\0') + "DICM"));
}

}  // namespace
}  // namespace project_lumen::io
