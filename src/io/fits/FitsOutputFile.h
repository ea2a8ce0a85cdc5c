// A FITS file of one image that is written, through CFITSIO, whose types do not appear here. Names
// are literal, as those of FitsInputFile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace project_lumen::io {

struct FitsHandle;

// Closes itself. Functions throw std::invalid_argument STEP + " failed for FITS image " + path +
// ": " + CFITSIO's text. The header may grow before and after the pixels are written.
class FitsOutputFile {
 public:
  // Makes the empty file at `diskPath` a FITS file of one image, whose pixels are still missing.
  // Room for `moreCards` is kept in its header; without it, every block of cards to come would move
  // the pixels. Messages name `path`. Step "Creating image".
  FitsOutputFile(const std::string& diskPath, const std::string& path, int bitpix,
                 const std::vector<std::int64_t>& axes, std::size_t moreCards);
  ~FitsOutputFile();
  FitsOutputFile(const FitsOutputFile&) = delete;
  FitsOutputFile& operator=(const FitsOutputFile&) = delete;

  // Closes the file and reports what the destructor cannot. Step "Closing".
  void Close();

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

  // Consecutive pixels from `first` (counted from 0), in any order.
  void WritePixels(std::uint64_t first, std::span<const std::int64_t> values,
                   const std::string& step);
  void WritePixels(std::uint64_t first, std::span<const double> values, const std::string& step);
  // Physical values of consecutive pixels that were written.
  void ReadPixels(std::uint64_t first, std::span<double> values, const std::string& step);

  // CHECKSUM and DATASUM.
  void WriteChecksum(const std::string& step);

 private:
  std::unique_ptr<FitsHandle> handle_;
};

}  // namespace project_lumen::io
