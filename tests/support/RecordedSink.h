// Shows the records that a diagnostics sink got.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "common/Diagnostics.h"

namespace project_lumen::test {

// A sink that keeps its records as the readable lines "Info [code]: message".
class RecordedSink {
 public:
  [[nodiscard]] const DiagnosticsSink& Sink() const { return sink_; }

  [[nodiscard]] std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    std::istringstream text(stream_.str());
    for (std::string line; std::getline(text, line);) {
      lines.push_back(line);
    }
    return lines;
  }
  // The messages of one code, info or warning.
  [[nodiscard]] std::vector<std::string> Messages(const std::string& code) const {
    std::vector<std::string> messages;
    for (const std::string& line : Lines()) {
      const std::string mark = "[" + code + "]: ";
      const std::size_t found = line.find(mark);
      if (found != std::string::npos) {
        messages.push_back(line.substr(found + mark.size()));
      }
    }
    return messages;
  }

 private:
  std::ostringstream stream_;
  DiagnosticsSink sink_{false, false, stream_};
};

}  // namespace project_lumen::test
