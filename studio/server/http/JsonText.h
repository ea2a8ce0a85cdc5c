// JSON in and out of requests.
#pragma once

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>

namespace project_lumen::studio {

// How deep objects and arrays of a request may lie in each other.
constexpr int kDeepestJson = 32;

// The object that a request's body holds. Throws ApiError 400 for what is no JSON object or lies
// deeper than kDeepestJson.
nlohmann::json ParseJsonObject(std::string_view text);

// Throws ApiError 400 for a member of `object` that is not among `known`.
void RequireKnownMembers(const nlohmann::json& object, const std::set<std::string>& known);

// A member of `object`, or `fallback` where it is missing or null. Throws ApiError 400 for another
// type, a number that is not finite or, for an integer, not one of 53 bits.
std::string StringMember(const nlohmann::json& object, const char* name,
                         const std::string& fallback);
bool BoolMember(const nlohmann::json& object, const char* name, bool fallback);
double NumberMember(const nlohmann::json& object, const char* name, double fallback);
std::int64_t IntegerMember(const nlohmann::json& object, const char* name);
std::vector<std::string> StringsMember(const nlohmann::json& object, const char* name);

// The text of a document. Bytes that are no UTF-8 become U+FFFD.
std::string ToText(const nlohmann::json& document);

}  // namespace project_lumen::studio
