#include "io/fits/FitsInputFile.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"
#include "io/files/GzipFile.h"
#include "io/fits/FitsHandle.h"
#include "io/fits/guards/FitsStructure.h"
#include "io/fits/guards/FitsTiles.h"

namespace project_lumen::io {
namespace {

constexpr std::size_t kCardLength = 80;
constexpr std::size_t kBlockLength = 2880;

// CFITSIO would inflate these without a limit.
bool IsOtherCompression(const std::string& path) {
  constexpr std::array<std::string_view, 5> kBeginnings{"PK", "\x1F\x1E", "\x1F\x9D", "\x1F\xA0",
                                                        "BZ"};
  std::array<char, 2> start{};
  std::ifstream(FromUtf8(path), std::ios::binary).read(start.data(), start.size());
  return std::find(kBeginnings.begin(), kBeginnings.end(),
                   std::string_view(start.data(), start.size())) != kBeginnings.end();
}

class FileBytes : public SequentialBytes {
 public:
  FileBytes(const std::string& path, std::uint64_t size)
      : file_(FromUtf8(path), std::ios::binary), left_(size) {}

  std::size_t Read(char* target, std::size_t count) override {
    file_.read(target, static_cast<std::streamsize>(std::min<std::uint64_t>(count, left_)));
    left_ -= static_cast<std::uint64_t>(file_.gcount());
    return static_cast<std::size_t>(file_.gcount());
  }

  std::uint64_t Skip(std::uint64_t count) override {
    const std::uint64_t skipped = std::min(count, left_);
    file_.seekg(static_cast<std::streamoff>(skipped), std::ios::cur);
    left_ -= skipped;
    return file_.good() ? skipped : 0;
  }

 private:
  std::ifstream file_;
  std::uint64_t left_;
};

std::size_t PaddedToBlocks(std::size_t size) {
  return (size + kBlockLength - 1) / kBlockLength * kBlockLength;
}

// Fewer than `size` bytes when they cannot be read.
std::vector<char> ReadBytes(const std::string& path, std::size_t size) {
  std::vector<char> bytes;
  bytes.reserve(PaddedToBlocks(size));
  bytes.resize(size);
  std::ifstream file(FromUtf8(path), std::ios::binary);
  file.read(bytes.data(), static_cast<std::streamsize>(size));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

// Pixels that a byte of a tile-compressed image may stand for at most: PLIO codes 4095 pixels in
// two bytes, deflate reaches 1032. HCOMPRESS could code a blank tile of any size in some thirty
// bytes, but not in tiles of the size that it is used with.
constexpr std::uint64_t kPixelsPerCompressedByte = 4096;

// CFITSIO's status for an image that cannot lie in a file of so many bytes; 0 for one that can.
int FindPixelProblem(fitsfile* file, std::uint64_t fileBytes, const std::vector<std::int64_t>& axes,
                     int bitpix) {
  std::uint64_t pixels = 1;
  for (const std::int64_t length : axes) {
    if (length < 0 || __builtin_mul_overflow(pixels, static_cast<std::uint64_t>(length), &pixels)) {
      return END_OF_FILE;
    }
  }
  int status = 0;
  LONGLONG dataStart = 0;
  fits_get_hduaddrll(file, nullptr, &dataStart, nullptr, &status);
  if (status != 0) {
    return status;
  }
  const auto start = static_cast<std::uint64_t>(std::max<LONGLONG>(dataStart, 0));
  const std::uint64_t held = fileBytes - std::min(fileBytes, start);
  if (fits_is_compressed_image(file, &status) != 0) {
    const bool isPossible = pixels / kPixelsPerCompressedByte <= held;
    return isPossible ? FindTileProblem(file, held) : END_OF_FILE;
  }
  return pixels <= held / static_cast<std::uint64_t>(std::abs(bitpix) / 8) ? 0 : END_OF_FILE;
}

}  // namespace

struct FitsInputFile::Parts {
  explicit Parts(const std::string& path) : handle(path) {}

  // Looks at the file's structure, and takes it into memory where CFITSIO cannot read it on the
  // disk. All return CFITSIO's status.
  int Inspect(const std::string& name);
  int OpenOnDisk(const std::string& name);
  int OpenInMemory();

  FitsStructure structure;
  std::uint64_t size = 0;  // bytes of the file, inflated
  bool isInMemory = false;
  std::vector<char> memory;
  // CFITSIO keeps the addresses of these two.
  void* memoryAddress = nullptr;
  std::size_t memorySize = 0;
  FitsHandle handle;  // goes first
};

int FitsInputFile::Parts::Inspect(const std::string& name) {
  std::error_code error;
  size = FileSize(name, error);
  if (error || name.size() >= FLEN_FILENAME) {
    return FILE_NOT_OPENED;
  }
  if (IsGzipFile(name)) {
    GzipContent content(name);
    structure = InspectFitsStructure(content);
    if (!content.IsIntact()) {
      return DATA_DECOMPRESSION_ERR;
    }
    isInMemory = true;
    memory = content.Take();
    size = memory.size();
  } else {
    if (IsOtherCompression(name)) {
      return UNKNOWN_REC;
    }
    FileBytes bytes(name, size);
    structure = InspectFitsStructure(bytes);
    isInMemory = structure.lacksPadding;
    if (isInMemory) {
      memory = ReadBytes(name, static_cast<std::size_t>(size));
      if (memory.size() != size) {
        return READ_ERROR;
      }
    }
  }
  return structure.hduCount == 0 ? structure.refusalStatus : 0;
}

int FitsInputFile::Parts::OpenOnDisk(const std::string& name) {
  int status = 0;
  return fits_open_diskfile(&handle.file, name.c_str(), READONLY, &status);
}

int FitsInputFile::Parts::OpenInMemory() {
  if (structure.lacksPadding) {
    // CFITSIO reads whole blocks only.
    memory.resize(PaddedToBlocks(memory.size()));
  }
  memoryAddress = memory.data();
  memorySize = memory.size();
  int status = 0;
  return fits_open_memfile(&handle.file, "inflated.fits", READONLY, &memoryAddress, &memorySize, 0,
                           nullptr, &status);
}

FitsInputFile::FitsInputFile(const std::string& path) : parts_(std::make_unique<Parts>(path)) {
  constexpr const char* kStep = "Opening";
  const std::string name = LiteralName(path);
  Check(parts_->Inspect(name), kStep);
  Check(parts_->isInMemory ? parts_->OpenInMemory() : parts_->OpenOnDisk(name), kStep);
}

FitsInputFile::~FitsInputFile() = default;

const std::string& FitsInputFile::Path() const {
  return parts_->handle.path;
}

void FitsInputFile::Check(int status, const std::string& step) const {
  parts_->handle.Check(status, step);
}

void FitsInputFile::Close() {
  parts_->handle.Close();
}

int FitsInputFile::CountHdus() {
  int count = 1;
  int status = 0;
  while (count < parts_->structure.hduCount &&
         fits_movabs_hdu(parts_->handle.file, count + 1, nullptr, &status) == 0) {
    ++count;
  }
  fits_clear_errmsg();
  status = 0;
  fits_movabs_hdu(parts_->handle.file, 1, nullptr, &status);
  Check(status, "Inspecting HDUs");
  return count;
}

int FitsInputFile::HiddenHduStatus() const {
  return parts_->structure.refusalStatus;
}

void FitsInputFile::MoveToHdu(int number) {
  int status = 0;
  fits_movabs_hdu(parts_->handle.file, number, nullptr, &status);
  Check(status, "Moving to HDU");
}

std::optional<FitsInputFile::Shape> FitsInputFile::FindImageShape() {
  Shape shape;
  std::array<LONGLONG, 3> axes{};
  int status = 0;
  fits_get_img_dim(parts_->handle.file, &shape.naxis, &status);
  fits_get_img_sizell(parts_->handle.file, static_cast<int>(axes.size()), axes.data(), &status);
  if (status != 0) {
    fits_clear_errmsg();
    return std::nullopt;
  }
  shape.naxes.assign(axes.begin(), axes.begin() + std::clamp(shape.naxis, 0, 3));
  return shape;
}

FitsInputFile::Shape FitsInputFile::ReadImageShape() {
  Shape shape;
  std::array<LONGLONG, 3> axes{};
  int status = 0;
  fits_get_img_dim(parts_->handle.file, &shape.naxis, &status);
  Check(status, "Reading dimensions");
  fits_get_img_sizell(parts_->handle.file, static_cast<int>(axes.size()), axes.data(), &status);
  Check(status, "Reading image size");
  shape.naxes.assign(axes.begin(), axes.begin() + std::clamp(shape.naxis, 0, 3));
  return shape;
}

int FitsInputFile::ReadStorageType() {
  int bitpix = 0;
  int status = 0;
  fits_get_img_type(parts_->handle.file, &bitpix, &status);
  Check(status, "Reading storage type");
  return bitpix;
}

int FitsInputFile::ReadEquivalentType() {
  int type = 0;
  int status = 0;
  fits_get_img_equivtype(parts_->handle.file, &type, &status);
  Check(status, "Reading image type");
  return type;
}

std::vector<std::string> FitsInputFile::ReadHeaderCards() {
  int count = 0;
  int status = 0;
  fits_get_hdrspace(parts_->handle.file, &count, nullptr, &status);
  Check(status, "Inspecting header");
  std::vector<std::string> cards;
  cards.reserve(static_cast<std::size_t>(std::max(count, 0)));
  for (int i = 1; i <= count; ++i) {
    std::array<char, FLEN_CARD> card{};
    fits_read_record(parts_->handle.file, i, card.data(), &status);
    Check(status, "Reading header");
    cards.emplace_back(card.data());
    cards.back().resize(kCardLength, ' ');
  }
  return cards;
}

std::optional<double> FitsInputFile::ReadHeaderDouble(const std::string& keyword) {
  double value = 0.0;
  int status = 0;
  fits_read_key(parts_->handle.file, TDOUBLE, keyword.c_str(), &value, nullptr, &status);
  if (status != 0) {
    fits_clear_errmsg();
    return std::nullopt;
  }
  return value;
}

void FitsInputFile::RequirePixels(const std::string& step) {
  const Shape shape = ReadImageShape();
  Check(FindPixelProblem(parts_->handle.file, parts_->size, shape.naxes, ReadStorageType()), step);
  const bool isAddressable = std::all_of(
      shape.naxes.begin(), shape.naxes.end(),
      [](std::int64_t length) { return length <= std::numeric_limits<std::int32_t>::max(); });
  Check(isAddressable ? 0 : BAD_NAXES, "Reading image size");
}

void FitsInputFile::ReadPixels(std::uint64_t first, std::span<double> values,
                               const std::string& step) {
  parts_->handle.ReadPixels(first, values, step);
}

void FitsInputFile::ReadPixels(std::uint64_t first, std::span<double> values,
                               std::span<char> isUndefined, const std::string& step) {
  int hasUndefined = 0;  // not null: CFITSIO writes to it unasked
  int status = 0;
  fits_read_imgnull(parts_->handle.file, TDOUBLE, static_cast<LONGLONG>(first) + 1,
                    static_cast<LONGLONG>(values.size()), values.data(), isUndefined.data(),
                    &hasUndefined, &status);
  Check(status, step);
}

}  // namespace project_lumen::io
