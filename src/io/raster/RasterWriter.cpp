#include "io/raster/RasterWriter.h"

#include <algorithm>
#include <array>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include "common/Assertion.h"
#include "common/OutOfMemory.h"
#include "io/files/BufferedFile.h"
#include "io/files/PathSuffix.h"
#include "io/files/ReplacedFile.h"
#include "io/raster/FormatLimits.h"
#include "io/tiff/AstroTiff.h"
#include "io/tiff/TiffWriter.h"

namespace project_lumen::io {
namespace {

bool HasLosslessSuffix(const std::string& path) {
  return LowercaseSuffix(path, 4) == ".tif" || LowercaseSuffix(path, 5) == ".tiff" ||
         LowercaseSuffix(path, 4) == ".png";
}

[[noreturn]] void FailToWrite(const std::string& path) {
  throw std::invalid_argument("Unable to write output image: " + path);
}

[[noreturn]] void FailToWrite(const std::string& path, const std::string& reason) {
  throw std::invalid_argument("Unable to write output image: " + path + " (" + reason + ")");
}

// What OpenCV says of its success; its own errors mean none.
template <class Work>
bool Succeeds(Work work) {
  try {
    return WithBadAlloc(work);
  } catch (const cv::Exception&) {
    return false;
  }
}

// What OpenCV's encoders may grow their buffer to without a further allocation.
std::size_t LargestEncodedSize(const cv::Mat& image) {
  constexpr std::size_t kFileStructure = std::size_t{1} << 20U;
  return image.total() * image.elemSize() / 2 * 3 + kFileStructure;
}

// In memory, since only then is it certain that every byte was written: encoders of files on a full
// disk were seen to report success. OpenCV takes the format from a whole path's extension.
std::vector<std::uint8_t> Encode(const std::string& path, const cv::Mat& image) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(LargestEncodedSize(image));
  const bool isEncoded = Succeeds([&] { return cv::imencode(path, image, bytes); });
  if (!isEncoded || bytes.empty()) {
    FailToWrite(path);
  }
  return bytes;
}

// Lets OpenCV say that it has no encoder for the extension; it does so before it touches a file.
void RequireEncoder(const std::string& path) {
  if (!cv::haveImageWriter(path)) {
    cv::imwrite(path, cv::Mat(1, 1, CV_8UC1, cv::Scalar(0)));
  }
}

// Errors on the way of an image to its file, in the words of the user's message.
template <class Step>
void WithPathInErrors(const std::string& path, const Step& step) {
  try {
    step();
  } catch (const ReplacementError& error) {
    FailToWrite(path, error.what());
  } catch (const std::system_error& error) {
    FailToWrite(path, error.code().message());
  }
}

void WriteBytes(int descriptor, const std::vector<std::uint8_t>& bytes) {
  BufferedFile file(descriptor);
  file.Write(0, bytes);
  if (!file.Flush()) {
    throw std::system_error(file.Error());
  }
}

int AstroTiffBitDepth(int type) {
  switch (CV_MAT_DEPTH(type)) {
    case CV_8U:
      return 8;
    case CV_16U:
      return 16;
    default:
      throw std::invalid_argument(
          "AstroTIFF metadata preservation requires an 8-bit or 16-bit TIFF output.");
  }
}

// The ImageDescription of the output, empty for none.
std::string OutputDescription(const std::string& path, int type,
                              const std::string& astroTiffHeader) {
  if (astroTiffHeader.empty() || !IsTiffPath(path)) {
    return "";
  }
  return BuildAstroTiffOutputHeader(astroTiffHeader, AstroTiffBitDepth(type));
}

// OpenCV encodes these into files alone: cv::imencode takes the way through the system's folder for
// temporary files.
bool IsEncodedIntoFiles(const std::string& path) {
  constexpr std::array<std::string_view, 6> kExtensions{".hdr", ".pic", ".pfm",
                                                        ".exr", ".jp2", ".j2k"};
  return std::any_of(kExtensions.begin(), kExtensions.end(),
                     [name = ToLower(path)](auto extension) { return name.ends_with(extension); });
}

// Read back, since an encoder does not notice that the disk is full.
void EncodeIntoFile(const std::string& temporaryPath, const cv::Mat& image,
                    const std::string& path) {
  const bool isWhole = Succeeds([&] {
    return cv::imwrite(temporaryPath, image) &&
           cv::imread(temporaryPath, cv::IMREAD_UNCHANGED).size() == image.size();
  });
  if (!isWhole) {
    FailToWrite(path);
  }
}

void RequireWritableImage(const std::string& path, cv::Size size, int type) {
  const std::string obstacle = FormatObstacle(path, size, type);
  if (!obstacle.empty()) {
    FailToWrite(path, obstacle);
  }
}

bool IsStoredInTiff(int type) {
  return type == CV_8UC1 || type == CV_8UC3 || type == CV_16UC1 || type == CV_16UC3;
}

}  // namespace

int OutputSampleDepth(const std::string& path, int storedDepth) {
  if (!HasLosslessSuffix(path)) {
    return CV_8U;
  }
  return storedDepth == CV_8U ? CV_8U : CV_16U;
}

void CheckRasterTarget(const std::string& path, cv::Size size, int type) {
  OutputSampleDepth(path, CV_8U);
  RequireEncoder(path);
  RequireWritableImage(path, size, type);
  WithPathInErrors(path, [&path] { const ReplacedFile probe(path, Replacing::kContent); });
}

RasterWriter::RasterWriter(const std::string& path, cv::Size size, int type,
                           const std::string& astroTiffHeader)
    : path_(path),
      size_(size),
      type_(type),
      description_(OutputDescription(path, type, astroTiffHeader)) {
  RequireEncoder(path);
  RequireWritableImage(path, size, type);
  const bool isTiff = IsTiffPath(path);
  if (isTiff && !IsStoredInTiff(type)) {
    FailToWrite(path);
  }
  WithPathInErrors(path, [&] {
    file_ = std::make_unique<ReplacedFile>(path, Replacing::kContent);
    if (isTiff) {
      tiff_ = std::make_unique<TiffWriter>(file_->Descriptor(), size, type);
    }
  });
  if (!isTiff) {
    image_.Begin(size, type);
  }
}

RasterWriter::~RasterWriter() = default;

void RasterWriter::Append(const cv::Mat& rows) {
  NEBULEX_ASSERT(
      "project_lumen::io::RasterWriter::Append",
      rows.type() == type_ && rows.cols == size_.width && rows.rows <= size_.height - rowsTaken_);
  rowsTaken_ += rows.rows;
  if (tiff_) {
    WithPathInErrors(path_, [&] { tiff_->Append(rows); });
  } else {
    image_.Take(rows);
  }
}

void RasterWriter::Finish() {
  try {
    NEBULEX_ASSERT("project_lumen::io::RasterWriter::Finish", rowsTaken_ == size_.height);
    Complete();
  } catch (...) {
    tiff_.reset();
    file_.reset();
    throw;
  }
}

void RasterWriter::Complete() {
  WithPathInErrors(path_, [this] {
    if (tiff_) {
      tiff_->Finish();
      if (!description_.empty()) {
        AppendAstroTiffMetadata(file_->SafePath(), description_, path_);
      }
    } else if (IsEncodedIntoFiles(path_) && !file_->TemporaryPath().empty()) {
      EncodeIntoFile(file_->TemporaryPath(), image_.Release(), path_);
    } else {
      WriteBytes(file_->Descriptor(), Encode(path_, image_.Release()));
    }
    file_->Commit();
  });
}

}  // namespace project_lumen::io
