// The AstroTIFF header of an output: any text is refused, or comes out as a header that tells the
// output's depth and keeps all other lines. The first byte of an input is the depth.
#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzTarget.h"
#include "io/tiff/AstroTiff.h"

namespace project_lumen::fuzz {
namespace {

using Lines = std::vector<std::string>;

Lines LinesOf(std::string_view text) {
  Lines lines;
  for (;;) {
    const std::size_t end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) {
      return lines;
    }
    text.remove_prefix(end + 1);
  }
}

bool TellsDepth(const std::string& line) {
  return line.starts_with("BITPIX  ");
}

Lines WithoutDepth(Lines lines) {
  std::erase_if(lines, TellsDepth);
  return lines;
}

// Lines of the input as they have to be kept: without one carriage return, and without an empty
// line at the end.
Lines ExpectedLines(const std::string& text) {
  Lines lines = LinesOf(text);
  for (std::string& line : lines) {
    if (line.ends_with('\r')) {
      line.pop_back();
    }
  }
  if (lines.back().empty()) {
    lines.pop_back();
  }
  return WithoutDepth(lines);
}

void RequireAdapted(const std::string& text, int depth, const std::string& header) {
  const std::string card = "BITPIX  =                   " + std::to_string(depth);
  const Lines lines = LinesOf(header);
  Require(io::IsAstroTiffHeader(header));
  Require(std::find(lines.begin(), lines.end(), card) != lines.end());
  Require(std::all_of(lines.begin(), lines.end(), [&card](const std::string& line) {
    return !TellsDepth(line) || line == card;
  }));
  Require(WithoutDepth(lines) == ExpectedLines(text));
}

void BuildFromAnything(const std::string& text, int depth) {
  const bool isUsable = io::IsAstroTiffHeader(text) && (depth == 8 || depth == 16);
  std::string header;
  try {
    header = io::BuildAstroTiffOutputHeader(text, depth);
  } catch (const std::invalid_argument& error) {
    Require(std::string_view(error.what()).starts_with("AstroTIFF "));
    Require(!isUsable);
    return;
  }
  Require(isUsable);
  RequireAdapted(text, depth, header);
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 0) {
    project_lumen::fuzz::BuildFromAnything(project_lumen::fuzz::TextOf({data + 1, size - 1}),
                                           data[0]);
  }
  return 0;
}
