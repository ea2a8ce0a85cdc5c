// What a caller may set, checked.
#pragma once

#include <nebulex/nebulex.h>

#include "core/ImageProcessing.h"

namespace project_lumen::lib {

nebulex_settings DefaultSettings();
nebulex_callbacks DefaultCallbacks();
nebulex_model_options DefaultModelOptions();

struct Settings {
  core::ProcessingSettings processing;
  double white;  // of floating samples
  bool wantsMask;
  bool wantsUnscreen;
};

// Each takes null for the defaults and throws BadArgument with a sentence that names the member.
Settings ReadSettings(const nebulex_settings* settings);
nebulex_callbacks ReadCallbacks(const nebulex_callbacks* callbacks);
nebulex_model_options ReadModelOptions(const nebulex_model_options* options);

}  // namespace project_lumen::lib
