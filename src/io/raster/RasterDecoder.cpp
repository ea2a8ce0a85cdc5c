#include "io/raster/RasterDecoder.h"

#include <istream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <optional>
#include <streambuf>

#include "common/OutOfMemory.h"
#include "io/files/WholeFile.h"
#include "io/raster/ClaimedSize.h"
#include "io/raster/JpegEnd.h"

namespace project_lumen::io {
namespace {

// OpenCV counts the bytes of an image in memory with an int.
constexpr std::size_t kLargestInMemory = 0x7FFFFFFF;

// What OpenCV makes of its decoder's result; its own errors mean that there is none.
template <class Decoder>
cv::Mat RunDecoder(const Decoder& decoder) {
  try {
    return WithBadAlloc(decoder);
  } catch (const cv::Exception&) {
    return {};
  }
}

class MemoryBuffer : public std::streambuf {
 public:
  explicit MemoryBuffer(const WholeFile& file) {
    auto* const begin = reinterpret_cast<char*>(file.bytes.get());
    setg(begin, begin, begin + file.size);
  }
};

// libjpeg paints grey what it cannot read.
bool IsWhole(ImageFormat format, const WholeFile& file) {
  if (format != ImageFormat::kJpeg) {
    return true;
  }
  MemoryBuffer buffer(file);
  std::istream stream(&buffer);
  return ReachesJpegEnd(stream);
}

bool IsLargerThanMemoryAllows(std::istream& file) {
  file.clear();
  file.seekg(0, std::ios::end);
  return file.tellg() > static_cast<std::streamoff>(kLargestInMemory);
}

}  // namespace

cv::Mat DecodeImage(ImageFormat format, std::istream& file, const std::string& path) {
  const bool isDecodedInPlace = format == ImageFormat::kPng || format == ImageFormat::kBmp ||
                                format == ImageFormat::kNetpbm || format == ImageFormat::kSunRaster;
  if (isDecodedInPlace && IsLargerThanMemoryAllows(file)) {
    return RunDecoder([&path] { return cv::imread(path, cv::IMREAD_UNCHANGED); });
  }
  const std::optional<WholeFile> whole = ReadWholeFile(file, kLargestInMemory);
  if (!whole || !CanHoldItsClaim(format, whole->Bytes()) || !IsWhole(format, *whole)) {
    return {};
  }
  const cv::Mat row(1, static_cast<int>(whole->size), CV_8UC1, whole->bytes.get());
  return RunDecoder([&row] { return cv::imdecode(row, cv::IMREAD_UNCHANGED); });
}

}  // namespace project_lumen::io
