// Takes the stars out of a computed sky with the processing core of nebulex2 as a library. In place
// of a network, a callback of its own looks at each tile: a median over the neighbourhood, which
// small bright spots do not survive.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "core/Image.h"
#include "core/StarRemoval.h"

namespace {

using project_lumen::core::Image;
using project_lumen::core::ImageView;

constexpr std::int32_t kWidth = 700;
constexpr std::int32_t kHeight = 600;
constexpr float kSky = 0.1F;
constexpr float kStar = 0.9F;

// A grey sky with a star of 2 x 2 pixels every 40 pixels.
Image MakeSky() {
  Image sky;
  sky.width = kWidth;
  sky.height = kHeight;
  sky.channels = 1;
  for (std::int32_t row = 0; row < kHeight; ++row) {
    for (std::int32_t column = 0; column < kWidth; ++column) {
      const bool isStar = row % 40 / 2 == 10 && column % 40 / 2 == 10;
      sky.samples.push_back(isStar ? kStar : kSky);
    }
  }
  return sky;
}

ImageView ViewOf(const Image& image) {
  return {image.samples.data(), image.samples.size(), image.width, image.height, image.channels};
}

// The median of the 5 x 5 samples around one, which lies at least two pixels from each edge.
float MedianAround(const ImageView& tile, std::int32_t row, std::int32_t column,
                   std::int32_t channel) {
  std::array<float, 25> samples{};
  std::size_t count = 0;
  for (std::int32_t r = row - 2; r <= row + 2; ++r) {
    for (std::int32_t c = column - 2; c <= column + 2; ++c) {
      const auto pixel = static_cast<std::size_t>(r) * tile.width + c;
      samples[count++] = tile.data[pixel * tile.channels + channel];
    }
  }
  std::nth_element(samples.begin(), samples.begin() + 12, samples.end());
  return samples[12];
}

Image WithoutSmallSpots(ImageView tile) {
  Image result;
  result.width = tile.width;
  result.height = tile.height;
  result.channels = tile.channels;
  result.samples.assign(tile.data, tile.data + tile.sampleCount);
  for (std::int32_t row = 2; row < tile.height - 2; ++row) {
    for (std::int32_t column = 2; column < tile.width - 2; ++column) {
      const auto pixel = static_cast<std::size_t>(row) * tile.width + column;
      for (std::int32_t channel = 0; channel < tile.channels; ++channel) {
        result.samples[pixel * tile.channels + channel] = MedianAround(tile, row, column, channel);
      }
    }
  }
  return result;
}

float Brightest(const Image& image) {
  return *std::max_element(image.samples.begin(), image.samples.end());
}

void Run() {
  const Image sky = MakeSky();

  project_lumen::core::StarRemovalOptions options;
  options.computeUnscreen = true;
  project_lumen::core::StarRemovalCallbacks callbacks;
  callbacks.progress = [](int done, int total) {
    std::cout << "Tile " << done << " of " << total << '\n';
    return true;
  };
  const project_lumen::core::StarRemovalResult result =
      RemoveStars(ViewOf(sky), options, WithoutSmallSpots, callbacks);

  std::cout << "Brightest sample before: " << Brightest(sky) << '\n'
            << "Brightest sample without stars: " << Brightest(result.starless) << '\n'
            << "Brightest sample of the stars: " << Brightest(result.unscreen) << '\n';
}

}  // namespace

int main() {
  try {
    Run();
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
