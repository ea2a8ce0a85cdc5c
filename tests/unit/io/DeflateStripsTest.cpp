#include "io/DeflateStrips.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/PngBuilder.h"
#include "support/TemporaryFolder.h"
#include "support/TiffBuilder.h"

namespace project_lumen::io {
namespace {

using test::StoredZlib;
using test::TiffBuilder;

const std::string kContent = "some samples";

// The stream with one byte of its content changed; the checksum stays.
std::string WithWrongContent() {
  std::string stream = StoredZlib(kContent);
  stream[stream.size() - 5] = '?';
  return stream;
}

std::string StripFile(const std::vector<std::string>& strips, test::TiffForm form = {}) {
  return BuildTiffImage({.width = 12, .height = 2, .compression = 8, .rowsPerStrip = 1}, strips,
                        form)
      .Build();
}

bool AreSound(const std::string& bytes) {
  const test::TemporaryFolder folder;
  test::WriteFileBytes(folder.Path("a.tif"), bytes);
  return AreSoundDeflateStrips(folder.Path("a.tif"));
}

class DeflateStripsTest : public testing::TestWithParam<test::TiffForm> {};

INSTANTIATE_TEST_SUITE_P(Forms, DeflateStripsTest, testing::ValuesIn(test::kTiffForms),
                         [](const auto& instance) { return NameOf(instance.param); });

TEST_P(DeflateStripsTest, WholeStreamsAreSound) {
  EXPECT_TRUE(AreSound(StripFile({StoredZlib(kContent)}, GetParam())));
  EXPECT_TRUE(AreSound(StripFile({StoredZlib(kContent), StoredZlib("other")}, GetParam())));
}

TEST_P(DeflateStripsTest, AWrongChecksumIsNoticedInEachStrip) {
  const std::string sound = StoredZlib(kContent);
  EXPECT_FALSE(AreSound(StripFile({WithWrongContent()}, GetParam())));
  EXPECT_FALSE(AreSound(StripFile({WithWrongContent(), sound}, GetParam())));
  EXPECT_FALSE(AreSound(StripFile({sound, WithWrongContent()}, GetParam())));
}

TEST(AreSoundDeflateStrips, ATileIsCheckedLikeAStrip) {
  const auto tileFile = [](const std::string& tile) {
    constexpr int kTileOffsets = 324;
    constexpr int kTileByteCounts = 325;
    TiffBuilder builder;
    builder.Add(322, TiffBuilder::kShort, {16}).Add(323, TiffBuilder::kShort, {16});
    return builder.AddStrips({tile}, kTileOffsets, kTileByteCounts).Build();
  };
  EXPECT_TRUE(AreSound(tileFile(StoredZlib(kContent))));
  EXPECT_FALSE(AreSound(tileFile(WithWrongContent())));
}

TEST(AreSoundDeflateStrips, CodesThatDoNotExistAreNoticed) {
  EXPECT_FALSE(AreSound(StripFile({"\x78\x01\x07" + kContent})));
  EXPECT_FALSE(AreSound(StripFile({kContent})));
}

TEST(AreSoundDeflateStrips, StreamsLongerThanAChunkAreFollowedToTheirEnd) {
  std::string large = StoredZlib(std::string(200'000, 'x'));
  EXPECT_TRUE(AreSound(StripFile({large})));
  large[150'000] = 'y';
  EXPECT_FALSE(AreSound(StripFile({large})));
}

TEST(AreSoundDeflateStrips, WhatOnlyLacksItsEndIsLeftToTheDecoder) {
  const std::string whole = StoredZlib(kContent);
  EXPECT_TRUE(AreSound(StripFile({whole.substr(0, whole.size() - 4)})));
}

TEST(AreSoundDeflateStrips, StripsThatShareTheirBytesAreLeftToTheDecoder) {
  TiffBuilder builder;
  const std::vector<std::uint64_t> offsets(50, 0);
  const std::vector<std::uint64_t> sizes(50, 100);
  builder.Add(273, TiffBuilder::kLong, offsets).Add(279, TiffBuilder::kLong, sizes);
  EXPECT_TRUE(AreSound(builder.Build()));
}

TEST(AreSoundDeflateStrips, WhatIsNoTiffIsNotSound) {
  EXPECT_FALSE(AreSound("text"));
}

}  // namespace
}  // namespace project_lumen::io
