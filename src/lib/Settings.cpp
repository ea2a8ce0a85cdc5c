#include "lib/Settings.h"

#include <cmath>
#include <cstdint>
#include <string>

#include "common/NumberText.h"
#include "core/SettingRules.h"
#include "lib/Errors.h"
#include "lib/SizedStruct.h"

namespace project_lumen::lib {
namespace {

constexpr std::int32_t kMostThreads = 1024;

void Require(bool isMet, const std::string& member, const std::string& rule,
             const std::string& value) {
  if (!isMet) {
    throw BadArgument(member + " must be " + rule + ". It is " + value + ".");
  }
}

void CheckValues(const nebulex_settings& settings) {
  Require(core::IsWithinWindow(settings.stride) && core::IsEven(settings.stride), "settings.stride",
          "even, and 2 to 512", std::to_string(settings.stride));
  Require((settings.layers & ~(NEBULEX_MASK | NEBULEX_UNSCREEN)) == 0, "settings.layers",
          "made of NEBULEX_MASK and NEBULEX_UNSCREEN", std::to_string(settings.layers));
  Require(settings.reserved == 0, "settings.reserved", "0", std::to_string(settings.reserved));
  Require(core::IsShadowsMultiplier(settings.shadows_clipping), "settings.shadows_clipping",
          "finite and below 0", FormatReal(settings.shadows_clipping));
  Require(core::IsTargetBackground(settings.target_background), "settings.target_background",
          "above 0 and below 1", FormatReal(settings.target_background));
  Require(std::isfinite(settings.white) && settings.white > 0.0, "settings.white",
          "finite and above 0", FormatReal(settings.white));
}

}  // namespace

nebulex_settings DefaultSettings() {
  const core::ProcessingSettings processing;
  return {.size = sizeof(nebulex_settings),
          .stride = processing.stride,
          .layers = 0,
          .linear = processing.linear ? 1 : 0,
          .upsample = processing.upsample ? 1 : 0,
          .protect_highlights = processing.protectHighlights ? 1 : 0,
          .reserved = 0,
          .shadows_clipping = processing.shadowsClipping,
          .target_background = processing.targetBackground,
          .white = 1.0};
}

nebulex_callbacks DefaultCallbacks() {
  return {.size = sizeof(nebulex_callbacks),
          .context = nullptr,
          .progress = nullptr,
          .stop_requested = nullptr,
          .message = nullptr};
}

nebulex_model_options DefaultModelOptions() {
  return {.size = sizeof(nebulex_model_options),
          .provider = NEBULEX_PROVIDER_AUTO,
          .threads = 0,
          .log = nullptr,
          .log_context = nullptr};
}

Settings ReadSettings(const nebulex_settings* settings) {
  SizedReader reader(settings, DefaultSettings(), "settings");
  const nebulex_settings& value = reader.Read(&nebulex_settings::stride)
                                      .Read(&nebulex_settings::layers)
                                      .Read(&nebulex_settings::linear)
                                      .Read(&nebulex_settings::upsample)
                                      .Read(&nebulex_settings::protect_highlights)
                                      .Read(&nebulex_settings::reserved)
                                      .Read(&nebulex_settings::shadows_clipping)
                                      .Read(&nebulex_settings::target_background)
                                      .Read(&nebulex_settings::white)
                                      .Value();
  CheckValues(value);
  return {.processing = {.stride = value.stride,
                         .linear = value.linear != 0,
                         .shadowsClipping = value.shadows_clipping,
                         .targetBackground = value.target_background,
                         .protectHighlights = value.protect_highlights != 0,
                         .upsample = value.upsample != 0},
          .white = value.white,
          .wantsMask = (value.layers & NEBULEX_MASK) != 0,
          .wantsUnscreen = (value.layers & NEBULEX_UNSCREEN) != 0};
}

nebulex_callbacks ReadCallbacks(const nebulex_callbacks* callbacks) {
  SizedReader reader(callbacks, DefaultCallbacks(), "callbacks");
  return reader.Read(&nebulex_callbacks::context)
      .Read(&nebulex_callbacks::progress)
      .Read(&nebulex_callbacks::stop_requested)
      .Read(&nebulex_callbacks::message)
      .Value();
}

nebulex_model_options ReadModelOptions(const nebulex_model_options* options) {
  SizedReader reader(options, DefaultModelOptions(), "model_options");
  const nebulex_model_options value = reader.Read(&nebulex_model_options::provider)
                                          .Read(&nebulex_model_options::threads)
                                          .Read(&nebulex_model_options::log)
                                          .Read(&nebulex_model_options::log_context)
                                          .Value();
  Require(value.provider == NEBULEX_PROVIDER_AUTO || value.provider == NEBULEX_PROVIDER_CPU,
          "model_options.provider", "NEBULEX_PROVIDER_AUTO or NEBULEX_PROVIDER_CPU",
          std::to_string(value.provider));
  Require(value.threads >= 0 && value.threads <= kMostThreads, "model_options.threads", "0 to 1024",
          std::to_string(value.threads));
  return value;
}

}  // namespace project_lumen::lib
