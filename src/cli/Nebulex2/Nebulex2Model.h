// The model object: it coordinates one run and owns what the run holds. The work is done by the
// rooms it calls.
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>

#include "backend/OnnxRuntimeBackend.h"
#include "cli/DLModelBase.h"
#include "cli/Nebulex2/Nebulex2Input.h"
#include "cli/Nebulex2/Nebulex2Output.h"
#include "cli/RunOptions.h"
#include "core/Image.h"
#include "core/StarRemoval.h"

namespace project_lumen::cli {

// Its operations are called once each, in the order of their declaration.
class Nebulex2Model : public DLModelBase {
 public:
  // Checks the tile geometry and the output paths before any file is touched. Throws
  // std::invalid_argument.
  explicit Nebulex2Model(const RunOptions& options);

  // Reads the input image and checks that it holds at least one window.
  void LoadInput();

  // Stretches a linear image for the network; otherwise only says that the run is not linear.
  void PrepareLinearInput();

  // Takes the stars out and makes the starless image ready to be written.
  void Run();

  // Writes the starless image, then the mask and the unscreen layer where they are wanted; each
  // layer is computed before it is written and dropped after.
  void WriteOutputs();

 private:
  // One tile through the backend, which the first tile creates.
  core::Image InferTile(const core::ImageView& tile);
  void DescribeLinearRun();
  void RemoveStarsFromWorkingImage();
  cv::Mat InvertLinearPrediction();
  void PrepareStarlessOutput();
  void WriteLayer(const char* announcement, const std::string& path, io::OutputRole role,
                  bool isLast, cv::Mat& layer);
  void WriteOne(const char* announcement, const std::string& path, const cv::Mat& prepared,
                io::OutputRole role);
  void DropLayerInputs();
  [[nodiscard]] bool WantsMask() const { return !options_.maskPath.empty(); }
  [[nodiscard]] bool WantsUnscreen() const { return !options_.unscreenPath.empty(); }
  [[nodiscard]] LayerInputs InputsOfLayers() const;
  [[nodiscard]] OutputContext Context() const;

  RunOptions options_;
  LoadedInput input_;
  io::LinearOutputInfo linearOutput_;
  std::unique_ptr<backend::OnnxRuntimeBackend> backend_;
  core::Image prediction_;  // what the network made of the working image
  cv::Mat starless_;        // ready to be written; may share the prediction's samples
};

}  // namespace project_lumen::cli
