// Records of results on their way to their files.
#pragma once

#include "common/Diagnostics.h"
#include "io/ImageWriter.h"
#include "io/OutputReport.h"
#include "io/OutputRole.h"

namespace project_lumen::cli {

// How the result will be stored, before it is written.
void ReportOutputForm(const io::OutputDescription& form, io::OutputRole role,
                      const DiagnosticsSink& sink);

// Warns of a starless image whose file will not be good enough for layers to rebuild the input from
// it: one that is compressed with losses, or has 8 bits where the source has more.
void WarnOfLayersThatCannotRebuild(const io::OutputFile& starless, const DiagnosticsSink& sink);

// What happened to its samples, after it was written.
void ReportQuantisation(const io::OutputReport& report, io::OutputRole role,
                        const DiagnosticsSink& sink);

}  // namespace project_lumen::cli
