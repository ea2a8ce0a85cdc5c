// JSON string literals: another program's parser takes each of them, gives back what is valid
// UTF-8, and nothing at all breaks out of the literal.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "FuzzTarget.h"
#include "common/JsonString.h"

namespace project_lumen::fuzz {
namespace {

using nlohmann::json;

std::string LiteralOf(const std::string& text) {
  std::ostringstream stream;
  stream.fill('*');
  stream.width(20);
  WriteJsonString(stream, text);
  return stream.str();
}

bool IsUtf8(const std::string& text) {
  try {
    static_cast<void>(json(text).dump());
    return true;
  } catch (const json::type_error&) {
    return false;
  }
}

// One literal on one line, whatever the text: every quote inside stands behind a backslash.
void RequireOneLiteral(const std::string& literal) {
  Require(literal.size() >= 2 && literal.front() == '"' && literal.back() == '"');
  std::size_t position = 1;
  while (position < literal.size() - 1) {
    const char byte = literal[position];
    Require(byte != '"' && static_cast<unsigned char>(byte) >= 32);
    position += byte == '\\' ? 2 : 1;
  }
  Require(position == literal.size() - 1);
}

void WriteAnything(const std::string& text) {
  const std::string literal = LiteralOf(text);
  RequireOneLiteral(literal);
  const auto read = json::parse(literal).get<std::string>();
  if (IsUtf8(text)) {
    Require(literal == '"' + EscapeForDisplay(text) + '"');
    Require(read == text);
  }
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  project_lumen::fuzz::WriteAnything(project_lumen::fuzz::TextOf({data, size}));
  return 0;
}
