// Checks of the output paths that can be made before the work starts, so that nobody waits for a
// result that cannot be kept.
#pragma once

#include <opencv2/core/types.hpp>

#include "cli/RunOptions.h"
#include "io/SourceImageInfo.h"

namespace project_lumen::cli {

// Throws std::invalid_argument when two outputs would be the same file.
void RequireDistinctOutputs(const RunOptions& options);

// Throws what writing would throw for results of this source and size that cannot become files: no
// writer for the extension, a folder that does not exist or may not be written to, a target that is
// no regular file or may not be written, more than the format can hold. Leaves nothing behind.
void RequireWritableOutputs(const RunOptions& options, const io::SourceImageInfo& source,
                            cv::Size size);

}  // namespace project_lumen::cli
