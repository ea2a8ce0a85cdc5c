#include "io/fits/FitsWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <numeric>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "io/files/FileDescriptor.h"
#include "support/ExpectMessage.h"
#include "support/FileSizeLimit.h"
#include "support/FitsBytes.h"
#include "support/ReadFits.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

using test::ExpectMessage;
using test::FitsCard;
using test::FromBigEndian;
using test::ParsedFits;
using test::RawCard;
using testing::ElementsAre;

using Axes = std::vector<std::int64_t>;

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// What the reader would have said of a source.
SourceImageInfo Source(int bitpix, int equivalentType, double divisor, double bscale = 1.0,
                       double bzero = 0.0) {
  SourceImageInfo source;
  source.isFits = true;
  source.fits.bitpix = bitpix;
  source.fits.equivalentType = equivalentType;
  source.fits.isFloat = bitpix < 0;
  source.fits.naxis = 2;
  source.fits.fixedDivisor = divisor;
  source.fits.bscale = bscale;
  source.fits.bzero = bzero;
  source.fixedDivisor = divisor;
  return source;
}

SourceImageInfo Uint8Source() {
  return Source(8, 8, 255.0);
}
SourceImageInfo Uint16Source() {
  return Source(16, 20, 65535.0, 1.0, 32768.0);
}
SourceImageInfo FloatSource() {
  return Source(-32, -32, 1.0);
}

// A source of this size; grey unless it has three planes.
SourceImageInfo Sized(SourceImageInfo source, std::int32_t width, std::int32_t height,
                      bool isCube = false) {
  source.fits.naxis = isCube ? 3 : 2;
  source.fits.planarCube = isCube;
  source.fits.naxes = {width, height, isCube ? 3 : 0};
  return source;
}

cv::Mat Row(const std::vector<double>& samples) {
  return cv::Mat(samples, true).reshape(1, 1);
}

class FitsWriterTest : public testing::Test {
 protected:
  ParsedFits Write(const cv::Mat& image, const SourceImageInfo* source,
                   OutputRole role = OutputRole::kMain, const LinearOutputInfo* linear = nullptr) {
    report_ = WriteFitsOutput(Path(), image, image.channels() == 1, source, role, linear);
    return test::ParseFitsFile(Path());
  }
  [[nodiscard]] std::string Path(const std::string& name = "out.fits") const {
    return folder_.Path(name);
  }
  void ExpectFailure(const cv::Mat& image, const SourceImageInfo* source,
                     const std::string& message, const LinearOutputInfo* linear = nullptr) {
    ExpectMessage<std::invalid_argument>(
        [&] {
          WriteFitsOutput(Path(), image, image.channels() == 1, source, OutputRole::kMain, linear);
        },
        message);
  }

  test::TemporaryFolder folder_;
  OutputReport report_;  // of the last result
};

// --- Storage ---

TEST_F(FitsWriterTest, Uint8SourceGetsItsRangeBack) {
  const SourceImageInfo source = Uint8Source();
  const ParsedFits file = Write(Row({0.0, 0.5, 1.0}), &source);
  EXPECT_EQ(file.Value("BITPIX"), "8");
  // 127.5 rounds away from zero.
  EXPECT_THAT(FromBigEndian<std::uint8_t>(file.data), ElementsAre(0, 128, 255));
  EXPECT_EQ(file.Number("BSCALE"), 1.0);
  EXPECT_EQ(file.Number("BZERO"), 0.0);
}

TEST_F(FitsWriterTest, Uint16WhiteIsTheLargestStoredNumber) {
  const SourceImageInfo source = Uint16Source();
  const ParsedFits file = Write(Row({0.0, 1.0}), &source);
  EXPECT_EQ(file.Value("BITPIX"), "16");
  EXPECT_THAT(FromBigEndian<std::int16_t>(file.data), ElementsAre(-32768, 32767));
  EXPECT_EQ(file.Number("BZERO"), 32768.0);
  EXPECT_EQ(file.Number("DATAMIN"), 0.0);
  EXPECT_EQ(file.Number("DATAMAX"), 65535.0);
}

TEST_F(FitsWriterTest, SignedAndWideTypesAreStoredWithTheirOffsets) {
  const SourceImageInfo int8 = Source(8, 10, 127.0, 1.0, -128.0);
  EXPECT_THAT(FromBigEndian<std::uint8_t>(Write(Row({-1.0, 0.0, 1.0}), &int8).data),
              ElementsAre(1, 128, 255));
  const SourceImageInfo int16 = Source(16, 16, 32767.0);
  EXPECT_THAT(FromBigEndian<std::int16_t>(Write(Row({-1.0, 1.0}), &int16).data),
              ElementsAre(-32767, 32767));
  const SourceImageInfo int32 = Source(32, 32, 2147483647.0);
  EXPECT_THAT(FromBigEndian<std::int32_t>(Write(Row({-1.0, 1.0}), &int32).data),
              ElementsAre(-2147483647, 2147483647));
  const SourceImageInfo uint32 = Source(32, 40, 4294967295.0, 1.0, 2147483648.0);
  EXPECT_THAT(FromBigEndian<std::int32_t>(Write(Row({0.0, 1.0}), &uint32).data),
              ElementsAre(std::numeric_limits<std::int32_t>::min(), 2147483647));
}

TEST_F(FitsWriterTest, SixtyFourBitWhiteStaysPositive) {
  const SourceImageInfo int64 = Source(64, 64, kTwoTo63);
  const ParsedFits file = Write(Row({-1.0, 0.25, 1.0}), &int64);
  EXPECT_THAT(FromBigEndian<std::int64_t>(file.data),
              ElementsAre(std::numeric_limits<std::int64_t>::min(), std::int64_t{1} << 61,
                          std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(report_.clipped, 1U);
}

TEST_F(FitsWriterTest, Uint64KeepsItsOffset) {
  const SourceImageInfo uint64 = Source(64, 64, kTwoTo63, 1.0, kTwoTo63);
  const ParsedFits file = Write(Row({0.0, 0.5, 1.0}), &uint64);
  EXPECT_THAT(FromBigEndian<std::int64_t>(file.data),
              ElementsAre(std::numeric_limits<std::int64_t>::min(), -(std::int64_t{1} << 62), 0));
  EXPECT_EQ(file.Number("BZERO"), kTwoTo63);
}

TEST_F(FitsWriterTest, ScaledIntegersAreStoredInTheirScale) {
  const SourceImageInfo source = Source(16, -32, 1.0, 0.25, 0.5);
  const ParsedFits file = Write(Row({0.5, 1.0}), &source);
  EXPECT_THAT(FromBigEndian<std::int16_t>(file.data), ElementsAre(0, 2));
  EXPECT_EQ(file.Number("BSCALE"), 0.25);
  EXPECT_EQ(file.Number("DATAMAX"), 1.0);
}

TEST_F(FitsWriterTest, FloatSourcesStoreFloats) {
  const SourceImageInfo float32 = FloatSource();
  EXPECT_THAT(FromBigEndian<float>(Write(Row({-0.5, 0.1}), &float32).data),
              ElementsAre(-0.5F, 0.1F));
  const SourceImageInfo float64 = Source(-64, -64, 1.0);
  EXPECT_THAT(FromBigEndian<double>(Write(Row({-0.5, 0.1}), &float64).data),
              ElementsAre(-0.5, 0.1));
}

TEST_F(FitsWriterTest, FloatScalingOfTheSourceIsWrittenAndApplied) {
  const SourceImageInfo source = Source(-32, -32, 1.0, 4.0, 0.5);
  for (const OutputRole role : {OutputRole::kMain, OutputRole::kDifference}) {
    const ParsedFits file = Write(Row({0.5, 1.0}), &source, role);
    EXPECT_THAT(FromBigEndian<float>(file.data), ElementsAre(0.0F, 0.125F));
    EXPECT_EQ(file.Number("BSCALE"), 4.0);
    EXPECT_EQ(file.Number("BZERO"), 0.5);
    EXPECT_EQ(file.Number("DATAMAX"), 1.0);
  }
}

TEST_F(FitsWriterTest, OtherSourcesGiveNormalisedFloats) {
  const ParsedFits file = Write(Row({0.25, 1.0}), nullptr);
  EXPECT_EQ(file.Value("BITPIX"), "-32");
  EXPECT_THAT(FromBigEndian<float>(file.data), ElementsAre(0.25F, 1.0F));
  EXPECT_FALSE(file.Has("BSCALE"));
  EXPECT_FALSE(file.Has("BZERO"));
  const OutputDescription form = DescribeFitsOutput(nullptr, OutputRole::kMain);
  EXPECT_EQ(form.bitpix, -32);
  EXPECT_EQ(form.white, 1.0);
  EXPECT_EQ(form.bscale, 1.0);
  EXPECT_EQ(form.bzero, 0.0);
}

TEST_F(FitsWriterTest, Float32ImagesAreTakenToo) {
  const SourceImageInfo source = Uint16Source();
  cv::Mat image;
  Row({0.0, 1.0}).convertTo(image, CV_32F);
  EXPECT_THAT(FromBigEndian<std::int16_t>(Write(image, &source).data), ElementsAre(-32768, 32767));
}

// --- Roles ---

TEST_F(FitsWriterTest, ADifferenceIsMultipliedByWhiteOnly) {
  const SourceImageInfo source = Uint16Source();
  const ParsedFits file = Write(Row({0.0, 1.0 / 65535.0}), &source, OutputRole::kDifference);
  EXPECT_THAT(FromBigEndian<std::int16_t>(file.data), ElementsAre(-32768, -32767));
  EXPECT_EQ(file.History().back(), "Difference stars: source units, no additive offset.");
}

TEST_F(FitsWriterTest, AFloatUnscreenLayerIsAFraction) {
  const SourceImageInfo source = Source(-64, -64, 1.0, 4.0, 0.5);
  const ParsedFits file = Write(Row({0.25, 1.0}), &source, OutputRole::kUnscreen);
  EXPECT_THAT(FromBigEndian<double>(file.data), ElementsAre(0.25, 1.0));
  EXPECT_EQ(file.Number("BSCALE"), 1.0);
  EXPECT_EQ(file.Number("BZERO"), 0.0);
  EXPECT_EQ(file.Card("BUNIT"),
            RawCard("BUNIT   = '1       '           / Dimensionless unscreen fraction"));
  const OutputDescription form = DescribeFitsOutput(&source, OutputRole::kUnscreen);
  EXPECT_EQ(form.bitpix, -64);
  EXPECT_EQ(form.bscale, 1.0);
  EXPECT_EQ(form.bzero, 0.0);
  EXPECT_TRUE(form.isFraction);
}

TEST_F(FitsWriterTest, AnIntegerUnscreenLayerFillsTheRange) {
  const SourceImageInfo source = Uint16Source();
  const ParsedFits file = Write(Row({0.0, 1.0}), &source, OutputRole::kUnscreen);
  EXPECT_THAT(FromBigEndian<std::int16_t>(file.data), ElementsAre(-32768, 32767));
  EXPECT_FALSE(file.Has("BUNIT"));
  const OutputDescription form = DescribeFitsOutput(&source, OutputRole::kUnscreen);
  EXPECT_EQ(form.bitpix, 16);
  EXPECT_EQ(form.white, 65535.0);
  EXPECT_EQ(form.bzero, 32768.0);
  EXPECT_FALSE(form.isFraction);
}

TEST_F(FitsWriterTest, AnUnscreenLayerWithoutFitsSourceIsAFractionWithoutScaling) {
  const ParsedFits file = Write(Row({0.25}), nullptr, OutputRole::kUnscreen);
  EXPECT_EQ(file.Value("BUNIT"), "'1       '");
  EXPECT_FALSE(file.Has("BSCALE"));
}

// --- Axes ---

TEST_F(FitsWriterTest, ThreeChannelsBecomeThreePlanes) {
  SourceImageInfo source = Uint8Source();
  source.fits.naxis = 3;
  source.fits.planarCube = true;
  const cv::Mat image =
      (cv::Mat_<cv::Vec3d>(2, 1) << cv::Vec3d(0.2, 0.4, 0.6), cv::Vec3d(0.8, 1.0, 0.0));
  for (const SourceImageInfo* given : {static_cast<const SourceImageInfo*>(&source)}) {
    const ParsedFits file = Write(image, given);
    EXPECT_EQ(file.Axes(), (Axes{1, 2, 3}));
    EXPECT_THAT(FromBigEndian<std::uint8_t>(file.data), ElementsAre(51, 204, 102, 255, 153, 0));
  }
  EXPECT_EQ(Write(image, nullptr).Axes(), (Axes{1, 2, 3}));
}

TEST_F(FitsWriterTest, AnInterleavedCubeStaysInterleaved) {
  SourceImageInfo source = Uint8Source();
  source.fits.naxis = 3;
  source.fits.naxes = {3, 2, 1};
  const cv::Mat image =
      (cv::Mat_<cv::Vec3d>(1, 2) << cv::Vec3d(0.2, 0.4, 0.6), cv::Vec3d(0.8, 1.0, 0.0));
  const ParsedFits file = Write(image, &source);
  EXPECT_EQ(file.Axes(), (Axes{3, 2, 1}));
  EXPECT_THAT(FromBigEndian<std::uint8_t>(file.data), ElementsAre(51, 102, 153, 204, 255, 0));
}

TEST_F(FitsWriterTest, AGrayscaleSourceGivesOnePlaneFitForTwoAxes) {
  SourceImageInfo source = Uint8Source();
  source.isGrayscale = true;
  source.fits.naxis = 3;
  source.fits.planarCube = true;
  source.fits.headerCards = {FitsCard("NAXIS3", 3), FitsCard("CTYPE1", "'RA---TAN'"),
                             FitsCard("CTYPE3", "'RGB     '"), FitsCard("WCSAXES", 3)};
  const cv::Mat image = (cv::Mat_<cv::Vec3d>(1, 1) << cv::Vec3d(0.2, 0.4, 0.6));
  for (const cv::Mat& given : {image, Row({0.2})}) {
    WriteFitsOutput(Path(), given, true, &source, OutputRole::kMain, nullptr);
    const ParsedFits file = test::ParseFitsFile(Path());
    EXPECT_EQ(file.Axes(), (Axes{1, 1}));
    EXPECT_THAT(FromBigEndian<std::uint8_t>(file.data), ElementsAre(51));
    EXPECT_TRUE(file.Has("CTYPE1"));
    EXPECT_FALSE(file.Has("CTYPE3"));
    EXPECT_FALSE(file.Has("WCSAXES"));
  }
}

TEST_F(FitsWriterTest, AnImageLargerThanOneReadIsWhole) {
  const SourceImageInfo source = Uint16Source();
  cv::Mat image(1100, 1000, CV_64FC3);
  for (int r = 0; r < image.rows; ++r) {
    for (int i = 0; i < 3000; ++i) {
      image.ptr<double>(r)[i] = ((r * 3000 + i) % 60013) / 65535.0;
    }
  }
  const ParsedFits file = Write(image, &source);
  const auto stored = FromBigEndian<std::int16_t>(file.data);
  ASSERT_EQ(stored.size(), 3300000U);
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < stored.size(); ++i) {
    const std::size_t position = (i % 1100000) * 3 + i / 1100000;
    wrong += stored[i] + 32768 != static_cast<int>(position % 60013) ? 1 : 0;
  }
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(file.Number("DATAMAX"), 60012.0);
}

// --- Clipping ---

TEST_F(FitsWriterTest, ClippedSamplesAreCountedInReportAndHistory) {
  const SourceImageInfo source = Uint16Source();
  const ParsedFits file = Write(Row({-0.1, 0.2, 1.2}), &source);
  // 0.2 * 65535 = 13107
  EXPECT_THAT(FromBigEndian<std::int16_t>(file.data), ElementsAre(-32768, 13107 - 32768, 32767));
  EXPECT_TRUE(report_.isQuantised);
  EXPECT_EQ(report_.clipped, 2U);
  EXPECT_EQ(report_.clippedAtUpperLimit, 1U);
  EXPECT_THAT(file.History(), testing::Contains("Integer FITS output storage-clipped samples=2"));
}

TEST_F(FitsWriterTest, SamplesClippedAtTheLowerLimitAreCountedToo) {
  const SourceImageInfo source = Uint16Source();
  Write(Row({-0.1, 0.5}), &source, OutputRole::kDifference);
  EXPECT_EQ(report_.clipped, 1U);
  EXPECT_EQ(report_.clippedAtUpperLimit, 0U);
}

TEST_F(FitsWriterTest, FloatStorageClipsNothing) {
  const SourceImageInfo source = FloatSource();
  const ParsedFits file = Write(Row({-0.1, 1.2}), &source);
  EXPECT_THAT(FromBigEndian<float>(file.data), ElementsAre(-0.1F, 1.2F));
  EXPECT_FALSE(report_.isQuantised);
  EXPECT_EQ(report_.clipped, 0U);
}

// --- Header ---

TEST_F(FitsWriterTest, CardsOfTheSourceFollowInTheirOrder) {
  SourceImageInfo source = Uint16Source();
  const std::vector<std::string> kept{FitsCard("OBJECT", "'M 31    '"),
                                      RawCard(""),
                                      RawCard("COMMENT one / two"),
                                      FitsCard("OBJECT", "'M 32    '"),
                                      RawCard("HIERARCH ESO TEL ALT = 45.0 / [deg]"),
                                      RawCard("LONGTEXT= 'begin&'"),
                                      RawCard("CONTINUE  'end' / comment"),
                                      RawCard("HISTORY before"),
                                      RawCard("EXTNAME = 'SCI     '")};
  source.fits.headerCards = {FitsCard("XTENSION", "'IMAGE   '"),
                             FitsCard("BITPIX", 16),
                             FitsCard("NAXIS", 2),
                             FitsCard("NAXIS1", 5),
                             FitsCard("NAXIS2", 5),
                             FitsCard("PCOUNT", 0),
                             FitsCard("GCOUNT", 1),
                             FitsCard("BLANK", -7),
                             FitsCard("DATAMIN", 3),
                             FitsCard("CHECKSUM", "'x'")};
  source.fits.headerCards.insert(source.fits.headerCards.end(), kept.begin(), kept.end());
  const ParsedFits file = Write(Row({0.5}), &source);
  const std::vector<std::string> expectedStart{FitsCard("SIMPLE", "T"), FitsCard("BITPIX", 16),
                                               FitsCard("NAXIS", 2),    FitsCard("NAXIS1", 1),
                                               FitsCard("NAXIS2", 1),   FitsCard("EXTEND", "T")};
  for (std::size_t i = 0; i < expectedStart.size(); ++i) {
    EXPECT_EQ(file.cards[i].substr(0, 30), expectedStart[i].substr(0, 30));
  }
  EXPECT_EQ(test::FitsCard("BSCALE", "1.").substr(0, 30), file.cards[6].substr(0, 30));
  EXPECT_EQ(test::FitsCard("BZERO", "32768.").substr(0, 30), file.cards[7].substr(0, 30));
  EXPECT_TRUE(file.cards[8].starts_with("DATAMIN ="));
  EXPECT_TRUE(file.cards[9].starts_with("DATAMAX ="));
  EXPECT_EQ(std::vector<std::string>(file.cards.begin() + 10, file.cards.begin() + 19), kept);
  EXPECT_EQ(file.cards[19],
            RawCard("HISTORY Integer FITS: nearest storage-value rounding; source BSCALE/BZERO "
                    "preser"));
  EXPECT_EQ(file.cards[20], RawCard("HISTORY ved."));
  EXPECT_EQ(file.cards[21], RawCard("HISTORY Integer FITS output storage-clipped samples=0"));
  EXPECT_EQ(file.cards[22], RawCard("HISTORY Main image restored to source physical units."));
  EXPECT_EQ(file.cards[23], RawCard("CREATOR = 'NebulexAstro CLI'"));
  EXPECT_TRUE(file.cards[24].starts_with("CHECKSUM="));
  EXPECT_TRUE(file.cards[25].starts_with("DATASUM ="));
  EXPECT_EQ(file.cards.size(), 26U);
}

TEST_F(FitsWriterTest, ScalingCardsAreThoseOfTheSource) {
  SourceImageInfo source = Uint16Source();
  const std::string bscale = RawCard("BSCALE  =   1.0000000000000000 / scale");
  const std::string bzero = RawCard("BZERO   = 3.2768D4 /offset");
  source.fits.headerCards = {bscale, bzero};
  const ParsedFits file = Write(Row({0.5}), &source);
  EXPECT_EQ(file.Card("BSCALE"), bscale);
  EXPECT_EQ(file.Card("BZERO"), bzero);
}

TEST_F(FitsWriterTest, AScalingCardThatSaysSomethingElseIsNotKept) {
  SourceImageInfo source = Uint16Source();
  source.fits.headerCards = {RawCard("BZERO   = 'broken'")};
  EXPECT_EQ(Write(Row({0.5}), &source).Number("BZERO"), 32768.0);
}

TEST_F(FitsWriterTest, ScalingWithoutACardHas17Digits) {
  const SourceImageInfo source = Source(16, -32, 1.0, 0.1, 1.0 / 3.0);
  const ParsedFits file = Write(Row({0.5}), &source);
  EXPECT_EQ(file.Value("BSCALE"), "0.10000000000000001");
  EXPECT_EQ(file.Value("BZERO"), "0.33333333333333331");
}

TEST_F(FitsWriterTest, ExtremaHave17DigitsAndAgreeWhenReadBack) {
  const SourceImageInfo source = Source(-64, -64, 1.0);
  const ParsedFits file = Write(Row({0.1, 1.0 / 3.0, 0.2}), &source);
  EXPECT_EQ(file.Value("DATAMIN"), "0.10000000000000001");
  EXPECT_EQ(file.Value("DATAMAX"), "0.33333333333333331");
  const test::FitsImage read = test::ReadFits(Path(), false);
  EXPECT_EQ(read.info.dataMin, read.report.range->image.minimum);
  EXPECT_EQ(read.info.dataMax, read.report.range->image.maximum);
}

TEST_F(FitsWriterTest, AValueEqualToTheOldBlankStaysAValue) {
  const std::string bytes = test::FitsImageHdu<std::int16_t>(
      16, {2, 1}, {5, 6}, {FitsCard("BZERO", 32768), FitsCard("BLANK", 7)});
  test::WriteFileBytes(Path("in.fits"), bytes);
  SourceImageInfo source = Uint16Source();
  source.fits = test::ReadFits(Path("in.fits"), false).info;
  // 32775 is stored as 7.
  const ParsedFits file = Write(Row({32775.0 / 65535.0}), &source);
  EXPECT_THAT(FromBigEndian<std::int16_t>(file.data), ElementsAre(7));
  EXPECT_FALSE(file.Has("BLANK"));
  EXPECT_EQ(test::ReadFits(Path(), true).image.at<double>(0, 0), 32775.0 / 65535.0);
}

TEST_F(FitsWriterTest, BoilerplateCommentsAreNotAddedAgain) {
  SourceImageInfo source = FloatSource();
  EXPECT_FALSE(Write(Row({0.5}), &source).Has("COMMENT"));
  const std::string comment =
      RawCard("COMMENT   FITS (Flexible Image Transport System) format is defined in 'Astronomy");
  source.fits.headerCards = {comment};
  EXPECT_EQ(Write(Row({0.5}), &source).Card("COMMENT"), comment);
}

TEST_F(FitsWriterTest, CreatorAndUnitReplaceThoseOfTheSource) {
  SourceImageInfo source = FloatSource();
  source.fits.headerCards = {FitsCard("CREATOR", "'camera  '"), FitsCard("BUNIT", "'adu     '")};
  const ParsedFits file = Write(Row({0.5}), &source, OutputRole::kUnscreen);
  EXPECT_EQ(file.Value("CREATOR"), "'NebulexAstro CLI'");
  EXPECT_EQ(file.Value("BUNIT"), "'1       '");
  EXPECT_EQ(Write(Row({0.5}), &source).Value("BUNIT"), "'adu     '");
}

TEST_F(FitsWriterTest, ACardWithAForbiddenKeywordIsKeptAsComment) {
  SourceImageInfo source = FloatSource();
  source.fits.headerCards = {RawCard("MY KEY  = 5"), RawCard("lower   = 6")};
  const ParsedFits file = Write(Row({0.5}), &source);
  EXPECT_EQ(file.Card("COMMENT"), RawCard("COMMENT MY KEY  = 5"));
  EXPECT_EQ(file.Card("LOWER"), RawCard("LOWER   = 6"));
}

TEST_F(FitsWriterTest, ALongHeaderMovesNoPixels) {
  SourceImageInfo source = Uint16Source();
  for (int i = 0; i < 500; ++i) {
    source.fits.headerCards.push_back(FitsCard("KEY" + std::to_string(i), i));
  }
  const ParsedFits file = Write(Row({0.0, 1.0}), &source);
  EXPECT_THAT(FromBigEndian<std::int16_t>(file.data), ElementsAre(-32768, 32767));
  // 517 cards and END take 15 blocks; nothing was left over.
  EXPECT_EQ(file.cards.size(), 517U);
  EXPECT_EQ(file.fileSize, 16U * 2880U);
}

// --- Rows ---

// Samples k / 255 for k = 0, 1, 2 … in the order of an interleaved image.
cv::Mat CountingImage(int rows, int columns, int channels) {
  cv::Mat image(rows, columns, CV_MAKETYPE(CV_64F, channels));
  double k = 0.0;
  for (double* sample = image.ptr<double>();
       sample != image.ptr<double>() + rows * columns * channels; ++sample) {
    *sample = k++ / 255.0;
  }
  return image;
}

// What the file holds after the rows have been given in bands of these heights.
std::vector<std::uint8_t> StoredFromBands(const std::string& path, const cv::Mat& image,
                                          const SourceImageInfo& source,
                                          const std::vector<int>& heights) {
  FitsWriter writer(path, {.size = image.size(),
                           .channels = image.channels(),
                           .isGrayscale = image.channels() == 1,
                           .source = &source});
  int first = 0;
  for (const int height : heights) {
    writer.Append(image.rowRange(first, first + height));
    first += height;
  }
  EXPECT_TRUE(writer.Finish().isQuantised);
  return FromBigEndian<std::uint8_t>(test::ParseFitsFile(path).data);
}

TEST_F(FitsWriterTest, RowsOfAPlaneComeInBands) {
  std::vector<std::uint8_t> expected(20);
  std::iota(expected.begin(), expected.end(), std::uint8_t{0});
  EXPECT_EQ(StoredFromBands(Path(), CountingImage(5, 4, 1), Uint8Source(), {1, 3, 1}), expected);
}

TEST_F(FitsWriterTest, RowsOfACubeGrowAllItsPlanes) {
  std::vector<std::uint8_t> expected;
  for (int plane = 0; plane < 3; ++plane) {
    for (int pixel = 0; pixel < 20; ++pixel) {
      expected.push_back(static_cast<std::uint8_t>(3 * pixel + plane));
    }
  }
  const SourceImageInfo source = Sized(Uint8Source(), 4, 5, true);
  EXPECT_EQ(StoredFromBands(Path(), CountingImage(5, 4, 3), source, {2, 2, 1}), expected);
}

TEST_F(FitsWriterTest, RowsOfAnInterleavedCubeFollowEachOther) {
  std::vector<std::uint8_t> expected(60);
  std::iota(expected.begin(), expected.end(), std::uint8_t{0});
  SourceImageInfo source = Uint8Source();
  source.fits.naxis = 3;
  source.fits.naxes = {3, 4, 5};
  EXPECT_EQ(StoredFromBands(Path(), CountingImage(5, 4, 3), source, {4, 1}), expected);
}

TEST_F(FitsWriterTest, PlanesLargerThanABlockLieBehindEachOther) {
  const cv::Mat image(100, 1000, CV_32FC3, cv::Scalar(0.25, 0.5, 0.75));
  FitsWriter writer(Path(), {.size = image.size(), .channels = 3});
  for (int row = 0; row < 100; row += 10) {
    writer.Append(image.rowRange(row, row + 10));
  }
  writer.Finish();
  std::vector<float> expected(100000, 0.25F);
  expected.resize(200000, 0.5F);
  expected.resize(300000, 0.75F);
  EXPECT_EQ(FromBigEndian<float>(test::ParseFitsFile(Path()).data), expected);
}

TEST_F(FitsWriterTest, WithoutItsEndAFileIsNoResult) {
  test::WriteFileBytes(Path(), "old");
  {
    FitsWriter writer(Path(), {.size = {2, 2}});
    writer.Append(cv::Mat(1, 2, CV_32FC1, cv::Scalar(0.5)));
    EXPECT_THROW(writer.Finish(), cv::Exception);
  }
  EXPECT_EQ(test::ReadFileBytes(Path()), "old");
  EXPECT_EQ(folder_.FileCount(), 1);
}

TEST_F(FitsWriterTest, RowsMustFitTheImage) {
  FitsWriter writer(Path(), {.size = {2, 2}});
  EXPECT_THROW(writer.Append(cv::Mat(3, 2, CV_32FC1, cv::Scalar(0.5))), cv::Exception);
  EXPECT_THROW(writer.Append(cv::Mat(1, 3, CV_32FC1, cv::Scalar(0.5))), cv::Exception);
  EXPECT_THROW(writer.Append(cv::Mat(1, 2, CV_32FC3, cv::Scalar::all(0.5))), cv::Exception);
}

// --- Linear runs ---

LinearOutputInfo Linear(const std::vector<double>& shadows) {
  LinearOutputInfo linear;
  linear.shadows = shadows;
  return linear;
}

TEST_F(FitsWriterTest, SamplesOfTheSourceComeOutAsTheyWereStored) {
  const SourceImageInfo source = Sized(Source(32, 32, 2147483647.0), 3, 1);
  const LinearOutputInfo linear = Linear({0.5});
  const cv::Mat image = Row({-12345.0 / 2147483647.0, 1000000007.0 / 2147483647.0, 0.25});
  const ParsedFits file = Write(image, &source, OutputRole::kMain, &linear);
  // 0.25 * 2147483647 = 536870911.75
  EXPECT_THAT(FromBigEndian<std::int32_t>(file.data), ElementsAre(-12345, 1000000007, 536870912));
}

TEST_F(FitsWriterTest, LinearHistoryStandsBetweenEncodingAndRole) {
  LinearOutputInfo linear;
  linear.divisor = 65535.0;
  linear.upperClipped = 42;
  linear.shadows = {0.1, 0.25, 1.0 / 3.0};
  const SourceImageInfo source = Sized(Uint16Source(), 1, 1, true);
  const cv::Mat image(1, 1, CV_64FC3, cv::Scalar::all(0.5));
  const ParsedFits file = Write(image, &source, OutputRole::kMain, &linear);
  EXPECT_THAT(
      file.History(),
      ElementsAre("Integer FITS: nearest storage-value rounding; source BSCALE/BZERO preser",
                  "ved.", "Integer FITS output storage-clipped samples=0",
                  "Linear FITS: fixed divisor=65535 upper-clipped samples=42; no observed-r",
                  "ange rescaling.", "Linear FITS shadows channel 1=0.10000000000000001",
                  "Linear FITS shadows channel 2=0.25",
                  "Linear FITS shadows channel 3=0.33333333333333331",
                  "Main image restored to source physical units."));
}

TEST_F(FitsWriterTest, LinearGeometryMustBeTheSources) {
  const LinearOutputInfo linear = Linear({0.1, 0.1, 0.1});
  constexpr const char* kMessage = "Linear FITS output geometry differs from the source.";
  const SourceImageInfo narrow = Sized(FloatSource(), 1, 1);
  ExpectFailure(Row({0.5, 0.5}), &narrow, kMessage, &linear);
  const SourceImageInfo high = Sized(FloatSource(), 2, 2);
  ExpectFailure(Row({0.5, 0.5}), &high, kMessage, &linear);
  const SourceImageInfo grey = Sized(FloatSource(), 2, 1);
  ExpectMessage<std::invalid_argument>(
      [&] {
        WriteFitsOutput(Path(), cv::Mat(1, 2, CV_64FC3, cv::Scalar::all(0.5)), true, &grey,
                        OutputRole::kMain, &linear);
      },
      kMessage);
  EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(FitsWriterTest, LinearGeometryOfAnInterleavedSourceBeginsAtItsSecondAxis) {
  SourceImageInfo source = FloatSource();
  source.fits.naxis = 3;
  source.fits.naxes = {3, 2, 1};
  const LinearOutputInfo linear = Linear({0.1, 0.1, 0.1});
  const ParsedFits file =
      Write(cv::Mat(1, 2, CV_64FC3, cv::Scalar::all(0.5)), &source, OutputRole::kMain, &linear);
  EXPECT_EQ(file.Axes(), (Axes{3, 2, 1}));
}

TEST_F(FitsWriterTest, LinearThresholdsMustBeThere) {
  const LinearOutputInfo linear = Linear({0.1, 0.1});
  const SourceImageInfo source = Sized(FloatSource(), 1, 1, true);
  ExpectFailure(cv::Mat(1, 1, CV_64FC3, cv::Scalar::all(0.5)), &source,
                "Linear FITS output requires the actual MTF shadow thresholds.", &linear);
}

TEST_F(FitsWriterTest, ALinearRunWithoutFitsSourceWritesItsHistory) {
  LinearOutputInfo linear;
  linear.divisor = 255.0;
  const ParsedFits file = Write(Row({0.5}), nullptr, OutputRole::kMain, &linear);
  EXPECT_THAT(
      file.History(),
      ElementsAre("Linear FITS: fixed divisor=255 upper-clipped samples=0; no observed-rang",
                  "e rescaling.", "Main image restored to source physical units."));
}

// --- Refusals ---

TEST_F(FitsWriterTest, ChannelsMustBeOneOrThree) {
  ExpectFailure(cv::Mat(1, 1, CV_64FC4, cv::Scalar::all(0.5)), nullptr,
                "Unsupported number of FITS output channels: 4");
  ExpectMessage<std::invalid_argument>(
      [] { PreviewFitsOutput(cv::Mat(1, 1, CV_32FC2, cv::Scalar::all(0.5)), nullptr); },
      "Unsupported number of FITS output channels: 2");
}

TEST_F(FitsWriterTest, ASourceWithoutScaleIsRefused) {
  const SourceImageInfo source = Source(16, 16, 32767.0, 0.0);
  ExpectFailure(Row({0.5}), &source,
                "FITS integer output requires finite, nonzero source scaling.");
  EXPECT_EQ(folder_.FileCount(), 0);
}

TEST_F(FitsWriterTest, SamplesThatCannotBeStoredAreRefused) {
  const SourceImageInfo uint16 = Uint16Source();
  ExpectFailure(Row({std::nan("")}), &uint16,
                "Processed FITS value cannot be encoded in source storage units.");
  const SourceImageInfo float32 = FloatSource();
  ExpectFailure(Row({kInfinity}), &float32, "Processed FITS output contains a non-finite sample.");
  ExpectFailure(Row({1e39}), &float32,
                "Processed FITS physical value exceeds the source floating-point format.");
  const SourceImageInfo noScale = Source(-32, -32, 1.0, 0.0);
  ExpectFailure(Row({0.5}), &noScale,
                "Processed FITS physical value exceeds the source floating-point format.");
  EXPECT_EQ(folder_.FileCount(), 0);
}

// --- The file's place ---

TEST_F(FitsWriterTest, AFailureLeavesTheOldFile) {
  test::WriteFileBytes(Path(), "old");
  ExpectFailure(Row({std::nan("")}), nullptr,
                "Processed FITS output contains a non-finite sample.");
  EXPECT_EQ(test::ReadFileBytes(Path()), "old");
  EXPECT_EQ(folder_.FileCount(), 1);
}

TEST_F(FitsWriterTest, TheOldFileIsReplaced) {
  test::WriteFileBytes(Path(), "old");
  EXPECT_THAT(FromBigEndian<float>(Write(Row({0.5}), nullptr).data), ElementsAre(0.5F));
  EXPECT_EQ(folder_.FileCount(), 1);
}

TEST_F(FitsWriterTest, OnlyARegularFileIsReplaced) {
  std::filesystem::create_directory(Path());
  ExpectFailure(Row({0.5}), nullptr,
                "Unable to replace FITS output path: " + Path() + " (not a regular file)");
}

TEST_F(FitsWriterTest, AFileUsedAsAFolderCannotBeInspected) {
  test::WriteFileBytes(Path("file"), "x");
  ExpectMessage<std::invalid_argument>(
      [this] {
        WriteFitsOutput(Path("file/a.fits"), Row({0.5}), true, nullptr, OutputRole::kMain, nullptr);
      },
      "Unable to inspect FITS output path: " + Path("file/a.fits") + " (Not a directory)");
}

TEST_F(FitsWriterTest, AMissingFolderCannotHoldAnImage) {
  ExpectMessage<std::invalid_argument>(
      [this] {
        WriteFitsOutput(Path("missing/a.fits"), Row({0.5}), true, nullptr, OutputRole::kMain,
                        nullptr);
      },
      "Creating image failed for FITS image " + Path("missing/a.fits") +
          ": No such file or directory");
}

TEST_F(FitsWriterTest, AFullDiskIsAnErrorThatNamesTheResult) {
  const cv::Mat image(1000, 1000, CV_32FC1, cv::Scalar(0.5));
  const test::FileSizeLimit limit(1000000);
  try {
    WriteFitsOutput(Path(), image, true, nullptr, OutputRole::kMain, nullptr);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& error) {
    EXPECT_THAT(std::string(error.what()),
                testing::HasSubstr(" failed for FITS image " + Path() + ": "));
  }
  EXPECT_EQ(folder_.FileCount(), 0);
}

TEST_F(FitsWriterTest, AFullDiskDuringCompressionIsAnErrorToo) {
  // Noise grows when it is compressed: the plain file just fits, the compressed one does not.
  cv::Mat noise(2880, 1500, CV_64FC1);
  std::uint32_t state = 1;
  for (double& sample : cv::Mat_<double>(noise)) {
    state = state * 1664525U + 1013904223U;
    sample = (static_cast<double>(state) - 2147483648.0) / 2147483647.0;
  }
  const SourceImageInfo source = Source(32, 32, 2147483647.0);
  const test::FileSizeLimit limit(2880 + 2880 * 1500 * 4);
  Write(noise, &source);
  ExpectMessage<std::invalid_argument>(
      [&] { WriteFitsOutput(Path("a.fits.gz"), noise, true, &source, OutputRole::kMain, nullptr); },
      "Compressing failed for FITS image " + Path("a.fits.gz") + ": File too large");
  EXPECT_EQ(folder_.FileCount(), 1);
}

TEST_F(FitsWriterTest, AGzPathIsReallyCompressed) {
  const SourceImageInfo source = Uint16Source();
  WriteFitsOutput(Path("a.fits.GZ"), Row({0.0, 1.0}), true, &source, OutputRole::kMain, nullptr);
  ASSERT_EQ(std::system(("gzip -dc '" + Path("a.fits.GZ") + "' > '" + Path("b") + "'").c_str()), 0);
  EXPECT_THAT(FromBigEndian<std::int16_t>(test::ParseFitsFile(Path("b")).data),
              ElementsAre(-32768, 32767));
  EXPECT_EQ(folder_.FileCount(), 2);
}

// What happened to the names of a folder since this was created: "create", "delete" or "move" for
// each, in order.
class FolderWatch {
 public:
  explicit FolderWatch(const std::string& folder) : file_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    inotify_add_watch(file_.Get(), folder.c_str(), IN_CREATE | IN_DELETE | IN_MOVED_TO);
  }

  [[nodiscard]] std::vector<std::string> Events() const {
    alignas(inotify_event) std::array<char, 16384> bytes{};
    const ssize_t size = read(file_.Get(), bytes.data(), bytes.size());
    std::vector<std::string> events;
    for (ssize_t i = 0; i < size;) {
      inotify_event event{};
      std::memcpy(&event, bytes.data() + i, sizeof event);
      i += static_cast<ssize_t>(sizeof event + event.len);
      events.emplace_back((event.mask & IN_CREATE) != 0   ? "create"
                          : (event.mask & IN_DELETE) != 0 ? "delete"
                                                          : "move");
    }
    return events;
  }

 private:
  FileDescriptor file_;
};

// A file that is created a second time under a name that was free meanwhile could follow a link
// that somebody has put there.
TEST_F(FitsWriterTest, TheFileIsCreatedOnceAndMovedToItsPlace) {
  const FolderWatch watch(folder_.Folder());
  Write(Row({0.5}), nullptr);
  EXPECT_THAT(watch.Events(), ElementsAre("create", "move"));
}

TEST_F(FitsWriterTest, ACompressedFileIsCreatedBesideThePlainOneThatHasNoNameAnyMore) {
  const FolderWatch watch(folder_.Folder());
  WriteFitsOutput(Path("a.fits.gz"), Row({0.5}), true, nullptr, OutputRole::kMain, nullptr);
  EXPECT_THAT(watch.Events(), ElementsAre("create", "delete", "create", "move"));
}

TEST_F(FitsWriterTest, TheResultHasThePermissionsOfTheFileItReplaces) {
  for (const std::string name : {"a.fits", "a.fits.gz"}) {
    for (const auto mode : {std::filesystem::perms(0400), std::filesystem::perms(0640)}) {
      test::WriteFileBytes(Path(name), "old");
      std::filesystem::permissions(Path(name), mode);
      WriteFitsOutput(Path(name), Row({0.5}), true, nullptr, OutputRole::kMain, nullptr);
      EXPECT_EQ(std::filesystem::status(Path(name)).permissions(), mode) << name;
      std::filesystem::remove(Path(name));
    }
  }
}

TEST_F(FitsWriterTest, NamesAreLiteral) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.Folder());
  for (const std::string name :
       {"m31[1].fits", "a+1.fits", " a.fits", "!a.fits", "~a.fits", "a b.fits", "a(b).fits",
        "mem:.fits", "stdout", "-.fits", "\xF0\x9F\x90\xBE.fits", "~/a.fits"}) {
    if (name.find('/') != std::string::npos) {
      std::filesystem::create_directory("~");
    }
    WriteFitsOutput(name, Row({0.5}), true, nullptr, OutputRole::kMain, nullptr);
    EXPECT_EQ(test::ParseFitsFile(name).Axes(), (Axes{1, 1})) << name;
  }
  std::filesystem::current_path(before);
}

// --- Preview ---

TEST(PreviewFitsOutput, HoldsTheStoredValuesNormalised) {
  const SourceImageInfo source = Uint8Source();
  const cv::Mat preview = PreviewFitsOutput(Row({0.1, 0.5, 1.0}), &source);
  EXPECT_EQ(preview.type(), CV_64FC1);
  // 25.5 is stored as 26, 127.5 as 128.
  EXPECT_EQ(preview.at<double>(0, 0), 26.0 / 255.0);
  EXPECT_EQ(preview.at<double>(0, 1), 128.0 / 255.0);
  EXPECT_EQ(preview.at<double>(0, 2), 1.0);
}

TEST(PreviewFitsOutput, IsFloat32WithoutFitsSource) {
  const cv::Mat preview = PreviewFitsOutput(Row({0.1}), nullptr);
  EXPECT_EQ(preview.at<double>(0, 0), static_cast<double>(0.1F));
}

TEST(PreviewFitsOutput, ScalesAsTheFileDoes) {
  const SourceImageInfo source = Source(16, -32, 1.0, 0.25, 0.5);
  const cv::Mat preview = PreviewFitsOutput(Row({0.75, 0.6}), &source);
  EXPECT_EQ(preview.at<double>(0, 0), 0.75);
  EXPECT_EQ(preview.at<double>(0, 1), 0.5);
}

TEST_F(FitsWriterTest, ThePreviewEqualsWhatTheFileReadsBack) {
  cv::Mat image(20, 30, CV_64FC3);
  cv::theRNG().state = 7;
  cv::randu(image, -0.2, 1.2);
  for (const SourceImageInfo& source :
       {Uint8Source(), Uint16Source(), FloatSource(), Source(-64, -64, 1.0, 4.0, 0.5),
        Source(32, 40, 4294967295.0, 1.0, 2147483648.0), Source(16, -32, 1.0, -0.001, 0.5)}) {
    const cv::Mat preview = PreviewFitsOutput(image, &source);
    Write(image, &source);
    const cv::Mat read = test::ReadFits(Path(), true).image;
    EXPECT_EQ(cv::norm(cv::min(preview, 1.0), read, cv::NORM_INF), 0.0) << source.fits.bitpix;
  }
}

}  // namespace
}  // namespace project_lumen::io
