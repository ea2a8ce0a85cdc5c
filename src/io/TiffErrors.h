// What libtiff says while somebody else calls it.
#pragma once

#include <cstdarg>

namespace project_lumen::io {

// While it lives, errors of libtiff are noticed, warnings are not. OpenCV reads most TIFF files of
// 8 bits through a function of libtiff that goes on after a damaged strip and reports success. It
// holds for the whole process: files of other threads count too.
class TiffErrors {
 public:
  TiffErrors();
  ~TiffErrors();
  TiffErrors(const TiffErrors&) = delete;
  TiffErrors& operator=(const TiffErrors&) = delete;

  // Whether there was an error since the last of these objects came to life.
  [[nodiscard]] static bool HaveOccurred();

 private:
  using Handler = void (*)(void*, const char*, const char*, va_list);
  Handler before_;
};

}  // namespace project_lumen::io
