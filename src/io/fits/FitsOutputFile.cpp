#include "io/fits/FitsOutputFile.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"
#include "io/fits/FitsHandle.h"

namespace project_lumen::io {
namespace {

constexpr std::size_t kCardLength = 80;
constexpr std::size_t kBlockLength = 2880;
constexpr int kExactDecimals = -17;  // 17 significant digits in CFITSIO's terms

std::string Card(const std::string& keyword, const std::string& value, const std::string& comment) {
  std::string card = keyword;
  card.resize(8, ' ');
  card.append("= ").append(20 - value.size(), ' ').append(value).append(" / ").append(comment);
  card.resize(kCardLength, ' ');
  return card;
}

// The mandatory cards of an image (FITS standard 4.0, section 4.4.1.1), room for more, and END in
// the last block, before which blank cards count as room.
std::string ImageHeader(int bitpix, const std::vector<std::int64_t>& axes, std::size_t moreCards) {
  std::string header = Card("SIMPLE", "T", "file does conform to FITS standard") +
                       Card("BITPIX", std::to_string(bitpix), "number of bits per data pixel") +
                       Card("NAXIS", std::to_string(axes.size()), "number of data axes");
  for (std::size_t i = 0; i < axes.size(); ++i) {
    const std::string number = std::to_string(i + 1);
    header += Card("NAXIS" + number, std::to_string(axes[i]), "length of data axis " + number);
  }
  header += Card("EXTEND", "T", "FITS dataset may contain extensions");
  const std::size_t blocks = (header.size() + moreCards * kCardLength) / kBlockLength + 1;
  header.resize(std::max(header.size(), (blocks - 1) * kBlockLength), ' ');
  header += "END";
  header.resize(blocks * kBlockLength, ' ');
  return header;
}

bool WriteFileStart(const std::string& path, const std::string& bytes) {
  std::fstream file(FromUtf8(path), std::ios::binary | std::ios::in | std::ios::out);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush();
  return file.good();
}

std::uint64_t PaddedDataBytes(int bitpix, const std::vector<std::int64_t>& axes) {
  auto bytes = static_cast<std::uint64_t>(std::abs(bitpix)) / 8;
  for (const std::int64_t length : axes) {
    bytes *= static_cast<std::uint64_t>(length);
  }
  return (bytes + kBlockLength - 1) / kBlockLength * kBlockLength;
}

// Gives the file its whole length. CFITSIO would write zeros up to the first pixels of a plane
// whose place is beyond the end.
bool Extend(const std::string& path, std::uint64_t size) {
  std::error_code error;
  ResizeFile(path, size, error);
  return !error;
}

}  // namespace

FitsOutputFile::FitsOutputFile(const std::string& diskPath, const std::string& path, int bitpix,
                               const std::vector<std::int64_t>& axes, std::size_t moreCards)
    : handle_(std::make_unique<FitsHandle>(path)) {
  // CFITSIO would create the file itself, under a name alone and open to everybody.
  const std::string name = LiteralName(diskPath);
  const std::string header = ImageHeader(bitpix, axes, moreCards);
  const bool isReady =
      WriteFileStart(name, header) && Extend(name, header.size() + PaddedDataBytes(bitpix, axes));
  int status = isReady ? 0 : WRITE_ERROR;
  fits_open_diskfile(&handle_->file, name.c_str(), READWRITE, &status);
  handle_->Check(status, "Creating image");
}

FitsOutputFile::~FitsOutputFile() = default;

void FitsOutputFile::Close() {
  handle_->Close();
}

void FitsOutputFile::SetKeyword(const std::string& keyword, double value,
                                const std::string& comment, const std::string& step) {
  int status = 0;
  fits_update_key_dbl(handle_->file, keyword.c_str(), value, kExactDecimals, comment.c_str(),
                      &status);
  handle_->Check(status, step);
}

void FitsOutputFile::SetKeyword(const std::string& keyword, const std::string& value,
                                const std::string& comment, const std::string& step) {
  int status = 0;
  fits_update_key_str(handle_->file, keyword.c_str(), value.c_str(), comment.c_str(), &status);
  handle_->Check(status, step);
}

void FitsOutputFile::SetCard(const std::string& keyword, const std::string& card,
                             const std::string& step) {
  int status = 0;
  fits_update_card(handle_->file, keyword.c_str(), card.c_str(), &status);
  handle_->Check(status, step);
}

void FitsOutputFile::AppendCard(const std::string& card, const std::string& step) {
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
  handle_->Check(status, step);
}

void FitsOutputFile::AppendHistory(const std::string& text, const std::string& step) {
  int status = 0;
  fits_write_history(handle_->file, text.c_str(), &status);
  handle_->Check(status, step);
}

void FitsOutputFile::ApplyScaling(double scale, double zero, const std::string& step) {
  int status = 0;
  fits_set_bscale(handle_->file, scale, zero, &status);
  handle_->Check(status, step);
}

void FitsOutputFile::WritePixels(std::uint64_t first, std::span<const std::int64_t> values,
                                 const std::string& step) {
  static_assert(sizeof(std::int64_t) == sizeof(LONGLONG));
  int status = 0;
  // CFITSIO's writing functions take their samples as not const, and leave them alone.
  fits_write_img(handle_->file, TLONGLONG, static_cast<LONGLONG>(first) + 1,
                 static_cast<LONGLONG>(values.size()), const_cast<std::int64_t*>(values.data()),
                 &status);
  handle_->Check(status, step);
}

void FitsOutputFile::WritePixels(std::uint64_t first, std::span<const double> values,
                                 const std::string& step) {
  int status = 0;
  fits_write_img(handle_->file, TDOUBLE, static_cast<LONGLONG>(first) + 1,
                 static_cast<LONGLONG>(values.size()), const_cast<double*>(values.data()), &status);
  handle_->Check(status, step);
}

void FitsOutputFile::ReadPixels(std::uint64_t first, std::span<double> values,
                                const std::string& step) {
  handle_->ReadPixels(first, values, step);
}

void FitsOutputFile::WriteChecksum(const std::string& step) {
  int status = 0;
  fits_write_chksum(handle_->file, &status);
  handle_->Check(status, step);
}

}  // namespace project_lumen::io
