// JSON string literals, shared by every JSON text that the program writes.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace project_lumen {

// Escapes quotes, backslashes and bytes below 32 as JSON requires (RFC 8259, section 7). Every
// other byte is kept, so that people see names as their files have them.
std::string EscapeForDisplay(std::string_view text);

// Writes `text` as a JSON string literal: EscapeForDisplay between double quotes. JSON is UTF-8
// (RFC 8259, section 8.1), so what is no UTF-8 is replaced by U+FFFD.
void WriteJsonString(std::ostream& stream, std::string_view text);

}  // namespace project_lumen
