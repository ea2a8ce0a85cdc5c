// The diagnostics channel: every routine fact and every loss goes through these functions, one line
// a record, readable for people or JSON for host programs.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace project_lumen {

// How records are shown. A small value; owns nothing.
struct DiagnosticsSink {
  bool quiet;            // information records are dropped; warnings never are
  bool machine;          // JSON records instead of readable lines
  std::ostream& stream;  // standard error in the program
};

enum class WarningKind {
  kDataLoss = 0,           // "data_loss"
  kOutputFidelity = 1,     // "output_fidelity"
  kExecutionFallback = 2,  // "execution_fallback"
};

// A record before it is shown.
struct Diagnostic {
  std::string severity;  // "info" or "warning"
  std::string code;
  std::string message;

  bool operator==(const Diagnostic&) const = default;
};

Diagnostic Information(std::string code, std::string message);

// A leading "Warning: " of the message is dropped once, since the record says it already.
Diagnostic Warning(WarningKind kind, std::string_view message);

// Takes records, one a call. May be empty.
using DiagnosticsCallback = std::function<void(const Diagnostic&)>;

// Writes a record; one of information only unless the sink is quiet.
void Emit(const DiagnosticsSink& sink, const Diagnostic& diagnostic);

// Writes an information record unless the sink is quiet.
void EmitInfo(const DiagnosticsSink& sink, std::string_view code, std::string_view message);

// Writes a warning record. A leading "Warning: " of the message is dropped once, since the record
// says it already.
void EmitWarning(const DiagnosticsSink& sink, WarningKind kind, std::string_view message);

// Writes one record: "Info [code]: message" or "Warning [code]: message", or in machine mode one
// JSON object of the schema "nebulexastro.cli.diagnostic.v1". `severity` is "info" or "warning".
void EmitDiagnostic(const DiagnosticsSink& sink, std::string_view severity, std::string_view code,
                    std::string_view message);

}  // namespace project_lumen
