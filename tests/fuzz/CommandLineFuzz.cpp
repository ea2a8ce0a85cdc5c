// The command line: any arguments end with options that stand on it, a request to exit, or a
// message. An input holds the arguments one after another, each with a NUL behind it.
#include <algorithm>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzTarget.h"
#include "cli/CommandLine.h"

namespace project_lumen::fuzz {
namespace {

using Arguments = std::vector<std::string>;

Arguments ArgumentsOf(Input input) {
  Arguments arguments{"nebulex2"};
  std::istringstream stream(TextOf(input));
  for (std::string argument; std::getline(stream, argument, '\0');) {
    arguments.push_back(argument);
  }
  return arguments;
}

// A path that is on the command line, whole or behind its flag, or was left at its default.
void RequirePathFromArguments(const std::string& path, std::string_view untold,
                              const Arguments& arguments) {
  Require(path == untold ||
          std::any_of(arguments.begin() + 1, arguments.end(),
                      [&path](const std::string& argument) { return argument.ends_with(path); }));
}

void RequireOptionsFromArguments(const cli::RunOptions& options, const Arguments& arguments) {
  RequirePathFromArguments(options.inputPath, "", arguments);
  RequirePathFromArguments(options.outputPath, "starless.jpg", arguments);
  RequirePathFromArguments(options.maskPath, "", arguments);
  RequirePathFromArguments(options.unscreenPath, "", arguments);
  RequirePathFromArguments(options.weightsPath, "", arguments);
}

void ParseAnything(const Arguments& arguments) {
  std::vector<const char*> pointers;
  pointers.reserve(arguments.size());
  for (const std::string& argument : arguments) {
    pointers.push_back(argument.c_str());
  }
  Require(cli::HasExactArgument(pointers, "--quiet") ==
          (std::count(arguments.begin() + 1, arguments.end(), "--quiet") > 0));
  try {
    const cli::ParsedCommandLine parsed = cli::ParseCommandLine(pointers, true);
    RequireOptionsFromArguments(parsed.options, arguments);
    cli::ValidateCommandLine(parsed);
    Require(parsed.options.linear || !parsed.linearTuningGiven);
  } catch (const cli::ExitRequest& request) {
    Require(request.Status() == 0);
  } catch (const std::invalid_argument& error) {
    Require(std::string_view(error.what()) ==
            "--shadows-clipping and --target-background require --linear.");
  } catch (const std::runtime_error& error) {
    Require(std::string_view(error.what()).starts_with("Error: "));
  }
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  std::cout.setstate(std::ios::failbit);  // help and version need not be formatted
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  project_lumen::fuzz::ParseAnything(project_lumen::fuzz::ArgumentsOf({data, size}));
  return 0;
}
