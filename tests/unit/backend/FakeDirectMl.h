// A module that exports the DirectML entry point, as the ONNX Runtime library does where it is
// built with DirectML. Its status comes from a hook of the test.
#pragma once

#include <onnxruntime_c_api.h>

using DirectMlHook = OrtStatus* (*)(OrtSessionOptions* options, int device);

extern "C" {
void SetDirectMlHook(DirectMlHook hook);
OrtStatus* OrtSessionOptionsAppendExecutionProvider_DML(OrtSessionOptions* options, int device);
}
