#include "io/ImageFormat.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <string_view>

namespace project_lumen::io {
namespace {

constexpr std::size_t kLeadingBytes = 12;
constexpr char kClassicTiffVersion = 42;
constexpr char kBigTiffVersion = 43;

// Zeros stand for what a shorter file lacks.
std::array<char, kLeadingBytes> ReadLeadingBytes(const std::string& path) {
  std::array<char, kLeadingBytes> bytes{};
  std::ifstream file(path, std::ios::binary);
  file.read(bytes.data(), bytes.size());
  return bytes;
}

// "P1" to "P7", "PF" or "Pf", and a blank.
bool IsNetpbm(std::string_view leading) {
  constexpr std::string_view kKinds = "1234567Ff";
  return leading[0] == 'P' && kKinds.find(leading[1]) != std::string_view::npos &&
         std::isspace(static_cast<unsigned char>(leading[2])) != 0;
}

bool IsWebp(std::string_view leading) {
  return leading.starts_with("RIFF") && leading.substr(8) == "WEBP";
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

bool IsPlainFormat(const std::string& path) {
  using namespace std::string_view_literals;
  constexpr std::array kBeginnings = {
      "#?RGBE"sv,
      "#?RADIANCE"sv,        // Radiance HDR
      "\x59\xA6\x6A\x95"sv,  // Sun raster
  };
  const std::array<char, kLeadingBytes> bytes = ReadLeadingBytes(path);
  const std::string_view leading(bytes.data(), bytes.size());
  return IsNetpbm(leading) || IsWebp(leading) ||
         std::any_of(kBeginnings.begin(), kBeginnings.end(), [leading](std::string_view beginning) {
           return leading.starts_with(beginning);
         });
}

}  // namespace project_lumen::io
