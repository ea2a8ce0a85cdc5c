#include "cli/EntryPoint.h"

#include <exception>
#include <iostream>
#include <string_view>

#include "backend/ModelLookup.h"
#include "cli/CommandLine.h"
#include "cli/HelpText.h"
#include "cli/MachineInfo.h"
#include "cli/ProductInfo.h"
#include "cli/Progress.h"
#include "cli/RunDriver.h"
#include "common/Diagnostics.h"

namespace project_lumen::cli {
namespace {

constexpr int kFailure = -1;

void PrintUpdateCheck(std::ostream& stream) {
  stream << "Update checking is not available in this " << kModelLabel << " build.\n";
}

void ReportFailure(bool machineProgress, std::string_view message) {
  if (machineProgress) {
    WriteErrorEvent(std::cerr, message);
  } else {
    std::cerr << message << '\n';
  }
}

// For answers that are all that was asked for.
int StatusOfStandardOutput(bool machineProgress) {
  if (std::cout.flush()) {
    return 0;
  }
  ReportFailure(machineProgress, "Unable to write to standard output.");
  return kFailure;
}

void ProcessImage(const ParsedCommandLine& commandLine, bool machineProgress) {
  ValidateCommandLine(commandLine);
  RunOptions options = commandLine.options;
  options.machineProgress = machineProgress;
  const bool weightsGiven = !options.weightsPath.empty();
  if (!weightsGiven) {
    options.weightsPath = backend::ResolveDefaultWeights(kDefaultWeightsFileName);
  }
  const std::string modelContext = backend::DescribeModelLookup(
      kModelId, kDefaultWeightsFileName, options.weightsPath, weightsGiven, kBackendDisplayName);
  EmitInfo({options.quiet, options.machineProgress, std::cerr}, "model_context", modelContext);
  RunStarRemoval(modelContext, options);
}

int ParseAndProcess(std::span<const char* const> arguments, bool machineProgress) {
  try {
    if (arguments.size() <= 1) {
      PrintShortUsage(std::cout);
      return 0;
    }
    ProcessImage(ParseCommandLine(arguments, machineProgress), machineProgress);
    return 0;
  } catch (const ExitRequest& request) {
    return request.Status();
  } catch (const std::exception& error) {
    ReportFailure(machineProgress, error.what());
  } catch (...) {
    ReportFailure(machineProgress, "Failed");
  }
  return kFailure;
}

}  // namespace

int RunProgram(std::span<const char* const> arguments) {
  const bool machineProgress = HasExactArgument(arguments, "--machine-progress");
  if (HasExactArgument(arguments, "--machine-info")) {
    WriteMachineInfo(std::cout, kDefaultWeightsFileName);
    return StatusOfStandardOutput(machineProgress);
  }
  if (HasExactArgument(arguments, "--check-updates")) {
    PrintUpdateCheck(std::cout);
    return StatusOfStandardOutput(machineProgress);
  }
  return ParseAndProcess(arguments, machineProgress);
}

}  // namespace project_lumen::cli
