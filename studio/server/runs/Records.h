// What the program says on standard error, a line at a time (docs/host-interface.md).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace project_lumen::studio {

// A record, or a line that is none: of an unknown schema, without the members that its schema
// requires, or no JSON at all. Such a line is kept as it is.
struct Record {
  enum class Kind { kText, kInfo, kWarning, kProgress, kInferred, kError };
  Kind kind = Kind::kText;
  std::string code;  // of info and warning
  std::string text;  // message or line, in valid UTF-8
  // Of kProgress and kInferred, which says that all tiles are done:
  std::int64_t current = 0;
  std::int64_t total = 0;
  double percent = 0.0;
};

Record ParseRecord(std::string_view line);

}  // namespace project_lumen::studio
