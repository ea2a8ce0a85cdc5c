#include "studio/runs/Records.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/Utf8.h"

namespace project_lumen::studio {
namespace {

using Json = nlohmann::json;

constexpr const char* kDiagnosticSchema = "nebulexastro.cli.diagnostic.v1";
constexpr const char* kProgressSchema = "nebulexastro.cli.progress.v1";
constexpr std::int64_t kMostTiles = std::int64_t{1} << 40U;

std::optional<std::string> Text(const Json& object, const char* name) {
  const auto member = object.find(name);
  if (member == object.end() || !member->is_string()) {
    return std::nullopt;
  }
  return member->get<std::string>();
}

std::optional<double> Number(const Json& object, const char* name) {
  const auto member = object.find(name);
  if (member == object.end() || !member->is_number()) {
    return std::nullopt;
  }
  return member->get<double>();
}

std::optional<Record> ParseDiagnostic(const Json& object) {
  const auto severity = Text(object, "severity");
  const auto code = Text(object, "code");
  const auto message = Text(object, "message");
  if (!severity || !code || !message || (*severity != "info" && *severity != "warning")) {
    return std::nullopt;
  }
  Record record;
  record.kind = *severity == "warning" ? Record::Kind::kWarning : Record::Kind::kInfo;
  record.code = *code;
  record.text = *message;
  return record;
}

std::optional<Record> ParseTiles(const Json& object, Record::Kind kind) {
  const auto current = Number(object, "current");
  const auto total = Number(object, "total");
  const auto percent = Number(object, "percent");
  if (!current || !total || !percent || !(*current >= 0.0 && *current <= *total) ||
      !(*total <= static_cast<double>(kMostTiles))) {
    return std::nullopt;
  }
  Record record;
  record.kind = kind;
  record.current = static_cast<std::int64_t>(*current);
  record.total = static_cast<std::int64_t>(*total);
  record.percent = std::clamp(*percent, 0.0, 100.0);
  return record;
}

std::optional<Record> ParseProgress(const Json& object) {
  const std::string event = Text(object, "event").value_or("");
  if (event == "error") {
    const auto message = Text(object, "message");
    if (!message) {
      return std::nullopt;
    }
    Record record;
    record.kind = Record::Kind::kError;
    record.text = *message;
    return record;
  }
  if (event == "start" || event == "progress") {
    return ParseTiles(object, Record::Kind::kProgress);
  }
  return event == "finish" ? ParseTiles(object, Record::Kind::kInferred) : std::nullopt;
}

std::optional<Record> ParseKnown(std::string_view line) {
  // The program's objects are flat; whatever lies deep is somebody else's.
  constexpr int kDeepest = 4;
  bool isTooDeep = false;
  const Json object = Json::parse(
      line,
      [&](int depth, Json::parse_event_t /*event*/, Json& /*parsed*/) {
        isTooDeep = isTooDeep || depth > kDeepest;
        return !isTooDeep;
      },
      false);
  if (isTooDeep || !object.is_object()) {
    return std::nullopt;
  }
  const std::string schema = Text(object, "schema").value_or("");
  if (schema == kDiagnosticSchema) {
    return ParseDiagnostic(object);
  }
  return schema == kProgressSchema ? ParseProgress(object) : std::nullopt;
}

}  // namespace

Record ParseRecord(std::string_view line) {
  if (auto known = ParseKnown(line)) {
    return *known;
  }
  Record record;
  record.text = ReplaceInvalidUtf8(line);
  return record;
}

}  // namespace project_lumen::studio
