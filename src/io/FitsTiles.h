// The tiles of a compressed image, looked at before CFITSIO expands them. Included by FitsFile.cpp
// alone, so that CFITSIO's types stay behind its header.
#pragma once

#include <fitsio.h>

#include <cstdint>

namespace project_lumen::io {

// CFITSIO's status for the first tile of the current HDU that is damaged or that CFITSIO cannot
// expand; 0 when all are sound. `heldBytes`: what the file has behind the header, for all tiles
// together.
int FindTileProblem(fitsfile* file, std::uint64_t heldBytes);

}  // namespace project_lumen::io
