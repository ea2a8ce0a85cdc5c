// The model object: it coordinates one run and owns what the run holds. The work is done by the
// rooms it calls.
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>

#include "cli/DLModelBase.h"
#include "cli/Nebulex2/Nebulex2Input.h"
#include "cli/Nebulex2/Nebulex2Output.h"
#include "cli/RunOptions.h"
#include "core/Image.h"
#include "core/LayerBands.h"
#include "io/LinearOutputInfo.h"

namespace project_lumen::cli {

// Its operations are called once each, in the order of their declaration.
class Nebulex2Model : public DLModelBase {
 public:
  // Checks the tile geometry and the output paths before any file is touched. Throws
  // std::invalid_argument.
  explicit Nebulex2Model(const RunOptions& options);

  // Reads the input image and checks that it holds at least one window.
  void LoadInput();

  // Takes the stars out and makes the starless image ready to be written.
  void Run();

  // Writes the starless image, then the mask and the unscreen layer where they are wanted; each
  // layer is computed before it is written and dropped after.
  void WriteOutputs();

 private:
  // The network, which its first tile opens. It is closed when the function goes.
  [[nodiscard]] core::TileInferenceFn Network() const;
  // The starless image on the source's grid.
  cv::Mat RemoveStars();
  void DescribeLinearRun();
  void CheckLayers() const;
  void WriteLayer(const char* announcement, const std::string& path, io::OutputRole role,
                  bool isLast, cv::Mat& layer);
  void WriteOne(const char* announcement, const std::string& path, const cv::Mat& prepared,
                io::OutputRole role);
  void DropLayerInputs();
  [[nodiscard]] bool WantsMask() const { return !options_.maskPath.empty(); }
  [[nodiscard]] bool WantsUnscreen() const { return !options_.unscreenPath.empty(); }
  [[nodiscard]] core::LayerInputs InputsOfLayers() const;
  [[nodiscard]] io::OutputFile Output(const std::string& path, io::OutputRole role) const;

  RunOptions options_;
  LoadedInput input_;
  io::LinearOutputInfo linearOutput_;
  cv::Mat starless_;  // ready to be written
};

}  // namespace project_lumen::cli
