#include "cli/Nebulex2/Nebulex2Model.h"

#include <iostream>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <utility>

#include "cli/BackendMessages.h"
#include "cli/OutputPaths.h"
#include "cli/Progress.h"
#include "common/PathSuffix.h"
#include "core/StarLayers.h"
#include "core/TileGeometry.h"

namespace project_lumen::cli {
namespace {

constexpr int kWindowSize = 512;
constexpr bool kRestoreShadows = true;

void CheckTiling(int stride) {
  if (stride <= 0 || stride > kWindowSize) {
    throw std::invalid_argument(
        "Window size must be 512, with a positive stride no larger than the window.");
  }
  if (stride % 2 != 0) {
    throw std::invalid_argument("Stride should be even!");
  }
}

core::ImageView ViewOf(const cv::Mat& image) {
  return {image.ptr<float>(), image.total() * static_cast<std::size_t>(image.channels()),
          image.cols, image.rows, image.channels()};
}

cv::Mat Wrap(core::Image& image) {
  return {image.height, image.width, CV_32FC3, image.samples.data()};
}

}  // namespace

Nebulex2Model::Nebulex2Model(const RunOptions& options)
    : DLModelBase({options.quiet, options.machineProgress, std::cerr}), options_(options) {
  CheckTiling(options_.stride);
  RequireDistinctOutputs(options_);
}

void Nebulex2Model::LoadInput() {
  input_ = LoadInputImage(options_.inputPath, options_.upsample, options_.linear, Sink());
  core::ComputeTileGeometry(input_.image.cols, input_.image.rows, kWindowSize, options_.stride);
  RequireWritableOutputs(options_);
}

void Nebulex2Model::PrepareLinearInput() {
  DLModelBase::PrepareLinearInput({.linear = options_.linear,
                                   .shadowsClipping = options_.shadowsClipping,
                                   .targetBackground = options_.targetBackground,
                                   .restoreShadows = kRestoreShadows},
                                  input_.image, input_.sourceSamples, input_.info.fixedDivisor);
  if (IsLinear()) {
    // From here on the network sees the stretched image, and the MTF keeps the working samples.
    input_.image.release();
    DescribeLinearRun();
  }
}

void Nebulex2Model::DescribeLinearRun() {
  linearOutput_.divisor = input_.info.fixedDivisor;
  linearOutput_.upperClipped = input_.info.fits.upperClipped;
  linearOutput_.sourceSamples = input_.sourceSamples;
  linearOutput_.channels.clear();
  const auto& statistics = LinearChannels();
  for (int c = 0; c < input_.sourceSamples.channels(); ++c) {
    const auto& channel = statistics[static_cast<std::size_t>(c)];
    linearOutput_.channels.push_back({channel.shadows, channel.constant});
  }
}

core::Image Nebulex2Model::InferTile(const core::ImageView& tile) {
  const auto log = [this](const std::string& line) { ReportBackendMessage(Sink(), line); };
  if (!backend_) {
    backend_ = std::make_unique<backend::OnnxRuntimeBackend>(options_.weightsPath, kWindowSize, log,
                                                             options_.quiet);
    log("Backend: ONNX Runtime (" + backend_->ProviderName() + ")");
  }
  // The view is read only, and so is the session's use of the matrix around it.
  const cv::Mat input(tile.height, tile.width, CV_32FC3, const_cast<float*>(tile.data));
  return {backend_->InferSamples(input), tile.width, tile.height, tile.channels};
}

void Nebulex2Model::RemoveStarsFromWorkingImage() {
  const cv::Mat& working = IsLinear() ? Prepared() : input_.image;
  core::StarRemovalOptions options;
  options.stride = options_.stride;
  options.protectHighlights = options_.protectHighlights && !IsLinear();
  const ProgressReporter reporter{options_.quiet, options_.machineProgress, std::cout, std::cerr};
  core::StarRemovalCallbacks callbacks;
  callbacks.progress = [&reporter](int current, int total) {
    return ReportProgress(reporter, current, total);
  };
  callbacks.log = [this](const std::string& line) { ReportBackendMessage(Sink(), line); };
  prediction_ = core::RemoveStars(
                    ViewOf(working), options,
                    [this](const core::ImageView& tile) { return InferTile(tile); }, callbacks)
                    .starless;
  input_.image.release();
  Prepared().release();
  backend_.reset();
}

// The network's output back in linear values, CV_64F; the prediction is let go of.
cv::Mat Nebulex2Model::InvertLinearPrediction() {
  cv::Mat starless = LinearMtf().InvertLinearPrediction(Wrap(prediction_), kRestoreShadows);
  prediction_ = {};
  if (options_.protectHighlights) {
    core::ProtectHighlightsInPlace(LinearMtf().Working(), starless);
  }
  DropLinearMtf();
  return starless;
}

void Nebulex2Model::Run() {
  RemoveStarsFromWorkingImage();
  PrepareStarlessOutput();
  if (WantsMask() || WantsUnscreen()) {
    CheckLayerInputs(InputsOfLayers(), WantsUnscreen(), Sink());
  }
}

void Nebulex2Model::PrepareStarlessOutput() {
  const cv::Mat starless = PrepareFinalStarless(
      IsLinear() ? InvertLinearPrediction() : Wrap(prediction_), options_.upsample,
      input_.info.isGrayscale, [this](cv::Mat& image) { RestoreFinalLinearSamples(image); });
  starless_ = PrepareOutputImage(options_.outputPath, starless, false, input_.info);
  const bool isPrediction = starless_.ptr() == Wrap(prediction_).ptr();
  if (!isPrediction) {
    prediction_ = {};
  }
}

void Nebulex2Model::WriteOutputs() {
  if (!WantsMask() && !WantsUnscreen()) {
    input_.sourceSamples.release();
  }
  WriteOne("Writing starless image to: ", options_.outputPath, starless_, io::OutputRole::kMain);
  cv::Mat layer;
  if (WantsMask()) {
    WriteLayer("Writing mask to: ", options_.maskPath, io::OutputRole::kDifference,
               !WantsUnscreen(), layer);
  }
  if (WantsUnscreen()) {
    WriteLayer("Writing unscreen star layer to: ", options_.unscreenPath, io::OutputRole::kUnscreen,
               true, layer);
  }
}

void Nebulex2Model::WriteLayer(const char* announcement, const std::string& path,
                               io::OutputRole role, bool isLast, cv::Mat& layer) {
  PrepareLayer(path, InputsOfLayers(), role, input_.info, layer);
  if (isLast) {
    DropLayerInputs();
  }
  WriteOne(announcement, path, layer, role);
}

void Nebulex2Model::DropLayerInputs() {
  input_.sourceSamples.release();
  starless_.release();
  prediction_ = {};
}

void Nebulex2Model::WriteOne(const char* announcement, const std::string& path,
                             const cv::Mat& prepared, io::OutputRole role) {
  if (!options_.quiet && !options_.machineProgress) {
    std::cout << announcement << path << std::endl;
  }
  WriteOutputImage(path, prepared, role, Context());
}

// The starless image is read back as its file holds it, so that file and layers belong together
// exactly.
LayerInputs Nebulex2Model::InputsOfLayers() const {
  return {input_.sourceSamples,
          [this](const cv::Range& rows) {
            return ReadBackOutputRows(options_.outputPath, starless_, rows, Context());
          },
          IsFitsPath(options_.outputPath)};
}

OutputContext Nebulex2Model::Context() const {
  return {input_.info, IsLinear() ? &linearOutput_ : nullptr, Sink()};
}

}  // namespace project_lumen::cli
