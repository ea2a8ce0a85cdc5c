// The two kinds of text of a Windows program: UTF-8 here, UTF-16 in the system's functions.
#pragma once

#include <string>
#include <string_view>

namespace project_lumen {

// Halves of surrogate pairs and bytes that are no UTF-8 become U+FFFD.
std::wstring WideFromUtf8(std::string_view text);
std::string Utf8FromWide(std::wstring_view text);

}  // namespace project_lumen
