#include "cli/Nebulex2/OutputRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "support/RecordedSink.h"

namespace project_lumen::cli {
namespace {

using test::RecordedSink;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ReportOutputForm, FitsSaysStorageAndUnits) {
  const RecordedSink sink;
  io::OutputDescription form{.isFits = true, .bitpix = 16, .white = 65535.0, .bzero = 32768.0};
  ReportOutputForm(form, io::OutputRole::kUnscreen, sink.Sink());
  form = {.isFits = true, .bitpix = -64, .isFraction = true};
  ReportOutputForm(form, io::OutputRole::kUnscreen, sink.Sink());
  form = {.isFits = true};
  ReportOutputForm(form, io::OutputRole::kMain, sink.Sink());
  ReportOutputForm(form, io::OutputRole::kDifference, sink.Sink());
  EXPECT_THAT(
      sink.Messages("output_conversion"),
      ElementsAre("format=FITS BITPIX=16 role=unscreen fixed_white=65535 BSCALE=1 BZERO=32768 "
                  "encoding_input=float64; source physical units; source storage quantization "
                  "applies",
                  "format=FITS BITPIX=-64 role=unscreen fixed_white=1 BSCALE=1 BZERO=0 "
                  "encoding_input=float64; dimensionless fraction",
                  "format=FITS BITPIX=-32 role=main fixed_white=1 BSCALE=1 BZERO=0 "
                  "encoding_input=float64; source physical units; source storage quantization "
                  "applies",
                  "format=FITS BITPIX=-32 role=difference fixed_white=1 BSCALE=1 BZERO=0 "
                  "encoding_input=float64; source physical units; source storage quantization "
                  "applies"));
}

class LayerWarning : public testing::Test {
 protected:
  std::vector<std::string> Warnings(const std::string& starlessPath,
                                    const io::SourceImageInfo& source) {
    const RecordedSink sink;
    WarnOfLayersThatCannotRebuild({starlessPath, io::OutputRole::kMain, source}, sink.Sink());
    return sink.Messages("output_fidelity");
  }
  static io::SourceImageInfo Raster(int depth) {
    io::SourceImageInfo source;
    source.storedDepth = depth;
    return source;
  }
  static io::SourceImageInfo Fits(int bitpix) {
    io::SourceImageInfo source;
    source.isFits = true;
    source.fits.bitpix = bitpix;
    return source;
  }
};

TEST_F(LayerWarning, AJpegNeverRebuilds) {
  for (const io::SourceImageInfo& source : {Raster(CV_8U), Raster(CV_16U), Fits(-32)}) {
    EXPECT_THAT(
        Warnings("starless.jpg", source),
        ElementsAre("The starless image with its layers will not rebuild the input: JPEG "
                    "compression changes its samples after the layers were computed from them "
                    "(starless.jpg). Write it as TIFF, PNG or FITS, which --output chooses."));
  }
}

TEST_F(LayerWarning, EightBitsRebuildEightBitsOnly) {
  for (const io::SourceImageInfo& source : {Raster(CV_16U), Fits(16), Fits(-32)}) {
    EXPECT_THAT(Warnings("starless.bmp", source),
                ElementsAre("The starless image with its layers will not rebuild the input: it is "
                            "stored with 8 bits a sample, and the input has more (starless.bmp). "
                            "Write it as TIFF, PNG or FITS, which --output chooses."));
  }
  EXPECT_THAT(Warnings("starless.bmp", Raster(CV_8U)), IsEmpty());
  EXPECT_THAT(Warnings("starless.bmp", Fits(8)), IsEmpty());
}

TEST_F(LayerWarning, FormatsThatHoldTheSourcesDepthAreFine) {
  for (const std::string path : {"a.tif", "a.png", "a.fits"}) {
    EXPECT_THAT(Warnings(path, Raster(CV_8U)), IsEmpty()) << path;
    EXPECT_THAT(Warnings(path, Raster(CV_16U)), IsEmpty()) << path;
  }
  EXPECT_THAT(Warnings("a.fits", Fits(-64)), IsEmpty());
}

TEST(ReportQuantisation, NothingIsSaidOfFloatingPoint) {
  const RecordedSink sink;
  ReportQuantisation({}, io::OutputRole::kMain, sink.Sink());
  EXPECT_THAT(sink.Lines(), IsEmpty());
}

TEST(ReportQuantisation, IntegersAreRounded) {
  const RecordedSink sink;
  ReportQuantisation({.isQuantised = true}, io::OutputRole::kMain, sink.Sink());
  EXPECT_THAT(sink.Lines(),
              ElementsAre("Info [output_quantization]: Integer FITS samples rounded to nearest "
                          "storage value; source BSCALE/BZERO preserved."));
}

TEST(ReportQuantisation, ClippedHighlightsAreLostData) {
  const RecordedSink sink;
  ReportQuantisation({.isQuantised = true, .clipped = 2, .clippedAtUpperLimit = 1},
                     io::OutputRole::kMain, sink.Sink());
  EXPECT_THAT(sink.Messages("data_loss"),
              ElementsAre("clipped 2 integer FITS output samples to the source storage limits; "
                          "role=main"));
}

TEST(ReportQuantisation, SamplesClippedAtTheLowerLimitOnlyAreAFidelityWarning) {
  const RecordedSink sink;
  ReportQuantisation({.isQuantised = true, .clipped = 1}, io::OutputRole::kDifference, sink.Sink());
  EXPECT_THAT(sink.Messages("data_loss"), IsEmpty());
  EXPECT_THAT(sink.Messages("output_fidelity"),
              ElementsAre("clipped 1 integer FITS output samples to the source storage limits; "
                          "role=difference"));
}

}  // namespace
}  // namespace project_lumen::cli
