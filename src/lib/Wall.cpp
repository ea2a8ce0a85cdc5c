#include "lib/Wall.h"

#include <string>

#include "common/FailureText.h"
#include "common/OutOfMemory.h"
#include "core/Image.h"
#include "lib/Errors.h"

namespace project_lumen::lib {
namespace {

// `text` points into `owned`, or at a literal where there is no memory to own anything.
struct KeptError {
  std::string owned;
  const char* text = "";
};

thread_local KeptError lastError;

void Keep(const std::string& message) noexcept {
  try {
    lastError.owned = message;
    lastError.text = lastError.owned.c_str();
  } catch (...) {
    lastError.text = "Not enough memory to process the image.";
  }
}

nebulex_status KindOf(const std::exception& error) {
  if (dynamic_cast<const BadArgument*>(&error) != nullptr) {
    return NEBULEX_BAD_ARGUMENT;
  }
  if (dynamic_cast<const BadModel*>(&error) != nullptr) {
    return NEBULEX_BAD_MODEL;
  }
  if (dynamic_cast<const BadImage*>(&error) != nullptr) {
    return NEBULEX_BAD_IMAGE;
  }
  if (dynamic_cast<const core::Cancelled*>(&error) != nullptr) {
    return NEBULEX_STOPPED;
  }
  return MeansLackOfMemory(error) ? NEBULEX_OUT_OF_MEMORY : NEBULEX_INTERNAL;
}

nebulex_status StatusOfCurrent() {
  try {
    throw;
  } catch (const std::exception& error) {
    Keep(FailureText(error));
    return KindOf(error);
  } catch (...) {
    Keep("Failed");
    return NEBULEX_INTERNAL;
  }
}

}  // namespace

const char* LastError() noexcept {
  return lastError.text;
}

void ClearLastError() noexcept {
  lastError.text = "";
}

nebulex_status StatusOf(const std::exception_ptr& error) noexcept {
  try {
    try {
      std::rethrow_exception(error);
    } catch (...) {
      return StatusOfCurrent();
    }
  } catch (...) {
    lastError.text = "Not enough memory to process the image.";
    return NEBULEX_OUT_OF_MEMORY;
  }
}

}  // namespace project_lumen::lib
