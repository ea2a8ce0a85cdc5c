#include "backend/BackendDiagnostics.h"

#include <string_view>

namespace project_lumen::backend {

Diagnostic DiagnosticOf(const std::string& message) {
  constexpr std::string_view kWarningPrefix = "Warning: ";
  if (message.starts_with("Warning: suppressed ")) {
    return Warning(WarningKind::kDataLoss, message);
  }
  if (message.starts_with("Warning: ONNX Runtime ")) {
    return Information("provider_selection",
                       "Automatic selection: " + message.substr(kWarningPrefix.size()));
  }
  return Information("inference_backend", message);
}

}  // namespace project_lumen::backend
