// Records of what becomes of linear data.
#pragma once

#include <vector>

#include "common/Diagnostics.h"
#include "common/RangeStatistics.h"
#include "core/FixedLinearMtf.h"
#include "core/ImageProcessing.h"

namespace project_lumen::cli {

// The run is not linear.
void EmitNotLinear(const DiagnosticsSink& sink);

// Samples of the working image lie above 1; `range` is that of the whole image.
void EmitClippedBeforeMtf(const DiagnosticsSink& sink, const RangeStatistics& range);

// The transfer of each channel. `fixedDivisor` is the source's K, for shadows in physical units.
void EmitLinearTransfer(const DiagnosticsSink& sink,
                        const std::vector<core::LinearChannelStats>& channels,
                        const core::ProcessingSettings& settings, double fixedDivisor);

// What came back from the source at the end, a record for each of its channels.
void EmitShadowRestoration(const DiagnosticsSink& sink,
                           const std::vector<core::RestoredSamples>& channels);

}  // namespace project_lumen::cli
