// A FITS file that is read, through CFITSIO, whose types do not appear here. Names are literal:
// brackets, plus signs, leading blanks, "!", "~" and prefixes such as "mem://" mean nothing
// special.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace project_lumen::io {

// Closes itself. Functions throw std::invalid_argument STEP + " failed for FITS image " + path +
// ": " + CFITSIO's text; each names its step. HDUs are counted from 1; the functions speak of the
// current one.
class FitsInputFile {
 public:
  // Opens the file. A gzip file is inflated into memory, no further than its headers claim; a file
  // whose last block is not whole is read into memory, too. Step "Opening", also for other
  // compressed files and for headers that CFITSIO must not see.
  explicit FitsInputFile(const std::string& path);
  ~FitsInputFile();
  FitsInputFile(const FitsInputFile&) = delete;
  FitsInputFile& operator=(const FitsInputFile&) = delete;

  // The name for messages.
  [[nodiscard]] const std::string& Path() const;

  // Throws for a status of CFITSIO other than 0.
  void Check(int status, const std::string& step) const;

  // Closes the file and reports what the destructor cannot. Step "Closing".
  void Close();

  // HDUs up to the first supported image, or to the end where there is none. Step "Inspecting
  // HDUs".
  int CountHdus();
  // Why no further HDU is shown; CFITSIO's status, 0 when there is nothing to hide.
  [[nodiscard]] int HiddenHduStatus() const;
  void MoveToHdu(int number);  // step "Moving to HDU"

  // NAXISn of an image, as many as three; none when the HDU is no image. The count may be larger.
  struct Shape {
    int naxis = 0;
    std::vector<std::int64_t> naxes;
  };
  std::optional<Shape> FindImageShape();
  Shape ReadImageShape();    // steps "Reading dimensions", "Reading image size"
  int ReadStorageType();     // step "Reading storage type": BITPIX
  int ReadEquivalentType();  // step "Reading image type"
  // All cards but END, 80 characters each. Steps "Inspecting header" and "Reading header".
  std::vector<std::string> ReadHeaderCards();
  // None when the keyword is missing or has no such value.
  std::optional<double> ReadHeaderDouble(const std::string& keyword);

  // Throws "tried to move past end of file" under `step` when the image that the header claims
  // cannot be in the file: stored pixels need their bytes, compressed ones a share that the
  // compression methods cannot go below. Compressed tiles must also be sound. Axes beyond 32 bits
  // fail under "Reading image size". Nothing of the image's size is allocated.
  void RequirePixels(const std::string& step);

  // Physical values of consecutive pixels from `first` (counted from 0); blank integers go
  // unnoticed, NaN stays NaN.
  void ReadPixels(std::uint64_t first, std::span<double> values, const std::string& step);
  // The same; `isUndefined` tells which pixels have the value BLANK.
  void ReadPixels(std::uint64_t first, std::span<double> values, std::span<char> isUndefined,
                  const std::string& step);

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace project_lumen::io
