// Messages on their way to the caller.
#pragma once

#include <nebulex/nebulex.h>

#include "common/Diagnostics.h"

namespace project_lumen::lib {

// Hands a record to the caller's function, which may be null.
void SendMessage(nebulex_message_fn function, void* context, const Diagnostic& record);

}  // namespace project_lumen::lib
