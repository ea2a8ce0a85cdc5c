// What is known of an open image.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "studio/images/LayerTile.h"
#include "studio/images/LoadedImage.h"
#include "studio/results/ResultFile.h"

namespace project_lumen::studio {

// What a whole run left behind.
struct ImageResult {
  std::string job;
  nlohmann::json options;
  std::shared_ptr<const PixelPyramid> starless;
  std::vector<ResultFile> files;
};

// What was tried on a part of the image.
struct ImagePreview {
  enum class State { kWaiting, kRunning, kReady, kFailed };
  std::string job;
  State state = State::kWaiting;
  std::string error;
  cv::Rect area;
  nlohmann::json options;
  LayerPictures pictures;  // of the area, once ready
};

struct ImageState {
  enum class Phase { kReading, kReady, kFailed };
  std::string id;
  std::string file;  // ids
  std::string folder;
  std::string path;
  bool isUploaded = false;
  FileIdentity identity;  // of the file that was read
  Phase phase = Phase::kReading;
  std::string error;
  bool hasChangedOnDisk = false;
  std::shared_ptr<const LoadedImage> loaded;  // once ready
  std::optional<ImageResult> result;
  std::optional<ImagePreview> preview;
  int revision = 0;

  [[nodiscard]] LayerPictures Pictures() const {
    return {loaded->pixels, result ? result->starless : nullptr};
  }
};

// As the page gets it.
nlohmann::json DescribeImage(const ImageState& image);

nlohmann::json DescribeArea(const cv::Rect& area);

}  // namespace project_lumen::studio
