// Lack of memory, whoever feels it: the standard library says std::bad_alloc, OpenCV a
// cv::Exception with a code of its own.
#pragma once

#include <exception>
#include <new>

namespace project_lumen {

// Whether an exception says that there is not enough memory.
bool MeansLackOfMemory(const std::exception& error);

// Returns work(). Lack of memory is always std::bad_alloc; every other exception passes through.
template <typename Work>
auto WithBadAlloc(Work work) {
  try {
    return work();
  } catch (const std::exception& error) {
    if (MeansLackOfMemory(error)) {
      throw std::bad_alloc();
    }
    throw;
  }
}

}  // namespace project_lumen
