// What the program calls itself, in one place. The version comes from the build.
#pragma once

#include "backend/DefaultModel.h"

namespace project_lumen::cli {

inline constexpr char kVersion[] = NEBULEX_VERSION;
inline constexpr auto& kModelId = backend::kDefaultModelId;
inline constexpr char kModelLabel[] = "Nebulex2";
inline constexpr char kExecutableName[] = "nebulex2";
inline constexpr auto& kDefaultWeightsFileName = backend::kDefaultWeightsFileName;
inline constexpr char kBuildIdentifier[] = "0242";
inline constexpr char kBackendDisplayName[] = "ONNX Runtime";

}  // namespace project_lumen::cli
