// The product document that host programs read instead of the help text.
#pragma once

#include <ostream>
#include <string_view>

namespace project_lumen::cli {

// Writes the JSON document of the schema "nebulexastro.cli.machine-info.v1", ended by a line feed.
void WriteMachineInfo(std::ostream& stream, std::string_view defaultWeightsFileName);

}  // namespace project_lumen::cli
