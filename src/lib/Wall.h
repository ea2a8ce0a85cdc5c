// The wall around the library: no exception gets through it.
#pragma once

#include <nebulex/nebulex.h>

#include <exception>

namespace project_lumen::lib {

// The text of nebulex_last_error of the calling thread.
const char* LastError() noexcept;
void ClearLastError() noexcept;

// The status of an exception, whose sentence becomes the calling thread's last error.
nebulex_status StatusOf(const std::exception_ptr& error) noexcept;

// Runs what an exported function does.
template <typename Work>
nebulex_status BehindTheWall(Work work) noexcept {
  ClearLastError();
  try {
    work();
    // A call from inside a callback may have failed meanwhile.
    ClearLastError();
    return NEBULEX_OK;
  } catch (...) {
    return StatusOf(std::current_exception());
  }
}

}  // namespace project_lumen::lib
