// Log lines of the inference backend as diagnostics.
#pragma once

#include <string>

#include "common/Diagnostics.h"

namespace project_lumen::backend {

// The record of one line: a line about suppressed samples is a data-loss warning, one about a
// provider that could not be used says that another was selected automatically, all others are
// plain information.
Diagnostic DiagnosticOf(const std::string& message);

}  // namespace project_lumen::backend
