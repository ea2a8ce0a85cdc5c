// Splits a computed sky into nebula and stars with libnebulex, and puts it together again:
// split_stars [MODEL.onnx]
#include <nebulex/nebulex.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr std::int64_t kWidth = 700;
constexpr std::int64_t kHeight = 600;

using Samples = std::vector<float>;

// A grey sky that brightens to the right, with a star every 60 pixels.
Samples MakeSky() {
  Samples sky;
  for (std::int64_t row = 0; row < kHeight; ++row) {
    for (std::int64_t column = 0; column < kWidth; ++column) {
      const auto r = static_cast<float>(row % 60 - 30);
      const auto c = static_cast<float>(column % 60 - 30);
      const float background = 0.1F + 0.2F * static_cast<float>(column) / kWidth;
      sky.push_back(std::min(1.0F, background + 0.6F * std::exp(-(r * r + c * c) / 8.0F)));
    }
  }
  return sky;
}

nebulex::Buffer BufferOf(Samples& samples) {
  return {samples.data(), kWidth, kHeight, 1, NEBULEX_F32, 0, 0, 0};
}

void Run(const std::string& modelPath) {
  const nebulex::Model model(modelPath);
  const Samples sky = MakeSky();
  Samples starless(sky.size());
  Samples stars(sky.size());

  nebulex::Settings settings;
  settings.layers = NEBULEX_UNSCREEN;
  nebulex::Results results;
  results.starless = BufferOf(starless);
  results.unscreen = BufferOf(stars);
  nebulex::Callbacks callbacks;
  callbacks.progress = [](std::int64_t done, std::int64_t total) {
    std::cout << "tile " << done << " of " << total << '\n';
  };
  model.RemoveStars({sky.data(), kWidth, kHeight, 1, NEBULEX_F32, 0, 0, 0}, results, settings,
                    callbacks);

  float difference = 0.0F;
  for (std::size_t i = 0; i < sky.size(); ++i) {
    const float rebuilt = starless[i] + stars[i] * (1.0F - starless[i]);
    difference = std::max(difference, std::abs(rebuilt - std::max(sky[i], starless[i])));
  }
  std::cout << "brightest before: " << *std::max_element(sky.begin(), sky.end()) << '\n'
            << "brightest without stars: " << *std::max_element(starless.begin(), starless.end())
            << '\n'
            << "put together again it differs by: " << difference << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Run(argc > 1 ? argv[1] : "");
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
