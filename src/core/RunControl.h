// How a run tells its progress and is stopped.
#pragma once

#include <functional>

#include "core/Image.h"

namespace project_lumen::core {

// Called on the thread of the run; each may be empty.
struct RunControl {
  // Gets (tiles done, total tiles); returning false stops the run.
  std::function<bool(int, int)> progress = nullptr;
  // Polled; returning true stops the run.
  std::function<bool()> stopRequested = nullptr;
};

// Throws Cancelled if `stopRequested` is set and returns true.
inline void ThrowIfStopRequested(const RunControl& control) {
  if (control.stopRequested && control.stopRequested()) {
    throw Cancelled();
  }
}

}  // namespace project_lumen::core
