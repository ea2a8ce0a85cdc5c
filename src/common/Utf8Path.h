// Paths are UTF-8 text everywhere in the program; the file system library may want another
// encoding.
#pragma once

#include <filesystem>
#include <string>

namespace project_lumen {

inline std::filesystem::path FromUtf8(const std::string& text) {
  return {std::u8string(text.begin(), text.end())};
}

inline std::string ToUtf8(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

}  // namespace project_lumen
