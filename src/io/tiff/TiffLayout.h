// The directory structure of a TIFF file, read from its bytes: classic TIFF (TIFF 6.0, section 2)
// and BigTIFF, in both byte orders.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace project_lumen::io {

inline constexpr std::uint16_t kTiffImageDescriptionTag = 270;
inline constexpr std::uint16_t kTiffAsciiType = 2;

// The longest ImageDescription that is read or written, its terminating NUL included.
inline constexpr std::uint64_t kLargestTiffDescription = 16'777'216;

// The most entries a directory may have.
inline constexpr std::uint64_t kLargestTiffDirectory = 65'535;

// What classic TIFF and BigTIFF, little and big endian, differ in. Sizes in bytes.
struct TiffVariant {
  bool isBigEndian = false;
  bool isBigTiff = false;

  [[nodiscard]] std::size_t HeaderSize() const { return isBigTiff ? 16 : 8; }
  [[nodiscard]] std::size_t EntryCountSize() const { return isBigTiff ? 8 : 2; }
  [[nodiscard]] std::size_t EntrySize() const { return isBigTiff ? 20 : 12; }
  // Of counts, offsets, value fields and the next-directory field alike.
  [[nodiscard]] std::size_t OffsetSize() const { return isBigTiff ? 8 : 4; }
  // Where the header keeps the first directory's offset.
  [[nodiscard]] std::size_t FirstDirectoryField() const { return isBigTiff ? 8 : 4; }
  // What the offsets of appended data are multiples of.
  [[nodiscard]] std::size_t Alignment() const { return isBigTiff ? 8 : 2; }

  // The unsigned integer that all of `bytes` (at most eight) make in the file's byte order.
  [[nodiscard]] std::uint64_t Decode(std::span<const std::uint8_t> bytes) const;
  // Writes the low bytes of `value` over all of `bytes` (at most eight).
  void Encode(std::uint64_t value, std::span<std::uint8_t> bytes) const;
};

// One entry, its value field as it stands in the file: the value itself or the value's offset.
struct TiffEntry {
  std::uint16_t tag = 0;
  std::uint16_t type = 0;
  std::uint64_t count = 0;
  std::array<std::uint8_t, 8> value{};  // classic files use the first four bytes
};

// The file's variant and the entries of its first directory (IFD).
struct TiffDirectory {
  TiffVariant variant;
  std::uint64_t fileSize = 0;
  std::uint64_t offset = 0;
  std::vector<TiffEntry> entries;
};

// The first directory with what hangs on it.
struct TiffLayout {
  TiffDirectory directory;
  std::uint64_t nextDirectoryOffset = 0;
  // Text of the first usable ImageDescription entry (type ASCII, 1 to kLargestTiffDescription
  // bytes), without trailing NULs.
  std::optional<std::string> description;
};

// Reads from a seekable binary stream; `name` is the path in messages. Nothing is allocated before
// the file is known to be large enough for it. Throws std::invalid_argument:
//   "Invalid TIFF header in NAME"                       shorter than eight bytes
//   "Invalid TIFF byte order in NAME"                   neither II nor MM
//   "Unsupported TIFF version in NAME"                  neither 42 nor 43
//   "Unsupported BigTIFF offset layout in NAME"
//   "Unreasonably large TIFF directory in NAME"         more than 65535 entries
//   "Invalid TIFF ImageDescription offset in NAME"      the text ends behind the file
//   "Invalid or truncated TIFF metadata in NAME"        any other read beyond the end, or that
//   fails
TiffLayout ReadTiffLayout(std::istream& file, const std::string& name);

// The most pages that are counted.
inline constexpr std::uint64_t kMostTiffPages = 65'535;

// How many images the file holds: the first one, and those that follow it in the chain of
// directories. Smaller versions of an image and transparency masks are none. A chain that breaks
// off or returns to itself is counted as far as it goes.
std::uint64_t CountTiffPages(std::istream& file);

}  // namespace project_lumen::io
