#include "io/fits/FitsHandle.h"

#include <array>
#include <stdexcept>

#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"

namespace project_lumen::io {

void CheckFitsStatus(int status, const std::string& step, const std::string& path) {
  if (status == 0) {
    return;
  }
  std::array<char, FLEN_STATUS> text{};
  fits_get_errstatus(status, text.data());
  fits_clear_errmsg();
  throw std::invalid_argument(step + " failed for FITS image " + path + ": " + text.data());
}

std::string LiteralName(const std::string& path) {
  const std::string name = OpenablePath(path);
  return FromUtf8(name).is_absolute() ? name : "./" + name;
}

FitsHandle::~FitsHandle() {
  if (file != nullptr) {
    int status = 0;
    fits_close_file(file, &status);
    fits_clear_errmsg();
  }
}

void FitsHandle::Close() {
  int status = 0;
  fits_close_file(std::exchange(file, nullptr), &status);
  Check(status, "Closing");
}

void FitsHandle::ReadPixels(std::uint64_t first, std::span<double> values,
                            const std::string& step) const {
  int hasUndefined = 0;
  int status = 0;
  fits_read_img(file, TDOUBLE, static_cast<LONGLONG>(first) + 1,
                static_cast<LONGLONG>(values.size()), nullptr, values.data(), &hasUndefined,
                &status);
  Check(status, step);
}

}  // namespace project_lumen::io
