// Reading of AstroTIFF headers and counting of pages: any file gives std::invalid_argument or what
// stands in it.
#include <fstream>
#include <stdexcept>
#include <string>

#include "FuzzTarget.h"
#include "io/tiff/AstroTiff.h"
#include "io/tiff/TiffLayout.h"

namespace project_lumen::fuzz {
namespace {

void RequireHeaderOfFile(const std::string& header, const std::string& file) {
  if (header.empty()) {
    return;
  }
  Require(io::IsAstroTiffHeader(header));
  Require(header.back() != '\0');
  Require(file.find(header) != std::string::npos);
}

void ReadHeaderOfAnything(Input input, const std::string& path) {
  try {
    RequireHeaderOfFile(io::ReadAstroTiffHeader(path), TextOf(input));
  } catch (const std::invalid_argument& error) {
    Require(std::string(error.what()).ends_with(" in " + path));
  }
}

// Directories may overlap, but no two begin at one place.
void CountPagesOfAnything(Input input, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::uint64_t pages = io::CountTiffPages(file);
  Require(pages <= io::kMostTiffPages);
  Require(pages <= input.size() + 1);
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const project_lumen::fuzz::MemoryFile file({data, size});
  project_lumen::fuzz::ReadHeaderOfAnything({data, size}, file.Path());
  project_lumen::fuzz::CountPagesOfAnything({data, size}, file.Path());
  return 0;
}
