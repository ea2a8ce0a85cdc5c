// The tiles of a compressed image, looked at before CFITSIO expands them. Included by the FITS file
// that is read alone, so that CFITSIO's types stay behind its header.
//
// What CFITSIO 4.2.0 does with each (all in imcomp_decompress_tile), seen in its source. Whether a
// later version has mended any of these is not known.
//   integers with ZQUANTIZ      takes their bytes for floats, and reads beyond those of fewer bytes
//   'NONE'
//   deflated 64-bit integers    takes them for doubles
//   deflated numbers of another takes 2 bytes a pixel for int16, 4 for int32, 8 for double,
//   whatever width                       the image holds; wider integers come out right and are let
//   through a length of a tile beyond   allocates it what the file holds UNCOMPRESSED_DATA that is
//   reads its length into a buffer of the tile's size longer than its tile
// Damage inside a tile: see CompressedTile.h.
#pragma once

#include <fitsio.h>

#include <cstdint>

namespace project_lumen::io {

// CFITSIO's status for the first tile of the current HDU that is damaged or that CFITSIO cannot
// expand; 0 when all are sound. `heldBytes`: what the file has behind the header, for all tiles
// together.
int FindTileProblem(fitsfile* file, std::uint64_t heldBytes);

}  // namespace project_lumen::io
