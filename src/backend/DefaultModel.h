// The network that comes with the program and the library.
#pragma once

namespace project_lumen::backend {

// The name of its folder.
inline constexpr char kDefaultModelId[] = "nebulex2";
inline constexpr char kDefaultWeightsFileName[] = "Nebulex2_weights.onnx";

}  // namespace project_lumen::backend
