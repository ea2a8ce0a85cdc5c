// An open network.
#pragma once

#include <nebulex/nebulex.h>

#include <string>

#include "backend/OnnxRuntimeBackend.h"
#include "core/SettingRules.h"

// What the opaque handle of the interface points at. Everything in it may be used from several
// threads at once.
struct nebulex_model {
  nebulex_model(const std::string& modelPath, const project_lumen::backend::MessageCallback& log,
                const project_lumen::backend::ProviderPlatform& platform)
      : path(modelPath), backend(modelPath, project_lumen::core::kWindow, log, false, platform) {}

  std::string path;
  project_lumen::backend::OnnxRuntimeBackend backend;
};

namespace project_lumen::lib {

// Opens the network at `path`; null for the one that comes with the library. Throws BadModel with
// the model context behind the sentence, and std::bad_alloc.
nebulex_model* OpenModel(const char* path, const nebulex_model_options& options);

}  // namespace project_lumen::lib
