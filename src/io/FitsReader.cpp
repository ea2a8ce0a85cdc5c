#include "io/FitsReader.h"

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
#include "io/FitsFile.h"
#include "io/FitsKeywords.h"
#include "io/FitsStorageType.h"

namespace project_lumen::io {
namespace {

constexpr const char* kReadStep = "Reading double-precision physical pixels";
constexpr std::uint64_t kBandSamples = std::uint64_t{1} << 20U;
constexpr std::size_t kColours = 3;

// --- Choosing the image and describing it ---

bool IsSupported(const std::optional<FitsFile::Shape>& shape) {
  return shape && (shape->naxis == 2 || shape->naxis == 3) &&
         std::all_of(shape->naxes.begin(), shape->naxes.end(),
                     [](std::int64_t length) { return length >= 1; });
}

// Makes the first image of two or three axes the current HDU.
void SelectImageHdu(FitsFile& file) {
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
FitsImageInfo DescribeStorage(FitsFile& file, const FitsFile::Shape& shape) {
  FitsImageInfo info;
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
  return info;
}

std::string FormatText(const FitsImageInfo& info, const FitsFile::Shape& shape) {
  std::string axes;
  for (const std::int64_t length : shape.naxes) {
    axes += (axes.empty() ? "" : ",") + std::to_string(length);
  }
  return std::string("format=FITS stored=") + FitsTypeName(info.bitpix) +
         " BITPIX=" + std::to_string(info.bitpix) +
         " equivalent=" + FitsTypeName(info.equivalentType) +
         " equivalent_type=" + std::to_string(info.equivalentType) +
         " NAXIS=" + std::to_string(info.naxis) + " axes=" + axes +
         " interpretation=" + (info.naxis == 2 ? "mono" : "RGB cube");
}

void ReportHeader(const std::vector<std::string>& cards, const DiagnosticsSink& sink) {
  constexpr std::array<const char*, 11> kReportedKeywords{"bitpix",  "naxis",  "naxis1", "naxis2",
                                                          "naxis3",  "bscale", "bzero",  "datamin",
                                                          "datamax", "bunit",  "blank"};
  for (const std::string keyword : kReportedKeywords) {
    std::string text;
    if (const std::string* card = FindCard(cards, keyword)) {
      text = card->substr(0, card->find_last_not_of(' ') + 1);
    } else if (keyword == "bscale") {
      text = keyword + "=missing (default 1)";
    } else if (keyword == "bzero") {
      text = keyword + "=missing (default 0)";
    } else {
      text = keyword + "=missing/not applicable";
    }
    EmitInfo(sink, "fits_header", text);
  }
}

// --- Pixels ---

enum class Layout { kMono, kPlanarRgb, kInterleavedRgb, kUnsupported };

Layout LayoutOf(const FitsFile::Shape& shape) {
  if (shape.naxis == 2) {
    return Layout::kMono;
  }
  if (shape.naxes[2] == 3) {
    return Layout::kPlanarRgb;
  }
  return shape.naxes[0] == 3 ? Layout::kInterleavedRgb : Layout::kUnsupported;
}

// Consecutive stored samples that go to consecutive places of the image, `stride` apart.
struct Run {
  std::uint64_t first;
  std::uint64_t count;
  std::size_t target;
  std::size_t stride;
};

std::vector<Run> RunsOf(const FitsFile::Shape& shape, Layout layout) {
  const auto planeSize =
      static_cast<std::uint64_t>(shape.naxes[0]) * static_cast<std::uint64_t>(shape.naxes[1]);
  if (layout == Layout::kPlanarRgb) {
    return {{0, planeSize, 0, kColours},
            {planeSize, planeSize, 1, kColours},
            {2 * planeSize, planeSize, 2, kColours}};
  }
  const auto planes = shape.naxis == 3 ? static_cast<std::uint64_t>(shape.naxes[2]) : 1;
  return {{0, planeSize * planes, 0, 1}};
}

cv::Mat AllocateImage(const FitsFile::Shape& shape, Layout layout, bool linear) {
  const auto length = [&shape](std::size_t axis) { return static_cast<int>(shape.naxes[axis]); };
  const int depth = linear ? CV_64F : CV_32F;
  cv::Mat image;
  switch (layout) {
    case Layout::kMono:
      image.create(length(1), length(0), CV_MAKETYPE(depth, 1));
      break;
    case Layout::kPlanarRgb:
      image.create(length(1), length(0), CV_MAKETYPE(depth, 3));
      break;
    case Layout::kInterleavedRgb:
      image.create(length(2), length(1), CV_MAKETYPE(depth, 3));
      break;
    default:
      break;
  }
  return image;
}

// Samples to read at once: whole rows, and whole rows of tiles, so that no tile is inflated twice.
std::uint64_t BandSize(const FitsFile::Shape& shape, const std::vector<std::string>& cards) {
  const auto rowLength = static_cast<std::uint64_t>(shape.naxes[0]);
  const std::string* card = FindCard(cards, "ztile2");
  const double tileHeight = card == nullptr ? 1.0 : CardNumber(*card).value_or(1.0);
  const auto tileRows =
      static_cast<std::uint64_t>(std::clamp(tileHeight, 1.0, static_cast<double>(shape.naxes[1])));
  const std::uint64_t tileSize = tileRows * rowLength;
  return tileSize * std::max<std::uint64_t>(1, kBandSamples / tileSize);
}

struct PixelStatistics {
  RangeStatistics image;
  std::vector<RangeStatistics> channels;
  std::uint64_t undefined = 0;
};

class PixelReader {
 public:
  PixelReader(FitsFile& file, const FitsImageInfo& info, const FitsFile::Shape& shape, bool linear)
      : file_(file),
        divisor_(info.fixedDivisor),
        isFloat_(info.isFloat),
        linear_(linear),
        layout_(LayoutOf(shape)),
        shape_(shape),
        image_(AllocateImage(shape, layout_, linear)) {
    const std::vector<Run> runs = RunsOf(shape, layout_);
    const auto band =
        static_cast<std::size_t>(std::min(runs.front().count, BandSize(shape, info.headerCards)));
    values_.resize(band);
    isUndefined_.resize(isFloat_ ? 0 : band);
    statistics_.channels.resize(layout_ == Layout::kMono ? 1 : kColours);
  }

  void ReadAll() {
    for (const Run& run : RunsOf(shape_, layout_)) {
      for (std::uint64_t done = 0; done < run.count; done += values_.size()) {
        const auto count =
            static_cast<std::size_t>(std::min<std::uint64_t>(values_.size(), run.count - done));
        ReadBand(run.first + done, count);
        Measure(run, done, count);
        Convert(run.target + done * run.stride, run.stride, count);
      }
    }
    for (const RangeStatistics& channel : statistics_.channels) {
      statistics_.image.Merge(channel);
    }
  }

  [[nodiscard]] const PixelStatistics& Statistics() const { return statistics_; }
  // Empty for an unsupported cube.
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
    const std::size_t channels = statistics_.channels.size();
    if (run.stride != 1 || channels == 1) {
      RangeStatistics& channel = statistics_.channels[run.target];
      for (std::size_t i = 0; i < count; ++i) {
        channel.Add(values_[i], divisor_);
      }
      return;
    }
    for (std::size_t i = 0; i < count; ++i) {
      statistics_.channels[(done + i) % channels].Add(values_[i], divisor_);
    }
  }

  void Convert(std::size_t target, std::size_t stride, std::size_t count) {
    if (image_.empty()) {
      return;
    }
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
      samples[i * stride] =
          isFloat_ ? narrowed : static_cast<float>(static_cast<double>(narrowed) * scale);
    }
  }

  FitsFile& file_;
  double divisor_;
  bool isFloat_;
  bool linear_;
  Layout layout_;
  FitsFile::Shape shape_;
  cv::Mat image_;
  std::vector<double> values_;
  std::vector<char> isUndefined_;
  PixelStatistics statistics_;
};

// --- Reporting and judging ---

void ReportRanges(const PixelStatistics& statistics, double divisor, const DiagnosticsSink& sink) {
  EmitInfo(sink, "input_range",
           DescribeRange(statistics.image, divisor) +
               " undefined=" + std::to_string(statistics.undefined));
  for (std::size_t i = 0; i < statistics.channels.size(); ++i) {
    EmitInfo(
        sink, "channel_range",
        "channel=" + std::to_string(i + 1) + " " + DescribeRange(statistics.channels[i], divisor));
  }
}

const char* CompareExtrema(const FitsImageInfo& info, const RangeStatistics& samples) {
  if (samples.finite == 0) {
    return "unavailable";
  }
  const bool disagrees = (info.dataMin && *info.dataMin != samples.minimum) ||
                         (info.dataMax && *info.dataMax != samples.maximum);
  if (disagrees) {
    return "disagrees with decoded samples";
  }
  return info.dataMin || info.dataMax ? "agrees for supplied extrema" : "not supplied";
}

void ReportConversion(double divisor, bool linear, const DiagnosticsSink& sink) {
  EmitInfo(sink, "input_conversion",
           "physical=x/K; fixed divisor K=" + FormatReal(divisor) +
               "; offset=0; BSCALE/BZERO applied once by CFITSIO; no observed-range rescaling; "
               "linear=" +
               (linear ? "1" : "0") + "; physical_read=float64; " +
               (linear ? "MTF/inverse=float64; inference=float32" : "inference=float32 (no MTF)"));
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

void ReportLinearPreparation(const RangeStatistics& samples, double divisor,
                             const DiagnosticsSink& sink) {
  const double maximum = samples.maximum / divisor;
  if (samples.aboveOne != 0) {
    const double percent =
        static_cast<double>(samples.aboveOne) * 100.0 / static_cast<double>(samples.samples);
    EmitWarning(sink, WarningKind::kDataLoss,
                "--linear clips " + std::to_string(samples.aboveOne) + " of " +
                    std::to_string(samples.samples) + " samples (" + FormatReal(percent) +
                    "%) above 1 after fixed sample-format conversion; normalized maximum=" +
                    FormatReal(maximum) +
                    ". Discarded highlights will not be restored. Normalize float ADU data "
                    "upstream.");
  }
  EmitInfo(sink, "input_prepared",
           "upper-clipped=" + std::to_string(samples.aboveOne) + "; pre-MTF range=[" +
               FormatReal(std::min(1.0, samples.minimum / divisor)) + "," +
               FormatReal(std::min(1.0, maximum)) + "]; negatives retained until MTF");
}

void ReadScalingAndExtrema(FitsFile& file, FitsImageInfo& info) {
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

FitsImage ReadFitsImage(const std::string& path, bool linear, const DiagnosticsSink& sink) {
  FitsFile file = FitsFile::Open(path);
  SelectImageHdu(file);
  const FitsFile::Shape shape = file.ReadImageShape();
  FitsImage result{{}, DescribeStorage(file, shape)};
  FitsImageInfo& info = result.info;
  EmitInfo(sink, "input_format", FormatText(info, shape));
  ReportHeader(info.headerCards, sink);

  file.RequirePixels(kReadStep);
  PixelReader reader(file, info, shape, linear);
  reader.ReadAll();
  const RangeStatistics& samples = reader.Statistics().image;
  ReadScalingAndExtrema(file, info);
  info.physicalMinimum = samples.minimum;
  info.physicalMaximum = samples.maximum;

  ReportRanges(reader.Statistics(), info.fixedDivisor, sink);
  EmitInfo(sink, "header_extrema",
           std::string("DATAMIN/DATAMAX do not determine scale; comparison=") +
               CompareExtrema(info, samples));
  ReportConversion(info.fixedDivisor, linear, sink);

  RequireFiniteSamples(samples, path);
  if (linear) {
    info.upperClipped = samples.aboveOne;
    ReportLinearPreparation(samples, info.fixedDivisor, sink);
  } else if (info.isFloat) {
    CheckNormalizedFloatSamples(samples, info.dataMin, info.dataMax, path);
  }
  result.image = reader.TakeImage();
  if (result.image.empty()) {
    throw std::invalid_argument("Unsupported FITS cube dimensions in " + path +
                                ". Only 2D images and simple 3-channel RGB cubes are supported.");
  }
  file.Close();
  return result;
}

}  // namespace project_lumen::io
