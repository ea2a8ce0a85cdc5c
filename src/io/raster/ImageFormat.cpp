#include "io/raster/ImageFormat.h"

#include <array>
#include <cctype>
#include <fstream>
#include <string_view>

#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"

namespace project_lumen::io {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kLeadingBytes = 12;

// Zeros stand for what a shorter file lacks.
std::array<char, kLeadingBytes> ReadLeadingBytes(std::istream& file) {
  std::array<char, kLeadingBytes> bytes{};
  file.clear();
  file.seekg(0);
  file.read(bytes.data(), bytes.size());
  return bytes;
}

bool IsTiff(std::string_view leading) {
  constexpr char kClassicVersion = 42;
  constexpr char kBigTiffVersion = 43;
  const auto isVersion = [](char byte) {
    return byte == kClassicVersion || byte == kBigTiffVersion;
  };
  return (leading.starts_with("II") && isVersion(leading[2])) ||
         (leading.starts_with("MM") && isVersion(leading[3]));
}

// A "P", one of these kinds, and a blank.
bool IsAnymap(std::string_view leading, std::string_view kinds) {
  return leading[0] == 'P' && kinds.find(leading[1]) != std::string_view::npos &&
         std::isspace(static_cast<unsigned char>(leading[2])) != 0;
}

bool IsFloatingPoint(std::string_view leading) {
  return leading.starts_with("v/1\x01"sv) || leading.starts_with("#?RGBE"sv) ||
         leading.starts_with("#?RADIANCE"sv) || IsAnymap(leading, "Ff");
}

}  // namespace

ImageFormat IdentifyImageFormat(std::istream& file) {
  const std::array<char, kLeadingBytes> bytes = ReadLeadingBytes(file);
  const std::string_view leading(bytes.data(), bytes.size());
  if (IsTiff(leading)) {
    return ImageFormat::kTiff;
  }
  if (leading.starts_with("\x89PNG"sv)) {
    return ImageFormat::kPng;
  }
  if (leading.starts_with("\xFF\xD8\xFF"sv)) {
    return ImageFormat::kJpeg;
  }
  if (leading.starts_with("BM"sv)) {
    return ImageFormat::kBmp;
  }
  if (leading.starts_with("RIFF"sv) && leading.substr(8) == "WEBP"sv) {
    return ImageFormat::kWebp;
  }
  if (IsAnymap(leading, "1234567")) {
    return ImageFormat::kNetpbm;
  }
  if (leading.starts_with("\x59\xA6\x6A\x95"sv)) {
    return ImageFormat::kSunRaster;
  }
  return IsFloatingPoint(leading) ? ImageFormat::kFloatingPoint : ImageFormat::kUnclassified;
}

std::string NameOf(ImageFormat format) {
  switch (format) {
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

std::string DetectImageFormat(const std::string& path) {
  std::ifstream file(FromUtf8(OpenablePath(path)), std::ios::binary);
  return NameOf(IdentifyImageFormat(file));
}

}  // namespace project_lumen::io
