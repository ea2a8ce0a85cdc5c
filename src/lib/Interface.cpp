// The exported functions. What they do is elsewhere; here it goes behind the wall.
#include <nebulex/nebulex.h>

#include <string>

#include "lib/Errors.h"
#include "lib/Model.h"
#include "lib/ResultBuffers.h"
#include "lib/Settings.h"
#include "lib/SizedStruct.h"
#include "lib/StarRemovalCall.h"
#include "lib/Wall.h"

using namespace project_lumen::lib;

const char* nebulex_last_error() {
  return LastError();
}

const char* nebulex_status_name(nebulex_status status) {
  switch (status) {
    case NEBULEX_OK:
      return "ok";
    case NEBULEX_BAD_ARGUMENT:
      return "bad argument";
    case NEBULEX_BAD_MODEL:
      return "bad model";
    case NEBULEX_BAD_IMAGE:
      return "bad image";
    case NEBULEX_OUT_OF_MEMORY:
      return "out of memory";
    case NEBULEX_STOPPED:
      return "stopped";
    case NEBULEX_INTERNAL:
      return "internal";
    default:
      return "unknown";
  }
}

const char* nebulex_version() {
  return NEBULEX_VERSION;
}

nebulex_status nebulex_model_options_init(nebulex_model_options* options, size_t size) {
  return BehindTheWall(
      [&] { InitialiseSized(options, size, DefaultModelOptions(), "model_options"); });
}

nebulex_status nebulex_settings_init(nebulex_settings* settings, size_t size) {
  return BehindTheWall([&] { InitialiseSized(settings, size, DefaultSettings(), "settings"); });
}

nebulex_status nebulex_callbacks_init(nebulex_callbacks* callbacks, size_t size) {
  return BehindTheWall([&] { InitialiseSized(callbacks, size, DefaultCallbacks(), "callbacks"); });
}

nebulex_status nebulex_results_init(nebulex_results* results, size_t size) {
  return BehindTheWall([&] { InitialiseSized(results, size, DefaultResults(), "results"); });
}

void nebulex_results_free(nebulex_results* results) {
  FreeResults(results);
}

nebulex_status nebulex_model_open(const char* path, const nebulex_model_options* options,
                                  nebulex_model** model) {
  return BehindTheWall([&] {
    if (model == nullptr) {
      throw BadArgument("model is NULL.");
    }
    *model = OpenModel(path, ReadModelOptions(options));
  });
}

void nebulex_model_close(nebulex_model* model) {
  delete model;
}

const char* nebulex_model_provider(const nebulex_model* model) {
  return model == nullptr ? "" : model->backend.ProviderName().c_str();
}

const char* nebulex_model_path(const nebulex_model* model) {
  return model == nullptr ? "" : model->path.c_str();
}

nebulex_status nebulex_remove_stars(nebulex_model* model, const nebulex_view* image,
                                    const nebulex_settings* settings,
                                    const nebulex_callbacks* callbacks, nebulex_results* results) {
  return BehindTheWall([&] { RemoveStars(model, image, settings, callbacks, results); });
}
