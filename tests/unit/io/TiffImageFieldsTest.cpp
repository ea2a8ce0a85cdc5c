#include "io/TiffImageFields.h"

#include <gtest/gtest.h>

#include "support/TemporaryFolder.h"
#include "support/TiffBuilder.h"

namespace project_lumen::io {
namespace {

using test::TemporaryFolder;
using test::TiffBuilder;
using test::WriteFileBytes;

class TiffImageFieldsTest : public testing::TestWithParam<test::TiffForm> {};

INSTANTIATE_TEST_SUITE_P(Forms, TiffImageFieldsTest, testing::ValuesIn(test::kTiffForms),
                         [](const auto& instance) { return NameOf(instance.param); });

TEST_P(TiffImageFieldsTest, AreThoseOfTheFirstDirectory) {
  const TemporaryFolder folder;
  const std::string bytes = BuildTiffImage({.width = 3,
                                            .height = 2,
                                            .bitsPerSample = 16,
                                            .compression = 5,
                                            .photometric = 2,
                                            .samplesPerPixel = 3,
                                            .rowsPerStrip = 9,
                                            .planarConfiguration = 2},
                                           {"data"}, GetParam())
                                .Build();
  WriteFileBytes(folder.Path("a.tif"), bytes);
  const auto fields = ReadTiffImageFields(folder.Path("a.tif"));
  ASSERT_TRUE(fields);
  EXPECT_EQ(fields->fileSize, bytes.size());
  EXPECT_EQ(fields->width, 3U);
  EXPECT_EQ(fields->height, 2U);
  EXPECT_EQ(fields->bitsPerSample, 16U);
  EXPECT_EQ(fields->compression, kTiffLzw);
  EXPECT_EQ(fields->photometric, 2U);
  EXPECT_EQ(fields->samplesPerPixel, 3U);
  EXPECT_EQ(fields->planarConfiguration, kTiffSeparatePlanes);
  EXPECT_EQ(fields->rowsPerStrip, 9U);
}

TEST_P(TiffImageFieldsTest, TellTheSizeOfTiles) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a.tif"), TiffBuilder(GetParam())
                                           .Add(322, TiffBuilder::kShort, {32})
                                           .Add(323, TiffBuilder::kLong, {16})
                                           .Build());
  const auto fields = ReadTiffImageFields(folder.Path("a.tif"));
  ASSERT_TRUE(fields);
  EXPECT_EQ(fields->tileWidth, 32U);
  EXPECT_EQ(fields->tileHeight, 16U);
}

TEST_P(TiffImageFieldsTest, HaveTheirDefaultsWhereTheDirectoryIsSilent) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a.tif"),
                 TiffBuilder(GetParam()).Add(256, TiffBuilder::kShort, {7}).Build());
  const auto fields = ReadTiffImageFields(folder.Path("a.tif"));
  ASSERT_TRUE(fields);
  EXPECT_EQ(fields->width, 7U);
  EXPECT_EQ(fields->bitsPerSample, 1U);
  EXPECT_EQ(fields->samplesPerPixel, 1U);
  EXPECT_EQ(fields->compression, kTiffUncompressed);
  EXPECT_EQ(fields->planarConfiguration, 1U);
  EXPECT_EQ(fields->rowsPerStrip, kTiffOneStrip);
  EXPECT_EQ(fields->tileWidth, 0U);
}

TEST(TiffImageFields, AreNoneWithoutAReadableDirectory) {
  const TemporaryFolder folder;
  EXPECT_FALSE(ReadTiffImageFields(folder.Path("missing.tif")));
  WriteFileBytes(folder.Path("a.tif"), "II*");
  EXPECT_FALSE(ReadTiffImageFields(folder.Path("a.tif")));
}

}  // namespace
}  // namespace project_lumen::io
