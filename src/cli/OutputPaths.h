// Checks of the output paths that can be made before the work starts, so that nobody waits for a
// result that cannot be kept.
#pragma once

#include "cli/RunOptions.h"

namespace project_lumen::cli {

// Throws std::invalid_argument when two outputs would be the same file.
void RequireDistinctOutputs(const RunOptions& options);

// Throws what writing would throw for a path that cannot become a file: no writer for its
// extension, a folder that does not exist or may not be written to, a target that is no regular
// file. Leaves nothing behind.
void RequireWritableOutputs(const RunOptions& options);

}  // namespace project_lumen::cli
