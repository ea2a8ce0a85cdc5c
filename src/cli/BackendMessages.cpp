#include "cli/BackendMessages.h"

#include <string_view>

namespace project_lumen::cli {

void ReportBackendMessage(const DiagnosticsSink& sink, const std::string& message) {
  constexpr std::string_view kWarningPrefix = "Warning: ";
  if (message.starts_with("Warning: suppressed ")) {
    EmitWarning(sink, WarningKind::kDataLoss, message);
  } else if (message.starts_with("Warning: ONNX Runtime ")) {
    EmitInfo(sink, "provider_selection",
             "Automatic selection: " + message.substr(kWarningPrefix.size()));
  } else {
    EmitInfo(sink, "inference_backend", message);
  }
}

}  // namespace project_lumen::cli
