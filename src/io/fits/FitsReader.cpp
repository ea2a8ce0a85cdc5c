#include "io/fits/FitsReader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "common/NumberText.h"
#include "io/fits/FitsInputFile.h"
#include "io/fits/FitsKeywords.h"
#include "io/fits/FitsStorage.h"

namespace project_lumen::io {
namespace {

constexpr const char* kReadStep = "Reading double-precision physical pixels";
constexpr std::uint64_t kBandSamples = std::uint64_t{1} << 20U;
constexpr std::size_t kColours = 3;

// --- Choosing the image and describing it ---

bool IsSupported(const std::optional<FitsInputFile::Shape>& shape) {
  return shape && (shape->naxis == 2 || shape->naxis == 3) &&
         std::all_of(shape->naxes.begin(), shape->naxes.end(),
                     [](std::int64_t length) { return length >= 1; });
}

// Makes the first image of two or three axes the current HDU.
void SelectImageHdu(FitsInputFile& file) {
  const int count = file.CountHdus();
  for (int number = 1; number <= count; ++number) {
    file.MoveToHdu(number);
    if (IsSupported(file.FindImageShape())) {
      return;
    }
  }
  file.Check(file.HiddenHduStatus(), "Moving to HDU");
  throw std::invalid_argument("No supported image HDU found in FITS image: " + file.Path());
}

// Fills in what the header says of storage and dimensions.
void DescribeStorage(FitsInputFile& file, const FitsInputFile::Shape& shape, FitsImageInfo& info,
                     InputReport& report) {
  info.naxis = shape.naxis;
  for (std::size_t i = 0; i < shape.naxes.size(); ++i) {
    info.naxes[i] = static_cast<std::int32_t>(
        std::min<std::int64_t>(shape.naxes[i], std::numeric_limits<std::int32_t>::max()));
  }
  info.planarCube = shape.naxis == 3 && shape.naxes[2] == 3;
  info.bitpix = file.ReadStorageType();
  info.equivalentType = file.ReadEquivalentType();
  info.isFloat = info.bitpix < 0;
  info.fixedDivisor = FitsFixedDivisor(info.bitpix, info.equivalentType);
  info.headerCards = file.ReadHeaderCards();
  report.storedType = FitsTypeName(info.bitpix);
  report.equivalentType = FitsTypeName(info.equivalentType);
  report.axes.assign(shape.naxes.begin(), shape.naxes.end());
  report.format = "FITS";
}

// --- Pixels ---

// Consecutive stored samples that go to consecutive places of the image, `stride` apart.
struct Run {
  std::uint64_t first;
  std::uint64_t count;
  std::size_t target;
  std::size_t stride;
};

std::vector<Run> RunsOf(const FitsInputFile::Shape& shape, const FitsImageInfo& info) {
  const auto planeSize =
      static_cast<std::uint64_t>(shape.naxes[0]) * static_cast<std::uint64_t>(shape.naxes[1]);
  if (info.planarCube) {
    return {{0, planeSize, 0, kColours},
            {planeSize, planeSize, 1, kColours},
            {2 * planeSize, planeSize, 2, kColours}};
  }
  const auto planes = shape.naxis == 3 ? static_cast<std::uint64_t>(shape.naxes[2]) : 1;
  return {{0, planeSize * planes, 0, 1}};
}

// Samples to read at once: whole rows, and whole rows of tiles, so that no tile is inflated twice.
std::uint64_t BandSize(const FitsInputFile::Shape& shape, const std::vector<std::string>& cards) {
  const auto rowLength = static_cast<std::uint64_t>(shape.naxes[0]);
  const std::string* card = FindCard(cards, "ztile2");
  const double tileHeight = card == nullptr ? 1.0 : CardNumber(*card).value_or(1.0);
  const auto tileRows =
      static_cast<std::uint64_t>(std::clamp(tileHeight, 1.0, static_cast<double>(shape.naxes[1])));
  const std::uint64_t tileSize = tileRows * rowLength;
  return tileSize * std::max<std::uint64_t>(1, kBandSamples / tileSize);
}

struct PixelStatistics {
  ImageRangeStatistics range;
  std::uint64_t undefined = 0;
  std::uint64_t tooLarge = 0;  // integers beyond float32 once they are scaled, and above 0
};

class PixelReader {
 public:
  PixelReader(FitsInputFile& file, const FitsImageInfo& info, const FitsInputFile::Shape& shape,
              bool linear)
      : file_(file),
        divisor_(info.fixedDivisor),
        isFloat_(info.isFloat),
        linear_(linear),
        runs_(RunsOf(shape, info)) {
    const std::size_t channels = info.naxis == 2 ? 1 : kColours;
    image_.create(info.Height(), info.Width(),
                  CV_MAKETYPE(linear ? CV_64F : CV_32F, static_cast<int>(channels)));
    const auto band =
        static_cast<std::size_t>(std::min(runs_.front().count, BandSize(shape, info.headerCards)));
    values_.resize(band);
    isUndefined_.resize(isFloat_ ? 0 : band);
    statistics_.range.channels.resize(channels);
  }

  void ReadAll() {
    for (const Run& run : runs_) {
      for (std::uint64_t done = 0; done < run.count; done += values_.size()) {
        const auto count =
            static_cast<std::size_t>(std::min<std::uint64_t>(values_.size(), run.count - done));
        ReadBand(run.first + done, count);
        Measure(run, done, count);
        Convert(run.target + done * run.stride, run.stride, count);
      }
    }
    for (const RangeStatistics& channel : statistics_.range.channels) {
      statistics_.range.image.Merge(channel);
    }
  }

  [[nodiscard]] const PixelStatistics& Statistics() const { return statistics_; }
  cv::Mat TakeImage() { return std::move(image_); }

 private:
  void ReadBand(std::uint64_t first, std::size_t count) {
    const std::span<double> values(values_.data(), count);
    if (isFloat_) {
      file_.ReadPixels(first, values, kReadStep);
      statistics_.undefined += static_cast<std::uint64_t>(
          std::count_if(values.begin(), values.end(), [](double v) { return std::isnan(v); }));
      return;
    }
    file_.ReadPixels(first, values, std::span<char>(isUndefined_.data(), count), kReadStep);
    for (std::size_t i = 0; i < count; ++i) {
      if (isUndefined_[i] != 0) {
        values[i] = std::numeric_limits<double>::quiet_NaN();
        ++statistics_.undefined;
      }
    }
  }

  void Measure(const Run& run, std::uint64_t done, std::size_t count) {
    const std::size_t channels = statistics_.range.channels.size();
    if (run.stride != 1 || channels == 1) {
      RangeStatistics& channel = statistics_.range.channels[run.target];
      for (std::size_t i = 0; i < count; ++i) {
        channel.Add(values_[i], divisor_);
      }
      return;
    }
    for (std::size_t i = 0; i < count; ++i) {
      statistics_.range.channels[(done + i) % channels].Add(values_[i], divisor_);
    }
  }

  void Convert(std::size_t target, std::size_t stride, std::size_t count) {
    if (linear_) {
      double* samples = image_.ptr<double>() + target;
      for (std::size_t i = 0; i < count; ++i) {
        samples[i * stride] = std::min(1.0, values_[i] / divisor_);
      }
      return;
    }
    float* samples = image_.ptr<float>() + target;
    const double scale = 1.0 / divisor_;
    for (std::size_t i = 0; i < count; ++i) {
      const auto narrowed = static_cast<float>(values_[i]);
      const float sample =
          isFloat_ ? narrowed : static_cast<float>(static_cast<double>(narrowed) * scale);
      const bool isFinite = std::isfinite(sample);
      samples[i * stride] = isFinite ? sample : 0.0F;
      statistics_.tooLarge += isFinite || sample < 0.0F ? 0U : 1U;
    }
  }

  FitsInputFile& file_;
  double divisor_;
  bool isFloat_;
  bool linear_;
  std::vector<Run> runs_;
  cv::Mat image_;
  std::vector<double> values_;
  std::vector<char> isUndefined_;
  PixelStatistics statistics_;
};

// --- Judging ---

[[noreturn]] void RefuseCube(const std::string& path) {
  throw std::invalid_argument("Unsupported FITS cube dimensions in " + path +
                              ". Only 2D images and simple 3-channel RGB cubes are supported.");
}

void RequireFiniteSamples(const RangeStatistics& samples, const std::string& path) {
  if (samples.finite != samples.samples) {
    throw std::invalid_argument("FITS input contains " +
                                std::to_string(samples.samples - samples.finite) +
                                " non-finite/undefined source sample(s); repair the image "
                                "upstream: " +
                                path);
  }
}

void ReadScalingAndExtrema(FitsInputFile& file, FitsImageInfo& info) {
  info.bscale = file.ReadHeaderDouble("BSCALE").value_or(1.0);
  info.bzero = file.ReadHeaderDouble("BZERO").value_or(0.0);
  info.dataMin = file.ReadHeaderDouble("DATAMIN");
  info.dataMax = file.ReadHeaderDouble("DATAMAX");
}

}  // namespace

void CheckNormalizedFloatSamples(const RangeStatistics& samples, std::optional<double> dataMin,
                                 std::optional<double> dataMax, const std::string& path) {
  if (samples.finite == 0) {
    throw std::invalid_argument("Floating-point FITS input contains no finite samples: " + path);
  }
  if (samples.minimum >= 0.0 && samples.maximum <= 1.0) {
    return;
  }
  std::string message =
      "Floating-point FITS input samples must be normalized to [0,1]. Observed finite range: [" +
      FormatReal(samples.minimum) + ", " + FormatReal(samples.maximum) + "]";
  if (dataMin || dataMax) {
    message += ". Header diagnostics:";
    message += dataMin ? " DATAMIN=" + FormatReal(*dataMin) : "";
    message += dataMax ? " DATAMAX=" + FormatReal(*dataMax) : "";
  }
  throw std::invalid_argument(message +
                              ". Normalize the image before invoking the CLI; header extrema are "
                              "not used to rescale it.");
}

cv::Mat ReadFitsImage(const std::string& path, bool linear, FitsImageInfo& info,
                      InputReport& report) {
  FitsInputFile file(path);
  SelectImageHdu(file);
  const FitsInputFile::Shape shape = file.ReadImageShape();
  DescribeStorage(file, shape, info, report);
  if (!info.IsSupported()) {
    RefuseCube(path);
  }

  file.RequirePixels(kReadStep);
  PixelReader reader(file, info, shape, linear);
  reader.ReadAll();
  const RangeStatistics& samples = reader.Statistics().range.image;
  ReadScalingAndExtrema(file, info);
  report.undefined = reader.Statistics().undefined;
  report.tooLarge = reader.Statistics().tooLarge;
  report.range = reader.Statistics().range;

  RequireFiniteSamples(samples, path);
  if (linear) {
    info.upperClipped = samples.aboveOne;
  } else if (info.isFloat) {
    CheckNormalizedFloatSamples(samples, info.dataMin, info.dataMax, path);
  }
  cv::Mat image = reader.TakeImage();
  file.Close();
  return image;
}

}  // namespace project_lumen::io
