// What is found out about linear data on its way through the core, as records for people.
#pragma once

#include <vector>

#include "common/Diagnostics.h"
#include "common/RangeStatistics.h"
#include "core/FixedLinearMtf.h"
#include "core/ImageProcessing.h"
#include "core/LinearPreparation.h"

namespace project_lumen::core {

// The run is not linear.
Diagnostic NotLinearRecord();

// Samples of the working image lie above 1; `range` is that of the whole image.
Diagnostic ClippedBeforeMtfRecord(const RangeStatistics& range);

// The transfer of each channel. `fixedDivisor` is the source's white, for shadows in its units.
std::vector<Diagnostic> TransferRecords(const std::vector<LinearChannelStats>& channels,
                                        const ProcessingSettings& settings, double fixedDivisor);

// What came back from the source at the end, a record for each of its channels.
std::vector<Diagnostic> RestorationRecords(const std::vector<RestoredSamples>& channels);

// Reports that hand all of these records to `take`, which must not be empty.
LinearReports ReportsAsRecords(const ProcessingSettings& settings, double fixedDivisor,
                               const DiagnosticsCallback& take);

}  // namespace project_lumen::core
