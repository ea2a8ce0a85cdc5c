#include "studio/http/JsonText.h"

#include <cmath>

#include "studio/http/ApiError.h"

namespace project_lumen::studio {
namespace {

[[noreturn]] void RefuseMember(const char* name, const char* wanted) {
  throw BadRequest("\"" + std::string(name) + "\" has to be " + wanted + ".");
}

const nlohmann::json* FindMember(const nlohmann::json& object, const char* name) {
  const auto found = object.find(name);
  return found == object.end() || found->is_null() ? nullptr : &*found;
}

}  // namespace

nlohmann::json ParseJsonObject(std::string_view text) {
  bool isTooDeep = false;
  nlohmann::json document = nlohmann::json::parse(
      text,
      [&](int depth, nlohmann::json::parse_event_t /*event*/, nlohmann::json& /*parsed*/) {
        isTooDeep = isTooDeep || depth > kDeepestJson;
        return !isTooDeep;
      },
      false);
  if (isTooDeep || !document.is_object()) {
    throw BadRequest("The request's body is no JSON object that is understood here.");
  }
  return document;
}

void RequireKnownMembers(const nlohmann::json& object, const std::set<std::string>& known) {
  for (const auto& [name, value] : object.items()) {
    if (!known.contains(name)) {
      throw BadRequest("\"" + name + "\" is not known here.");
    }
  }
}

std::string StringMember(const nlohmann::json& object, const char* name,
                         const std::string& fallback) {
  const nlohmann::json* member = FindMember(object, name);
  if (member == nullptr) {
    return fallback;
  }
  if (!member->is_string()) {
    RefuseMember(name, "a text");
  }
  return member->get<std::string>();
}

bool BoolMember(const nlohmann::json& object, const char* name, bool fallback) {
  const nlohmann::json* member = FindMember(object, name);
  if (member == nullptr) {
    return fallback;
  }
  if (!member->is_boolean()) {
    RefuseMember(name, "true or false");
  }
  return member->get<bool>();
}

double NumberMember(const nlohmann::json& object, const char* name, double fallback) {
  const nlohmann::json* member = FindMember(object, name);
  if (member == nullptr) {
    return fallback;
  }
  if (!member->is_number() || !std::isfinite(member->get<double>())) {
    RefuseMember(name, "a number");
  }
  return member->get<double>();
}

std::int64_t IntegerMember(const nlohmann::json& object, const char* name) {
  constexpr double kLargest = 9007199254740992.0;  // 2^53, as far as JavaScript counts by ones
  const nlohmann::json* member = FindMember(object, name);
  if (member == nullptr || !member->is_number()) {
    RefuseMember(name, "a whole number");
  }
  const auto value = member->get<double>();
  if (!(std::abs(value) <= kLargest) || value != std::floor(value)) {
    RefuseMember(name, "a whole number");
  }
  return static_cast<std::int64_t>(value);
}

std::vector<std::string> StringsMember(const nlohmann::json& object, const char* name) {
  const nlohmann::json* member = FindMember(object, name);
  if (member == nullptr) {
    return {};
  }
  if (!member->is_array()) {
    RefuseMember(name, "a list of texts");
  }
  std::vector<std::string> texts;
  for (const nlohmann::json& entry : *member) {
    if (!entry.is_string()) {
      RefuseMember(name, "a list of texts");
    }
    texts.push_back(entry.get<std::string>());
  }
  return texts;
}

std::string ToText(const nlohmann::json& document) {
  return document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace project_lumen::studio
