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
    const std::array<TCLAP::Arg*, 15> table = {&input_,
                                               &output_,
                                               &mask_,
                                               &unscreen_,
                                               &weights_,
                                               &stride_,
                                               &shadowsClipping_,
                                               &targetBackground_,
                                               &upsample_,
                                               &linear_,
                                               &quiet_,
                                               &disableHighlights_,
                                               &machineInfo_,
                                               &checkUpdates_,
                                               &machineProgress_};
    std::for_each(table.rbegin(), table.rend(),
                  [&parser](TCLAP::Arg* argument) { parser.add(argument); });
  }

  [[nodiscard]] ParsedCommandLine Values() {
    ParsedCommandLine result;
    result.options = {.inputPath = input_.getValue(),
                      .outputPath = output_.getValue(),
                      .maskPath = mask_.getValue(),
                      .unscreenPath = unscreen_.getValue(),
                      .stride = stride_.getValue(),
                      .weightsPath = weights_.getValue(),
                      .upsample = upsample_.getValue(),
                      .quiet = quiet_.getValue(),
                      .protectHighlights = !disableHighlights_.getValue(),
                      .linear = linear_.getValue(),
                      .shadowsClipping = shadowsClipping_.getValue(),
                      .targetBackground = targetBackground_.getValue()};
    result.linearTuningGiven = shadowsClipping_.isSet() || targetBackground_.isSet();
    return result;
  }

 private:
  const RunOptions defaults_;

  ValueArg<std::string> input_{
      "i",
      "input",
      "Input image filename. Recommended: TIFF/TIF, PNG, or supported FITS.",
      true,
      defaults_.inputPath,
      "string"};
  ValueArg<std::string> output_{"o",
                                "output",
                                "Output image filename. See Outputs below for sample-type policy.",
                                false,
                                defaults_.outputPath,
                                "string"};
  ValueArg<std::string> mask_{
      "m",
      "mask",
      "Optional mask output filename. Disabled unless provided. See Outputs "
      "below for sample-type policy.",
      false,
      defaults_.maskPath,
      "string"};
  ValueArg<std::string> unscreen_{
      "n",
      "unscreen",
      "Unscreen star-layer output filename. See Outputs below for sample-type policy.",
      false,
      defaults_.unscreenPath,
      "string"};
  ValueArg<std::string> weights_{"w",
                                 "weights",
                                 "Override path to the model checkpoint (optional)",
                                 false,
                                 defaults_.weightsPath,
                                 "string"};
  ValueArg<int> stride_{
      "s",   "stride",         "Stride value. Must be even and between 2 and 512.",
      false, defaults_.stride, "int"};
  ValueArg<double> shadowsClipping_{
      "",
      "shadows-clipping",
      "Linear MTF shadows-clipping factor in normalized MAD units. Must be negative.",
      false,
      defaults_.shadowsClipping,
      "number"};
  ValueArg<double> targetBackground_{
      "",
      "target-background",
      "Linear MTF target background. Must be strictly between 0 and 1.",
      false,
      defaults_.targetBackground,
      "number"};
  SwitchArg upsample_{"u", "upsample", "Use intermediate 2x upsampling", defaults_.upsample};
  SwitchArg linear_{
      "", "linear",
      "Brighten linear images with per-channel MTF (midtones transfer function) for neural "
      "processing, then reverse the stretch and restore clipped shadows. Fixed sample-format "
      "scaling only; values above 1 are clipped with a warning.",
      defaults_.linear};
  SwitchArg quiet_{"q", "quiet", "Suppress routine output (warnings and errors remain visible)",
                   defaults_.quiet};
  SwitchArg disableHighlights_{
      "d", "disable-highlights-protection",
      "Disable starless output highlight protection for comparison or troubleshooting.", false};
  SwitchArg machineInfo_{"", "machine-info",
                         "Print machine-readable product information as JSON and exit.", false};
  SwitchArg checkUpdates_{"", "check-updates", "Check the latest Nebulex2 CLI version and exit.",
                          false};
  SwitchArg machineProgress_{"", "machine-progress",
                             "Print machine-readable progress events as JSON Lines.",
                             defaults_.machineProgress};
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
