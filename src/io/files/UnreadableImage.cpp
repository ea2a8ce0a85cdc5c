#include "io/files/UnreadableImage.h"

#include <stdexcept>

namespace project_lumen::io {

void FailToRead(const std::string& path, const std::string& advice) {
  throw std::invalid_argument(
      "Unable to read input image: " + path +
      ". Check that the file is a readable TIFF/TIF, PNG, or supported FITS image." +
      (advice.empty() ? "" : " " + advice));
}

}  // namespace project_lumen::io
