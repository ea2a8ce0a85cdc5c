// Reading of display formats: any file gives nothing, an image, or one of two messages.
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "FuzzTarget.h"
#include "io/DisplayReader.h"

namespace project_lumen::fuzz {
namespace {

bool IsReadersMessage(std::string_view message) {
  return message.starts_with("Unsupported number of image channels: ") ||
         message ==
             "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.";
}

void RequireUsable(const cv::Mat& image) {
  Require(image.empty() || (image.dims == 2 && image.isContinuous()));
}

// Two readings of one file agree in every byte, unset memory aside.
void RequireSame(const cv::Mat& first, const cv::Mat& second) {
  Require(first.type() == second.type());
  Require(first.size() == second.size());
  const std::size_t size = first.total() * first.elemSize();
  Require(std::string_view(reinterpret_cast<const char*>(first.data), size) ==
          std::string_view(reinterpret_cast<const char*>(second.data), size));
}

void ReadAnything(const std::string& path) {
  try {
    const cv::Mat image = io::ReadDisplayImage(path);
    RequireUsable(image);
    RequireSame(image, io::ReadDisplayImage(path));
  } catch (const std::invalid_argument& error) {
    Require(IsReadersMessage(error.what()));
  }
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const project_lumen::fuzz::MemoryFile file({data, size});
  project_lumen::fuzz::ReadAnything(file.Path());
  return 0;
}
