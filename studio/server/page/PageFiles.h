// The files of the page, which are part of the program.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace project_lumen::studio {

struct PageFile {
  std::string_view type;  // MIME
  std::string bytes;
};

// The file at a path of the page's address, "/" for its first page; none where there is none.
std::optional<PageFile> FindPageFile(std::string_view path);

}  // namespace project_lumen::studio
