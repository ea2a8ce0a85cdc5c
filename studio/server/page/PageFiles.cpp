#include "studio/page/PageFiles.h"

#include <array>
#include <utility>

#include "studio/page/PackedFiles.h"
#ifdef NEBULEX_STUDIO_PAGE_FOLDER
#include <fstream>
#include <iterator>
#endif

namespace project_lumen::studio {
namespace {

std::string_view TypeOf(std::string_view path) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 8> kTypes{
      {{".html", "text/html; charset=utf-8"},
       {".js", "text/javascript; charset=utf-8"},
       {".mjs", "text/javascript; charset=utf-8"},
       {".css", "text/css; charset=utf-8"},
       {".svg", "image/svg+xml"},
       {".png", "image/png"},
       {".json", "application/json"},
       {".txt", "text/plain; charset=utf-8"}}};
  for (const auto& [suffix, type] : kTypes) {
    if (path.ends_with(suffix)) {
      return type;
    }
  }
  return "application/octet-stream";
}

std::string BytesOf(const PackedFile& file) {
#ifdef NEBULEX_STUDIO_PAGE_FOLDER
  // While the page is being written: the file as it is now. Only names known to the build get here.
  std::ifstream current(NEBULEX_STUDIO_PAGE_FOLDER + std::string(file.path), std::ios::binary);
  if (current) {
    return {std::istreambuf_iterator<char>(current), {}};
  }
#endif
  return {reinterpret_cast<const char*>(file.bytes), file.size};
}

}  // namespace

std::optional<PageFile> FindPageFile(std::string_view path) {
  const std::string_view wanted = path == "/" ? "/index.html" : path;
  for (const PackedFile& file : PackedFiles()) {
    if (file.path == wanted) {
      return PageFile{TypeOf(wanted), BytesOf(file)};
    }
  }
  return std::nullopt;
}

}  // namespace project_lumen::studio
