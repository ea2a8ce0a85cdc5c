#include "backend/ProviderSelection.h"

#include <exception>
#include <stdexcept>
#include <utility>
#include <vector>

#include "backend/SessionRun.h"

namespace project_lumen::backend {
namespace {

constexpr float kWarmupSample = 0.125F;

class Selection {
 public:
  Selection(BackendState& state, int windowSize, const MessageCallback& messages)
      : state_(state), windowSize_(windowSize), messages_(messages) {}

  // `create` yields a CandidateSession; a standard exception from it or from the warmup becomes a
  // warning.
  template <class Create>
  void TryProvider(const char* label, const char* providerName, Create create) {
    try {
      ActivateSession(create(), providerName);
    } catch (const std::exception& error) {
      messages_("Warning: " + FormatProviderFailure(label, error.what()));
    }
  }

  void RunOnCpu(int intraThreads) {
    ActivateSession(CreateCpuSession(*state_.environment, state_.model, intraThreads),
                    kCpuProviderName);
  }

  void RunCpuFallback(int intraThreads) {
    try {
      RunOnCpu(intraThreads);
    } catch (const std::exception& error) {
      throw std::runtime_error(
          std::string("ONNX Runtime CPU fallback initialization failed. Detail: ") + error.what());
    }
    messages_(
        "ONNX Runtime CPU fallback initialized successfully; continuing on CPU. GPU acceleration "
        "is unavailable for this run.");
  }

 private:
  void ActivateSession(CandidateSession candidate, const char* providerName) {
    std::string inputName = FirstInputName(*candidate.session);
    std::string outputName = FirstOutputName(*candidate.session);
    const TensorShape shape{1, windowSize_, windowSize_, 3};
    const std::vector<float> samples(shape.ElementCount(), kWarmupSample);
    RunSessionChecked(*candidate.session, providerName, inputName, outputName, shape,
                      samples.data(), kWarmupStage);

    state_.options = std::move(candidate.options);
    state_.session = std::move(candidate.session);
    state_.inputName = std::move(inputName);
    state_.outputName = std::move(outputName);
    state_.providerName = providerName;
  }

  BackendState& state_;
  int windowSize_;
  const MessageCallback& messages_;
};

}  // namespace

void SelectProvider(BackendState& state, const ProviderPlatform& platform, int windowSize,
                    const MessageCallback& messages) {
  Selection selection(state, windowSize, messages);
  const OrtEnv& environment = *state.environment;
  if (platform.cpuOnly) {
    selection.RunOnCpu(platform.intraThreads);
    return;
  }
  if (platform.cudaLibraryPresent) {
    selection.TryProvider("CUDA", kCudaProviderName, [&] {
      return CreateCudaSession(environment, state.model, platform.intraThreads);
    });
  }
  if (!state.session) {
    selection.TryProvider("DirectML", kDirectMlProviderName, [&] {
      return CreateDirectMlSession(environment, state.model, platform.intraThreads,
                                   platform.runtimeAddress);
    });
  }
  if (!state.session) {
    selection.RunCpuFallback(platform.intraThreads);
  }
}

}  // namespace project_lumen::backend
