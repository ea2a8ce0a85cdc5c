#include "io/raster/ClaimedSize.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "support/PngBuilder.h"

namespace project_lumen::io {
namespace {

using namespace std::string_literals;
using test::BigEndian;

std::string LittleEndian(std::uint64_t value, std::size_t size) {
  const std::string bytes = BigEndian(value, size);
  return {bytes.rbegin(), bytes.rend()};
}

bool CanHold(ImageFormat format, const std::string& file) {
  const std::vector<std::uint8_t> bytes(file.begin(), file.end());
  return CanHoldItsClaim(format, bytes);
}

struct Format {
  ImageFormat format;
  std::string extension;
};

const std::vector<Format> kFormats = {
    {ImageFormat::kPng, ".png"},     {ImageFormat::kJpeg, ".jpg"},   {ImageFormat::kBmp, ".bmp"},
    {ImageFormat::kWebp, ".webp"},   {ImageFormat::kNetpbm, ".pgm"}, {ImageFormat::kNetpbm, ".pam"},
    {ImageFormat::kSunRaster, ".sr"}};

TEST(CanHoldItsClaim, FilesOfEachFormatDo) {
  for (const auto& [format, extension] : kFormats) {
    if (!cv::haveImageWriter(extension)) {
      continue;
    }
    for (const cv::Size size : {cv::Size(1, 1), cv::Size(301, 200), cv::Size(5000, 16)}) {
      std::vector<std::uint8_t> bytes;
      ASSERT_TRUE(cv::imencode(extension, cv::Mat::zeros(size, CV_8UC1), bytes)) << extension;
      EXPECT_TRUE(CanHoldItsClaim(format, bytes)) << extension << " " << size;
    }
  }
}

// Headers of images of these sides, followed by a few bytes.
struct Header {
  ImageFormat format;
  std::string (*build)(std::uint64_t width, std::uint64_t height);
};

const std::vector<Header> kHeaders = {
    {ImageFormat::kPng,
     [](std::uint64_t width, std::uint64_t height) {
       return "\x89PNG\r\n\x1A\n"s + BigEndian(13, 4) + "IHDR" + BigEndian(width, 4) +
              BigEndian(height, 4) + "\x08\x02\0\0\0"s;
     }},
    {ImageFormat::kJpeg,
     [](std::uint64_t width, std::uint64_t height) {
       return "\xFF\xD8\xFF\xE0\0\x04..\xFF\xFF\xC2\0\x0B\x08"s + BigEndian(height, 2) +
              BigEndian(width, 2) + "\x01\x01\x11\0"s;
     }},
    {ImageFormat::kBmp,
     [](std::uint64_t width, std::uint64_t height) {
       return "BM" + std::string(12, '\0') + LittleEndian(40, 4) + LittleEndian(width, 4) +
              LittleEndian(height, 4);
     }},
    {ImageFormat::kBmp,
     [](std::uint64_t width, std::uint64_t height) {
       return "BM" + std::string(12, '\0') + LittleEndian(40, 4) + LittleEndian(width, 4) +
              LittleEndian(-height, 4);
     }},
    {ImageFormat::kBmp,
     [](std::uint64_t width, std::uint64_t height) {
       return "BM" + std::string(12, '\0') + LittleEndian(12, 4) + LittleEndian(width, 2) +
              LittleEndian(height, 2) + std::string(4, '\0');
     }},
    {ImageFormat::kWebp,
     [](std::uint64_t width, std::uint64_t height) {
       return "RIFF1234WEBPVP8X" + std::string(8, '\0') + LittleEndian(width - 1, 3) +
              LittleEndian(height - 1, 3);
     }},
    {ImageFormat::kWebp,
     [](std::uint64_t width, std::uint64_t height) {
       return "RIFF1234WEBPVP8L" + std::string(5, '\0') +
              LittleEndian((width - 1) | (height - 1) << 14U, 4) + std::string(5, '\0');
     }},
    {ImageFormat::kWebp,
     [](std::uint64_t width, std::uint64_t height) {
       return "RIFF1234WEBPVP8 " + std::string(10, '\0') + LittleEndian(width, 2) +
              LittleEndian(height, 2);
     }},
    {ImageFormat::kNetpbm,
     [](std::uint64_t width, std::uint64_t height) {
       return "P6\n# 7 by 7\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
     }},
    {ImageFormat::kNetpbm,
     [](std::uint64_t width, std::uint64_t height) {
       return "P7\nHEIGHT " + std::to_string(height) + "\nWIDTH " + std::to_string(width) + "\n";
     }},
    {ImageFormat::kSunRaster, [](std::uint64_t width, std::uint64_t height) {
       return "\x59\xA6\x6A\x95" + BigEndian(width, 4) + BigEndian(height, 4) + "....";
     }}};

TEST(CanHoldItsClaim, AFewBytesHoldASmallImageAndNoLargeOne) {
  for (const Header& header : kHeaders) {
    const auto name = static_cast<int>(header.format);
    EXPECT_TRUE(CanHold(header.format, header.build(100, 50))) << name;
    EXPECT_FALSE(CanHold(header.format, header.build(16'000, 16'000))) << name;
    EXPECT_FALSE(CanHold(header.format, header.build(16'000, 0))) << name;
  }
}

TEST(CanHoldItsClaim, AHeaderCutAnywhereIsRead) {
  for (const Header& header : kHeaders) {
    const std::string whole = header.build(16'000, 16'000);
    for (std::size_t length = 4; length < whole.size(); ++length) {
      CanHold(header.format, whole.substr(0, length));
    }
    EXPECT_FALSE(CanHold(header.format, whole.substr(0, 4)));
  }
}

TEST(CanHoldItsClaim, NothingElseDoes) {
  EXPECT_FALSE(CanHold(ImageFormat::kUnclassified, "P6 1 1 255 abc"));
  EXPECT_FALSE(CanHold(ImageFormat::kTiff, "II*\0"));
  EXPECT_FALSE(CanHold(ImageFormat::kFloatingPoint, "PF 1 1 abc"));
}

}  // namespace
}  // namespace project_lumen::io
