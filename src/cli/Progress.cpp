#include "cli/Progress.h"

#include <array>
#include <charconv>
#include <string>

#include "common/JsonString.h"

namespace project_lumen::cli {
namespace {

constexpr std::string_view kProgressSchema = "nebulexastro.cli.progress.v1";

// Formatted apart from the stream, whose own number format stays as it was.
std::string FormatPercent(double percent) {
  constexpr int kDecimals = 1;
  std::array<char, 32> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), percent,
                                    std::chars_format::fixed, kDecimals);
  return {buffer.data(), result.ptr};
}

void WriteInferenceEvent(std::ostream& stream, std::string_view event, int current, int total,
                         std::string_view percent, std::string_view rest) {
  stream << R"({"schema":)";
  WriteJsonString(stream, kProgressSchema);
  stream << R"(,"event":)";
  WriteJsonString(stream, event);
  stream << R"(,"stage":"inference","current":)" << std::to_string(current) << R"(,"total":)"
         << std::to_string(total) << R"(,"percent":)" << percent << rest << "}" << std::endl;
}

void ReportToHost(std::ostream& stream, int current, int total, const std::string& percent) {
  WriteInferenceEvent(stream, current == 0 ? "start" : "progress", current, total, percent, "");
  if (current == total) {
    WriteInferenceEvent(stream, "finish", total, total, "100.0", R"(,"ok":true)");
  }
}

void ReportToPerson(std::ostream& stream, int current, int total, const std::string& percent) {
  stream << "Working: " << percent << "%\r" << std::flush;
  if (current == total) {
    stream << "Working: Done! " << std::endl;
  }
}

}  // namespace

bool ReportProgress(const ProgressReporter& reporter, int current, int total) {
  const std::string percent = FormatPercent(current * 100.0 / total);
  if (reporter.machineProgress) {
    ReportToHost(reporter.machine, current, total, percent);
  } else if (!reporter.quiet) {
    ReportToPerson(reporter.human, current, total, percent);
  }
  return true;
}

void WriteErrorEvent(std::ostream& stream, std::string_view message) {
  stream << R"({"schema":)";
  WriteJsonString(stream, kProgressSchema);
  stream << R"(,"event":"error","stage":"processing","ok":false,"message":)";
  WriteJsonString(stream, message);
  stream << "}" << std::endl;
}

}  // namespace project_lumen::cli
