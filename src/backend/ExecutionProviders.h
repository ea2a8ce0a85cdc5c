// A session for each execution provider, created from a model in memory. Every function throws
// Ort::Exception when ONNX Runtime refuses. `intraThreads` is the number of intra-op threads; 0
// keeps ONNX Runtime's own.
#pragma once

#include <string>

#include "backend/OrtHandles.h"
#include "backend/ProtobufWire.h"

namespace project_lumen::backend {

constexpr const char* kCudaProviderName = "CUDA execution provider";
constexpr const char* kDirectMlProviderName = "DirectML execution provider";
constexpr const char* kCpuProviderName = "CPU execution provider";

// A session that is not in use yet, with the options it was created from.
struct CandidateSession {
  SessionOptionsHandle options;
  SessionHandle session;
};

// Options as ONNX Runtime presets them.
SessionOptionsHandle CreateSessionOptions();

// What every provider's options have in common: one inter-op thread, all graph optimisations and
// the number of intra-op threads.
void ConfigureCommonSessionOptions(OrtSessionOptions& options, int intraThreads);

// CUDA with ONNX Runtime's own provider options.
CandidateSession CreateCudaSession(const OrtEnv& environment, ByteView model, int intraThreads);

// DirectML on device 0, which requires sequential execution without memory patterns.
// `runtimeAddress` as for AppendDirectMlProvider.
CandidateSession CreateDirectMlSession(const OrtEnv& environment, ByteView model, int intraThreads,
                                       const void* runtimeAddress);

CandidateSession CreateCpuSession(const OrtEnv& environment, ByteView model, int intraThreads);

// Appends DirectML through the function that the ONNX Runtime library exports for it, or, where it
// exports none, by name. `runtimeAddress` lies inside that library; std::runtime_error "ONNX
// Runtime DLL is not loaded." when no loaded module holds it.
void AppendDirectMlProvider(OrtSessionOptions& options, const void* runtimeAddress);

// "ONNX Runtime " + label + " initialization/warmup failed; trying the next provider. Provider
// detail: " + detail
std::string FormatProviderFailure(const std::string& label, const std::string& detail);

}  // namespace project_lumen::backend
