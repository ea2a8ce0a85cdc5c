#include "cli/CommandLine.h"

#include <tclap/CmdLine.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "cli/HelpText.h"
#include "cli/ProductInfo.h"

namespace project_lumen::cli {
namespace {

using TCLAP::SwitchArg;
template <typename T>
using ValueArg = TCLAP::ValueArg<T>;

// The options in the order of the usage text.
class OptionTable {
 public:
  // The parser lists its arguments last come first, so they are added from the end of the table.
  explicit OptionTable(TCLAP::CmdLine& parser) {
    const std::array<TCLAP::Arg*, 15> table = {&input,
                                               &output,
                                               &mask,
                                               &unscreen,
                                               &weights,
                                               &stride,
                                               &shadowsClipping,
                                               &targetBackground,
                                               &upsample,
                                               &linear,
                                               &quiet,
                                               &disableHighlights,
                                               &machineInfo,
                                               &checkUpdates,
                                               &machineProgress};
    for (auto argument = table.rbegin(); argument != table.rend(); ++argument) {
      parser.add(*argument);
    }
  }

  [[nodiscard]] ParsedCommandLine Values() {
    ParsedCommandLine result;
    result.options = {.inputPath = input.getValue(),
                      .outputPath = output.getValue(),
                      .maskPath = mask.getValue(),
                      .unscreenPath = unscreen.getValue(),
                      .stride = stride.getValue(),
                      .weightsPath = weights.getValue(),
                      .upsample = upsample.getValue(),
                      .quiet = quiet.getValue(),
                      .protectHighlights = !disableHighlights.getValue(),
                      .machineProgress = machineProgress.getValue(),
                      .linear = linear.getValue(),
                      .shadowsClipping = shadowsClipping.getValue(),
                      .targetBackground = targetBackground.getValue()};
    result.linearTuningGiven = shadowsClipping.isSet() || targetBackground.isSet();
    return result;
  }

 private:
  const RunOptions defaults;

  ValueArg<std::string> input{
      "i",
      "input",
      "Input image filename. Recommended: TIFF/TIF, PNG, or supported FITS.",
      true,
      defaults.inputPath,
      "string"};
  ValueArg<std::string> output{"o",
                               "output",
                               "Output image filename. See Outputs below for sample-type policy.",
                               false,
                               defaults.outputPath,
                               "string"};
  ValueArg<std::string> mask{"m",
                             "mask",
                             "Optional mask output filename. Disabled unless provided. See Outputs "
                             "below for sample-type policy.",
                             false,
                             defaults.maskPath,
                             "string"};
  ValueArg<std::string> unscreen{
      "n",
      "unscreen",
      "Unscreen star-layer output filename. See Outputs below for sample-type policy.",
      false,
      defaults.unscreenPath,
      "string"};
  ValueArg<std::string> weights{"w",
                                "weights",
                                "Override path to the model checkpoint (optional)",
                                false,
                                defaults.weightsPath,
                                "string"};
  ValueArg<int> stride{"s",   "stride",        "Stride value. Must be even and between 2 and 512.",
                       false, defaults.stride, "int"};
  ValueArg<double> shadowsClipping{
      "",
      "shadows-clipping",
      "Linear MTF shadows-clipping factor in normalized MAD units. Must be negative.",
      false,
      defaults.shadowsClipping,
      "number"};
  ValueArg<double> targetBackground{
      "",
      "target-background",
      "Linear MTF target background. Must be strictly between 0 and 1.",
      false,
      defaults.targetBackground,
      "number"};
  SwitchArg upsample{"u", "upsample", "Use intermediate 2x upsampling", defaults.upsample};
  SwitchArg linear{
      "", "linear",
      "Brighten linear images with per-channel MTF (midtones transfer function) for neural "
      "processing, then reverse the stretch and restore clipped shadows. Fixed sample-format "
      "scaling only; values above 1 are clipped with a warning.",
      defaults.linear};
  SwitchArg quiet{"q", "quiet", "Suppress routine output (warnings and errors remain visible)",
                  defaults.quiet};
  SwitchArg disableHighlights{
      "d", "disable-highlights-protection",
      "Disable starless output highlight protection for comparison or troubleshooting.", false};
  SwitchArg machineInfo{"", "machine-info",
                        "Print machine-readable product information as JSON and exit.", false};
  SwitchArg checkUpdates{"", "check-updates", "Check the latest Nebulex2 CLI version and exit.",
                         false};
  SwitchArg machineProgress{"", "machine-progress",
                            "Print machine-readable progress events as JSON Lines.",
                            defaults.machineProgress};
};

}  // namespace

bool HasExactArgument(std::span<const char* const> arguments, std::string_view text) {
  return !arguments.empty() &&
         std::any_of(arguments.begin() + 1, arguments.end(),
                     [text](const char* argument) { return text == argument; });
}

ParsedCommandLine ParseCommandLine(std::span<const char* const> arguments, bool throwOnFailure) {
  constexpr char kDelimiter = ' ';
  constexpr bool kHelpAndVersion = true;
  TCLAP::CmdLine parser(BuildHelpDescription(), kDelimiter, kVersion, kHelpAndVersion);
  parser.setExceptionHandling(!throwOnFailure);
  OptionTable table(parser);
  try {
    parser.parse(static_cast<int>(arguments.size()), arguments.data());
  } catch (const TCLAP::ArgException& error) {
    throw std::runtime_error("Error: " + error.error() + " for arg " + error.argId());
  } catch (const TCLAP::ExitException& request) {
    throw ExitRequest(request.getExitStatus());
  }
  return table.Values();
}

void ValidateCommandLine(const ParsedCommandLine& commandLine) {
  if (!commandLine.options.linear && commandLine.linearTuningGiven) {
    throw std::invalid_argument("--shadows-clipping and --target-background require --linear.");
  }
}

}  // namespace project_lumen::cli
