#include "io/TiffErrors.h"

#include <tiffio.h>

#include <atomic>

namespace project_lumen::io {
namespace {

std::atomic<bool> haveOccurred = false;

void Notice(thandle_t /*client*/, const char* /*module*/, const char* /*format*/,
            va_list /*values*/) {
  haveOccurred = true;
}

}  // namespace

TiffErrors::TiffErrors() : before_(TIFFSetErrorHandlerExt(Notice)) {
  haveOccurred = false;
}

TiffErrors::~TiffErrors() {
  TIFFSetErrorHandlerExt(before_);
}

bool TiffErrors::HaveOccurred() {
  return haveOccurred;
}

}  // namespace project_lumen::io
