#include "io/tiff/TiffColours.h"

#include <tiffio.h>

#include <array>
#include <opencv2/core.hpp>

namespace project_lumen::io {
namespace {

constexpr std::size_t kMessageBytes = 1024;  // as libtiff asks for

void CopyGrey(const std::uint32_t* pixels, std::uint8_t* row, int columns) {
  for (int x = 0; x < columns; ++x) {
    row[x] = static_cast<std::uint8_t>(TIFFGetR(pixels[x]));
  }
}

void CopyBgr(const std::uint32_t* pixels, std::uint8_t* row, int columns) {
  for (int x = 0; x < columns; ++x, row += 3) {
    row[0] = static_cast<std::uint8_t>(TIFFGetB(pixels[x]));
    row[1] = static_cast<std::uint8_t>(TIFFGetG(pixels[x]));
    row[2] = static_cast<std::uint8_t>(TIFFGetR(pixels[x]));
  }
}

}  // namespace

struct TiffColours::Shown {
  TIFFRGBAImage image{};
  bool isOpen = false;

  ~Shown() {
    if (isOpen) {
      TIFFRGBAImageEnd(&image);
    }
  }
};

TiffColours::TiffColours(TiffHandle& file, bool isGrey)
    : file_(file), isGrey_(isGrey), image_(std::make_unique<Shown>()) {
  constexpr int kStopAtErrors = 1;
  std::array<char, kMessageBytes> message{};
  image_->isOpen =
      TIFFRGBAImageOK(file.Get(), message.data()) != 0 &&
      TIFFRGBAImageBegin(&image_->image, file.Get(), kStopAtErrors, message.data()) != 0;
  if (!image_->isOpen) {
    image_.reset();
    return;
  }
  // Rows as they lie in the file: nothing is flipped.
  image_->image.orientation = ORIENTATION_TOPLEFT;
  image_->image.req_orientation = ORIENTATION_TOPLEFT;
}

TiffColours::~TiffColours() = default;

bool TiffColours::Show(std::uint32_t firstRow, cv::Mat& rows) {
  pixels_.resize(rows.total());
  image_->image.row_offset = static_cast<int>(firstRow);
  const int shown =
      TIFFRGBAImageGet(&image_->image, pixels_.data(), static_cast<std::uint32_t>(rows.cols),
                       static_cast<std::uint32_t>(rows.rows));
  if (shown == 0 || file_.HasFailed()) {
    return false;
  }
  for (int y = 0; y < rows.rows; ++y) {
    const std::uint32_t* const line =
        pixels_.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(rows.cols);
    isGrey_ ? CopyGrey(line, rows.ptr(y), rows.cols) : CopyBgr(line, rows.ptr(y), rows.cols);
  }
  return true;
}

}  // namespace project_lumen::io
