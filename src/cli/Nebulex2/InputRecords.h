// What reading the input found out, as records.
#pragma once

#include "common/Diagnostics.h"
#include "io/ImageReader.h"

namespace project_lumen::cli {

// Emits the records of everything that the description holds, in the order of reading: also of an
// image that could be read in part only.
void ReportInput(const io::ImageDescription& input, io::ReadMode mode, const DiagnosticsSink& sink);

}  // namespace project_lumen::cli
