// The choice of an execution provider: CUDA, then DirectML, then the CPU.
#pragma once

#include "backend/BackendState.h"
#include "backend/MessageCallback.h"
#include "backend/OnnxRuntimeBackend.h"

namespace project_lumen::backend {

// Gives the state, which has its environment and model, the session of the first provider that
// creates one and runs one warmup tile of windowSize x windowSize pixels through it. Messages say
// which providers failed and that the CPU took over; `messages` is not empty.
//
// Throws std::runtime_error "ONNX Runtime CPU fallback initialization failed. Detail: …" when even
// the CPU fails; where only the CPU is to be tried, the detail alone.
void SelectProvider(BackendState& state, const ProviderPlatform& platform, int windowSize,
                    const MessageCallback& messages);

}  // namespace project_lumen::backend
