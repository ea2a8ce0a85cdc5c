#include "FakeDirectMl.h"

namespace {

DirectMlHook currentHook = nullptr;

}  // namespace

void SetDirectMlHook(DirectMlHook hook) {
  currentHook = hook;
}

OrtStatus* OrtSessionOptionsAppendExecutionProvider_DML(OrtSessionOptions* options, int device) {
  return currentHook(options, device);
}
