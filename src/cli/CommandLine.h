// The command line: the option table and its parsing.
#pragma once

#include <exception>
#include <span>
#include <stdexcept>
#include <string>

#include "cli/RunOptions.h"

namespace project_lumen::cli {

// What the parser read. The weights path is still the one given, or empty; whether a host reads
// along is not decided by the parser.
struct ParsedCommandLine {
  RunOptions options;
  bool linearTuningGiven = false;  // --shadows-clipping or --target-background is on the line
};

// The help or version text has been printed; the program ends with this status.
class ExitRequest : public std::exception {
 public:
  explicit ExitRequest(int status) : status_(status) {}
  [[nodiscard]] int Status() const { return status_; }
  [[nodiscard]] const char* what() const noexcept override { return "exit requested"; }

 private:
  int status_;
};

// Whether one of the arguments after the program's name is exactly `text`.
bool HasExactArgument(std::span<const char* const> arguments, std::string_view text);

// Parses the arguments, the program's name first. With `throwOnFailure` off, help, version and
// parse failures end the process here, reported by the parser (status 0, 0 and 1). With it on, help
// and version throw ExitRequest, and a failure throws std::runtime_error "Error: … for arg …".
ParsedCommandLine ParseCommandLine(std::span<const char* const> arguments, bool throwOnFailure);

// Checks what no single option can: the linear tuning options need --linear. Throws
// std::invalid_argument.
void ValidateCommandLine(const ParsedCommandLine& commandLine);

}  // namespace project_lumen::cli
