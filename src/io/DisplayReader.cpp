#include "io/DisplayReader.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <istream>
#include <limits>
#include <opencv2/core.hpp>
#include <optional>
#include <stdexcept>
#include <streambuf>
#include <string_view>

#include "io/DecodedSizeLimit.h"
#include "io/DeflateStrips.h"
#include "io/ImageDecoder.h"
#include "io/ImageFormat.h"
#include "io/JpegEnd.h"
#include "io/TiffErrors.h"
#include "io/TiffImageFields.h"
#include "io/WholeFile.h"

namespace project_lumen::io {
namespace {

constexpr double kBitsPerByte = 8.0;
constexpr double kLargestDeflateExpansion = 1032.0;  // zlib, "Technical details"

// The most bytes that a byte of a compressed strip can stand for.
double LargestExpansion(std::uint64_t compression) {
  switch (compression) {
    case kTiffUncompressed:
      return 1.0;
    case kTiffPackBits:
      return 64.0;  // two bytes stand for up to 128
    case kTiffLzw:
      return 4096.0;  // a code of more than a byte stands for a string shorter than the table
    case kTiffDeflate:
    case kTiffOldDeflate:
      return kLargestDeflateExpansion;
    default:
      return std::numeric_limits<double>::infinity();
  }
}

bool CanHoldItsClaim(const TiffImageFields& fields) {
  const double claimedBytes = static_cast<double>(fields.width) *
                              static_cast<double>(fields.height) *
                              static_cast<double>(fields.samplesPerPixel) *
                              static_cast<double>(fields.bitsPerSample) / kBitsPerByte;
  return claimedBytes <=
         static_cast<double>(fields.fileSize) * LargestExpansion(fields.compression);
}

bool IsTiled(const TiffImageFields& fields) {
  return fields.tileWidth != 0 || fields.tileHeight != 0;
}

// OpenCV allocates a whole strip or tile, of four bytes a pixel at least, even where the image is
// smaller.
bool HasSensibleStrips(const TiffImageFields& fields) {
  const std::uint64_t rows =
      fields.rowsPerStrip == kTiffOneStrip ? fields.height : fields.rowsPerStrip;
  const auto width = static_cast<double>(IsTiled(fields) ? fields.tileWidth : fields.width);
  const auto height = static_cast<double>(IsTiled(fields) ? fields.tileHeight : rows);
  const double pixelBytes =
      std::max(4.0, static_cast<double>(fields.samplesPerPixel) *
                        static_cast<double>(fields.bitsPerSample) / kBitsPerByte);
  return width * height * pixelBytes <= static_cast<double>(LargestDecodedSize(fields.fileSize));
}

bool IsDeflated(const TiffImageFields& fields) {
  return fields.compression == kTiffDeflate || fields.compression == kTiffOldDeflate;
}

bool IsGrey(const TiffImageFields& fields) {
  return fields.photometric == kTiffWhiteIsZero || fields.photometric == kTiffBlackIsZero;
}

// OpenCV takes the first sample of grey pixels with several, and reduces some to 8 bits.
void RequireVisibleChannels(const TiffImageFields& fields) {
  const bool hasOneSample = IsGrey(fields) || fields.photometric == kTiffPalette;
  if (hasOneSample && fields.samplesPerPixel != 1) {
    throw std::invalid_argument("Unsupported number of image channels: " +
                                std::to_string(fields.samplesPerPixel));
  }
}

[[noreturn]] void RefuseDepth() {
  throw std::invalid_argument(
      "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
}

// OpenCV shifts these up to 16 bits, so white would no longer be white.
void RequireWholeBytes(const TiffImageFields& fields) {
  const std::uint64_t bits = fields.bitsPerSample;
  if (bits > 8 && bits < 16) {
    RefuseDepth();
  }
}

// OpenCV 4.6 takes planes for interleaved samples above 8 bits, and brings L*a*b* to 8-bit RGB.
bool IsMisreadByOpenCv(const TiffImageFields& fields) {
  const bool hasSeparatePlanes = fields.planarConfiguration == kTiffSeparatePlanes &&
                                 fields.samplesPerPixel > 1 && fields.bitsPerSample > 8;
  return hasSeparatePlanes || fields.photometric == kTiffCieLab;
}

cv::Mat ReadTiffImage(const std::string& path) {
  const std::optional<TiffImageFields> fields = ReadTiffImageFields(path);
  if (!fields) {
    return {};
  }
  RequireVisibleChannels(*fields);
  RequireWholeBytes(*fields);
  if (IsMisreadByOpenCv(*fields) || !CanHoldItsClaim(*fields) || !HasSensibleStrips(*fields) ||
      (IsDeflated(*fields) && !AreSoundDeflateStrips(path))) {
    return {};
  }
  const TiffErrors errors;
  cv::Mat image = IsTiled(*fields) ? DecodeImageByPath(path) : DecodeImage(path);
  if (TiffErrors::HaveOccurred() || (fields->bitsPerSample > 8 && image.depth() == CV_8U)) {
    return {};
  }
  // Done by the decoder for fewer bits only.
  if (fields->photometric == kTiffWhiteIsZero && image.type() == CV_16UC1) {
    cv::bitwise_not(image, image);
  }
  return image;
}

// PNG specification, sections 5.2 and 11.2.2: the signature is followed by the IHDR chunk.
bool CanPngHoldItsClaim(const std::string& path) {
  constexpr std::string_view kSignature = "\x89PNG\r\n\x1A\n";
  constexpr std::size_t kWidth = 16;
  constexpr std::size_t kHeight = 20;
  constexpr std::size_t kBitDepth = 24;
  std::array<char, kBitDepth + 1> bytes{};
  std::ifstream file(path, std::ios::binary);
  file.read(bytes.data(), bytes.size());
  if (!file || !std::string_view(bytes.data(), bytes.size()).starts_with(kSignature)) {
    return false;
  }
  file.seekg(0, std::ios::end);
  const auto number = [&bytes](std::size_t offset, std::size_t size) {
    double value = 0.0;
    for (std::size_t i = offset; i < offset + size; ++i) {
      value = value * 256.0 + static_cast<unsigned char>(bytes[i]);
    }
    return value;
  };
  // One sample a pixel at least.
  const double claimedBytes =
      number(kWidth, 4) * number(kHeight, 4) * number(kBitDepth, 1) / kBitsPerByte;
  return claimedBytes <= static_cast<double>(file.tellg()) * kLargestDeflateExpansion;
}

class MemoryBuffer : public std::streambuf {
 public:
  explicit MemoryBuffer(const WholeFile& file) {
    auto* const begin = reinterpret_cast<char*>(file.bytes.get());
    setg(begin, begin, begin + file.size);
  }
};

// libjpeg paints grey what it cannot read.
cv::Mat ReadJpegImage(const std::string& path) {
  const std::optional<WholeFile> file = ReadWholeFile(path, kLargestInMemory);
  if (!file) {
    return {};
  }
  MemoryBuffer buffer(*file);
  std::istream stream(&buffer);
  return ReachesJpegEnd(stream) ? DecodeImageBytes(*file) : cv::Mat();
}

// OpenEXR allocates whatever a file claims, and its samples are never integers of 8 or 16 bits.
bool IsOpenExr(const std::string& path) {
  std::array<char, 4> bytes{};
  std::ifstream(path, std::ios::binary).read(bytes.data(), bytes.size());
  return std::string_view(bytes.data(), bytes.size()) == "v/1\x01";
}

cv::Mat ReadUnclassifiedImage(const std::string& path) {
  if (IsOpenExr(path)) {
    RefuseDepth();
  }
  return IsPlainFormat(path) ? DecodeImageFile(path) : cv::Mat();
}

}  // namespace

cv::Mat ReadDisplayImage(const std::string& path) {
  switch (IdentifyImageFormat(path)) {
    case ImageFormat::kTiff:
      return ReadTiffImage(path);
    case ImageFormat::kPng:
      return CanPngHoldItsClaim(path) ? DecodeImage(path) : cv::Mat();
    case ImageFormat::kJpeg:
      return ReadJpegImage(path);
    case ImageFormat::kBmp:
      return DecodeImageFile(path);
    default:
      return ReadUnclassifiedImage(path);
  }
}

}  // namespace project_lumen::io
