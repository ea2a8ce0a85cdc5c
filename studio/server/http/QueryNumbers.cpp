#include "studio/http/QueryNumbers.h"

#include <charconv>
#include <cmath>

#include "studio/http/ApiError.h"

namespace project_lumen::studio {
namespace {

const std::string* FindText(const Query& query, const char* name) {
  const auto found = query.find(name);
  return found == query.end() ? nullptr : &found->second;
}

[[noreturn]] void Refuse(const char* name) {
  throw BadRequest("\"" + std::string(name) + "\" in the address is no number that is taken here.");
}

}  // namespace

std::optional<int> ParseWholeNumber(std::string_view text) {
  constexpr int kLargest = 1000000000;
  int number = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = code == std::errc() && end == text.data() + text.size();
  return isWhole && text.front() != '-' && number <= kLargest ? std::optional(number)
                                                              : std::nullopt;
}

std::optional<double> ParseRealNumber(std::string_view text) {
  double number = 0.0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = code == std::errc() && end == text.data() + text.size();
  return isWhole && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

double QueryNumber(const Query& query, const char* name, double fallback, double minimum,
                   double maximum) {
  const std::string* text = FindText(query, name);
  if (text == nullptr) {
    return fallback;
  }
  const auto number = ParseRealNumber(*text);
  if (!number || *number < minimum || *number > maximum) {
    Refuse(name);
  }
  return *number;
}

int QueryWholeNumber(const Query& query, const char* name, std::optional<int> fallback) {
  const std::string* text = FindText(query, name);
  const std::optional<int> number = text == nullptr ? fallback : ParseWholeNumber(*text);
  if (!number) {
    Refuse(name);
  }
  return *number;
}

std::optional<StretchSettings> QueryStretch(const Query& query) {
  constexpr double kSmallest = 1e-9;  // the settings exclude their limits
  constexpr double kMostDeviations = 1e6;
  StretchSettings settings;
  settings.shadowsClipping =
      QueryNumber(query, "shadows", settings.shadowsClipping, -kMostDeviations, -kSmallest);
  settings.targetBackground =
      QueryNumber(query, "background", settings.targetBackground, kSmallest, 1.0 - kSmallest);
  const bool isOn = QueryNumber(query, "stretch", 0.0, 0.0, 1.0) == 1.0;
  return isOn ? std::optional(settings) : std::nullopt;
}

TileLook QueryLook(const Query& query, Layer layer) {
  TileLook look;
  look.layer = layer;
  look.gain = QueryNumber(query, "gain", 1.0, 0.1, 1000.0);
  look.amount = QueryNumber(query, "amount", 1.0, 0.0, 1.0);
  look.curve = QueryNumber(query, "curve", 1.0, 0.25, 4.0);
  return look;
}

}  // namespace project_lumen::studio
