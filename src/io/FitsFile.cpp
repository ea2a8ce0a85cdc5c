#include "io/FitsFile.h"

#include <fitsio.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "common/PathSuffix.h"
#include "io/FitsStructure.h"
#include "io/FitsTiles.h"
#include "io/GzipFile.h"

namespace project_lumen::io {
namespace {

constexpr std::size_t kCardLength = 80;
constexpr int kExactDecimals = -17;  // 17 significant digits in CFITSIO's terms

// CFITSIO strips leading blanks and expands "~" of a name that does not begin with a folder.
std::string LiteralName(const std::string& path) {
  return path.starts_with('/') ? path : "./" + path;
}

// CFITSIO would inflate these without a limit.
bool IsOtherCompression(const std::string& path) {
  constexpr std::array<std::string_view, 5> kBeginnings{"PK", "\x1F\x1E", "\x1F\x9D", "\x1F\xA0",
                                                        "BZ"};
  std::array<char, 2> start{};
  std::ifstream(path, std::ios::binary).read(start.data(), start.size());
  return std::find(kBeginnings.begin(), kBeginnings.end(),
                   std::string_view(start.data(), start.size())) != kBeginnings.end();
}

class FileBytes : public SequentialBytes {
 public:
  FileBytes(const std::string& path, std::uint64_t size)
      : file_(path, std::ios::binary), left_(size) {}

  std::size_t Read(char* target, std::size_t count) override {
    file_.read(target, static_cast<std::streamsize>(std::min<std::uint64_t>(count, left_)));
    left_ -= static_cast<std::uint64_t>(file_.gcount());
    return static_cast<std::size_t>(file_.gcount());
  }

  bool Skip(std::uint64_t count) override {
    if (count > left_) {
      return false;
    }
    file_.seekg(static_cast<std::streamoff>(count), std::ios::cur);
    left_ -= count;
    return file_.good();
  }

 private:
  std::ifstream file_;
  std::uint64_t left_;
};

// Pixels that a byte of a tile-compressed image may stand for at most: PLIO codes 4095 pixels in
// two bytes, deflate reaches 1032. HCOMPRESS could code a blank tile of any size in some thirty
// bytes, but not in tiles of the size that it is used with.
constexpr std::uint64_t kPixelsPerCompressedByte = 4096;

}  // namespace

void CheckFitsStatus(int status, const std::string& step, const std::string& path) {
  if (status == 0) {
    return;
  }
  std::array<char, FLEN_STATUS> text{};
  fits_get_errstatus(status, text.data());
  fits_clear_errmsg();
  throw std::invalid_argument(step + " failed for FITS image " + path + ": " + text.data());
}

struct FitsFile::Handle {
  explicit Handle(std::string name) : path(std::move(name)) {}
  ~Handle() {
    if (file != nullptr) {
      int status = 0;
      fits_close_file(file, &status);
      fits_clear_errmsg();
    }
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  fitsfile* file = nullptr;
  std::string path;
  FitsStructure structure;
  std::uint64_t size = 0;  // bytes of the file, inflated
  // CFITSIO keeps the addresses of these two.
  std::vector<char> memory;
  void* memoryAddress = nullptr;
  std::size_t memorySize = 0;
};

int FitsFile::FindPixelProblem(const Handle& handle, const std::vector<std::int64_t>& axes,
                               int bitpix) {
  std::uint64_t pixels = 1;
  for (const std::int64_t length : axes) {
    if (length < 0 || __builtin_mul_overflow(pixels, static_cast<std::uint64_t>(length), &pixels)) {
      return END_OF_FILE;
    }
  }
  int status = 0;
  LONGLONG dataStart = 0;
  fits_get_hduaddrll(handle.file, nullptr, &dataStart, nullptr, &status);
  if (status != 0) {
    return status;
  }
  const auto start = static_cast<std::uint64_t>(std::max<LONGLONG>(dataStart, 0));
  const std::uint64_t held = handle.size - std::min(handle.size, start);
  if (fits_is_compressed_image(handle.file, &status) != 0) {
    const bool isPossible = pixels / kPixelsPerCompressedByte <= held;
    return isPossible ? FindTileProblem(handle.file, held) : END_OF_FILE;
  }
  return pixels <= held / static_cast<std::uint64_t>(std::abs(bitpix) / 8) ? 0 : END_OF_FILE;
}

FitsFile::FitsFile(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}
FitsFile::~FitsFile() = default;
FitsFile::FitsFile(FitsFile&& other) noexcept = default;
FitsFile& FitsFile::operator=(FitsFile&& other) noexcept = default;

FitsFile FitsFile::Open(const std::string& path) {
  auto handle = std::make_unique<Handle>(path);
  const auto check = [&path](int status) { CheckFitsStatus(status, "Opening", path); };
  const std::string name = LiteralName(path);
  std::error_code error;
  handle->size = std::filesystem::file_size(name, error);
  check(error || name.size() >= FLEN_FILENAME ? FILE_NOT_OPENED : 0);

  int status = 0;
  if (IsGzipFile(name)) {
    GzipContent content(name);
    handle->structure = InspectFitsStructure(content);
    check(content.IsIntact() ? 0 : DATA_DECOMPRESSION_ERR);
    check(handle->structure.hduCount == 0 ? handle->structure.refusalStatus : 0);
    handle->memory = content.Take();
    handle->memoryAddress = handle->memory.data();
    handle->memorySize = handle->memory.size();
    handle->size = handle->memory.size();
    fits_open_memfile(&handle->file, "inflated.fits", READONLY, &handle->memoryAddress,
                      &handle->memorySize, 0, nullptr, &status);
  } else {
    check(IsOtherCompression(name) ? UNKNOWN_REC : 0);
    FileBytes bytes(name, handle->size);
    handle->structure = InspectFitsStructure(bytes);
    check(handle->structure.hduCount == 0 ? handle->structure.refusalStatus : 0);
    fits_open_diskfile(&handle->file, name.c_str(), READONLY, &status);
  }
  check(status);
  return FitsFile(std::move(handle));
}

FitsFile FitsFile::Create(const std::string& diskPath, const std::string& path) {
  auto handle = std::make_unique<Handle>(path);
  int status = 0;
  fits_create_diskfile(&handle->file, LiteralName(diskPath).c_str(), &status);
  CheckFitsStatus(status, "Creating image", path);
  return FitsFile(std::move(handle));
}

const std::string& FitsFile::Path() const {
  return handle_->path;
}

void FitsFile::Check(int status, const std::string& step) const {
  CheckFitsStatus(status, step, handle_->path);
}

void FitsFile::Close() {
  int status = 0;
  fits_close_file(std::exchange(handle_->file, nullptr), &status);
  Check(status, "Closing");
}

int FitsFile::CountHdus() {
  int count = 1;
  int status = 0;
  while (count < handle_->structure.hduCount &&
         fits_movabs_hdu(handle_->file, count + 1, nullptr, &status) == 0) {
    ++count;
  }
  fits_clear_errmsg();
  status = 0;
  fits_movabs_hdu(handle_->file, 1, nullptr, &status);
  Check(status, "Inspecting HDUs");
  return count;
}

int FitsFile::HiddenHduStatus() const {
  return handle_->structure.refusalStatus;
}

void FitsFile::MoveToHdu(int number) {
  int status = 0;
  fits_movabs_hdu(handle_->file, number, nullptr, &status);
  Check(status, "Moving to HDU");
}

std::optional<FitsFile::Shape> FitsFile::FindImageShape() {
  Shape shape;
  std::array<LONGLONG, 3> axes{};
  int status = 0;
  fits_get_img_dim(handle_->file, &shape.naxis, &status);
  fits_get_img_sizell(handle_->file, static_cast<int>(axes.size()), axes.data(), &status);
  if (status != 0) {
    fits_clear_errmsg();
    return std::nullopt;
  }
  shape.naxes.assign(axes.begin(), axes.begin() + std::clamp(shape.naxis, 0, 3));
  return shape;
}

FitsFile::Shape FitsFile::ReadImageShape() {
  Shape shape;
  std::array<LONGLONG, 3> axes{};
  int status = 0;
  fits_get_img_dim(handle_->file, &shape.naxis, &status);
  Check(status, "Reading dimensions");
  fits_get_img_sizell(handle_->file, static_cast<int>(axes.size()), axes.data(), &status);
  Check(status, "Reading image size");
  shape.naxes.assign(axes.begin(), axes.begin() + std::clamp(shape.naxis, 0, 3));
  return shape;
}

int FitsFile::ReadStorageType() {
  int bitpix = 0;
  int status = 0;
  fits_get_img_type(handle_->file, &bitpix, &status);
  Check(status, "Reading storage type");
  return bitpix;
}

int FitsFile::ReadEquivalentType() {
  int type = 0;
  int status = 0;
  fits_get_img_equivtype(handle_->file, &type, &status);
  Check(status, "Reading image type");
  return type;
}

std::vector<std::string> FitsFile::ReadHeaderCards() {
  int count = 0;
  int status = 0;
  fits_get_hdrspace(handle_->file, &count, nullptr, &status);
  Check(status, "Inspecting header");
  std::vector<std::string> cards;
  cards.reserve(static_cast<std::size_t>(std::max(count, 0)));
  for (int i = 1; i <= count; ++i) {
    std::array<char, FLEN_CARD> card{};
    fits_read_record(handle_->file, i, card.data(), &status);
    Check(status, "Reading header");
    cards.emplace_back(card.data());
    cards.back().resize(kCardLength, ' ');
  }
  return cards;
}

std::optional<double> FitsFile::ReadHeaderDouble(const std::string& keyword) {
  double value = 0.0;
  int status = 0;
  fits_read_key(handle_->file, TDOUBLE, keyword.c_str(), &value, nullptr, &status);
  if (status != 0) {
    fits_clear_errmsg();
    return std::nullopt;
  }
  return value;
}

void FitsFile::RequirePixels(const std::string& step) {
  const Shape shape = ReadImageShape();
  Check(FindPixelProblem(*handle_, shape.naxes, ReadStorageType()), step);
  const bool isAddressable = std::all_of(
      shape.naxes.begin(), shape.naxes.end(),
      [](std::int64_t length) { return length <= std::numeric_limits<std::int32_t>::max(); });
  Check(isAddressable ? 0 : BAD_NAXES, "Reading image size");
}

void FitsFile::ReadPixels(std::uint64_t first, std::span<double> values, const std::string& step) {
  int hasUndefined = 0;
  int status = 0;
  fits_read_img(handle_->file, TDOUBLE, static_cast<LONGLONG>(first) + 1,
                static_cast<LONGLONG>(values.size()), nullptr, values.data(), &hasUndefined,
                &status);
  Check(status, step);
}

void FitsFile::ReadPixels(std::uint64_t first, std::span<double> values,
                          std::span<char> isUndefined, const std::string& step) {
  int hasUndefined = 0;  // not null: CFITSIO writes to it unasked
  int status = 0;
  fits_read_imgnull(handle_->file, TDOUBLE, static_cast<LONGLONG>(first) + 1,
                    static_cast<LONGLONG>(values.size()), values.data(), isUndefined.data(),
                    &hasUndefined, &status);
  Check(status, step);
}

void FitsFile::CreateImage(int bitpix, const std::vector<std::int64_t>& axes) {
  std::vector<LONGLONG> lengths(axes.begin(), axes.end());
  int status = 0;
  fits_create_imgll(handle_->file, bitpix, static_cast<int>(lengths.size()), lengths.data(),
                    &status);
  Check(status, "Creating image");
  while (fits_delete_key(handle_->file, "COMMENT", &status) == 0) {
  }
  Check(status == KEY_NO_EXIST ? 0 : status, "Creating image");
  fits_clear_errmsg();
}

void FitsFile::ReserveCards(int count, const std::string& step) {
  int status = 0;
  fits_set_hdrsize(handle_->file, count, &status);
  Check(status, step);
}

void FitsFile::SetKeyword(const std::string& keyword, double value, const std::string& comment,
                          const std::string& step) {
  int status = 0;
  fits_update_key_dbl(handle_->file, keyword.c_str(), value, kExactDecimals, comment.c_str(),
                      &status);
  Check(status, step);
}

void FitsFile::SetKeyword(const std::string& keyword, const std::string& value,
                          const std::string& comment, const std::string& step) {
  int status = 0;
  fits_update_key_str(handle_->file, keyword.c_str(), value.c_str(), comment.c_str(), &status);
  Check(status, step);
}

void FitsFile::SetCard(const std::string& keyword, const std::string& card,
                       const std::string& step) {
  int status = 0;
  fits_update_card(handle_->file, keyword.c_str(), card.c_str(), &status);
  Check(status, step);
}

void FitsFile::AppendCard(const std::string& card, const std::string& step) {
  std::string keyword = card.substr(0, 8);
  std::transform(keyword.begin(), keyword.end(), keyword.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  int status = 0;
  if (fits_test_keyword(keyword.c_str(), &status) == 0) {
    fits_write_record(handle_->file, card.c_str(), &status);
  } else {
    fits_clear_errmsg();
    status = 0;
    const std::string text = card.substr(0, card.find_last_not_of(' ') + 1);
    fits_write_comment(handle_->file, text.c_str(), &status);
  }
  Check(status, step);
}

void FitsFile::AppendHistory(const std::string& text, const std::string& step) {
  int status = 0;
  fits_write_history(handle_->file, text.c_str(), &status);
  Check(status, step);
}

void FitsFile::ApplyScaling(double scale, double zero, const std::string& step) {
  int status = 0;
  fits_set_bscale(handle_->file, scale, zero, &status);
  Check(status, step);
}

void FitsFile::WritePixels(std::uint64_t first, std::span<const std::int64_t> values,
                           const std::string& step) {
  static_assert(sizeof(std::int64_t) == sizeof(LONGLONG));
  int status = 0;
  // CFITSIO's writing functions take their samples as not const, and leave them alone.
  fits_write_img(handle_->file, TLONGLONG, static_cast<LONGLONG>(first) + 1,
                 static_cast<LONGLONG>(values.size()), const_cast<std::int64_t*>(values.data()),
                 &status);
  Check(status, step);
}

void FitsFile::WritePixels(std::uint64_t first, std::span<const double> values,
                           const std::string& step) {
  int status = 0;
  fits_write_img(handle_->file, TDOUBLE, static_cast<LONGLONG>(first) + 1,
                 static_cast<LONGLONG>(values.size()), const_cast<double*>(values.data()), &status);
  Check(status, step);
}

void FitsFile::WriteChecksum(const std::string& step) {
  int status = 0;
  fits_write_chksum(handle_->file, &status);
  Check(status, step);
}

}  // namespace project_lumen::io
