// Reading of AstroTIFF headers and of TIFF directories: any file gives std::invalid_argument or
// what stands in it.
#include <stdexcept>
#include <string>

#include "FuzzTarget.h"
#include "io/AstroTiff.h"
#include "io/TiffImageFields.h"

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

void ReadFieldsOfAnything(Input input, const std::string& path) {
  const auto fields = io::ReadTiffImageFields(path);
  Require(!fields || fields->fileSize == input.size());
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const project_lumen::fuzz::MemoryFile file({data, size});
  project_lumen::fuzz::ReadHeaderOfAnything({data, size}, file.Path());
  project_lumen::fuzz::ReadFieldsOfAnything({data, size}, file.Path());
  return 0;
}
