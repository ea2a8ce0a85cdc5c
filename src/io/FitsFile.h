// CFITSIO, wrapped once: a FITS file that closes itself and whose failures are exceptions. No type
// of CFITSIO appears here. Names are literal: brackets, plus signs, leading blanks, "!", "~" and
// prefixes such as "mem://" mean nothing special.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace project_lumen::io {

// Does nothing for status 0; otherwise throws std::invalid_argument STEP + " failed for FITS image
// "
// + path + ": " + CFITSIO's text for the status.
void CheckFitsStatus(int status, const std::string& step, const std::string& path);

class FitsFile {
 public:
  // Opens a file for reading; a gzip file is inflated into memory, no further than its headers
  // claim. Throws as CheckFitsStatus does, under the step "Opening", also for other compressed
  // files and for headers that CFITSIO must not see.
  static FitsFile Open(const std::string& path);

  // Creates a file at `diskPath`, where no file may be; messages name `path`. Throws under the step
  // "Creating image".
  static FitsFile Create(const std::string& diskPath, const std::string& path);

  ~FitsFile();
  FitsFile(FitsFile&& other) noexcept;
  FitsFile& operator=(FitsFile&& other) noexcept;
  FitsFile(const FitsFile&) = delete;
  FitsFile& operator=(const FitsFile&) = delete;

  // The name for messages.
  [[nodiscard]] const std::string& Path() const;

  // Throws as the free function does, with this file's path.
  void Check(int status, const std::string& step) const;

  // Closes the file and reports what the destructor cannot. Step "Closing".
  void Close();

  // --- Reading. HDUs are counted from 1; the functions speak of the current one. ---

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

  // --- Writing: one image, whose header may grow before and after its pixels. ---

  // The primary image, without CFITSIO's comment cards. Step "Creating image".
  void CreateImage(int bitpix, const std::vector<std::int64_t>& axes);
  // Makes room for cards to come; without it, every block of them moves the pixels.
  void ReserveCards(int count, const std::string& step);
  // Sets a keyword, replacing the value of the first card that has it. Doubles get 17 digits.
  void SetKeyword(const std::string& keyword, double value, const std::string& comment,
                  const std::string& step);
  void SetKeyword(const std::string& keyword, const std::string& value, const std::string& comment,
                  const std::string& step);
  // Sets a keyword by its whole card.
  void SetCard(const std::string& keyword, const std::string& card, const std::string& step);
  // Appends a card as it is. One whose keyword has characters that FITS forbids is kept as comment.
  void AppendCard(const std::string& card, const std::string& step);
  void AppendHistory(const std::string& text, const std::string& step);
  // The scaling between the numbers given or taken and those stored, whatever the header says.
  void ApplyScaling(double scale, double zero, const std::string& step);
  void WritePixels(std::uint64_t first, std::span<const std::int64_t> values,
                   const std::string& step);
  void WritePixels(std::uint64_t first, std::span<const double> values, const std::string& step);
  // CHECKSUM and DATASUM.
  void WriteChecksum(const std::string& step);

 private:
  struct Handle;
  explicit FitsFile(std::unique_ptr<Handle> handle);
  static int FindPixelProblem(const Handle& handle, const std::vector<std::int64_t>& axes,
                              int bitpix);
  std::unique_ptr<Handle> handle_;
};

}  // namespace project_lumen::io
