#include "io/ImageFormat.h"

#include <array>
#include <fstream>
#include <string_view>

namespace project_lumen::io {
namespace {

constexpr std::size_t kLeadingBytes = 8;
constexpr char kClassicTiffVersion = 42;
constexpr char kBigTiffVersion = 43;

// Zeros stand for what a shorter file lacks.
std::array<char, kLeadingBytes> ReadLeadingBytes(const std::string& path) {
  std::array<char, kLeadingBytes> bytes{};
  std::ifstream file(path, std::ios::binary);
  file.read(bytes.data(), bytes.size());
  return bytes;
}

bool IsTiffVersion(char version) {
  return version == kClassicTiffVersion || version == kBigTiffVersion;
}

}  // namespace

ImageFormat IdentifyImageFormat(const std::string& path) {
  const std::array<char, kLeadingBytes> bytes = ReadLeadingBytes(path);
  const std::string_view leading(bytes.data(), bytes.size());
  if ((leading.starts_with("II") && IsTiffVersion(bytes[2])) ||
      (leading.starts_with("MM") && IsTiffVersion(bytes[3]))) {
    return ImageFormat::kTiff;
  }
  if (leading.starts_with("\x89PNG")) {
    return ImageFormat::kPng;
  }
  if (leading.starts_with("\xFF\xD8\xFF")) {
    return ImageFormat::kJpeg;
  }
  if (leading.starts_with("BM")) {
    return ImageFormat::kBmp;
  }
  return ImageFormat::kUnclassified;
}

std::string DetectImageFormat(const std::string& path) {
  switch (IdentifyImageFormat(path)) {
    case ImageFormat::kTiff:
      return "TIFF";
    case ImageFormat::kPng:
      return "PNG";
    case ImageFormat::kJpeg:
      return "JPEG";
    case ImageFormat::kBmp:
      return "BMP";
    default:
      return "OpenCV (format unclassified)";
  }
}

}  // namespace project_lumen::io
