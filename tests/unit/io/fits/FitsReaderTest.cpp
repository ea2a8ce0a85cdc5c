#include "io/fits/FitsReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/ExpectMessage.h"
#include "support/FitsBytes.h"
#include "support/ReadFits.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

using test::ArrayCards;
using test::ExpectMessage;
using test::FitsCard;
using test::FitsHdu;
using test::FitsImage;
using test::FitsImageHdu;
using test::FitsTableHdu;
using test::RawCard;
using testing::ElementsAre;

using Axes = std::vector<std::int64_t>;

constexpr double kTwoTo63 = 9223372036854775808.0;

class FitsReaderTest : public testing::Test {
 protected:
  FitsImage Read(const std::string& path, bool linear) {
    FitsImage result;
    report_ = {};
    result.image = ReadFitsImage(path, linear, result.info, report_);
    return result;
  }
  FitsImage ReadBytes(const std::string& bytes, bool linear = false,
                      const std::string& name = "a.fits") {
    test::WriteFileBytes(Path(name), bytes);
    return Read(Path(name), linear);
  }
  template <typename T>
  FitsImage ReadImage(int bitpix, const Axes& axes, const std::vector<T>& values,
                      const std::vector<std::string>& cards = {}, bool linear = false) {
    return ReadBytes(FitsImageHdu(bitpix, axes, values, cards), linear);
  }
  [[nodiscard]] std::string Path(const std::string& name = "a.fits") const {
    return folder_.Path(name);
  }
  void ExpectFailure(const std::string& bytes, const std::string& message, bool linear = false) {
    ExpectMessage<std::invalid_argument>([&] { ReadBytes(bytes, linear); }, message);
  }

  test::TemporaryFolder folder_;
  InputReport report_;  // of the last read
};

template <typename T>
std::vector<T> Samples(const cv::Mat& image) {
  return {image.ptr<T>(),
          image.ptr<T>() + image.total() * static_cast<std::size_t>(image.channels())};
}

std::vector<std::string> OffsetCards(const std::string& bzero) {
  return {FitsCard("BSCALE", 1), FitsCard("BZERO", bzero)};
}

const std::string kEmptyPrimary = FitsHdu(ArrayCards(8, {}, {FitsCard("EXTEND", "T")}), "");

// --- Storage types ---

TEST_F(FitsReaderTest, Uint8SamplesAreDividedBy255) {
  const FitsImage result = ReadImage<std::uint8_t>(8, {3, 1}, {0, 51, 255});
  EXPECT_EQ(result.image.type(), CV_32FC1);
  // 51 * (1/255), with the product in double
  EXPECT_THAT(Samples<float>(result.image),
              ElementsAre(0.0F, static_cast<float>(51.0 * 0.0039215686274509803), 1.0F));
  EXPECT_EQ(result.info.equivalentType, 8);
  EXPECT_EQ(result.info.fixedDivisor, 255.0);
}

TEST_F(FitsReaderTest, Int8SamplesAreDividedBy127) {
  const FitsImage result = ReadImage<std::uint8_t>(8, {3, 1}, {1, 128, 255}, OffsetCards("-128"));
  EXPECT_THAT(Samples<float>(result.image), ElementsAre(-1.0F, 0.0F, 1.0F));
  EXPECT_EQ(result.info.equivalentType, 10);
}

TEST_F(FitsReaderTest, Uint16SamplesAreDividedBy65535) {
  const FitsImage result =
      ReadImage<std::int16_t>(16, {3, 1}, {-32768, -32767, 32767}, OffsetCards("32768"));
  EXPECT_THAT(Samples<float>(result.image),
              ElementsAre(0.0F, static_cast<float>(1.5259021896696422e-05), 1.0F));
  EXPECT_EQ(result.info.equivalentType, 20);
  EXPECT_EQ(result.info.bzero, 32768.0);
}

TEST_F(FitsReaderTest, Int16SamplesAreDividedBy32767AndMayBeNegative) {
  const FitsImage result = ReadImage<std::int16_t>(16, {2, 1}, {-32767, 32767});
  EXPECT_THAT(Samples<float>(result.image), ElementsAre(-1.0F, 1.0F));
  EXPECT_EQ(result.info.equivalentType, 16);
}

TEST_F(FitsReaderTest, Int32SamplesAreRoundedToFloatBeforeTheProduct) {
  const FitsImage result = ReadImage<std::int32_t>(32, {2, 1}, {2147483647, 16777217});
  // float32 has 2^31 for the first and 2^24 for the second.
  EXPECT_THAT(Samples<float>(result.image),
              ElementsAre(static_cast<float>(2147483648.0 * (1.0 / 2147483647.0)),
                          static_cast<float>(16777216.0 * (1.0 / 2147483647.0))));
  EXPECT_EQ(result.info.fixedDivisor, 2147483647.0);
}

TEST_F(FitsReaderTest, Uint32SamplesAreDividedByTheirMaximum) {
  const FitsImage result =
      ReadImage<std::int32_t>(32, {2, 1}, {-2147483648, 0}, OffsetCards("2147483648"));
  EXPECT_THAT(Samples<float>(result.image),
              ElementsAre(0.0F, static_cast<float>(2147483648.0 * (1.0 / 4294967295.0))));
  EXPECT_EQ(result.info.equivalentType, 40);
}

TEST_F(FitsReaderTest, Int64SamplesAreDividedByTwoTo63) {
  const FitsImage result = ReadImage<std::int64_t>(
      64, {3, 1}, {0, std::int64_t{1} << 62, std::numeric_limits<std::int64_t>::max()});
  EXPECT_THAT(Samples<float>(result.image), ElementsAre(0.0F, 0.5F, 1.0F));
  EXPECT_EQ(result.info.equivalentType, 64);
  EXPECT_EQ(result.info.fixedDivisor, kTwoTo63);
}

TEST_F(FitsReaderTest, Uint64IsCalledInt64AndHasItsDivisor) {
  const FitsImage result = ReadImage<std::int64_t>(
      64, {3, 1}, {std::numeric_limits<std::int64_t>::min(), -(std::int64_t{1} << 62), 0},
      OffsetCards("9223372036854775808"));
  EXPECT_THAT(Samples<float>(result.image), ElementsAre(0.0F, 0.5F, 1.0F));
  EXPECT_EQ(result.info.equivalentType, 64);
  EXPECT_EQ(report_.storedType, "int64");
  EXPECT_EQ(report_.equivalentType, "int64");
}

TEST_F(FitsReaderTest, FloatSamplesStay) {
  const FitsImage result = ReadImage<float>(-32, {3, 1}, {0.0F, 0.1F, 1.0F});
  EXPECT_THAT(Samples<float>(result.image), ElementsAre(0.0F, 0.1F, 1.0F));
  EXPECT_TRUE(result.info.isFloat);
  EXPECT_EQ(result.info.fixedDivisor, 1.0);
}

TEST_F(FitsReaderTest, DoubleSamplesAreRoundedToFloat) {
  const FitsImage result = ReadImage<double>(-64, {2, 1}, {0.1, 1.0});
  EXPECT_THAT(Samples<float>(result.image), ElementsAre(0.1F, 1.0F));
  EXPECT_EQ(result.info.bitpix, -64);
}

TEST_F(FitsReaderTest, ScaledIntegersKeepTheirPhysicalValues) {
  const FitsImage result = ReadImage<std::int16_t>(
      16, {2, 1}, {3, -1}, {FitsCard("BSCALE", "0.25"), FitsCard("BZERO", "0.5")});
  EXPECT_THAT(Samples<float>(result.image), ElementsAre(1.25F, 0.25F));
  EXPECT_EQ(result.info.equivalentType, -32);
  EXPECT_EQ(result.info.fixedDivisor, 1.0);
  EXPECT_FALSE(result.info.isFloat);
}

TEST_F(FitsReaderTest, ScaledFloatsAreScaledOnce) {
  const FitsImage result = ReadImage<float>(-32, {2, 1}, {0.0F, 2.0F},
                                            {FitsCard("BSCALE", "0.25"), FitsCard("BZERO", "0.5")});
  EXPECT_THAT(Samples<float>(result.image), ElementsAre(0.5F, 1.0F));
}

TEST_F(FitsReaderTest, LinearReadingDividesInDouble) {
  const FitsImage result =
      ReadImage<std::int16_t>(16, {2, 1}, {-32767, 32767}, OffsetCards("32768"), true);
  EXPECT_EQ(result.image.type(), CV_64FC1);
  EXPECT_THAT(Samples<double>(result.image), ElementsAre(1.0 / 65535.0, 1.0));
}

TEST_F(FitsReaderTest, LinearReadingKeepsNegatives) {
  const FitsImage result = ReadImage<double>(-64, {2, 1}, {-0.25, 0.5}, {}, true);
  EXPECT_THAT(Samples<double>(result.image), ElementsAre(-0.25, 0.5));
  EXPECT_EQ(result.info.upperClipped, 0U);
  EXPECT_EQ(report_.range->image.minimum, -0.25);
}

// --- Layout ---

TEST_F(FitsReaderTest, FirstFitsRowIsTheFirstImageRow) {
  const FitsImage result = ReadImage<std::uint8_t>(8, {2, 3}, {0, 1, 2, 3, 4, 5});
  EXPECT_EQ(result.image.size(), cv::Size(2, 3));
  EXPECT_EQ(result.image.at<float>(2, 1), static_cast<float>(5.0 * (1.0 / 255.0)));
  EXPECT_EQ(result.info.naxis, 2);
  EXPECT_EQ(result.info.naxes[0], 2);
  EXPECT_EQ(result.info.naxes[1], 3);
}

TEST_F(FitsReaderTest, PlanesOfACubeBecomeChannels) {
  const FitsImage result = ReadImage<std::uint8_t>(
      8, {2, 2, 3}, {10, 11, 12, 13, 20, 21, 22, 23, 30, 31, 32, 33}, {}, true);
  EXPECT_EQ(result.image.type(), CV_64FC3);
  EXPECT_EQ(result.image.at<cv::Vec3d>(0, 1), cv::Vec3d(11 / 255.0, 21 / 255.0, 31 / 255.0));
  EXPECT_EQ(result.image.at<cv::Vec3d>(1, 0), cv::Vec3d(12 / 255.0, 22 / 255.0, 32 / 255.0));
  EXPECT_TRUE(result.info.planarCube);
  EXPECT_EQ(result.info.naxes[2], 3);
}

TEST_F(FitsReaderTest, ColourOnTheFirstAxisIsInterleaved) {
  const FitsImage result = ReadImage<std::uint8_t>(8, {3, 2, 1}, {1, 2, 3, 4, 5, 6}, {}, true);
  EXPECT_EQ(result.image.size(), cv::Size(2, 1));
  EXPECT_EQ(result.image.at<cv::Vec3d>(0, 1), cv::Vec3d(4 / 255.0, 5 / 255.0, 6 / 255.0));
  EXPECT_FALSE(result.info.planarCube);
}

TEST_F(FitsReaderTest, ThreeOnBothEndsIsThreePlanes) {
  std::vector<std::uint8_t> values(18);
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = static_cast<std::uint8_t>(i);
  }
  const FitsImage result = ReadImage(8, {3, 2, 3}, values, {}, true);
  EXPECT_EQ(result.image.size(), cv::Size(3, 2));
  EXPECT_EQ(result.image.at<cv::Vec3d>(0, 1), cv::Vec3d(1 / 255.0, 7 / 255.0, 13 / 255.0));
}

TEST_F(FitsReaderTest, CubesOfOtherDepthsAreRefusedBeforeTheirPixelsAreRead) {
  const std::string whole =
      FitsImageHdu<std::uint8_t>(8, {2, 2, 4}, std::vector<std::uint8_t>(16, 7));
  for (const std::string& bytes : {whole, whole.substr(0, test::kFitsBlock)}) {
    ExpectFailure(bytes, "Unsupported FITS cube dimensions in " + Path() +
                             ". Only 2D images and simple 3-channel RGB cubes are supported.");
    EXPECT_EQ(report_.axes, (Axes{2, 2, 4}));
    EXPECT_FALSE(report_.range.has_value());
  }
}

TEST_F(FitsReaderTest, AnImageLargerThanOneReadIsWhole) {
  // 3 planes of 1.1 million samples, each sample its position modulo 60013
  const std::int64_t width = 1100;
  const std::int64_t height = 1000;
  std::vector<std::int16_t> values(static_cast<std::size_t>(width * height * 3));
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = static_cast<std::int16_t>(static_cast<int>(i % 60013) - 32768);
  }
  const FitsImage result = ReadImage(16, {width, height, 3}, values, OffsetCards("32768"), true);
  std::size_t wrong = 0;
  for (int r = 0; r < height; ++r) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < 3; ++c) {
        const auto position = static_cast<std::size_t>((c * height + r) * width + x);
        wrong +=
            result.image.at<cv::Vec3d>(r, x)[c] != static_cast<double>(position % 60013) / 65535.0
                ? 1
                : 0;
      }
    }
  }
  EXPECT_EQ(wrong, 0U);
}

TEST_F(FitsReaderTest, AnImageExtensionBehindAnEmptyPrimaryIsRead) {
  const FitsImage result = ReadBytes(
      kEmptyPrimary + FitsTableHdu() +
      FitsImageHdu<std::uint8_t>(8, {1, 1}, {255}, {FitsCard("OBJECT", "'B       '")}, true));
  EXPECT_EQ(result.image.at<float>(0, 0), 1.0F);
  EXPECT_EQ(result.info.headerCards.back(), FitsCard("OBJECT", "'B       '"));
}

TEST_F(FitsReaderTest, FourAxesAndEmptyAxesArePassedOver) {
  const FitsImage result = ReadBytes(FitsImageHdu<std::uint8_t>(8, {1, 1, 1, 1}, {9}) +
                                     FitsImageHdu<std::uint8_t>(8, {5, 0}, {}, {}, true) +
                                     FitsImageHdu<std::uint8_t>(8, {1, 1}, {255}, {}, true));
  EXPECT_EQ(result.image.at<float>(0, 0), 1.0F);
}

TEST_F(FitsReaderTest, GzipFilesAreReadWhateverTheirName) {
  const std::string bytes = FitsImageHdu<std::uint8_t>(8, {2, 1}, {51, 255});
  test::WriteFileBytes(Path("a.fits"), bytes);
  ASSERT_EQ(std::system(("gzip '" + Path("a.fits") + "'").c_str()), 0);
  std::filesystem::rename(Path("a.fits.gz"), Path("b.fits"));
  const FitsImage result = Read(Path("b.fits"), true);
  EXPECT_THAT(Samples<double>(result.image), ElementsAre(0.2, 1.0));
}

// --- Samples outside [0,1] ---

TEST_F(FitsReaderTest, IntegersOutsideTheRangeAreKept) {
  const FitsImage negative = ReadImage<std::int16_t>(16, {4, 1}, {-32767, -1, 0, 32767});
  EXPECT_THAT(Samples<float>(negative.image),
              ElementsAre(-1.0F, testing::FloatEq(-1.0F / 32767.0F), 0.0F, 1.0F));
  // 0.25 is no integer, so K is 1: physical -0.5, 0, 1, 2
  const FitsImage scaled = ReadImage<std::int16_t>(
      16, {4, 1}, {-4, -2, 2, 6}, {FitsCard("BSCALE", "0.25"), FitsCard("BZERO", "0.5")});
  EXPECT_THAT(Samples<float>(scaled.image), ElementsAre(-0.5F, 0.0F, 1.0F, 2.0F));
  EXPECT_EQ(report_.tooLarge, 0U);
}

TEST_F(FitsReaderTest, ScaledIntegersBeyondFloat32BecomeZeroAndAreCounted) {
  const FitsImage result =
      ReadImage<std::int16_t>(16, {5, 1}, {-2000, -1, 0, 1, 2000}, {FitsCard("BSCALE", "1E36")});
  EXPECT_THAT(Samples<float>(result.image), ElementsAre(0.0F, -1e36F, 0.0F, 1e36F, 0.0F));
  EXPECT_EQ(report_.tooLarge, 1U);
}

// --- Files that end inside their last block ---

// The message, with the file's path taken out; none when the file is read.
std::string Refusal(const std::string& path) {
  try {
    test::ReadFits(path, true);
    return "";
  } catch (const std::invalid_argument& error) {
    std::string message = error.what();
    return message.replace(message.find(path), path.size(), "PATH");
  }
}

class UnpaddedFitsTest : public FitsReaderTest {
 protected:
  // Writes the bytes to "plain.fits" and to "packed.fits.gz".
  void Write(const std::string& bytes) {
    test::WriteFileBytes(Path("packed.fits"), bytes);
    ASSERT_EQ(std::system(("gzip -f '" + Path("packed.fits") + "'").c_str()), 0);
    test::WriteFileBytes(Path("plain.fits"), bytes);
  }
  void ExpectBothRead(const std::vector<double>& samples) {
    for (const std::string name : {"plain.fits", "packed.fits.gz"}) {
      const cv::Mat image = Read(Path(name), true).image;
      EXPECT_EQ(Samples<double>(image), samples) << name;
    }
  }
  void ExpectBothRefused(const std::string& message) {
    EXPECT_EQ(Refusal(Path("plain.fits")), message);
    EXPECT_EQ(Refusal(Path("packed.fits.gz")), message);
  }
};

TEST_F(UnpaddedFitsTest, TheLastBlockNeedsNoPadding) {
  const std::string whole = FitsImageHdu<std::uint8_t>(8, {3, 1}, {0, 51, 255});
  for (const std::size_t padding : {0, 1, 2876}) {
    Write(whole.substr(0, test::kFitsBlock + 3 + padding));
    ExpectBothRead({0.0, 0.2, 1.0});
  }
}

TEST_F(UnpaddedFitsTest, LongerImagesNeedNoneEither) {
  std::vector<std::uint8_t> values(100'000);
  std::vector<double> samples(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = static_cast<std::uint8_t>(i % 251);
    samples[i] = static_cast<double>(i % 251) / 255.0;
  }
  const std::string whole = FitsImageHdu(8, {1000, 100}, values);
  Write(whole.substr(0, test::kFitsBlock + values.size()));
  ExpectBothRead(samples);
  Write(kEmptyPrimary +
        FitsImageHdu(8, {1000, 100}, values, {}, true).substr(0, test::kFitsBlock + values.size()));
  ExpectBothRead(samples);
}

TEST_F(UnpaddedFitsTest, WithoutTheLastByteOfTheImageBothAreRefused) {
  const std::string whole = FitsImageHdu<std::uint8_t>(8, {3, 1}, {0, 51, 255});
  Write(whole.substr(0, test::kFitsBlock + 2));
  ExpectBothRefused(
      "Reading double-precision physical pixels failed for FITS image PATH: tried to move past end "
      "of file");
}

TEST_F(UnpaddedFitsTest, BytesBehindTheImageDoNoHarm) {
  Write(FitsImageHdu<std::uint8_t>(8, {3, 1}, {0, 51, 255}) + "more");
  ExpectBothRead({0.0, 0.2, 1.0});
}

TEST_F(FitsReaderTest, NamesAreLiteral) {
  const std::string bytes = FitsImageHdu<std::uint8_t>(8, {1, 1}, {255});
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.Folder());
  for (const std::string name : {"m31[1].fits", "a+1.fits", " a.fits", "!a.fits", "~a.fits", "~",
                                 "a b.fits", "mem:", "stdin", "-", "a(b).fits", "http:", "file:",
                                 "\xF0\x9F\x90\xBE.fits", "a.fits,b.fits", "a.fits.gz"}) {
    test::WriteFileBytes(name, bytes);
    EXPECT_EQ(Read(name, false).image.total(), 1U) << name;
  }
  std::filesystem::current_path(before);
}

TEST_F(FitsReaderTest, NamesBeyondTheLimitAreRefused) {
  std::string path = folder_.Folder().string();
  for (int i = 0; i < 6; ++i) {
    path += "/" + std::string(200, 'd');
    std::filesystem::create_directory(path);
  }
  path += "/a.fits";
  test::WriteFileBytes(path, FitsImageHdu<std::uint8_t>(8, {1, 1}, {255}));
  ExpectMessage<std::invalid_argument>(
      [&] { Read(path, false); },
      "Opening failed for FITS image " + path + ": could not open the named file");
}

// --- Report ---

TEST_F(FitsReaderTest, ReportSaysWhatIsStored) {
  ReadImage<std::int16_t>(16, {2, 1}, {0, 32767});
  EXPECT_EQ(report_.format, "FITS");
  EXPECT_EQ(report_.storedType, "int16");
  EXPECT_THAT(report_.axes, ElementsAre(2, 1));
  EXPECT_EQ(report_.range->image.maximum, 32767.0);
  EXPECT_EQ(report_.undefined, 0U);
}

TEST_F(FitsReaderTest, HeaderCardsAreKeptInOrder) {
  const std::vector<std::string> cards{FitsCard("OBJECT", "'M 31    '"),
                                       RawCard(""),
                                       RawCard("COMMENT one"),
                                       RawCard("HIERARCH ESO TEL ALT = 45.0 / [deg]"),
                                       RawCard("LONGTEXT= 'begin&'"),
                                       RawCard("CONTINUE  'end'"),
                                       RawCard("HISTORY two")};
  const FitsImage result = ReadImage<std::uint8_t>(8, {1, 1}, {0}, cards);
  EXPECT_EQ(result.info.headerCards, ArrayCards(8, {1, 1}, cards));
}

TEST_F(FitsReaderTest, ScalingAndExtremaOfTheHeaderAreReturned) {
  const FitsImageInfo info =
      ReadImage<std::int16_t>(16, {2, 1}, {-32768, 0},
                              {FitsCard("BZERO", 32768), FitsCard("DATAMIN", "-0.5")})
          .info;
  EXPECT_EQ(info.bscale, 1.0);
  EXPECT_EQ(info.bzero, 32768.0);
  EXPECT_EQ(info.dataMin, -0.5);
  EXPECT_FALSE(info.dataMax.has_value());
  EXPECT_EQ(report_.range->image.minimum, 0.0);
  EXPECT_EQ(report_.range->image.maximum, 32768.0);
}

// --- Samples that are refused or clipped ---

TEST_F(FitsReaderTest, OneBlankPixelFailsTheRead) {
  ExpectFailure(FitsImageHdu<std::int16_t>(16, {2, 2}, {1, -5, 2, 3}, {FitsCard("BLANK", -5)}),
                "FITS input contains 1 non-finite/undefined source sample(s); repair the image "
                "upstream: " +
                    Path());
  EXPECT_EQ(report_.range->image.finite, 3U);
  EXPECT_EQ(report_.undefined, 1U);
}

TEST_F(FitsReaderTest, NanAndInfinityFailTheReadAndOnlyNanIsUndefined) {
  ExpectFailure(FitsImageHdu<float>(-32, {4, 1}, {0.5F, NAN, INFINITY, -INFINITY}),
                "FITS input contains 3 non-finite/undefined source sample(s); repair the image "
                "upstream: " +
                    Path());
  EXPECT_EQ(report_.range->image.finite, 1U);
  EXPECT_EQ(report_.undefined, 1U);
}

TEST_F(FitsReaderTest, AnImageWithoutAnyFiniteSampleHasNoExtrema) {
  ExpectFailure(FitsImageHdu<std::int64_t>(64, {1, 1}, {2}, {FitsCard("BLANK", 2)}),
                "FITS input contains 1 non-finite/undefined source sample(s); repair the image "
                "upstream: " +
                    Path(),
                true);
  EXPECT_EQ(report_.range->image.finite, 0U);
}

TEST_F(FitsReaderTest, FloatsMustBeNormalised) {
  ExpectFailure(FitsImageHdu<double>(-64, {2, 1}, {0.5, 1.25}),
                "Floating-point FITS input samples must be normalized to [0,1]. Observed finite "
                "range: [0.5, 1.25]. Normalize the image before invoking the CLI; header extrema "
                "are not used to rescale it.");
  ExpectFailure(
      FitsImageHdu<double>(-64, {2, 1}, {-0.5, 1.0},
                           {FitsCard("DATAMIN", "0.0"), FitsCard("DATAMAX", "65535.0")}),
      "Floating-point FITS input samples must be normalized to [0,1]. Observed finite range: "
      "[-0.5, 1]. Header diagnostics: DATAMIN=0 DATAMAX=65535. Normalize the image before invoking "
      "the CLI; header extrema are not used to rescale it.");
  ExpectFailure(FitsImageHdu<double>(-64, {1, 1}, {2.0}, {FitsCard("DATAMAX", "2.5")}),
                "Floating-point FITS input samples must be normalized to [0,1]. Observed finite "
                "range: [2, 2]. Header diagnostics: DATAMAX=2.5. Normalize the image before "
                "invoking the CLI; header extrema are not used to rescale it.");
}

TEST(CheckNormalizedFloatSamples, NoFiniteSampleIsAnErrorOfItsOwn) {
  ExpectMessage<std::invalid_argument>(
      [] { CheckNormalizedFloatSamples({}, std::nullopt, std::nullopt, "x.fits"); },
      "Floating-point FITS input contains no finite samples: x.fits");
}

TEST_F(FitsReaderTest, LinearReadingHoldsSamplesAtOneAndCountsThem) {
  const FitsImage result = ReadImage<double>(-64, {4, 1}, {-1.0, 0.5, 1.0, 1.2}, {}, true);
  EXPECT_THAT(Samples<double>(result.image), ElementsAre(-1.0, 0.5, 1.0, 1.0));
  EXPECT_EQ(result.info.upperClipped, 1U);
}

// --- Failing steps ---

TEST_F(FitsReaderTest, AMissingFileFailsToOpen) {
  ExpectMessage<std::invalid_argument>(
      [this] { Read(Path("missing.fits"), false); },
      "Opening failed for FITS image " + Path("missing.fits") + ": could not open the named file");
}

TEST_F(FitsReaderTest, AMissingFileIsNotLookedForUnderOtherNames) {
  test::WriteFileBytes(Path("a.fits"), FitsImageHdu<std::uint8_t>(8, {1, 1}, {255}));
  ASSERT_EQ(std::system(("gzip '" + Path("a.fits") + "'").c_str()), 0);
  ExpectMessage<std::invalid_argument>(
      [this] { Read(Path("a.fits"), false); },
      "Opening failed for FITS image " + Path("a.fits") + ": could not open the named file");
}

TEST_F(FitsReaderTest, FilesOfAnotherKindFailToOpen) {
  const std::string start = "Opening failed for FITS image " + Path() + ": ";
  ExpectFailure("", start + "tried to move past end of file");
  ExpectFailure("SIMPLE  =", start + "error reading from FITS file");
  ExpectFailure(std::string("II*\0\x08\0\0\0", 8) + std::string(3000, '\0'),
                start + "1st key not SIMPLE or XTENSION");
  ExpectFailure("\x1F\x8B\x08 not really", start + "error uncompressing image");
  ExpectFailure("PK\x03\x04" + std::string(3000, '\0'), start + "1st key not SIMPLE or XTENSION");
}

TEST_F(FitsReaderTest, NoImageIsAnErrorOfItsOwn) {
  const std::string message = "No supported image HDU found in FITS image: " + Path();
  ExpectFailure(kEmptyPrimary + FitsTableHdu(), message);
  ExpectFailure(FitsImageHdu<std::uint8_t>(8, {2, 2, 1, 1}, {1, 2, 3, 4}), message);
  ExpectFailure(FitsImageHdu<std::uint8_t>(8, {4}, {1, 2, 3, 4}), message);
  ExpectFailure(FitsImageHdu<std::uint8_t>(8, {4, 0}, {}), message);
  ExpectFailure(kEmptyPrimary + "rubbish", message);
}

TEST_F(FitsReaderTest, ClaimsBeyondTheFileAreRefusedBeforeAnythingIsAllocated) {
  const std::string message = "Reading double-precision physical pixels failed for FITS image " +
                              Path() + ": tried to move past end of file";
  ExpectFailure(FitsHdu(ArrayCards(16, {100000, 100000}, {}), "").substr(0, 2880) + "0123456789",
                message);
  EXPECT_EQ(report_.format, "FITS");
  EXPECT_FALSE(report_.range.has_value());
  ExpectFailure(FitsHdu(ArrayCards(-64, {3037000500, 3037000500, 3}, {}), "x"), message);
  ExpectFailure(FitsHdu(ArrayCards(8, {4294967296, 4294967296}, {}), "x"), message);
  ExpectFailure(FitsHdu(ArrayCards(8, {9223372036854775807, 2}, {}), "x"), message);
}

TEST_F(FitsReaderTest, AGzipFileIsInflatedNoFurtherThanItsClaim) {
  // 100 MB behind a claim of four bytes, and a claim of 20 GB with 100 KB behind it
  const std::string small = FitsImageHdu<std::uint8_t>(8, {2, 2}, {255, 255, 255, 255});
  test::WriteFileBytes(Path("a.fits"), small + std::string(100000000, '\0'));
  ASSERT_EQ(std::system(("gzip '" + Path("a.fits") + "'").c_str()), 0);
  EXPECT_EQ(Read(Path("a.fits.gz"), false).image.total(), 4U);

  const std::string large =
      FitsHdu(ArrayCards(16, {100000, 100000}, {}), std::string(100000, '\0'));
  test::WriteFileBytes(Path("b.fits"), large);
  ASSERT_EQ(std::system(("gzip '" + Path("b.fits") + "'").c_str()), 0);
  ExpectMessage<std::invalid_argument>(
      [this] { Read(Path("b.fits.gz"), false); },
      "Reading double-precision physical pixels failed for FITS image " + Path("b.fits.gz") +
          ": tried to move past end of file");
}

TEST_F(FitsReaderTest, AnHduThatLeadsBackIsRefused) {
  ExpectFailure(kEmptyPrimary + FitsHdu(ArrayCards(8, {1}, {FitsCard("PCOUNT", -2880)}, false), "x")
                                    .replace(0, 80, FitsCard("XTENSION", "'IMAGE   '")),
                "Moving to HDU failed for FITS image " + Path() + ": illegal PCOUNT keyword value");
}

TEST_F(FitsReaderTest, TooManyAxesFailToOpen) {
  ExpectFailure(FitsHdu(ArrayCards(8, Axes(200, 1), {}), "x"),
                "Opening failed for FITS image " + Path() + ": illegal NAXIS keyword value");
}

}  // namespace
}  // namespace project_lumen::io
