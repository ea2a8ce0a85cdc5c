#include <cstddef>
#include <exception>
#include <iostream>
#include <span>

#include "studio/StudioOptions.h"
#include "studio/StudioRun.h"

int main(int argc, char* argv[]) {
  using namespace project_lumen::studio;
  const std::span<const char* const> arguments(argv, static_cast<std::size_t>(argc));
  try {
    const auto options = ParseStudioOptions(arguments);
    return options ? RunStudio(*options) : 0;
  } catch (const std::exception& error) {
    std::cerr << "Error: " << error.what() << std::endl;
    return 1;
  }
}
