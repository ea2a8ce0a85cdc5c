// The part of the product document that describes files and streams.
#pragma once

#include <ostream>
#include <string_view>

namespace project_lumen::cli {

// Writes the members io, diagnostics and progress, each line behind `indent`, the last one without
// a comma. `linearRestoration` tells whether linear runs restore the source's clipped shadows, and
// adds the image size that upsampling needs.
void WriteInterfaceBlocks(std::ostream& stream, std::string_view indent, bool linearRestoration);

}  // namespace project_lumen::cli
