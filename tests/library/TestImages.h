// Images and models for the tests of the library's interface.
#pragma once

#include <gtest/gtest.h>
#include <nebulex/nebulex.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace nebulex_test {

inline std::string ModelPath(const std::string& name) {
  return std::string(NEBULEX_TEST_MODELS) + "/" + name + ".onnx";
}

struct CloseModel {
  void operator()(nebulex_model* model) const { nebulex_model_close(model); }
};
using Model = std::unique_ptr<nebulex_model, CloseModel>;

inline Model OpenModel(const std::string& name, std::int32_t threads = 1) {
  nebulex_model_options options;
  EXPECT_EQ(nebulex_model_options_init(&options, sizeof(options)), NEBULEX_OK);
  options.threads = threads;
  nebulex_model* model = nullptr;
  EXPECT_EQ(nebulex_model_open(ModelPath(name).c_str(), &options, &model), NEBULEX_OK)
      << nebulex_last_error();
  return Model(model);
}

// A grey image of 16-bit samples that are all different from their neighbours.
class GreyImage {
 public:
  GreyImage(std::int64_t width, std::int64_t height)
      : samples_(static_cast<std::size_t>(width * height)), width_(width), height_(height) {
    for (std::size_t i = 0; i < samples_.size(); ++i) {
      samples_[i] = static_cast<std::uint16_t>(i * 2654435761U >> 16U);
    }
  }

  [[nodiscard]] nebulex_view View() const {
    return {samples_.data(), width_, height_, 1, NEBULEX_U16, 0, 0, 0};
  }
  [[nodiscard]] const std::vector<std::uint16_t>& Samples() const { return samples_; }

 private:
  std::vector<std::uint16_t> samples_;
  std::int64_t width_;
  std::int64_t height_;
};

// Room for the results of an image of 16-bit samples.
class Room {
 public:
  explicit Room(const nebulex_view& image)
      : image_(image),
        samples_(static_cast<std::size_t>(image.width * image.height * image.channels)) {}

  [[nodiscard]] nebulex_buffer Buffer() {
    return {samples_.data(), image_.width, image_.height, image_.channels, NEBULEX_U16, 0, 0, 0};
  }
  [[nodiscard]] const std::vector<std::uint16_t>& Samples() const { return samples_; }

 private:
  nebulex_view image_;
  std::vector<std::uint16_t> samples_;
};

inline nebulex_settings DefaultSettings() {
  nebulex_settings settings;
  EXPECT_EQ(nebulex_settings_init(&settings, sizeof(settings)), NEBULEX_OK);
  return settings;
}

inline nebulex_callbacks DefaultCallbacks() {
  nebulex_callbacks callbacks;
  EXPECT_EQ(nebulex_callbacks_init(&callbacks, sizeof(callbacks)), NEBULEX_OK);
  return callbacks;
}

// Results that free what the library allocated.
struct Results : nebulex_results {
  Results() : nebulex_results() {
    EXPECT_EQ(nebulex_results_init(this, sizeof(nebulex_results)), NEBULEX_OK);
  }
  ~Results() { nebulex_results_free(this); }
  Results(const Results&) = delete;
  Results& operator=(const Results&) = delete;
};

inline std::vector<std::uint16_t> SamplesOf(const nebulex_buffer& buffer) {
  const auto* first = static_cast<const std::uint16_t*>(buffer.data);
  return {first, first + buffer.width * buffer.height * buffer.channels};
}

}  // namespace nebulex_test
