// Reading of raster formats: any file gives an image or one of three messages, whether it is read
// at once or row by row.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "FuzzTarget.h"
#include "io/raster/RasterReader.h"

namespace project_lumen::fuzz {
namespace {

// Fills the memory of new images with a byte that changes, so that pixels that were never decoded
// differ between two readings.
class FillingAllocator : public cv::MatAllocator {
 public:
  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step,
                         cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    cv::UMatData* const memory = standard_->allocate(dims, sizes, type, data, step, flags, usage);
    if (data == nullptr) {
      std::fill_n(memory->data, memory->size, ++fill_);
    }
    return memory;
  }
  bool allocate(cv::UMatData* memory, cv::AccessFlag flags,
                cv::UMatUsageFlags usage) const override {
    return standard_->allocate(memory, flags, usage);
  }
  void deallocate(cv::UMatData* memory) const override { standard_->deallocate(memory); }

 private:
  cv::MatAllocator* standard_ = cv::Mat::getStdAllocator();
  mutable std::uint8_t fill_ = 0;
};

void FillNewImages() {
  static FillingAllocator allocator;
  cv::Mat::setDefaultAllocator(&allocator);
}

bool IsReadersMessage(std::string_view message) {
  return message.starts_with("Unable to read input image: ") ||
         message.starts_with("Unsupported number of image channels: ") ||
         message ==
             "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.";
}

void RequireUsable(const cv::Mat& image) {
  Require(!image.empty() && image.dims == 2 && image.isContinuous());
}

cv::Mat ReadWhole(const std::string& path) {
  io::RasterReader reader(path);
  return reader.ReadRows(reader.Info().height);
}

cv::Mat ReadInBands(const std::string& path) {
  constexpr int kRows = 7;
  io::RasterReader reader(path);
  cv::Mat image(0, reader.Info().width, reader.Info().type);
  for (cv::Mat rows = reader.ReadRows(kRows); !rows.empty(); rows = reader.ReadRows(kRows)) {
    image.push_back(rows);
  }
  return image;
}

// Two readings of one file agree in every byte.
void RequireSame(const cv::Mat& first, const cv::Mat& second) {
  Require(first.type() == second.type());
  Require(first.size() == second.size());
  const std::size_t size = first.total() * first.elemSize();
  Require(std::string_view(reinterpret_cast<const char*>(first.data), size) ==
          std::string_view(reinterpret_cast<const char*>(second.data), size));
}

void ReadAnything(const std::string& path) {
  try {
    const cv::Mat image = ReadWhole(path);
    RequireUsable(image);
    RequireSame(image, ReadInBands(path));
  } catch (const std::invalid_argument& error) {
    Require(IsReadersMessage(error.what()));
  }
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  project_lumen::fuzz::FillNewImages();
  const project_lumen::fuzz::MemoryFile file({data, size});
  project_lumen::fuzz::ReadAnything(file.Path());
  return 0;
}
