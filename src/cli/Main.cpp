#include <cstddef>
#include <span>

#include "cli/EntryPoint.h"

int main(int argc, char* argv[]) {
  const std::span<const char* const> arguments(argv, static_cast<std::size_t>(argc));
  return project_lumen::cli::RunProgram(arguments);
}
