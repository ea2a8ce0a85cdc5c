// What the first directory of a TIFF file says of its image (TIFF 6.0, section 8).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace project_lumen::io {

// PhotometricInterpretation
inline constexpr std::uint64_t kTiffWhiteIsZero = 0;
inline constexpr std::uint64_t kTiffBlackIsZero = 1;
inline constexpr std::uint64_t kTiffPalette = 3;
inline constexpr std::uint64_t kTiffCieLab = 8;

// Compression
inline constexpr std::uint64_t kTiffUncompressed = 1;
inline constexpr std::uint64_t kTiffLzw = 5;
inline constexpr std::uint64_t kTiffDeflate = 8;
inline constexpr std::uint64_t kTiffPackBits = 32773;
inline constexpr std::uint64_t kTiffOldDeflate = 32946;

// PlanarConfiguration
inline constexpr std::uint64_t kTiffSeparatePlanes = 2;

// RowsPerStrip of an image that is one strip, however many rows it has
inline constexpr std::uint64_t kTiffOneStrip = 0xFFFF'FFFF;

struct TiffImageFields {
  std::uint64_t fileSize = 0;  // bytes
  std::uint64_t width = 0;
  std::uint64_t height = 0;
  std::uint64_t bitsPerSample = 1;
  std::uint64_t samplesPerPixel = 1;
  std::uint64_t photometric = kTiffBlackIsZero;
  std::uint64_t compression = kTiffUncompressed;
  std::uint64_t planarConfiguration = 1;
  std::uint64_t rowsPerStrip = kTiffOneStrip;
  std::uint64_t tileWidth = 0;  // 0 for images in strips
  std::uint64_t tileHeight = 0;
};

// Fields that are absent have the values that TIFF 6.0 gives them. None when the file cannot be
// opened or has no readable directory.
std::optional<TiffImageFields> ReadTiffImageFields(const std::string& path);

}  // namespace project_lumen::io
