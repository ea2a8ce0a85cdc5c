// A look at the claims of a FITS file before CFITSIO sees it. CFITSIO 4.2 trusts headers: more than
// 99 axes overrun its tables, a tile size of 0 divides by zero, negative sizes send it backwards
// for ever. Such HDUs are found here, and the file is shown to CFITSIO only up to them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace project_lumen::io {

// Bytes that are read once, from the first to the last.
class SequentialBytes {
 public:
  SequentialBytes() = default;
  virtual ~SequentialBytes() = default;
  SequentialBytes(const SequentialBytes&) = delete;
  SequentialBytes& operator=(const SequentialBytes&) = delete;

  // Reads up to `count` bytes; fewer only at the end.
  virtual std::size_t Read(char* target, std::size_t count) = 0;
  // Passes over `count` bytes; false when there are not that many.
  virtual bool Skip(std::uint64_t count) = 0;
};

struct FitsStructure {
  int hduCount = 0;       // leading HDUs that are safe to look at, up to the first supported image
  int refusalStatus = 0;  // CFITSIO status that says why the HDU after these is not; 0 when none
};

// Walks from HDU to HDU (FITS standard 4.0, chapters 3 and 4.4) and ends at the first image of two
// or three axes, at the end of the file, or where a header leads no further. An incomplete header,
// or one that is no FITS header, is counted: CFITSIO refuses it by itself. Only header blocks are
// held in memory, one at a time.
FitsStructure InspectFitsStructure(SequentialBytes& bytes);

}  // namespace project_lumen::io
