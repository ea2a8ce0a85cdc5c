// A file that CFITSIO has open, and its status codes as exceptions. Included by the FITS files that
// are read and written, and by what they are made of, so that no type of CFITSIO goes further.
#pragma once

#include <fitsio.h>

#include <cstdint>
#include <span>
#include <string>
#include <utility>

namespace project_lumen::io {

// Does nothing for status 0; otherwise throws std::invalid_argument STEP + " failed for FITS image
// "
// + path + ": " + CFITSIO's text for the status.
void CheckFitsStatus(int status, const std::string& step, const std::string& path);

// `path` as CFITSIO takes it literally: it strips leading blanks and expands "~" of a name that
// does not begin with a folder.
std::string LiteralName(const std::string& path);

// Closes the file when it goes, without asking what became of that.
struct FitsHandle {
  explicit FitsHandle(std::string name) : path(std::move(name)) {}
  ~FitsHandle();
  FitsHandle(const FitsHandle&) = delete;
  FitsHandle& operator=(const FitsHandle&) = delete;

  // Throws as CheckFitsStatus does, with this file's path.
  void Check(int status, const std::string& step) const { CheckFitsStatus(status, step, path); }

  // Closes the file and reports what the destructor cannot. Step "Closing".
  void Close();

  // Physical values of consecutive pixels from `first` (counted from 0) of the current image; blank
  // integers go unnoticed, NaN stays NaN.
  void ReadPixels(std::uint64_t first, std::span<double> values, const std::string& step) const;

  fitsfile* file = nullptr;
  std::string path;  // for messages
};

}  // namespace project_lumen::io
