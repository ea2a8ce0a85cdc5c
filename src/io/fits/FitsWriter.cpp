#include "io/fits/FitsWriter.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "common/Assertion.h"
#include "common/NumberText.h"
#include "io/files/FileDescriptor.h"
#include "io/files/GzipFile.h"
#include "io/files/PathSuffix.h"
#include "io/files/ReplacedFile.h"
#include "io/fits/FitsKeywords.h"
#include "io/fits/FitsOutputFile.h"
#include "io/fits/FitsStorage.h"
#include "io/fits/HeaderBytes.h"

namespace project_lumen::io {
namespace {

constexpr int kWrittenSamples = 1 << 18;  // encoded and written at once
constexpr std::uint64_t kReadSamples = std::uint64_t{1} << 20U;
constexpr std::size_t kHistoryTextLength = 72;  // what a HISTORY card holds

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

// What a result becomes in its file.
struct Output {
  explicit Output(const FitsResult& result)
      : size(result.size),
        channels(result.channels),
        planes(result.isGrayscale ? 1 : result.channels),
        source(result.source),
        role(result.role),
        linear(result.linear),
        storage(StorageFor(result.source, result.role)) {}

  cv::Size size;
  int channels;
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
    return planes == 3 && source != nullptr && source->fits.IsInterleaved();
  }
  [[nodiscard]] std::vector<std::int64_t> Axes() const {
    if (planes == 1) {
      return {size.width, size.height};
    }
    return IsInterleaved() ? std::vector<std::int64_t>{3, size.width, size.height}
                           : std::vector<std::int64_t>{size.width, size.height, 3};
  }
  [[nodiscard]] std::uint64_t PlaneSamples() const {
    return static_cast<std::uint64_t>(size.width) * static_cast<std::uint64_t>(size.height);
  }
  [[nodiscard]] std::vector<std::string> Cards() const {
    return source == nullptr ? std::vector<std::string>()
                             : PreservedCards(source->fits, planes == 1);
  }
};

// --- Checks ---

void RequireChannels(int channels) {
  if (channels != 1 && channels != 3) {
    throw std::invalid_argument("Unsupported number of FITS output channels: " +
                                std::to_string(channels));
  }
}

// Throws unless a result of a linear run has its FITS source's size and channels, and each channel
// its threshold.
void RequireLinearMatch(const FitsResult& result) {
  if (result.source == nullptr || result.linear == nullptr) {
    return;
  }
  const FitsImageInfo& source = result.source->fits;
  if (result.size != cv::Size(source.Width(), source.Height()) ||
      result.channels != (result.isGrayscale ? 1 : 3)) {
    throw std::invalid_argument("Linear FITS output geometry differs from the source.");
  }
  if (result.linear->shadows.size() < static_cast<std::size_t>(result.channels)) {
    throw std::invalid_argument("Linear FITS output requires the actual MTF shadow thresholds.");
  }
}

const FitsResult& Checked(const FitsResult& result) {
  RequireChannels(result.channels);
  RequireLinearMatch(result);
  return result;
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
        std::min(output.linear->shadows.size(), static_cast<std::size_t>(output.planes));
    for (std::size_t c = 0; c < count; ++c) {
      lines.push_back({"Linear FITS shadows channel " + std::to_string(c + 1) + "=" +
                           FormatReal(output.linear->shadows[c]),
                       kStep});
    }
  }
  lines.push_back({RoleHistory(output.role), "Writing role history"});
  return lines;
}

// Cards that will follow the mandatory ones, so that their place is kept free and no pixel has to
// move. Clip counts only change the length of one line that fits its card in any case.
std::size_t CountCardsToCome(const Output& output) {
  const std::vector<std::string> cards = output.Cards();
  std::size_t count = cards.size() + 4;  // DATAMIN, DATAMAX, CHECKSUM, DATASUM
  count += output.storage.hasScaling ? 2 : 0;
  for (const HistoryLine& line : HistoryOf(output, {})) {
    count += (line.text.size() + kHistoryTextLength - 1) / kHistoryTextLength;
  }
  count += output.IsFraction() && FindCard(cards, "bunit") == nullptr ? 1 : 0;
  count += FindCard(cards, "creator") == nullptr ? 1 : 0;
  return count;
}

// As the source has it, when its card really says what was read.
void WriteScalingKeyword(FitsOutputFile& file, const Output& output, const std::string& keyword,
                         double value, const std::string& step) {
  const std::string* card =
      output.IsFraction() ? nullptr : FindCard(output.source->fits.headerCards, ToLower(keyword));
  if (card != nullptr && CardNumber(*card) == value) {
    file.SetCard(keyword, *card, step);
  } else {
    file.SetKeyword(keyword, value, "", step);
  }
}

void WriteScaling(FitsOutputFile& file, const Output& output) {
  if (output.storage.hasScaling) {
    const std::string step =
        output.IsFraction() ? "Writing identity scaling" : "Writing source scaling";
    WriteScalingKeyword(file, output, "BSCALE", output.storage.format.bscale, step);
    WriteScalingKeyword(file, output, "BZERO", output.storage.format.bzero, step);
  }
}

void WriteHeaderTail(FitsOutputFile& file, const Output& output, const ClipCount& clips) {
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

std::span<double> RowOf(cv::Mat& image, int row) {
  return {image.ptr<double>(row),
          static_cast<std::size_t>(image.cols) * static_cast<std::size_t>(image.channels())};
}

// The physical values of rows, as doubles.
cv::Mat PhysicalValues(const cv::Mat& rows, double white) {
  cv::Mat values;
  rows.convertTo(values, CV_64F);
  for (int r = 0; r < values.rows; ++r) {
    for (double& value : RowOf(values, r)) {
      value *= white;
    }
  }
  return values;
}

void WriteEncoded(FitsOutputFile& file, std::uint64_t first, std::vector<double>& physical,
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

// Writes a band of rows, the first of which is row `firstRow` of the image.
void WriteBand(FitsOutputFile& file, const Output& output, const cv::Mat& rows, int firstRow,
               ClipCount& clips) {
  const cv::Mat physical = PhysicalValues(rows, output.storage.white);
  const auto* values = physical.ptr<double>();
  const std::size_t count = physical.total() * static_cast<std::size_t>(physical.channels());
  const auto channels = static_cast<std::size_t>(output.channels);
  const auto firstPixel =
      static_cast<std::uint64_t>(firstRow) * static_cast<std::uint64_t>(output.size.width);
  if (channels == 1 || output.IsInterleaved()) {
    std::vector<double> samples(values, values + count);
    WriteEncoded(file, firstPixel * channels, samples, output.storage, clips);
    return;
  }
  std::vector<double> samples(count / channels);
  for (std::size_t plane = 0; plane < static_cast<std::size_t>(output.planes); ++plane) {
    for (std::size_t i = 0; i < samples.size(); ++i) {
      samples[i] = values[i * channels + plane];
    }
    WriteEncoded(file, plane * output.PlaneSamples() + firstPixel, samples, output.storage, clips);
  }
}

// DATAMIN and DATAMAX of the physical values that the file now holds.
void WriteExtrema(FitsOutputFile& file, const Output& output) {
  double minimum = std::numeric_limits<double>::infinity();
  double maximum = -minimum;
  const std::uint64_t total = output.PlaneSamples() * static_cast<std::uint64_t>(output.planes);
  std::vector<double> band(static_cast<std::size_t>(std::min(total, kReadSamples)));
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

// All that comes before the pixels.
void BeginImage(FitsOutputFile& file, const Output& output) {
  const FitsStorage& storage = output.storage;
  if (storage.IsInteger()) {
    RequireIntegerScaling(storage.format);
  }
  WriteScaling(file, output);
  if (storage.IsInteger()) {
    file.ApplyScaling(storage.format.bscale, storage.format.bzero, "Applying source scaling");
  }
  file.ApplyScaling(1.0, 0.0, "Selecting explicitly quantized storage samples");
}

// All that comes after them.
void EndImage(FitsOutputFile& file, const Output& output, const ClipCount& clips) {
  file.ApplyScaling(output.storage.format.bscale, output.storage.format.bzero,
                    "Restoring physical scaling for output inspection");
  WriteExtrema(file, output);
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

std::unique_ptr<ReplacedFile> OpenTarget(const std::string& path) {
  try {
    return std::make_unique<ReplacedFile>(path);
  } catch (const ReplacementError& error) {
    ThrowReplacementError(error, path, "Creating image");
  }
}

// CFITSIO has replaced bytes of these cards.
void PutHeaderBytesBack(const ReplacedFile& target, const Output& output, const std::string& path) {
  std::vector<std::string> cards = output.Cards();
  std::erase_if(cards, [](const std::string& card) { return !HasUnprintableBytes(card); });
  try {
    RestoreHeaderBytes(target.SafePath(), cards);
  } catch (const std::system_error& error) {
    throw std::invalid_argument("Preserving header metadata failed for FITS image " + path + ": " +
                                error.code().message());
  }
}

void Compress(ReplacedFile& target, const std::string& path) {
  constexpr const char* kStep = "Compressing";
  try {
    const FileDescriptor plain = target.StartAgain();
    CompressFile(plain.Get(), target.Descriptor());
  } catch (const ReplacementError& error) {
    ThrowReplacementError(error, path, kStep);
  } catch (const std::system_error& error) {
    throw std::invalid_argument(std::string(kStep) + " failed for FITS image " + path + ": " +
                                error.code().message());
  }
}

}  // namespace

void CheckFitsTarget(const std::string& path) {
  OpenTarget(path);
}

OutputDescription DescribeFitsOutput(const SourceImageInfo* source, OutputRole role) {
  const FitsStorage storage = StorageFor(source, role);
  OutputDescription description;
  description.isFits = true;
  description.bitpix = storage.format.bitpix;
  description.white = source == nullptr ? 1.0 : source->fits.fixedDivisor;
  description.bscale = storage.format.bscale;
  description.bzero = storage.format.bzero;
  description.isFraction = role == OutputRole::kUnscreen && !storage.IsInteger();
  return description;
}

struct FitsWriter::Parts {
  Parts(std::string name, const FitsResult& result)
      : path(std::move(name)),
        output(Checked(result)),
        target(OpenTarget(path)),
        file(target->SafePath(), path, output.storage.format.bitpix, output.Axes(),
             CountCardsToCome(output)) {
    BeginImage(file, output);
  }

  std::string path;
  Output output;
  std::unique_ptr<ReplacedFile> target;
  FitsOutputFile file;
  ClipCount clips;
  int nextRow = 0;
};

FitsWriter::FitsWriter(const std::string& path, const FitsResult& result)
    : parts_(std::make_unique<Parts>(path, result)) {}

FitsWriter::~FitsWriter() = default;

void FitsWriter::Append(const cv::Mat& rows) {
  const Output& output = parts_->output;
  NEBULEX_ASSERT("project_lumen::io::FitsWriter::Append",
                 rows.cols == output.size.width && rows.channels() == output.channels &&
                     rows.rows <= output.size.height - parts_->nextRow);
  const int height = std::max(1, kWrittenSamples / (rows.cols * rows.channels()));
  for (int first = 0; first < rows.rows; first += height) {
    const cv::Mat band = rows.rowRange(first, std::min(first + height, rows.rows));
    WriteBand(parts_->file, output, band, parts_->nextRow, parts_->clips);
    parts_->nextRow += band.rows;
  }
}

OutputReport FitsWriter::Finish() {
  NEBULEX_ASSERT("project_lumen::io::FitsWriter::Finish",
                 parts_->nextRow == parts_->output.size.height);
  EndImage(parts_->file, parts_->output, parts_->clips);
  PutHeaderBytesBack(*parts_->target, parts_->output, parts_->path);
  if (ToLower(parts_->path).ends_with(".gz")) {
    Compress(*parts_->target, parts_->path);
  }
  try {
    parts_->target->Commit();
  } catch (const ReplacementError& error) {
    ThrowReplacementError(error, parts_->path, "Closing");
  }
  return {parts_->output.storage.IsInteger(), parts_->clips.samples, parts_->clips.atUpperLimit};
}

OutputReport WriteFitsOutput(const std::string& path, const cv::Mat& image, bool isGrayscale,
                             const SourceImageInfo* source, OutputRole role,
                             const LinearOutputInfo* linear) {
  FitsWriter writer(path, {image.size(), image.channels(), isGrayscale, source, role, linear});
  writer.Append(image);
  return writer.Finish();
}

cv::Mat PreviewFitsOutput(const cv::Mat& image, const SourceImageInfo* source) {
  RequireChannels(image.channels());
  const FitsStorage storage = StorageFor(source, OutputRole::kMain);
  ClipCount clips;
  cv::Mat preview = PhysicalValues(image, storage.white);
  for (int r = 0; r < preview.rows; ++r) {
    for (double& value : RowOf(preview, r)) {
      const double decoded =
          storage.IsInteger()
              ? DecodeStorageValue(EncodeStorageValue(value, storage.format, clips), storage.format)
              : DecodeFloatValue(EncodeFloatValue(value, storage.format), storage.format);
      value = decoded / storage.white;
    }
  }
  return preview;
}

}  // namespace project_lumen::io
