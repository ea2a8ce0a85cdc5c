// The command line of the studio.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace project_lumen::studio {

struct StudioOptions {
  std::vector<std::string> images;
  std::vector<std::string> folders;
  int port = 0;  // any free one
  bool opensBrowser = true;
  std::string program;  // empty: nebulex2 beside this program
};

// The options that the arguments, the program's name first, ask for; none after --help and
// --version, which print what they are asked for. Throws std::invalid_argument with the message for
// the user.
std::optional<StudioOptions> ParseStudioOptions(std::span<const char* const> arguments);

}  // namespace project_lumen::studio
