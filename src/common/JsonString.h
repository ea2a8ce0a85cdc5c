// JSON string literals, shared by every JSON text that the program writes.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace project_lumen {

// Escapes quotes, backslashes and bytes below 32 as JSON requires (RFC 8259, section 7). Every
// other byte is kept, so UTF-8 passes through; nothing is validated.
std::string EscapeForDisplay(std::string_view text);

// Writes `text` as a JSON string literal: EscapeForDisplay between double quotes.
void WriteJsonString(std::ostream& stream, std::string_view text);

}  // namespace project_lumen
