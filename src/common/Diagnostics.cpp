#include "common/Diagnostics.h"

#include <utility>

#include "common/JsonString.h"

namespace project_lumen {
namespace {

constexpr std::string_view kDiagnosticSchema = "nebulexastro.cli.diagnostic.v1";
constexpr std::string_view kInfoSeverity = "info";
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

std::string_view WithoutPrefix(std::string_view message) {
  if (message.starts_with(kWarningPrefix)) {
    message.remove_prefix(kWarningPrefix.size());
  }
  return message;
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

Diagnostic Information(std::string code, std::string message) {
  return {std::string(kInfoSeverity), std::move(code), std::move(message)};
}

Diagnostic Warning(WarningKind kind, std::string_view message) {
  return {std::string(kWarningSeverity), std::string(WarningCode(kind)),
          std::string(WithoutPrefix(message))};
}

void Emit(const DiagnosticsSink& sink, const Diagnostic& diagnostic) {
  if (sink.quiet && diagnostic.severity == kInfoSeverity) {
    return;
  }
  EmitDiagnostic(sink, diagnostic.severity, diagnostic.code, diagnostic.message);
}

void EmitInfo(const DiagnosticsSink& sink, std::string_view code, std::string_view message) {
  if (sink.quiet) {
    return;
  }
  EmitDiagnostic(sink, kInfoSeverity, code, message);
}

void EmitWarning(const DiagnosticsSink& sink, WarningKind kind, std::string_view message) {
  EmitDiagnostic(sink, kWarningSeverity, WarningCode(kind), message);
}

void EmitDiagnostic(const DiagnosticsSink& sink, std::string_view severity, std::string_view code,
                    std::string_view message) {
  const bool isWarning = severity == kWarningSeverity;
  message = isWarning ? WithoutPrefix(message) : message;
  if (sink.machine) {
    WriteMachineRecord(sink.stream, severity, code, message);
    return;
  }
  sink.stream << (isWarning ? "Warning" : "Info") << " [" << EscapeForDisplay(code)
              << "]: " << EscapeForDisplay(message) << '\n';
}

}  // namespace project_lumen
