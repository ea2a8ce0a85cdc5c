// One processing run, from the options to the written files.
#pragma once

#include <string>

#include "cli/RunOptions.h"

namespace project_lumen::cli {

// Loads the image, takes its stars out and writes the results. `modelContext` tells where the model
// was looked for; it ends every error text behind a line feed. Throws std::runtime_error for every
// standard exception raised inside.
void RunStarRemoval(const std::string& modelContext, const RunOptions& options);

}  // namespace project_lumen::cli
