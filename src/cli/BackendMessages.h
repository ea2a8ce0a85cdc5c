// Log lines of the inference backend and the processing core as diagnostics.
#pragma once

#include <string>

#include "common/Diagnostics.h"

namespace project_lumen::cli {

// Turns one line into a record: a line about suppressed samples is a data-loss warning, one about a
// provider that could not be used says that another was selected automatically, all others are
// plain information.
void ReportBackendMessage(const DiagnosticsSink& sink, const std::string& message);

}  // namespace project_lumen::cli
