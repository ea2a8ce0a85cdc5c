#include "common/WindowsText.h"

#include <windows.h>

namespace project_lumen {

std::wstring WideFromUtf8(std::string_view text) {
  const auto length = static_cast<int>(text.size());
  std::wstring wide(text.size(), L'\0');  // no text is longer in UTF-16
  wide.resize(static_cast<std::size_t>(
      MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), length)));
  return wide;
}

std::string Utf8FromWide(std::wstring_view text) {
  const auto length = static_cast<int>(text.size());
  const int room = 3 * length;  // the most that a unit of UTF-16 takes
  std::string bytes(static_cast<std::size_t>(room), '\0');
  bytes.resize(static_cast<std::size_t>(
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), room, nullptr, nullptr)));
  return bytes;
}

}  // namespace project_lumen
