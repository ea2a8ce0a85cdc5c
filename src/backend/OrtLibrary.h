// The entry of ONNX Runtime's shared library.
#pragma once

#include <onnxruntime_c_api.h>

namespace project_lumen::backend {

// Lies in the library itself. On Windows the library is loaded at the first call, from the folder
// of the program; throws std::runtime_error that says what to install when it cannot be. Elsewhere
// it is loaded with the program.
const OrtApiBase& OrtLibraryBase();

}  // namespace project_lumen::backend
