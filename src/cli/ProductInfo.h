// What the program calls itself, in one place. The version comes from the build.
#pragma once

namespace project_lumen::cli {

inline constexpr char kVersion[] = NEBULEX_VERSION;
inline constexpr char kModelId[] = "nebulex2";
inline constexpr char kModelLabel[] = "Nebulex2";
inline constexpr char kExecutableName[] = "nebulex2";
inline constexpr char kDefaultWeightsFileName[] = "Nebulex2_weights.onnx";
inline constexpr char kBuildIdentifier[] = "0242";
inline constexpr char kBackendDisplayName[] = "ONNX Runtime";

}  // namespace project_lumen::cli
