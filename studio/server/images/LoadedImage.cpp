#include "studio/images/LoadedImage.h"

#include <cmath>
#include <stdexcept>

#include "common/NumberText.h"
#include "io/fits/FitsKeywords.h"
#include "studio/images/DisplayStretch.h"
#include "studio/images/ReadOpenedImage.h"

namespace project_lumen::studio {
namespace {

// Keeps as many channels as asked for; without a number, one where the description, which is
// complete when the first row comes, says that one tells everything.
class DescribedBuilder : public io::RowSink {
 public:
  DescribedBuilder(const SessionFolder& session, const io::ImageDescription& description,
                   std::optional<int> channels)
      : builder_(session), description_(description), channels_(channels) {}

  void Begin(cv::Size size, int type) override {
    if (channels_ ? *channels_ == 1 : description_.source.isGrayscale) {
      builder_.KeepFirstChannel();
    }
    builder_.Begin(size, type);
  }
  void Take(const cv::Mat& rows) override { builder_.Take(rows); }
  std::shared_ptr<const PixelPyramid> Finish() { return builder_.Finish(); }

 private:
  PyramidBuilder builder_;
  const io::ImageDescription& description_;
  std::optional<int> channels_;
};

std::shared_ptr<const PixelPyramid> ReadPixels(const OpenedFile& file, const SessionFolder& session,
                                               io::ReadMode mode, std::optional<int> channels,
                                               io::ImageDescription& description) {
  description = {};
  DescribedBuilder builder(session, description, channels);
  ReadOpenedImage(file, session, mode, builder, description);
  return builder.Finish();
}

// Floating-point FITS samples out of [0, 1] are refused as a picture, but can be looked at as
// linear data.
std::shared_ptr<const PixelPyramid> ReadAnyPixels(const OpenedFile& file,
                                                  const SessionFolder& session,
                                                  std::optional<int> channels,
                                                  io::ImageDescription& description) {
  try {
    return ReadPixels(file, session, io::ReadMode::kDisplay, channels, description);
  } catch (const std::invalid_argument&) {
    if (!description.source.isFits || !description.source.fits.isFloat) {
      throw;
    }
  }
  return ReadPixels(file, session, io::ReadMode::kLinear, channels, description);
}

std::vector<std::string> WarningsOf(const io::ImageDescription& description) {
  std::vector<std::string> warnings;
  const auto count = [](std::uint64_t samples) {
    return std::to_string(samples) + (samples == 1 ? " sample" : " samples");
  };
  if (description.source.fits.upperClipped > 0) {
    warnings.push_back(count(description.source.fits.upperClipped) +
                       " above white are shown as white.");
  }
  if (description.report.tooLarge > 0) {
    warnings.push_back(count(description.report.tooLarge) +
                       " too large for the type of the picture are shown as black.");
  }
  if (description.report.pages > 1) {
    warnings.push_back("The file holds " + std::to_string(description.report.pages) +
                       " images. The first one is shown.");
  }
  if (!description.report.metadataFault.empty()) {
    warnings.push_back("The FITS header in the TIFF file cannot be read: " +
                       description.report.metadataFault);
  }
  return warnings;
}

std::string UnitOf(const io::ImageDescription& description) {
  const std::string* card = io::FindCard(description.source.fits.headerCards, "bunit");
  return card != nullptr ? CardText(*card).value_or("") : "";
}

}  // namespace

std::string LoadedImage::ValueType() const {
  const io::InputReport& report = description.report;
  return report.equivalentType.empty() ? report.storedType : report.equivalentType;
}

double LoadedImage::Stored(double normalised) const {
  constexpr double kExactInFloat = 16777216.0;  // 2^24
  const double value = normalised * description.source.fixedDivisor;
  const bool isInteger = ValueType().find("int") != std::string::npos;
  return isInteger && std::abs(value) < kExactInFloat ? std::round(value) : value;
}

std::shared_ptr<const LoadedImage> LoadImage(const OpenedFile& file, const SessionFolder& session) {
  auto image = std::make_shared<LoadedImage>();
  image->pixels = ReadAnyPixels(file, session, std::nullopt, image->description);
  image->stretch = MeasureStretch(*image->pixels, {});
  if (image->description.source.isFits) {
    image->sky = SkyCoordinates::FromCards(image->description.source.fits.headerCards);
    image->unit = UnitOf(image->description);
  }
  image->warnings = WarningsOf(image->description);
  return image;
}

std::shared_ptr<const PixelPyramid> LoadPixels(const OpenedFile& file, const PixelPyramid& like,
                                               const SessionFolder& session) {
  io::ImageDescription description;
  std::shared_ptr<const PixelPyramid> pixels =
      ReadAnyPixels(file, session, like.Channels(), description);
  if (pixels->Size() != like.Size() || pixels->Channels() != like.Channels()) {
    throw std::invalid_argument("The result has another size or other channels than its source: " +
                                file.path);
  }
  return pixels;
}

}  // namespace project_lumen::studio
