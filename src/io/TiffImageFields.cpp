#include "io/TiffImageFields.h"

#include <fstream>
#include <stdexcept>

#include "io/TiffLayout.h"

namespace project_lumen::io {
namespace {

constexpr std::uint16_t kWidthTag = 256;
constexpr std::uint16_t kHeightTag = 257;
constexpr std::uint16_t kBitsPerSampleTag = 258;
constexpr std::uint16_t kCompressionTag = 259;
constexpr std::uint16_t kPhotometricTag = 262;
constexpr std::uint16_t kSamplesPerPixelTag = 277;
constexpr std::uint16_t kRowsPerStripTag = 278;
constexpr std::uint16_t kPlanarConfigurationTag = 284;
constexpr std::uint16_t kTileWidthTag = 322;
constexpr std::uint16_t kTileHeightTag = 323;

TiffImageFields ReadFields(std::istream& file, const TiffDirectory& directory) {
  TiffImageFields fields;
  const auto read = [&](std::uint16_t tag, std::uint64_t& field) {
    field = FirstTiffValue(file, directory, tag).value_or(field);
  };
  fields.fileSize = directory.fileSize;
  read(kWidthTag, fields.width);
  read(kHeightTag, fields.height);
  read(kBitsPerSampleTag, fields.bitsPerSample);
  read(kCompressionTag, fields.compression);
  read(kPhotometricTag, fields.photometric);
  read(kSamplesPerPixelTag, fields.samplesPerPixel);
  read(kPlanarConfigurationTag, fields.planarConfiguration);
  read(kRowsPerStripTag, fields.rowsPerStrip);
  read(kTileWidthTag, fields.tileWidth);
  read(kTileHeightTag, fields.tileHeight);
  return fields;
}

}  // namespace

std::optional<TiffImageFields> ReadTiffImageFields(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  try {
    return ReadFields(file, ReadTiffDirectory(file, path));
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

}  // namespace project_lumen::io
