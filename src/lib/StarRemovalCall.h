// One call of nebulex_remove_stars.
#pragma once

#include <nebulex/nebulex.h>

namespace project_lumen::lib {

// Does what the header says; every failure is an exception (lib/Errors.h, core::Cancelled, lack of
// memory, and others for faults of the network).
void RemoveStars(nebulex_model* model, const nebulex_view* image, const nebulex_settings* settings,
                 const nebulex_callbacks* callbacks, nebulex_results* results);

}  // namespace project_lumen::lib
