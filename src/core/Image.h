// Images as the core and its callers exchange them, without third-party types.
//
// Samples are float32, pixel-interleaved and row-major: sample (row r, column c, channel k) lies at
// index (r * width + c) * channels + k. A sample is the stored sample divided by the white of its
// format, so 1.0 is white. Channels are 1 (grey) or 3 (RGB).
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <vector>

namespace project_lumen::core {

// An image that owns its samples. One that was not produced has no samples and zero sizes.
struct Image {
  std::vector<float> samples;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t channels = 0;
};

// Somebody else's samples, which must outlive the view and stay unchanged.
struct ImageView {
  const float* data = nullptr;
  std::uint64_t sampleCount = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t channels = 0;
};

// The run was stopped by one of its callbacks.
class Cancelled : public std::exception {
 public:
  [[nodiscard]] const char* what() const noexcept override { return "Processing cancelled."; }
};

// Runs the network on one tile: 512 x 512 x 3 samples in, as many out.
using TileInferenceFn = std::function<Image(ImageView)>;

}  // namespace project_lumen::core
