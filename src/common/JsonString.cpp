#include "common/JsonString.h"

#include "common/Utf8.h"

namespace project_lumen {
namespace {

void AppendEscaped(std::string& result, char byte) {
  constexpr char kHexDigits[] = "0123456789abcdef";
  switch (byte) {
    case '"':
      result += "\\\"";
      return;
    case '\\':
      result += "\\\\";
      return;
    case '\b':
      result += "\\b";
      return;
    case '\t':
      result += "\\t";
      return;
    case '\n':
      result += "\\n";
      return;
    case '\f':
      result += "\\f";
      return;
    case '\r':
      result += "\\r";
      return;
    default:
      break;
  }
  const auto code = static_cast<unsigned char>(byte);
  if (code >= 32) {
    result += byte;
    return;
  }
  result += "\\u00";
  result += kHexDigits[code >> 4U];
  result += kHexDigits[code & 15U];
}

}  // namespace

std::string EscapeForDisplay(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (const char byte : text) {
    AppendEscaped(result, byte);
  }
  return result;
}

void WriteJsonString(std::ostream& stream, std::string_view text) {
  const std::string escaped = EscapeForDisplay(ReplaceInvalidUtf8(text));
  // Unformatted output: a width or fill character set on the stream must not reach the literal.
  stream.put('"');
  stream.write(escaped.data(), static_cast<std::streamsize>(escaped.size()));
  stream.put('"');
}

}  // namespace project_lumen
