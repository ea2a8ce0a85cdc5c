#include "cli/Nebulex2/InputRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/FitsBytes.h"
#include "support/RecordedSink.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::cli {
namespace {

using test::FitsCard;
using test::FitsImageHdu;
using test::RecordedSink;
using testing::ElementsAre;
using testing::IsEmpty;

using Axes = std::vector<std::int64_t>;

// Reads a FITS file and reports it; failing to read it is no failure of the test.
class FitsRecordsTest : public testing::Test {
 protected:
  template <typename T>
  const RecordedSink& Report(int bitpix, const Axes& axes, const std::vector<T>& values,
                             const std::vector<std::string>& cards = {}, bool linear = false) {
    const std::string path = folder_.Path("a.fits");
    test::WriteFileBytes(path, FitsImageHdu(bitpix, axes, values, cards));
    const io::ReadMode mode = linear ? io::ReadMode::kLinear : io::ReadMode::kDisplay;
    io::ImageDescription description;
    io::WholeImage image;
    try {
      io::ReadImage(path, mode, image, description);
    } catch (const std::invalid_argument&) {
      failed_ = true;
    }
    ReportInput(description, mode, sink_.emplace().Sink());
    return *sink_;
  }

  test::TemporaryFolder folder_;
  std::optional<RecordedSink> sink_;
  bool failed_ = false;
};

TEST_F(FitsRecordsTest, RecordsComeInTheirOrder) {
  const RecordedSink& sink = Report<std::int16_t>(
      16, {2, 1}, {0, 32767},
      {FitsCard("DATAMAX", "32767.0"), FitsCard("BUNIT", "'adu     '"), FitsCard("BLANK", -5)});
  EXPECT_THAT(
      sink.Lines(),
      ElementsAre(
          "Info [input_format]: format=FITS stored=int16 BITPIX=16 equivalent=int16 "
          "equivalent_type=16 NAXIS=2 axes=2,1 interpretation=mono",
          "Info [fits_header]: BITPIX  =                   16",
          "Info [fits_header]: NAXIS   =                    2",
          "Info [fits_header]: NAXIS1  =                    2",
          "Info [fits_header]: NAXIS2  =                    1",
          "Info [fits_header]: naxis3=missing/not applicable",
          "Info [fits_header]: bscale=missing (default 1)",
          "Info [fits_header]: bzero=missing (default 0)",
          "Info [fits_header]: datamin=missing/not applicable",
          "Info [fits_header]: DATAMAX =              32767.0",
          "Info [fits_header]: BUNIT   = 'adu     '",
          "Info [fits_header]: BLANK   =                   -5",
          "Info [input_range]: scalar_samples=2 finite=2 nonfinite=0 physical_range=[0,32767] "
          "type_normalized_range=[0,1] below_zero=0 (0%) above_one=0 (0%) undefined=0",
          "Info [channel_range]: channel=1 scalar_samples=2 finite=2 nonfinite=0 "
          "physical_range=[0,32767] type_normalized_range=[0,1] below_zero=0 (0%) above_one=0 "
          "(0%)",
          "Info [header_extrema]: DATAMIN/DATAMAX do not determine scale; comparison=agrees for "
          "supplied extrema",
          "Info [input_conversion]: physical=x/K; fixed divisor K=32767; offset=0; BSCALE/BZERO "
          "applied once by CFITSIO; no observed-range rescaling; linear=0; physical_read=float64; "
          "inference=float32 (no MTF)"));
}

TEST_F(FitsRecordsTest, LinearRecordsSaySo) {
  const RecordedSink& sink = Report<float>(-32, {1, 1, 3}, {0.0F, 0.5F, 1.0F}, {}, true);
  EXPECT_THAT(sink.Messages("input_format"),
              ElementsAre("format=FITS stored=float32 BITPIX=-32 equivalent=float32 "
                          "equivalent_type=-32 NAXIS=3 axes=1,1,3 interpretation=RGB cube"));
  EXPECT_THAT(sink.Messages("input_conversion"),
              ElementsAre("physical=x/K; fixed divisor K=1; offset=0; BSCALE/BZERO applied once by "
                          "CFITSIO; no observed-range rescaling; linear=1; physical_read=float64; "
                          "MTF/inverse=float64; inference=float32"));
  EXPECT_THAT(sink.Messages("channel_range").size(), 3U);
}

TEST_F(FitsRecordsTest, HeaderExtremaAreComparedExactly) {
  const auto comparison = [this](const std::vector<std::string>& cards) {
    return Report<std::uint8_t>(8, {2, 1}, {1, 200}, cards).Messages("header_extrema").at(0);
  };
  const std::string start = "DATAMIN/DATAMAX do not determine scale; comparison=";
  EXPECT_EQ(comparison({}), start + "not supplied");
  EXPECT_EQ(comparison({FitsCard("DATAMIN", 1)}), start + "agrees for supplied extrema");
  EXPECT_EQ(comparison({FitsCard("DATAMIN", 1), FitsCard("DATAMAX", 201)}),
            start + "disagrees with decoded samples");
  EXPECT_EQ(comparison({FitsCard("DATAMIN", "1.0000000000000002")}),
            start + "disagrees with decoded samples");
  EXPECT_EQ(comparison({FitsCard("DATAMAX", "'200'")}), start + "agrees for supplied extrema");
}

TEST_F(FitsRecordsTest, UndefinedSamplesAreCountedBeforeTheyFailTheRead) {
  const RecordedSink& sink =
      Report<std::int16_t>(16, {2, 2}, {1, -5, 2, 3}, {FitsCard("BLANK", -5)});
  EXPECT_TRUE(failed_);
  EXPECT_THAT(sink.Messages("input_range"),
              ElementsAre("scalar_samples=4 finite=3 nonfinite=1 physical_range=[1,3] "
                          "type_normalized_range=[3.0518509475997192e-05,"
                          "9.1555528427991577e-05] below_zero=0 (0%) above_one=0 (0%) "
                          "undefined=1"));
  EXPECT_THAT(sink.Messages("input_conversion").size(), 1U);
}

TEST_F(FitsRecordsTest, InfinitiesAreNotUndefined) {
  const RecordedSink& sink = Report<float>(-32, {4, 1}, {0.5F, NAN, INFINITY, -INFINITY});
  EXPECT_TRUE(failed_);
  EXPECT_THAT(sink.Messages("input_range").at(0),
              testing::EndsWith("above_one=0 (0%) undefined=1"));
}

TEST_F(FitsRecordsTest, WithoutAFiniteSampleNothingCanBeComparedOrPrepared) {
  const RecordedSink& sink = Report<std::int64_t>(64, {1, 1}, {2}, {FitsCard("BLANK", 2)}, true);
  EXPECT_TRUE(failed_);
  EXPECT_THAT(sink.Messages("header_extrema"),
              ElementsAre("DATAMIN/DATAMAX do not determine scale; comparison=unavailable"));
  EXPECT_THAT(sink.Messages("input_prepared"), IsEmpty());
}

TEST_F(FitsRecordsTest, LinearReadingWithoutClippingWarnsOfNothing) {
  const RecordedSink& sink = Report<double>(-64, {2, 1}, {-0.25, 0.5}, {}, true);
  EXPECT_THAT(sink.Messages("data_loss"), IsEmpty());
  EXPECT_THAT(
      sink.Messages("input_prepared"),
      ElementsAre("upper-clipped=0; pre-MTF range=[-0.25,0.5]; negatives retained until MTF"));
}

TEST_F(FitsRecordsTest, LinearReadingWarnsOfClippedSamples) {
  const RecordedSink& sink = Report<double>(-64, {4, 1}, {-1.0, 0.5, 1.0, 1.2}, {}, true);
  EXPECT_THAT(sink.Messages("data_loss"),
              ElementsAre("--linear clips 1 of 4 samples (25%) above 1 after fixed sample-format "
                          "conversion; normalized maximum=1.2. Discarded highlights will not be "
                          "restored. Normalize float ADU data upstream."));
  EXPECT_THAT(sink.Messages("input_prepared"),
              ElementsAre("upper-clipped=1; pre-MTF range=[-1,1]; negatives retained until MTF"));
}

// --- Integers outside [0,1] ---

TEST_F(FitsRecordsTest, NegativeIntegersGetAWarning) {
  const RecordedSink& sink = Report<std::int16_t>(16, {4, 1}, {-32767, -1, 0, 32767});
  EXPECT_THAT(sink.Messages("data_loss"),
              ElementsAre("2 of 4 samples (50%) lie outside [0,1] after fixed sample-format "
                          "conversion and are clipped: 2 below 0 become 0, 0 above 1 become 1; "
                          "normalized range=[-1,1]. For data that has not been stretched use "
                          "--linear, which keeps samples below 0."));
}

TEST_F(FitsRecordsTest, AScaleWithoutAnIntegerTypeMayLeaveTheRangeOnBothSides) {
  // 0.25 is no integer, so K is 1: physical -0.5, 0, 1, 2
  const RecordedSink& sink = Report<std::int16_t>(
      16, {4, 1}, {-4, -2, 2, 6}, {FitsCard("BSCALE", "0.25"), FitsCard("BZERO", "0.5")});
  EXPECT_THAT(sink.Messages("data_loss"),
              ElementsAre("2 of 4 samples (50%) lie outside [0,1] after fixed sample-format "
                          "conversion and are clipped: 1 below 0 become 0, 1 above 1 become 1; "
                          "normalized range=[-0.5,2]. For data that has not been stretched use "
                          "--linear, which keeps samples below 0. Rescale the image upstream so "
                          "that no sample is above K=1 in physical units."));
}

TEST_F(FitsRecordsTest, IntegersBeyondFloat32AreCountedApart) {
  const RecordedSink& sink =
      Report<std::int16_t>(16, {5, 1}, {-2000, -1, 0, 1, 2000}, {FitsCard("BSCALE", "1E36")});
  const std::vector<std::string> warnings = sink.Messages("data_loss");
  ASSERT_EQ(warnings.size(), 1U);
  EXPECT_THAT(warnings[0],
              testing::StartsWith("4 of 5 samples (80%) lie outside [0,1] after fixed "
                                  "sample-format conversion and are clipped: 2 below 0 become 0, "
                                  "1 above 1 become 1, 1 beyond 32-bit floats become 0; "));
}

TEST_F(FitsRecordsTest, NoWarningComesWhereNothingIsLost) {
  const auto warnings = [](const RecordedSink& sink) { return sink.Messages("data_loss"); };
  EXPECT_THAT(warnings(Report<std::int16_t>(16, {2, 1}, {0, 32767})), IsEmpty());
  EXPECT_THAT(warnings(Report<std::int16_t>(16, {2, 1}, {-32768, 32767},
                                            {FitsCard("BSCALE", 1), FitsCard("BZERO", 32768)})),
              IsEmpty());
  EXPECT_THAT(warnings(Report<std::int16_t>(16, {3, 1}, {-32768, -1, 32767}, {}, true)), IsEmpty());
}

TEST_F(FitsRecordsTest, OfACubeThatIsNoImageComesWhatNeedsNoPixels) {
  const RecordedSink& sink = Report<std::uint8_t>(8, {2, 2, 4}, std::vector<std::uint8_t>(16, 7));
  EXPECT_TRUE(failed_);
  EXPECT_EQ(sink.Messages("input_format").size(), 1U);
  EXPECT_EQ(sink.Messages("fits_header").size(), 11U);
  EXPECT_EQ(sink.Messages("input_conversion").size(), 1U);
  EXPECT_EQ(sink.Lines().size(), 13U);
}

TEST_F(FitsRecordsTest, AFileThatIsNoFitsHasNoRecords) {
  test::WriteFileBytes(folder_.Path("a.fits"), "no FITS");
  io::ImageDescription description;
  io::WholeImage image;
  EXPECT_THROW(io::ReadImage(folder_.Path("a.fits"), io::ReadMode::kDisplay, image, description),
               std::invalid_argument);
  RecordedSink sink;
  ReportInput(description, io::ReadMode::kDisplay, sink.Sink());
  EXPECT_THAT(sink.Lines(), IsEmpty());
}

}  // namespace
}  // namespace project_lumen::cli
