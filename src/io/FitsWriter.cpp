#include "io/FitsWriter.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <span>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "common/NumberText.h"
#include "common/PathSuffix.h"
#include "io/FitsFile.h"
#include "io/FitsKeywords.h"
#include "io/FitsSamples.h"
#include "io/FitsStorageValue.h"
#include "io/GzipFile.h"
#include "io/ReplacedFile.h"

namespace project_lumen::io {
namespace {

constexpr std::uint64_t kBandSamples = std::uint64_t{1} << 20U;
constexpr std::size_t kHistoryTextLength = 72;  // what a HISTORY card holds

const char* RoleName(OutputRole role) {
  switch (role) {
    case OutputRole::kMain:
      return "main";
    case OutputRole::kDifference:
      return "difference";
    default:
      return "unscreen";
  }
}

const char* RoleHistory(OutputRole role) {
  switch (role) {
    case OutputRole::kMain:
      return "Main image restored to source physical units.";
    case OutputRole::kDifference:
      return "Difference stars: source units, no additive offset.";
    default:
      return "Unscreen fraction: effective source=starless+fraction*(fixed format white-starless).";
  }
}

// One result on its way to a file.
struct Output {
  const cv::Mat& image;
  int planes;
  const SourceImageInfo* source;
  OutputRole role;
  const LinearOutputInfo* linear;
  FitsStorage storage;

  [[nodiscard]] bool IsFraction() const {
    return role == OutputRole::kUnscreen && !storage.IsInteger();
  }
  // NAXIS1 is the colour axis, as in the source.
  [[nodiscard]] bool IsInterleaved() const {
    return planes == 3 && source != nullptr && source->fits.naxis == 3 && !source->fits.planarCube;
  }
  [[nodiscard]] std::vector<std::int64_t> Axes() const {
    if (planes == 1) {
      return {image.cols, image.rows};
    }
    return IsInterleaved() ? std::vector<std::int64_t>{3, image.cols, image.rows}
                           : std::vector<std::int64_t>{image.cols, image.rows, 3};
  }
  [[nodiscard]] std::vector<std::string> Cards() const {
    return source == nullptr ? std::vector<std::string>()
                             : PreservedCards(source->fits, planes == 1);
  }
};

// --- Checks and records ---

void RequireChannels(const cv::Mat& image) {
  if (image.channels() != 1 && image.channels() != 3) {
    throw std::invalid_argument("Unsupported number of FITS output channels: " +
                                std::to_string(image.channels()));
  }
}

void RequireLinearMatch(const cv::Mat& image, const LinearOutputInfo& linear) {
  if (image.size() != linear.sourceSamples.size() ||
      image.channels() != linear.sourceSamples.channels()) {
    throw std::invalid_argument("Linear FITS output geometry differs from the source.");
  }
  if (linear.channels.size() < static_cast<std::size_t>(image.channels())) {
    throw std::invalid_argument("Linear FITS output requires the actual MTF shadow thresholds.");
  }
}

// Samples of the source replace those of the main result only.
const LinearOutputInfo* RestoringInfo(const SourceImageInfo* source, OutputRole role,
                                      const LinearOutputInfo* linear) {
  return source != nullptr && role == OutputRole::kMain ? linear : nullptr;
}

void ReportConversion(const Output& output, const DiagnosticsSink& sink) {
  const FitsImageInfo& format = output.storage.format;
  const double white = output.source == nullptr ? 1.0 : output.source->fits.fixedDivisor;
  EmitInfo(sink, "output_conversion",
           "format=FITS BITPIX=" + std::to_string(format.bitpix) +
               " role=" + RoleName(output.role) + " fixed_white=" + FormatReal(white) +
               " BSCALE=" + FormatReal(format.bscale) + " BZERO=" + FormatReal(format.bzero) +
               " encoding_input=float64; " +
               (output.IsFraction() ? "dimensionless fraction"
                                    : "source physical units; source storage quantization "
                                      "applies"));
}

void ReportQuantization(const ClipCount& clips, OutputRole role, const DiagnosticsSink& sink) {
  EmitInfo(sink, "output_quantization",
           "Integer FITS samples rounded to nearest storage value; source BSCALE/BZERO "
           "preserved.");
  if (clips.samples != 0) {
    EmitWarning(
        sink, clips.atUpperLimit != 0 ? WarningKind::kDataLoss : WarningKind::kOutputFidelity,
        "clipped " + std::to_string(clips.samples) +
            " integer FITS output samples to the source storage limits; role=" + RoleName(role));
  }
}

// --- Header ---

struct HistoryLine {
  std::string text;
  const char* step;
};

std::vector<HistoryLine> HistoryOf(const Output& output, const ClipCount& clips) {
  std::vector<HistoryLine> lines;
  if (output.storage.IsInteger()) {
    constexpr const char* kStep = "Writing integer encoding history";
    lines.push_back(
        {"Integer FITS: nearest storage-value rounding; source BSCALE/BZERO preserved.", kStep});
    lines.push_back(
        {"Integer FITS output storage-clipped samples=" + std::to_string(clips.samples), kStep});
  }
  if (output.linear != nullptr) {
    constexpr const char* kStep = "Writing linear range history";
    lines.push_back({"Linear FITS: fixed divisor=" + FormatReal(output.linear->divisor) +
                         " upper-clipped samples=" + std::to_string(output.linear->upperClipped) +
                         "; no observed-range rescaling.",
                     kStep});
    const std::size_t count =
        std::min(output.linear->channels.size(), static_cast<std::size_t>(output.planes));
    for (std::size_t c = 0; c < count; ++c) {
      lines.push_back({"Linear FITS shadows channel " + std::to_string(c + 1) + "=" +
                           FormatReal(output.linear->channels[c].shadows),
                       kStep});
    }
  }
  lines.push_back({RoleHistory(output.role), "Writing role history"});
  return lines;
}

// Cards that will follow the pixels, so that their place is kept free and no pixel has to move.
// Clip counts only change the length of one line that fits its card in any case.
int CountCardsToCome(const Output& output) {
  const std::vector<std::string> cards = output.Cards();
  std::size_t count = cards.size() + 4;  // DATAMIN, DATAMAX, CHECKSUM, DATASUM
  for (const HistoryLine& line : HistoryOf(output, {})) {
    count += (line.text.size() + kHistoryTextLength - 1) / kHistoryTextLength;
  }
  count += output.IsFraction() && FindCard(cards, "bunit") == nullptr ? 1 : 0;
  count += FindCard(cards, "creator") == nullptr ? 1 : 0;
  return static_cast<int>(count);
}

// As the source has it, when its card really says what was read.
void WriteScalingKeyword(FitsFile& file, const Output& output, const std::string& keyword,
                         double value, const std::string& step) {
  const std::string* card =
      output.IsFraction() ? nullptr : FindCard(output.source->fits.headerCards, ToLower(keyword));
  if (card != nullptr && CardNumber(*card) == value) {
    file.SetCard(keyword, *card, step);
  } else {
    file.SetKeyword(keyword, value, "", step);
  }
}

void WriteScaling(FitsFile& file, const Output& output) {
  if (output.storage.hasScaling) {
    const std::string step =
        output.IsFraction() ? "Writing identity scaling" : "Writing source scaling";
    WriteScalingKeyword(file, output, "BSCALE", output.storage.format.bscale, step);
    WriteScalingKeyword(file, output, "BZERO", output.storage.format.bzero, step);
  }
}

void WriteHeaderTail(FitsFile& file, const Output& output, const ClipCount& clips) {
  for (const std::string& card : output.Cards()) {
    file.AppendCard(card, "Preserving header metadata");
  }
  for (const HistoryLine& line : HistoryOf(output, clips)) {
    file.AppendHistory(line.text, line.step);
  }
  constexpr const char* kStep = "Writing metadata";
  if (output.IsFraction()) {
    file.SetKeyword("BUNIT", "1", "Dimensionless unscreen fraction", kStep);
  }
  file.SetKeyword("CREATOR", "NebulexAstro CLI", "", kStep);
}

// --- Pixels ---

// Every `stride`th of the values, from `offset` on.
std::vector<double> TakeChannel(const std::vector<double>& values, std::size_t offset,
                                std::size_t stride) {
  std::vector<double> channel;
  channel.reserve(values.size() / stride);
  for (std::size_t i = offset; i < values.size(); i += stride) {
    channel.push_back(values[i]);
  }
  return channel;
}

void WriteEncoded(FitsFile& file, std::uint64_t first, std::vector<double>& physical,
                  const FitsStorage& storage, ClipCount& clips) {
  constexpr const char* kStep = "Writing pixels";
  if (!storage.IsInteger()) {
    for (double& value : physical) {
      value = EncodeFloatValue(value, storage.format);
    }
    file.WritePixels(first, std::span<const double>(physical), kStep);
    return;
  }
  std::vector<std::int64_t> stored(physical.size());
  std::transform(physical.begin(), physical.end(), stored.begin(),
                 [&](double value) { return EncodeStorageValue(value, storage.format, clips); });
  file.WritePixels(first, std::span<const std::int64_t>(stored), kStep);
}

ClipCount WritePixels(FitsFile& file, const Output& output) {
  ClipCount clips;
  PhysicalRows rows(output.image, output.storage.white,
                    RestoringInfo(output.source, output.role, output.linear));
  const auto channels = static_cast<std::size_t>(output.image.channels());
  const bool isWhole = output.IsInterleaved() || channels == 1;
  const std::size_t passes = isWhole ? 1 : static_cast<std::size_t>(output.planes);
  std::uint64_t first = 0;
  for (std::size_t plane = 0; plane < passes; ++plane) {
    for (int r = 0; r < output.image.rows; ++r) {
      const std::vector<double>& row = rows.Row(r);
      std::vector<double> samples = isWhole ? row : TakeChannel(row, plane, channels);
      WriteEncoded(file, first, samples, output.storage, clips);
      first += samples.size();
    }
  }
  return clips;
}

// DATAMIN and DATAMAX of the physical values that the file now holds.
void WriteExtrema(FitsFile& file, const Output& output) {
  double minimum = std::numeric_limits<double>::infinity();
  double maximum = -minimum;
  auto total = static_cast<std::uint64_t>(output.planes);
  total *= output.image.total();
  std::vector<double> band(static_cast<std::size_t>(std::min(total, kBandSamples)));
  for (std::uint64_t first = 0; first < total; first += band.size()) {
    band.resize(static_cast<std::size_t>(std::min<std::uint64_t>(band.size(), total - first)));
    file.ReadPixels(first, band, "Reading quantized output extrema");
    const auto [low, high] = std::minmax_element(band.begin(), band.end());
    minimum = std::min(minimum, *low);
    maximum = std::max(maximum, *high);
  }
  file.SetKeyword("DATAMIN", minimum, "", "Writing output extrema");
  file.SetKeyword("DATAMAX", maximum, "", "Writing output extrema");
}

void WriteFile(FitsFile& file, const Output& output, const DiagnosticsSink& sink) {
  const FitsStorage& storage = output.storage;
  file.CreateImage(storage.format.bitpix, output.Axes());
  if (storage.IsInteger()) {
    RequireIntegerScaling(storage.format);
  }
  WriteScaling(file, output);
  file.ReserveCards(CountCardsToCome(output), "Creating image");
  if (storage.IsInteger()) {
    file.ApplyScaling(storage.format.bscale, storage.format.bzero, "Applying source scaling");
  }
  file.ApplyScaling(1.0, 0.0, "Selecting explicitly quantized storage samples");
  const ClipCount clips = WritePixels(file, output);
  file.ApplyScaling(storage.format.bscale, storage.format.bzero,
                    "Restoring physical scaling for output inspection");
  WriteExtrema(file, output);
  if (storage.IsInteger()) {
    ReportQuantization(clips, output.role, sink);
  }
  WriteHeaderTail(file, output, clips);
  file.WriteChecksum("Writing checksum");
  file.Close();
}

// --- The file's place ---

[[noreturn]] void ThrowReplacementError(const ReplacementError& error, const std::string& path,
                                        const std::string& writingStep) {
  const std::string reason = error.what();
  switch (error.FailedStep()) {
    case ReplacementError::Step::kInspect:
      throw std::invalid_argument("Unable to inspect FITS output path: " + path + " (" + reason +
                                  ")");
    case ReplacementError::Step::kReplace:
      throw std::invalid_argument("Unable to replace FITS output path: " + path + " (" + reason +
                                  ")");
    default:
      throw std::invalid_argument(writingStep + " failed for FITS image " + path + ": " + reason);
  }
}

void Compress(const std::string& diskPath, const std::string& path) {
  try {
    CompressFileInPlace(diskPath);
  } catch (const std::system_error& error) {
    throw std::invalid_argument("Compressing failed for FITS image " + path + ": " +
                                error.code().message());
  }
}

void WriteBesideTarget(const std::string& path, const Output& output, const DiagnosticsSink& sink) {
  std::string step = "Creating image";
  try {
    ReplacedFile target(path);
    // CFITSIO creates its files itself, under a name that is free.
    std::error_code ignored;
    std::filesystem::remove(target.TemporaryPath(), ignored);
    {
      FitsFile file = FitsFile::Create(target.TemporaryPath(), path);
      WriteFile(file, output, sink);
    }
    if (ToLower(path).ends_with(".gz")) {
      Compress(target.TemporaryPath(), path);
    }
    step = "Closing";
    target.Commit();
  } catch (const ReplacementError& error) {
    ThrowReplacementError(error, path, step);
  }
}

}  // namespace

void CheckFitsTarget(const std::string& path) {
  try {
    const ReplacedFile probe(path);
  } catch (const ReplacementError& error) {
    ThrowReplacementError(error, path, "Creating image");
  }
}

void WriteFitsOutput(const std::string& path, const cv::Mat& image, bool isGrayscale,
                     const SourceImageInfo* source, OutputRole role, const LinearOutputInfo* linear,
                     const DiagnosticsSink& sink) {
  RequireChannels(image);
  if (source != nullptr && linear != nullptr) {
    RequireLinearMatch(image, *linear);
  }
  const Output output{
      image, isGrayscale ? 1 : image.channels(), source, role, linear, StorageFor(source, role)};
  ReportConversion(output, sink);
  WriteBesideTarget(path, output, sink);
}

cv::Mat PreviewFitsOutput(const cv::Mat& image, const SourceImageInfo* source,
                          const LinearOutputInfo* linear) {
  RequireChannels(image);
  if (source != nullptr && linear != nullptr) {
    RequireLinearMatch(image, *linear);
  }
  const FitsStorage storage = StorageFor(source, OutputRole::kMain);
  PhysicalRows rows(image, storage.white, RestoringInfo(source, OutputRole::kMain, linear));
  ClipCount clips;
  cv::Mat preview(image.size(), CV_MAKETYPE(CV_64F, image.channels()));
  for (int r = 0; r < image.rows; ++r) {
    const std::vector<double>& physical = rows.Row(r);
    std::transform(physical.begin(), physical.end(), preview.ptr<double>(r), [&](double value) {
      const double decoded =
          storage.IsInteger()
              ? DecodeStorageValue(EncodeStorageValue(value, storage.format, clips), storage.format)
              : DecodeFloatValue(EncodeFloatValue(value, storage.format), storage.format);
      return decoded / storage.white;
    });
  }
  return preview;
}

}  // namespace project_lumen::io
