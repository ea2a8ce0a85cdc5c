// What the build packs into the program (cmake/PackPage.cmake).
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace project_lumen::studio {

struct PackedFile {
  std::string_view path;  // below the page's folder, with a slash in front
  const unsigned char* bytes;
  std::size_t size;
};

std::span<const PackedFile> PackedFiles();

}  // namespace project_lumen::studio
