#include "backend/OnnxRuntimeBackend.h"

#include <exception>
#include <stdexcept>
#include <vector>

#include "backend/BackendState.h"
#include "backend/ModelLookup.h"
#include "backend/ModelPrescan.h"
#include "backend/OrtLibrary.h"
#include "backend/ProviderSelection.h"
#include "backend/RuntimeLog.h"
#include "backend/SessionRun.h"
#include "common/OutOfMemory.h"
#include "common/Platform.h"

namespace project_lumen::backend {
namespace {

EnvironmentHandle CreateEnvironment(bool quiet) {
  const OrtApi& api = CurrentOrtApi();
  const OrtLoggingLevel level = quiet ? ORT_LOGGING_LEVEL_FATAL : ORT_LOGGING_LEVEL_WARNING;
  auto environment = CreateHandle<EnvironmentHandle>([&](OrtEnv** result) {
    return api.CreateEnvWithCustomLogger(CollectRuntimeLog, nullptr, level, "project-lumen-ort",
                                         result);
  });
  ThrowOnError(api.SetLanguageProjection(environment.get(), ORT_PROJECTION_CPLUSPLUS));
  return environment;
}

void Send(const std::string& message, const MessageCallback& messages) {
  if (messages) {
    messages(message);
  }
}

void RequireTile(const cv::Mat& tile) {
  if (tile.empty()) {
    throw std::runtime_error("ONNX Runtime input image is empty.");
  }
  if (tile.type() != CV_32FC3) {
    throw std::runtime_error("ONNX Runtime input image must be CV_32FC3.");
  }
  if (!tile.isContinuous()) {
    throw std::runtime_error("ONNX Runtime input image must be continuous.");
  }
}

}  // namespace

ProviderPlatform SystemProviderPlatform() {
  return {IsCudaProviderLibraryPresent(), &OrtLibraryBase(), RestrictedProcessorCount()};
}

ProviderPlatform LibraryProviderPlatform() {
  ProviderPlatform platform = SystemProviderPlatform();
  const auto module = LoadedModule::FromAddress(platform.runtimeAddress);
  const auto folder = module ? module->Folder() : std::nullopt;
  platform.cudaLibraryPresent = folder && IsCudaProviderLibraryIn(*folder);
  return platform;
}

OnnxRuntimeBackend::OnnxRuntimeBackend(const std::string& modelPath, int windowSize,
                                       const MessageCallback& messageCallback, bool quiet)
    : OnnxRuntimeBackend(modelPath, windowSize, messageCallback, quiet, SystemProviderPlatform()) {}

OnnxRuntimeBackend::OnnxRuntimeBackend(const std::string& modelPath, int windowSize,
                                       const MessageCallback& messageCallback, bool quiet,
                                       const ProviderPlatform& platform)
    : state_(std::make_unique<BackendState>()) {
  state_->messages = messageCallback;
  RuntimeLog log;
  try {
    state_->environment = CreateEnvironment(quiet);
    state_->options = CreateSessionOptions();
    state_->model = LoadPreparedModel(modelPath);
    SelectProvider(*state_, platform, windowSize, [&](const std::string& message) {
      log.SendTo(messageCallback);
      Send(message, messageCallback);
    });
    log.SendTo(messageCallback);
  } catch (const std::exception& error) {
    log.SendTo(messageCallback);
    if (MeansLackOfMemory(error)) {
      throw;
    }
    throw std::runtime_error(
        std::string(error.what()) + "\n" +
        DescribeModelContext("ONNX Runtime", "ONNX model", "backend caller", modelPath, {}));
  }
}

OnnxRuntimeBackend::~OnnxRuntimeBackend() = default;

const std::string& OnnxRuntimeBackend::ProviderName() const {
  return state_->providerName;
}

std::vector<float> OnnxRuntimeBackend::InferTile(const cv::Mat& tile) {
  return InferTile(tile, {}, state_->messages);
}

std::vector<float> OnnxRuntimeBackend::InferTile(const cv::Mat& tile, const std::stop_token& stop,
                                                 const MessageCallback& messages) {
  RequireTile(tile);
  const TensorShape shape{1, tile.rows, tile.cols, tile.channels()};
  return WithRuntimeLog(messages, [&]() -> std::vector<float> {
    const Turns::Turn turn(state_->turns, stop);
    if (!turn.IsTaken()) {
      throw InferenceStopped();
    }
    const CheckedOutput answer =
        RunSessionChecked(*state_->session, state_->providerName, state_->inputName,
                          state_->outputName, shape, tile.ptr<float>(), kInferenceStage, stop);
    return {answer.samples.begin(), answer.samples.end()};
  });
}

}  // namespace project_lumen::backend
