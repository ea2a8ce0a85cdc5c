#include "io/ImageDecoder.h"

#include <cstdint>
#include <filesystem>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <optional>
#include <system_error>

#include "io/DecodedSizeLimit.h"
#include "io/MemoryFile.h"
#include "io/StandardErrorDiversion.h"

namespace project_lumen::io {
namespace {

std::uint64_t FileSize(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  return error ? 0 : size;
}

// What OpenCV makes of its decoder's result; its own errors mean that there is none.
template <class Decoder>
cv::Mat RunDecoder(std::uint64_t fileSize, const Decoder& decoder) {
  const StandardErrorDiversion diversion;
  const DecodedSizeLimit limit(LargestDecodedSize(fileSize));
  try {
    return decoder();
  } catch (const cv::Exception& error) {
    if (error.code == cv::Error::StsNoMem) {
      throw std::bad_alloc();
    }
    return {};
  }
}

}  // namespace

cv::Mat DecodeImage(const std::string& path) {
  if (FileSize(path) > kLargestInMemory) {
    return DecodeImageFile(path);
  }
  const std::optional<WholeFile> file = ReadWholeFile(path, kLargestInMemory);
  return file ? DecodeImageBytes(*file) : cv::Mat();
}

cv::Mat DecodeImageByPath(const std::string& path) {
  const std::optional<WholeFile> file = ReadWholeFile(path, kLargestInMemory);
  if (!file) {
    return FileSize(path) > kLargestInMemory ? DecodeImageFile(path) : cv::Mat();
  }
  const MemoryFile copy(*file);
  return DecodeImageFile(copy.Path().empty() ? path : copy.Path());
}

cv::Mat DecodeImageFile(const std::string& path) {
  return RunDecoder(FileSize(path), [&path] { return cv::imread(path, cv::IMREAD_UNCHANGED); });
}

cv::Mat DecodeImageBytes(const WholeFile& file) {
  const cv::Mat row(1, static_cast<int>(file.size), CV_8UC1, file.bytes.get());
  return RunDecoder(file.size, [&row] { return cv::imdecode(row, cv::IMREAD_UNCHANGED); });
}

}  // namespace project_lumen::io
