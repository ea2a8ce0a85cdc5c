#include "io/fits/guards/FitsTiles.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "io/fits/guards/CompressedTile.h"

namespace project_lumen::io {
namespace {

enum class Method { kRice, kGzip, kPlio, kHcompress, kUnknown };

// How the image is compressed (FITS standard 4.0, section 10.1).
struct Coding {
  Method method = Method::kUnknown;
  int bitpix = 0;
  bool isLossless = false;   // ZQUANTIZ says that floats are stored as they are
  bool isQuantized = false;  // floats stored as integers
  int riceBlock = 32;
  int ricePixelBytes = 4;
  int compressedColumn = 0;
  int uncompressedColumn = 0;  // 0 where there is none
  int gzipColumn = 0;
  std::array<std::int64_t, 3> axes{1, 1, 1};
  std::array<std::int64_t, 3> tile{1, 1, 1};
};

std::string ReadText(fitsfile* file, const char* keyword) {
  std::array<char, FLEN_VALUE> text{};
  int status = 0;
  fits_read_key(file, TSTRING, keyword, text.data(), nullptr, &status);
  fits_clear_errmsg();
  return status == 0 ? text.data() : "";
}

std::int64_t ReadInteger(fitsfile* file, const std::string& keyword, std::int64_t missing) {
  LONGLONG value = 0;
  int status = 0;
  fits_read_key(file, TLONGLONG, keyword.c_str(), &value, nullptr, &status);
  fits_clear_errmsg();
  return status == 0 ? value : missing;
}

int FindColumn(fitsfile* file, const std::string& name) {
  std::string text = name;
  int column = 0;
  int status = 0;
  fits_get_colnum(file, CASEINSEN, text.data(), &column, &status);
  fits_clear_errmsg();
  return status == 0 ? column : 0;
}

Method MethodNamed(const std::string& name) {
  if (name == "RICE_1" || name == "RICE_ONE") {
    return Method::kRice;
  }
  if (name == "GZIP_1" || name == "GZIP_2") {
    return Method::kGzip;
  }
  if (name == "PLIO_1") {
    return Method::kPlio;
  }
  return name == "HCOMPRESS_1" ? Method::kHcompress : Method::kUnknown;
}

// As CFITSIO reads the parameters: old files lack the second one or have the two exchanged.
void ReadRiceSettings(fitsfile* file, Coding& coding) {
  coding.riceBlock = static_cast<int>(ReadInteger(file, "ZVAL1", 32));
  const bool isOldForm = ReadText(file, "ZNAME2") == "NOISEBIT";
  coding.ricePixelBytes = isOldForm ? 4 : static_cast<int>(ReadInteger(file, "ZVAL2", 4));
  if (coding.riceBlock < 16 && coding.ricePixelBytes > 8) {
    std::swap(coding.riceBlock, coding.ricePixelBytes);
  }
}

Coding ReadCoding(fitsfile* file) {
  Coding coding;
  coding.method = MethodNamed(ReadText(file, "ZCMPTYPE"));
  coding.bitpix = static_cast<int>(ReadInteger(file, "ZBITPIX", 0));
  coding.isLossless = ReadText(file, "ZQUANTIZ") == "NONE";
  coding.isQuantized = coding.bitpix < 0 && !coding.isLossless &&
                       (FindColumn(file, "ZSCALE") != 0 || FindColumn(file, "ZZERO") != 0);
  ReadRiceSettings(file, coding);
  coding.compressedColumn = FindColumn(file, "COMPRESSED_DATA");
  coding.uncompressedColumn = FindColumn(file, "UNCOMPRESSED_DATA");
  coding.gzipColumn = FindColumn(file, "GZIP_COMPRESSED_DATA");
  for (std::size_t i = 0; i < coding.axes.size(); ++i) {
    const std::string number = std::to_string(i + 1);
    coding.axes[i] = std::max<std::int64_t>(1, ReadInteger(file, "ZNAXIS" + number, 1));
    const std::int64_t whole = i == 0 ? coding.axes[0] : 1;
    coding.tile[i] = std::max<std::int64_t>(1, ReadInteger(file, "ZTILE" + number, whole));
  }
  return coding;
}

std::int64_t TilesAlong(const Coding& coding, std::size_t axis) {
  return (coding.axes[axis] - 1) / coding.tile[axis] + 1;
}

// Pixels of a tile, counted from 0; those at the far edges are smaller.
std::uint64_t TilePixels(const Coding& coding, std::int64_t number) {
  std::uint64_t pixels = 1;
  for (std::size_t i = 0; i < coding.axes.size(); ++i) {
    const std::int64_t start = number % TilesAlong(coding, i) * coding.tile[i];
    number /= TilesAlong(coding, i);
    pixels *= static_cast<std::uint64_t>(std::min(coding.tile[i], coding.axes[i] - start));
  }
  return pixels;
}

// Whether CFITSIO takes a deflated tile with so many bytes a pixel for what it is: numbers of the
// image's own width, or wider integers, as programs of 2006 stored all of them.
bool IsDeflatedWidth(const Coding& coding, std::uint64_t width) {
  constexpr std::uint64_t kWidestInteger = 4;
  if (coding.isQuantized) {
    return width == kWidestInteger;
  }
  const auto own = static_cast<std::uint64_t>(std::abs(coding.bitpix)) / 8;
  const bool isWider = coding.bitpix > 0 && (width == 2 || width == kWidestInteger) && width > own;
  return width == own || isWider;
}

bool IsGzipTileSound(const Coding& coding, TileBytes bytes, std::uint64_t pixels) {
  const std::optional<std::uint64_t> size = GzipTileSize(bytes, pixels * sizeof(double));
  return size && *size % pixels == 0 && IsDeflatedWidth(coding, *size / pixels);
}

bool IsTileSound(const Coding& coding, TileBytes bytes, std::uint64_t pixels) {
  switch (coding.method) {
    case Method::kRice:
      return IsRiceTile(bytes, pixels, coding.ricePixelBytes, coding.riceBlock);
    case Method::kGzip:
      return IsGzipTileSound(coding, bytes, pixels);
    case Method::kHcompress:
      return IsHcompressTile(bytes, pixels, coding.bitpix == 8 || coding.bitpix == 16 ? 32 : 64);
    default:
      return false;
  }
}

// Reads the elements of one variable-length array; the count comes from its descriptor.
template <typename T>
std::vector<T> ReadArray(fitsfile* file, int column, LONGLONG row, LONGLONG count, int type,
                         int& status) {
  std::vector<T> elements(static_cast<std::size_t>(count));
  int hasUndefined = 0;
  fits_read_col(file, type, column, row, 1, count, nullptr, elements.data(), &hasUndefined,
                &status);
  return elements;
}

// The length of a row's variable-length array. It is taken from the bytes that are left: arrays
// that the file cannot hold side by side are an error, or a few bytes could be expanded any number
// of times.
LONGLONG ReadLength(fitsfile* file, int column, LONGLONG row, std::uint64_t& leftBytes,
                    int& status) {
  LONGLONG length = 0;
  LONGLONG offset = 0;
  fits_read_descriptll(file, column, row, &length, &offset, &status);
  if (status == 0 && (length < 0 || static_cast<std::uint64_t>(length) > leftBytes)) {
    status = END_OF_FILE;
  }
  leftBytes -= status == 0 ? static_cast<std::uint64_t>(length) : 0;
  return length;
}

// A tile that the method could not make smaller: plain numbers, or losslessly deflated floats.
int FindPlainTileProblem(fitsfile* file, const Coding& coding, LONGLONG row, std::uint64_t pixels,
                         std::uint64_t& leftBytes) {
  int status = 0;
  if (coding.uncompressedColumn != 0) {
    const LONGLONG length = ReadLength(file, coding.uncompressedColumn, row, leftBytes, status);
    const bool isWhole = static_cast<std::uint64_t>(length) == pixels;
    return status != 0 || isWhole ? status : DATA_DECOMPRESSION_ERR;
  }
  if (coding.gzipColumn == 0 || coding.bitpix >= 0) {
    return NO_COMPRESSED_TILE;
  }
  const LONGLONG length = ReadLength(file, coding.gzipColumn, row, leftBytes, status);
  if (status != 0) {
    return status;
  }
  const auto bytes = ReadArray<unsigned char>(file, coding.gzipColumn, row, length, TBYTE, status);
  const std::uint64_t size = pixels * static_cast<std::uint64_t>(std::abs(coding.bitpix)) / 8;
  return status != 0 || GzipTileSize(bytes, size) == size ? status : DATA_DECOMPRESSION_ERR;
}

int FindProblemOfTile(fitsfile* file, const Coding& coding, LONGLONG row,
                      std::uint64_t& leftBytes) {
  int status = 0;
  const std::uint64_t pixels = TilePixels(coding, row - 1);
  const LONGLONG length = ReadLength(file, coding.compressedColumn, row, leftBytes, status);
  if (status != 0) {
    return status;
  }
  if (length == 0) {
    return FindPlainTileProblem(file, coding, row, pixels, leftBytes);
  }
  if (coding.method == Method::kPlio) {
    const auto words =
        ReadArray<std::int16_t>(file, coding.compressedColumn, row, length, TSHORT, status);
    return status != 0 || IsPlioTile(words) ? status : DATA_DECOMPRESSION_ERR;
  }
  const auto bytes =
      ReadArray<unsigned char>(file, coding.compressedColumn, row, length, TBYTE, status);
  return status != 0 || IsTileSound(coding, bytes, pixels) ? status : DATA_DECOMPRESSION_ERR;
}

// Combinations that CFITSIO expands into something else than the image. Integers that are said to
// be floats that were not quantised are among them: it takes their bytes for floats, and reads
// beyond the shorter ones.
bool IsSupported(const Coding& coding) {
  const bool isInteger =
      (coding.bitpix == 8 || coding.bitpix == 16 || coding.bitpix == 32) && !coding.isLossless;
  const bool isFloat = coding.bitpix == -32 || coding.bitpix == -64;
  const bool isDeflated = coding.method == Method::kGzip;
  return coding.method != Method::kUnknown && coding.compressedColumn != 0 &&
         (isInteger || (isFloat && (coding.isQuantized || isDeflated)));
}

}  // namespace

int FindTileProblem(fitsfile* file, std::uint64_t heldBytes) {
  const Coding coding = ReadCoding(file);
  if (!IsSupported(coding)) {
    return DATA_DECOMPRESSION_ERR;
  }
  std::uint64_t leftBytes = heldBytes;
  const std::int64_t count = TilesAlong(coding, 0) * TilesAlong(coding, 1) * TilesAlong(coding, 2);
  for (std::int64_t row = 1; row <= count; ++row) {
    const int problem = FindProblemOfTile(file, coding, row, leftBytes);
    if (problem != 0) {
      return problem;
    }
  }
  return 0;
}

}  // namespace project_lumen::io
