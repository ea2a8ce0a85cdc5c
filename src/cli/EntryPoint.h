// The program from its arguments to its exit status.
#pragma once

#include <span>

namespace project_lumen::cli {

// Answers the introspection switches, or parses and validates the options and processes one image.
// `arguments` holds the program's name first. Returns 0 on success and introspection, -1 for every
// failure, which is reported on standard error. Without --machine-progress the parser itself ends
// the process after help, version (0) and parse failures (1).
int RunProgram(std::span<const char* const> arguments);

}  // namespace project_lumen::cli
