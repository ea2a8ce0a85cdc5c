// The studio from its start to its end.
#pragma once

#include "studio/StudioOptions.h"

namespace project_lumen::studio {

// Serves the page until a signal asks for the end (SIGINT, SIGTERM, SIGHUP); then stops what runs
// and leaves nothing half written. Returns the exit status. Throws std::exception with the message
// for the user when it cannot begin. To be called once, before other threads are started.
int RunStudio(const StudioOptions& options);

}  // namespace project_lumen::studio
