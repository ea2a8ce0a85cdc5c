#include "io/fits/FitsKeywords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>

#include "io/files/PathSuffix.h"

namespace project_lumen::io {
namespace {

constexpr std::size_t kKeywordLength = 8;
constexpr std::size_t kCardLength = 80;

// Sorted by what they describe; "#" stands for one or more digits.
constexpr std::string_view kStructuralKeywords[] = {
    // the array and its place in the file
    "simple", "xtension", "bitpix", "naxis", "naxis#", "extend", "pcount", "gcount", "groups",
    "inherit", "blocked", "end",
    // its values
    "bscale", "bzero", "blank", "datamin", "datamax", "checksum", "datasum",
    // tables
    "tfields", "theap", "ttype#", "tform#", "tunit#", "tnull#", "tscal#", "tzero#", "tdisp#",
    "tdim#", "tbcol#",
    // compressed images
    "zimage", "zcmptype", "zbitpix", "znaxis", "znaxis#", "ztile#", "zname#", "zval#", "zquantiz",
    "zdither0", "zscale", "zzero", "zblank", "zmaskcmp", "zsimple", "zextend", "zblocked",
    "ztension", "zpcount", "zgcount", "zhecksum", "zdatasum", "ztheap", "zform#", "zctyp#",
    "ztable", "ztilelen"};

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool Matches(std::string_view keyword, std::string_view pattern) {
  if (!pattern.ends_with('#')) {
    return keyword == pattern;
  }
  const std::string_view name = pattern.substr(0, pattern.size() - 1);
  return keyword.size() > name.size() && keyword.starts_with(name) &&
         std::all_of(keyword.begin() + static_cast<std::ptrdiff_t>(name.size()), keyword.end(),
                     IsDigit);
}

// The name that compressors give to the table of a compressed image.
bool IsDefaultExtensionName(std::string_view card) {
  return KeywordOf(card) == "extname" && card.find("'COMPRESSED_IMAGE'") == 10;
}

// --- World coordinates ---

// A keyword of the world coordinate system, taken apart: "crpix" 2 "a", or "cd" 1 "_" 2 "".
struct WcsKeyword {
  std::string name;
  int first = 0;
  std::optional<int> second;  // after an underscore
  std::string version;        // "", or a letter
};

// Which of the two numbers of a keyword count axes.
struct WcsForm {
  std::string_view name;
  bool hasSecond;
  bool isSecondAxis;
};

constexpr WcsForm kWcsForms[] = {
    {"ctype", false, false}, {"cunit", false, false}, {"crval", false, false},
    {"cdelt", false, false}, {"crpix", false, false}, {"crota", false, false},
    {"cname", false, false}, {"crder", false, false}, {"csyer", false, false},
    {"czphs", false, false}, {"cperi", false, false}, {"pc", true, true},
    {"cd", true, true},      {"pv", true, false},     {"ps", true, false}};

std::optional<int> TakeNumber(std::string_view& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || text.front() == '-') {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

std::optional<WcsKeyword> ParseWcsKeyword(std::string_view keyword, const WcsForm& form) {
  if (!keyword.starts_with(form.name)) {
    return std::nullopt;
  }
  std::string_view rest = keyword.substr(form.name.size());
  WcsKeyword result{std::string(form.name), 0, std::nullopt, ""};
  const std::optional<int> first = rest.empty() ? std::nullopt : TakeNumber(rest);
  if (!first) {
    return std::nullopt;
  }
  result.first = *first;
  if (form.hasSecond) {
    if (rest.size() < 2 || rest.front() != '_') {
      return std::nullopt;
    }
    rest.remove_prefix(1);
    result.second = TakeNumber(rest);
    if (!result.second) {
      return std::nullopt;
    }
  }
  if (rest.size() > 1 || (rest.size() == 1 && (rest.front() < 'a' || rest.front() > 'z'))) {
    return std::nullopt;
  }
  result.version = rest;
  return result;
}

std::string TextOf(const WcsKeyword& keyword) {
  std::string text = keyword.name + std::to_string(keyword.first) +
                     (keyword.second ? "_" + std::to_string(*keyword.second) : "") +
                     keyword.version;
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  text.resize(kKeywordLength, ' ');
  return text;
}

// The card as it reads without the axis; empty when the card speaks of that axis.
std::string WithoutAxis(const std::string& card, int axis) {
  const std::string keyword = KeywordOf(card);
  if (keyword.starts_with("wcsaxes") && keyword.size() <= kKeywordLength) {
    return "";
  }
  for (const WcsForm& form : kWcsForms) {
    std::optional<WcsKeyword> parsed = ParseWcsKeyword(keyword, form);
    if (!parsed) {
      continue;
    }
    const bool isSecondOnAxis = form.isSecondAxis && parsed->second == axis;
    if (parsed->first == axis || isSecondOnAxis) {
      return "";
    }
    parsed->first -= parsed->first > axis ? 1 : 0;
    if (form.isSecondAxis && *parsed->second > axis) {
      --*parsed->second;
    }
    return TextOf(*parsed) + card.substr(kKeywordLength);
  }
  return card;
}

}  // namespace

std::string KeywordOf(std::string_view card) {
  std::string keyword = ToLower(card.substr(0, kKeywordLength));
  keyword.erase(keyword.find_last_not_of(' ') + 1);
  return keyword;
}

const std::string* FindCard(const std::vector<std::string>& cards, std::string_view keyword) {
  const auto found = std::find_if(cards.begin(), cards.end(), [keyword](const std::string& card) {
    return KeywordOf(card) == keyword;
  });
  return found == cards.end() ? nullptr : &*found;
}

std::optional<double> CardNumber(std::string_view card) {
  if (card.size() <= kKeywordLength + 2 || card.substr(kKeywordLength, 2) != "= ") {
    return std::nullopt;
  }
  std::string text(card.substr(kKeywordLength + 2));
  text.erase(std::min(text.find('/'), text.size()));
  text.erase(0, std::min(text.find_first_not_of(' '), text.size()));
  text.erase(text.find_last_not_of(' ') + 1);
  std::replace(text.begin(), text.end(), 'D', 'E');
  const char* begin = text.data() + (text.starts_with('+') ? 1 : 0);
  const char* end = text.data() + text.size();
  double number = 0.0;
  const auto [last, error] = std::from_chars(begin, end, number);
  return error == std::errc() && last == end ? std::optional(number) : std::nullopt;
}

bool IsStructuralCard(std::string_view card) {
  const std::string keyword = KeywordOf(card);
  return std::any_of(std::begin(kStructuralKeywords), std::end(kStructuralKeywords),
                     [&keyword](std::string_view pattern) { return Matches(keyword, pattern); }) ||
         IsDefaultExtensionName(card);
}

std::vector<std::string> PreservedCards(const FitsImageInfo& source, bool onePlane) {
  const int colourAxis = source.planarCube ? 3 : 1;
  std::vector<std::string> preserved;
  bool isLeftOut = false;
  for (const std::string& card : source.headerCards) {
    if (!(isLeftOut && KeywordOf(card) == "continue")) {
      isLeftOut = IsStructuralCard(card);
    }
    std::string kept = isLeftOut ? "" : card;
    if (!isLeftOut && onePlane && source.naxis == 3) {
      kept = WithoutAxis(card, colourAxis);
      isLeftOut = kept.empty();
    }
    if (!isLeftOut) {
      kept.resize(kCardLength, ' ');
      preserved.push_back(std::move(kept));
    }
  }
  return preserved;
}

}  // namespace project_lumen::io
