// Where the backend's messages go.
#pragma once

#include <functional>
#include <string>

namespace project_lumen::backend {

// Receives one line a message: for each provider that failed, for the fallback to the CPU, and for
// each line that ONNX Runtime logs. May be empty.
using MessageCallback = std::function<void(const std::string&)>;

}  // namespace project_lumen::backend
