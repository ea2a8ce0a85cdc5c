// What ONNX Runtime logs, on its way to the messages of whoever called it, so that nothing reaches
// standard error.
//
// A process has one environment, which keeps its first logger however many backends come and go.
// The logger therefore knows no backend: a line finds its listener through the thread on which it
// is logged. Lines of the runtime's own threads find none and are dropped.
#pragma once

#include <string>
#include <vector>

#include "backend/MessageCallback.h"
#include "backend/OrtApiTable.h"

namespace project_lumen::backend {

// The logger for CreateEnvWithCustomLogger; `parameter` is not used. Never throws.
void ORT_API_CALL CollectRuntimeLog(void* parameter, OrtLoggingLevel severity, const char* category,
                                    const char* logId, const char* codeLocation,
                                    const char* message);

// Collects, while it lives, the lines that are logged on this thread. The runtime holds locks of
// its own while it logs, so a listener hears of a line only after the call in which it was logged.
class RuntimeLog {
 public:
  RuntimeLog();
  ~RuntimeLog();
  RuntimeLog(const RuntimeLog&) = delete;
  RuntimeLog& operator=(const RuntimeLog&) = delete;

  // Sends what was collected since the last time, a message each: "ONNX Runtime warning: " (or
  // error, fatal, …) and the line.
  void SendTo(const MessageCallback& messages);

 private:
  friend void ORT_API_CALL CollectRuntimeLog(void*, OrtLoggingLevel, const char*, const char*,
                                             const char*, const char*);

  std::vector<std::string> lines_;
  RuntimeLog* previous_;  // the listener before this one
};

// Returns work(), whose log goes to `messages` once it has ended, in whatever way.
template <typename Work>
auto WithRuntimeLog(const MessageCallback& messages, Work work) {
  RuntimeLog log;
  try {
    auto result = work();
    log.SendTo(messages);
    return result;
  } catch (...) {
    log.SendTo(messages);
    throw;
  }
}

}  // namespace project_lumen::backend
