// A look at the claims of a FITS file before CFITSIO sees it. HDUs that CFITSIO must not see are
// found here, and the file is shown to it only up to them.
//
// What CFITSIO 4.2.0 does with each (the function in brackets), seen in its source. Whether a later
// version has mended any of these is not known.
//   NAXIS above 99              overruns its table of 99 axis lengths (ffpinit)
//   negative NAXISn, PCOUNT,    lets the next HDU begin before this one and goes round for ever
//   GCOUNT                      (ffpinit, ffbinit)
//   mandatory keyword of a      compares the status instead of setting it, and goes on with chance
//   table without its value     values: "*status == BAD_NAXES" (ffgttb)
//   TTYPEn that is no string,   copies it into 70 bytes (ffgtbp)
//   above 69 characters
//   ZTILEn of 0                 divides by it (imcomp_get_compressed_image_par)
//   negative ZNAXISn, ZTILEn,   sizes of tiles and buffers, in 32 bits here and there, overflow
//   or huge products            (imcomp_get_compressed_image_par, imcomp_decompress_tile)
//   ZVAL1, ZVAL2 of a RICE      blocks of no pixel are never done with, others overflow
//   (fits_rdecomp image below 1 or huge       and its siblings) the same tiling keyword searches
//   from where it read last (ffgcrd), so that a check and the twice                       reading
//   after it see different values integer of the tiling that  writes 52 characters of a message and
//   up to 30 of the value into 81 is none, 29 or more long    bytes (ffc2j)
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
  // Passes over up to `count` bytes and returns over how many; fewer only at the end, or none where
  // there cannot be that many.
  virtual std::uint64_t Skip(std::uint64_t count) = 0;
};

struct FitsStructure {
  int hduCount = 0;       // leading HDUs that are safe to look at, up to the first supported image
  int refusalStatus = 0;  // CFITSIO status that says why the HDU after these is not; 0 when none
  bool lacksPadding = false;  // the last of them has its whole data, but ends inside a block
};

// Walks from HDU to HDU (FITS standard 4.0, chapters 3 and 4.4) and ends at the first image of two
// or three axes, at the end of the file, or where a header leads no further. An incomplete header,
// or one that is no FITS header, is counted: CFITSIO refuses it by itself. Only header blocks are
// held in memory, one at a time.
FitsStructure InspectFitsStructure(SequentialBytes& bytes);

}  // namespace project_lumen::io
