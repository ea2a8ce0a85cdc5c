#include "io/raster/ImageFormat.h"

#include <gtest/gtest.h>

#include <sstream>
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

ImageFormat Identify(const std::string& bytes) {
  std::istringstream file(bytes);
  return IdentifyImageFormat(file);
}

TEST(IdentifyImageFormat, KnowsFormatsWithoutANameByTheirBeginnings) {
  EXPECT_EQ(Identify("P5 512 512 255\n"), ImageFormat::kNetpbm);
  EXPECT_EQ(Identify("P7\nWIDTH 4"), ImageFormat::kNetpbm);
  EXPECT_EQ(Identify("RIFF1234WEBPVP8 "), ImageFormat::kWebp);
  EXPECT_EQ(Identify("\x59\xA6\x6A\x95    "), ImageFormat::kSunRaster);
  EXPECT_EQ(Identify("Pf\n4 4"), ImageFormat::kFloatingPoint);
  EXPECT_EQ(Identify("#?RADIANCE\n"), ImageFormat::kFloatingPoint);
  EXPECT_EQ(Identify("v/1\x01    "), ImageFormat::kFloatingPoint);
}

TEST(IdentifyImageFormat, EverythingElseIsUnclassified) {
  for (const std::string& bytes :
       {std::string(), std::string("P"), std::string("P5x"), std::string("P8 "),
        std::string("RIFF1234WAVE"), std::string("NITF02.10"), std::string("<VRTDataset"),
        std::string("\0\0\0\x0CjP  \r\n\x87\n....", 16), std::string(128, '\0') + "DICM"}) {
    EXPECT_EQ(Identify(bytes), ImageFormat::kUnclassified) << bytes;
  }
}

}  // namespace
}  // namespace project_lumen::io
