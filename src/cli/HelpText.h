// The texts that tell a person how to use the program.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace project_lumen::cli {

// Three lines for somebody who started the program without arguments.
void PrintShortUsage(std::ostream& stream);

// The sections Inputs, Outputs and Package layout. `starLayerVariant` adds what concerns the star
// mask, the unscreen layer and the restoration of linear data.
std::string BuildExtendedHelp(std::string_view defaultWeightsFileName, bool starLayerVariant);

// The description under the option list of --help.
std::string BuildHelpDescription();

}  // namespace project_lumen::cli
