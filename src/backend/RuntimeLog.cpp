#include "backend/RuntimeLog.h"

#include <utility>

namespace project_lumen::backend {
namespace {

thread_local RuntimeLog* listener = nullptr;

const char* NameOf(OrtLoggingLevel severity) {
  switch (severity) {
    case ORT_LOGGING_LEVEL_VERBOSE:
      return "detail";
    case ORT_LOGGING_LEVEL_INFO:
      return "information";
    case ORT_LOGGING_LEVEL_WARNING:
      return "warning";
    case ORT_LOGGING_LEVEL_ERROR:
      return "error";
    default:
      return "fatal error";
  }
}

}  // namespace

void ORT_API_CALL CollectRuntimeLog(void* /*parameter*/, OrtLoggingLevel severity,
                                    const char* /*category*/, const char* /*logId*/,
                                    const char* /*codeLocation*/, const char* message) {
  if (listener == nullptr) {
    return;
  }
  try {
    listener->lines_.push_back(std::string("ONNX Runtime ") + NameOf(severity) + ": " + message);
  } catch (...) {
    // Without memory for a line there is none.
  }
}

RuntimeLog::RuntimeLog() : previous_(std::exchange(listener, this)) {}

RuntimeLog::~RuntimeLog() {
  listener = previous_;
}

void RuntimeLog::SendTo(const MessageCallback& messages) {
  const std::vector<std::string> lines = std::exchange(lines_, {});
  if (!messages) {
    return;
  }
  for (const std::string& line : lines) {
    messages(line);
  }
}

}  // namespace project_lumen::backend
