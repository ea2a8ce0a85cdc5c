#include "cli/Nebulex2/Nebulex2Model.h"

#include <cstdint>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <stdexcept>

#include "backend/BackendDiagnostics.h"
#include "backend/OnnxRuntimeBackend.h"
#include "cli/Nebulex2/OutputRecords.h"
#include "cli/OutputPaths.h"
#include "cli/Progress.h"
#include "core/ImageProcessing.h"
#include "core/SettingRules.h"
#include "core/StarLayers.h"

namespace project_lumen::cli {
namespace {

void CheckTiling(int stride) {
  if (!core::IsWithinWindow(stride)) {
    throw std::invalid_argument(
        "Window size must be 512, with a positive stride no larger than the window.");
  }
  if (!core::IsEven(stride)) {
    throw std::invalid_argument("Stride should be even!");
  }
}

core::ProcessingSettings SettingsOf(const RunOptions& options) {
  return {.stride = options.stride,
          .linear = options.linear,
          .shadowsClipping = options.shadowsClipping,
          .targetBackground = options.targetBackground,
          .protectHighlights = options.protectHighlights,
          .upsample = options.upsample};
}

}  // namespace

Nebulex2Model::Nebulex2Model(const RunOptions& options)
    : DLModelBase({options.quiet, options.machineProgress, std::cerr}), options_(options) {
  CheckTiling(options_.stride);
  RequireDistinctOutputs(options_);
}

void Nebulex2Model::LoadInput() {
  input_ = LoadInputImage(options_.inputPath, options_.upsample, options_.linear, Sink());
  core::CheckImageSize(input_.sourceSamples.size(), SettingsOf(options_));
  RequireWritableOutputs(options_, input_.info, input_.sourceSamples.size());
  if (WantsMask() || WantsUnscreen()) {
    WarnOfLayersThatCannotRebuild(Output(options_.outputPath, io::OutputRole::kMain), Sink());
  }
}

core::TileInferenceFn Nebulex2Model::Network() const {
  const auto log = [sink = Sink()](const std::string& line) {
    Emit(sink, backend::DiagnosticOf(line));
  };
  return [this, log, backend = std::shared_ptr<backend::OnnxRuntimeBackend>()](
             const core::ImageView& tile) mutable -> core::Image {
    if (!backend) {
      backend = std::make_shared<backend::OnnxRuntimeBackend>(options_.weightsPath, core::kWindow,
                                                              log, options_.quiet);
      log("Backend: ONNX Runtime (" + backend->ProviderName() + ")");
    }
    // The view is read only, and so is the session's use of the matrix around it.
    const cv::Mat input(tile.height, tile.width, CV_32FC3, const_cast<float*>(tile.data));
    return {backend->InferTile(input), tile.width, tile.height, tile.channels};
  };
}

void Nebulex2Model::Run() {
  starless_ =
      io::PrepareOutputImage(Output(options_.outputPath, io::OutputRole::kMain), RemoveStars());
  CheckLayers();
}

cv::Mat Nebulex2Model::RemoveStars() {
  const ProgressReporter reporter{options_.quiet, options_.machineProgress, std::cout, std::cerr};
  cv::Mat starless = ProcessImage(
      input_.sourceSamples, input_.info.fixedDivisor, SettingsOf(options_), Network(),
      [&reporter](int current, int total) { return ReportProgress(reporter, current, total); });
  DescribeLinearRun();
  return starless;
}

void Nebulex2Model::DescribeLinearRun() {
  linearOutput_.divisor = input_.info.fixedDivisor;
  linearOutput_.upperClipped = input_.info.fits.upperClipped;
  for (const core::LinearChannelStats& channel : LinearChannels()) {
    linearOutput_.shadows.push_back(channel.shadows);
  }
}

void Nebulex2Model::CheckLayers() const {
  if (!WantsMask() && !WantsUnscreen()) {
    return;
  }
  const std::uint64_t suppressed = core::CheckLayerInputs(InputsOfLayers(), WantsUnscreen());
  if (suppressed > 0) {
    EmitWarning(Sink(), WarningKind::kDataLoss, core::SuppressionWarning(suppressed));
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
  PrepareLayer(Output(path, role), InputsOfLayers(), layer);
  if (isLast) {
    DropLayerInputs();
  }
  WriteOne(announcement, path, layer, role);
}

void Nebulex2Model::DropLayerInputs() {
  input_.sourceSamples.release();
  starless_.release();
}

void Nebulex2Model::WriteOne(const char* announcement, const std::string& path,
                             const cv::Mat& prepared, io::OutputRole role) {
  if (!options_.quiet && !options_.machineProgress) {
    std::cout << announcement << path << std::endl;
  }
  WriteOutputImage(Output(path, role), prepared, Sink());
}

core::LayerInputs Nebulex2Model::InputsOfLayers() const {
  return {input_.sourceSamples,
          [this](const cv::Range& rows) {
            return io::ReadBackOutputImage(Output(options_.outputPath, io::OutputRole::kMain),
                                           starless_, rows);
          },
          io::CanReadBackFail(options_.outputPath)};
}

io::OutputFile Nebulex2Model::Output(const std::string& path, io::OutputRole role) const {
  return {path, role, input_.info, options_.linear ? &linearOutput_ : nullptr};
}

}  // namespace project_lumen::cli
