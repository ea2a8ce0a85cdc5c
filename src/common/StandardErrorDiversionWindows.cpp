#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <iostream>

#include "common/StandardErrorDiversion.h"

namespace project_lumen {
namespace {

constexpr int kStandardError = 2;

void FlushErrorStreams() {
  std::cerr.flush();
  std::clog.flush();
  static_cast<void>(std::fflush(stderr));
}

}  // namespace

StandardErrorDiversion::StandardErrorDiversion() {
  FlushErrorStreams();
  saved_ = _dup(kStandardError);
  const int null = _open("NUL", _O_WRONLY | _O_BINARY | _O_NOINHERIT);
  if (null == kStandardError) {
    original_ = Original::kClosed;
  } else if (null >= 0) {
    if (_dup2(null, kStandardError) == 0) {
      original_ = saved_ < 0 ? Original::kClosed : Original::kOpen;
    }
    _close(null);
  }
}

StandardErrorDiversion::~StandardErrorDiversion() {
  if (original_ != Original::kUntouched) {
    FlushErrorStreams();
  }
  if (original_ == Original::kOpen) {
    _dup2(saved_, kStandardError);
  } else if (original_ == Original::kClosed) {
    _close(kStandardError);
  }
  if (saved_ >= 0) {
    _close(saved_);
  }
}

}  // namespace project_lumen
