#include "common/Diagnostics.h"

#include "common/JsonString.h"

namespace project_lumen {
namespace {

constexpr std::string_view kDiagnosticSchema = "nebulexastro.cli.diagnostic.v1";
constexpr std::string_view kWarningSeverity = "warning";
constexpr std::string_view kWarningPrefix = "Warning: ";

std::string_view WarningCode(WarningKind kind) {
  switch (kind) {
    case WarningKind::kDataLoss:
      return "data_loss";
    case WarningKind::kOutputFidelity:
      return "output_fidelity";
    default:
      return "execution_fallback";
  }
}

void WriteMachineRecord(std::ostream& stream, std::string_view severity, std::string_view code,
                        std::string_view message) {
  stream << "{\"schema\":";
  WriteJsonString(stream, kDiagnosticSchema);
  stream << ",\"severity\":";
  WriteJsonString(stream, severity);
  stream << ",\"code\":";
  WriteJsonString(stream, code);
  stream << ",\"message\":";
  WriteJsonString(stream, message);
  stream << "}\n";
}

}  // namespace

void EmitInfo(const DiagnosticsSink& sink, std::string_view code, std::string_view message) {
  if (sink.quiet) {
    return;
  }
  EmitDiagnostic(sink, "info", code, message);
}

void EmitWarning(const DiagnosticsSink& sink, WarningKind kind, std::string_view message) {
  EmitDiagnostic(sink, kWarningSeverity, WarningCode(kind), message);
}

void EmitDiagnostic(const DiagnosticsSink& sink, std::string_view severity, std::string_view code,
                    std::string_view message) {
  const bool isWarning = severity == kWarningSeverity;
  if (isWarning && message.starts_with(kWarningPrefix)) {
    message.remove_prefix(kWarningPrefix.size());
  }
  if (sink.machine) {
    WriteMachineRecord(sink.stream, severity, code, message);
    return;
  }
  sink.stream << (isWarning ? "Warning" : "Info") << " [" << EscapeForDisplay(code)
              << "]: " << EscapeForDisplay(message) << '\n';
}

}  // namespace project_lumen
