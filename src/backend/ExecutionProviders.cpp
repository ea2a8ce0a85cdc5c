#include "backend/ExecutionProviders.h"

#include <optional>
#include <stdexcept>
#include <utility>

#include "common/Platform.h"

namespace project_lumen::backend {
namespace {

constexpr int kDirectMlDevice = 0;

SessionOptionsHandle CreateCommonSessionOptions(int intraThreads) {
  SessionOptionsHandle options = CreateSessionOptions();
  ConfigureCommonSessionOptions(*options, intraThreads);
  return options;
}

SessionHandle CreateSession(const OrtEnv& environment, ByteView model,
                            const OrtSessionOptions& options) {
  return CreateHandle<SessionHandle>([&](OrtSession** session) {
    return CurrentOrtApi().CreateSessionFromArray(&environment, model.data(), model.size(),
                                                  &options, session);
  });
}

}  // namespace

SessionOptionsHandle CreateSessionOptions() {
  return CreateHandle<SessionOptionsHandle>(CurrentOrtApi().CreateSessionOptions);
}

void ConfigureCommonSessionOptions(OrtSessionOptions& options, int intraThreads) {
  const OrtApi& api = CurrentOrtApi();
  ThrowOnError(api.SetInterOpNumThreads(&options, 1));
  if (intraThreads > 0) {
    ThrowOnError(api.SetIntraOpNumThreads(&options, intraThreads));
  }
  ThrowOnError(api.SetSessionGraphOptimizationLevel(&options, ORT_ENABLE_ALL));
}

CandidateSession CreateCudaSession(const OrtEnv& environment, ByteView model, int intraThreads) {
  const OrtApi& api = CurrentOrtApi();
  SessionOptionsHandle options = CreateCommonSessionOptions(intraThreads);
  const auto cudaOptions = CreateHandle<CudaOptionsHandle>(api.CreateCUDAProviderOptions);
  ThrowOnError(api.SessionOptionsAppendExecutionProvider_CUDA_V2(options.get(), cudaOptions.get()));
  SessionHandle session = CreateSession(environment, model, *options);
  return {std::move(options), std::move(session)};
}

CandidateSession CreateDirectMlSession(const OrtEnv& environment, ByteView model, int intraThreads,
                                       const void* runtimeAddress) {
  const OrtApi& api = CurrentOrtApi();
  SessionOptionsHandle options = CreateCommonSessionOptions(intraThreads);
  ThrowOnError(api.DisableMemPattern(options.get()));
  ThrowOnError(api.SetSessionExecutionMode(options.get(), ORT_SEQUENTIAL));
  AppendDirectMlProvider(*options, runtimeAddress);
  SessionHandle session = CreateSession(environment, model, *options);
  return {std::move(options), std::move(session)};
}

CandidateSession CreateCpuSession(const OrtEnv& environment, ByteView model, int intraThreads) {
  SessionOptionsHandle options = CreateCommonSessionOptions(intraThreads);
  SessionHandle session = CreateSession(environment, model, *options);
  return {std::move(options), std::move(session)};
}

void AppendDirectMlProvider(OrtSessionOptions& options, const void* runtimeAddress) {
  const std::optional<LoadedModule> runtime = LoadedModule::FromAddress(runtimeAddress);
  if (!runtime) {
    throw std::runtime_error("ONNX Runtime DLL is not loaded.");
  }
  using AppendDirectMl = OrtStatus*(ORT_API_CALL*)(OrtSessionOptions*, int);
  const auto append = reinterpret_cast<AppendDirectMl>(
      runtime->FindExport("OrtSessionOptionsAppendExecutionProvider_DML"));
  if (append != nullptr) {
    ThrowOnError(append(&options, kDirectMlDevice));
    return;
  }
  const char* key = "device_id";
  const char* value = "0";
  ThrowOnError(
      CurrentOrtApi().SessionOptionsAppendExecutionProvider(&options, "DML", &key, &value, 1));
}

std::string FormatProviderFailure(const std::string& label, const std::string& detail) {
  return "ONNX Runtime " + label +
         " initialization/warmup failed; trying the next provider. Provider detail: " + detail;
}

}  // namespace project_lumen::backend
