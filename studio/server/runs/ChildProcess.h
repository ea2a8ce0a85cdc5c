// Running a program and reading what it says.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace project_lumen::studio {

enum class ChildOutput { kStandardOutput, kStandardError };

struct ChildRun {
  std::vector<std::string> arguments;  // the program's path first; no shell, no search
  ChildOutput output = ChildOutput::kStandardError;  // the one that is read; the other goes nowhere
  // Each line without its end, as it comes; a longer one than kLongestLine comes in pieces.
  std::function<void(std::string_view)> takeLine;
  // Asked several times a second; once it says so, the program is asked to end, and made to end
  // when it does not.
  std::function<bool()> shallStop;
};
constexpr std::size_t kLongestLine = std::size_t{1} << 20U;

struct ChildEnd {
  bool isStopped = false;  // because shallStop said so
  int status = 0;          // exit status, where no signal ended it
  int signal = 0;          // the signal that ended it, or 0
};

// Starts the program in a process group of its own, with nothing open but its three streams, waits
// for its end and tells it. Throws std::runtime_error with the reason where it cannot be started.
ChildEnd RunChild(const ChildRun& run);

}  // namespace project_lumen::studio
