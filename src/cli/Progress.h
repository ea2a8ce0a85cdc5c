// Progress of the tiled inference, and the error event that closes a failed run.
#pragma once

#include <ostream>
#include <string_view>

namespace project_lumen::cli {

// Where progress goes. People read one self-overwriting percent line on `human` (standard output);
// host programs read JSON Lines on `machine` (standard error).
struct ProgressReporter {
  bool quiet;
  bool machineProgress;  // wins over quiet
  std::ostream& human;
  std::ostream& machine;
};

// Reports `current` of `total` finished tiles, 0 before the first one. Always true: the program
// never cancels its own run.
bool ReportProgress(const ProgressReporter& reporter, int current, int total);

// Writes the error event, the last one of a failed run in machine-progress mode.
void WriteErrorEvent(std::ostream& stream, std::string_view message);

}  // namespace project_lumen::cli
