#include "io/raster/ClaimedSize.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>
#include <string_view>

#include "io/files/ByteOrder.h"
#include "io/files/DecodedSize.h"
#include "io/tiff/WebpSize.h"

namespace project_lumen::io {
namespace {

using Bytes = std::span<const std::uint8_t>;

struct Size {
  std::uint64_t width = 0;
  std::uint64_t height = 0;
};

std::string_view TextOf(Bytes file) {
  return {reinterpret_cast<const char*>(file.data()), file.size()};
}

// PNG specification, sections 5.2 and 11.2.2: the signature is followed by the IHDR chunk.
bool CanPngHoldItsClaim(Bytes file) {
  constexpr std::string_view kSignature = "\x89PNG\r\n\x1A\n";
  constexpr std::size_t kWidth = 16;
  constexpr std::size_t kHeight = 20;
  constexpr std::size_t kBitDepth = 24;
  constexpr std::uint64_t kLargestExpansion = 1032;  // zlib, "Technical details"
  if (file.size() <= kBitDepth || !TextOf(file).starts_with(kSignature)) {
    return false;
  }
  const std::uint64_t width = BigEndian(file, kWidth, 4);
  const std::uint64_t height = BigEndian(file, kHeight, 4);
  // One sample a pixel at least.
  return IsReadableSize(width, height) &&
         width * height * file[kBitDepth] / 8 <= file.size() * kLargestExpansion;
}

// The frame header, ITU-T T.81, section B.2.2; behind it may be anything.
std::optional<Size> SizeOfJpeg(Bytes file) {
  constexpr std::size_t kSegmentHeader = 4;
  constexpr std::size_t kFrameHeader = 9;
  for (std::size_t at = 2; at + kFrameHeader <= file.size();) {
    const std::uint8_t marker = file[at + 1];
    if (file[at] != 0xFF || marker == 0xFF) {
      ++at;
      continue;
    }
    const bool isFrame =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (isFrame) {
      return Size{BigEndian(file, at + kSegmentHeader + 3, 2),
                  BigEndian(file, at + kSegmentHeader + 1, 2)};
    }
    at += 2 + BigEndian(file, at + 2, 2);
  }
  return std::nullopt;
}

// The height is negative for rows from the top.
std::optional<Size> SizeOfBmp(Bytes file) {
  constexpr std::size_t kInfoSize = 14;
  constexpr std::size_t kWidth = 18;
  constexpr std::uint64_t kOldInfo = 12;
  if (file.size() < kWidth + 8) {
    return std::nullopt;
  }
  if (LittleEndian(file, kInfoSize, 4) == kOldInfo) {
    return Size{LittleEndian(file, kWidth, 2), LittleEndian(file, kWidth + 2, 2)};
  }
  const auto height = static_cast<std::int32_t>(LittleEndian(file, kWidth + 4, 4));
  return Size{LittleEndian(file, kWidth, 4),
              static_cast<std::uint64_t>(height < 0 ? -std::int64_t{height} : height)};
}

// The next number behind blanks and comments, zero when there is none.
std::uint64_t NextNumber(std::string_view& text) {
  const auto isDigit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
  while (!text.empty() && !isDigit(text.front())) {
    text.remove_prefix(text.front() == '#' ? std::min(text.find('\n'), text.size() - 1) : 0);
    text.remove_prefix(1);
  }
  constexpr std::uint64_t kLargest = std::uint64_t{1} << 32U;
  std::uint64_t number = 0;
  for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1)) {
    number = std::min(kLargest, number * 10 + static_cast<std::uint64_t>(text.front() - '0'));
  }
  return number;
}

std::uint64_t NumberBehind(std::string_view text, std::string_view word) {
  const std::size_t at = text.find(word);
  text.remove_prefix(at == std::string_view::npos ? text.size() : at + word.size());
  return NextNumber(text);
}

std::optional<Size> SizeOfNetpbm(Bytes file) {
  constexpr std::size_t kLongestHeader = 4096;
  std::string_view text = TextOf(file).substr(0, kLongestHeader);
  if (text[1] == '7') {
    return Size{NumberBehind(text, "\nWIDTH"), NumberBehind(text, "\nHEIGHT")};
  }
  text.remove_prefix(2);
  const std::uint64_t width = NextNumber(text);
  return Size{width, NextNumber(text)};
}

std::optional<Size> SizeOfWebp(Bytes file) {
  const std::optional<WebpSize> size = ReadWebpSize(file);
  return size ? std::optional<Size>({size->width, size->height}) : std::nullopt;
}

std::optional<Size> SizeOfSunRaster(Bytes file) {
  if (file.size() < 12) {
    return std::nullopt;
  }
  return Size{BigEndian(file, 4, 4), BigEndian(file, 8, 4)};
}

bool CanHold(Bytes file, const std::optional<Size>& size, std::uint64_t pixelBytes) {
  return size && IsReadableSize(size->width, size->height) &&
         size->width * size->height * pixelBytes <= LargestDecodedSize(file.size());
}

}  // namespace

bool CanHoldItsClaim(ImageFormat format, Bytes file) {
  switch (format) {
    case ImageFormat::kPng:
      return CanPngHoldItsClaim(file);
    case ImageFormat::kJpeg:
      return CanHold(file, SizeOfJpeg(file), 3);
    case ImageFormat::kBmp:
      return CanHold(file, SizeOfBmp(file), 4);
    case ImageFormat::kWebp:
      return CanHold(file, SizeOfWebp(file), 4);
    case ImageFormat::kNetpbm:
      return CanHold(file, SizeOfNetpbm(file), 6);
    case ImageFormat::kSunRaster:
      return CanHold(file, SizeOfSunRaster(file), 4);
    default:
      return false;
  }
}

}  // namespace project_lumen::io
