#include "io/fits/guards/FitsStructure.h"

#include <fitsio.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace project_lumen::io {
namespace {

constexpr std::size_t kBlockBytes = 2880;
constexpr std::size_t kCardBytes = 80;
// Far above any real header (800,000 cards); an endless one in a compressed file ends here.
constexpr std::size_t kMaximumHeaderBytes = std::size_t{64} << 20U;
constexpr std::int64_t kMaximumAxes = 99;              // CFITSIO's table of axis lengths
constexpr std::int64_t kMaximumFields = 999;           // FITS standard 4.0, section 7.3.1
constexpr std::int64_t kMaximumTiledAxes = 6;          // CFITSIO's limit
constexpr std::int64_t kMaximumTilePixels = 1 << 30;   // CFITSIO counts them in an int
constexpr std::int64_t kMaximumRiceSetting = 1 << 16;  // pixels a block; real files have 16 or 32

using Integer = std::optional<std::int64_t>;

struct Card {
  std::string name;
  std::string value;  // as written; a string has its quotes

  // A string without its quotes and trailing blanks.
  [[nodiscard]] std::string Text() const {
    if (value.size() < 2 || value.front() != '\'') {
      return "";
    }
    std::string text = value.substr(1, value.find_last_of('\'') - 1);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
  }
};

// CFITSIO's own reading of a card, so that both see the same keywords.
Card ParseCard(const char* text) {
  std::array<char, FLEN_CARD> card{};
  std::array<char, FLEN_CARD> name{};
  std::array<char, FLEN_CARD> value{};
  std::memcpy(card.data(), text, kCardBytes);
  int length = 0;
  int status = 0;
  fits_get_keyname(card.data(), name.data(), &length, &status);
  fits_parse_value(card.data(), value.data(), nullptr, &status);
  fits_clear_errmsg();
  return {name.data(), status == 0 ? value.data() : ""};
}

Integer ParseWholeNumber(const std::string& text) {
  const char* begin = text.data() + (text.starts_with('+') ? 1 : 0);
  const char* end = text.data() + text.size();
  std::int64_t integer = 0;
  const auto parsed = std::from_chars(begin, end, integer);
  return parsed.ec == std::errc() && parsed.ptr == end ? Integer(integer) : std::nullopt;
}

// CFITSIO takes a fraction for an integer by cutting it.
Integer ParseInteger(const std::string& text) {
  if (const Integer integer = ParseWholeNumber(text)) {
    return integer;
  }
  const char* begin = text.data() + (text.starts_with('+') ? 1 : 0);
  const char* end = text.data() + text.size();
  double real = 0.0;
  const auto [last, error] = std::from_chars(begin, end, real);
  if (error != std::errc() || last != end || real <= -9e18 || real >= 9e18) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(real);
}

Integer Multiply(Integer a, Integer b) {
  std::int64_t product = 0;
  if (!a || !b || __builtin_mul_overflow(*a, *b, &product)) {
    return std::nullopt;
  }
  return product;
}

Integer Add(Integer a, Integer b) {
  std::int64_t sum = 0;
  if (!a || !b || __builtin_add_overflow(*a, *b, &sum)) {
    return std::nullopt;
  }
  return sum;
}

// The cards of one header.
struct Header {
  std::vector<Card> cards;
  bool isComplete = false;  // the END card was found
};

bool IsInside(Integer value, std::int64_t minimum, std::int64_t maximum) {
  return value && *value >= minimum && *value <= maximum;
}

// Whether every card of the keyword has a value between the limits: CFITSIO may find any of them.
bool AllInside(const Header& header, const std::string& name, std::int64_t minimum,
               std::int64_t maximum) {
  return std::all_of(header.cards.begin(), header.cards.end(), [&](const Card& card) {
    return card.name != name || IsInside(ParseInteger(card.value), minimum, maximum);
  });
}

// The value of the last card of the keyword; none when there is no card.
Integer LastInteger(const Header& header, const std::string& name) {
  const auto found = std::find_if(header.cards.rbegin(), header.cards.rend(),
                                  [&name](const Card& card) { return card.name == name; });
  return found == header.cards.rend() ? std::nullopt : ParseInteger(found->value);
}

// As CFITSIO reads a logical value: by its first letter.
bool HasTrue(const Header& header, const std::string& name) {
  return std::any_of(header.cards.begin(), header.cards.end(), [&name](const Card& card) {
    return card.name == name && card.value.starts_with('T');
  });
}

Integer IntegerAt(const Header& header, std::size_t position, const std::string& name) {
  return position < header.cards.size() && header.cards[position].name == name
             ? ParseInteger(header.cards[position].value)
             : std::nullopt;
}

bool IsTable(const Header& header) {
  return !header.cards.empty() && header.cards[0].name == "XTENSION" &&
         header.cards[0].Text().ends_with("TABLE");
}

bool IsTiledImage(const Header& header) {
  return IsTable(header) && HasTrue(header, "ZIMAGE");
}

// NAXISn of the array that the header describes by position; shorter when the order is wrong.
std::vector<Integer> ArrayAxes(const Header& header) {
  const std::int64_t count = IntegerAt(header, 2, "NAXIS").value_or(0);
  std::vector<Integer> axes;
  for (std::int64_t i = 1; i <= count && i <= kMaximumAxes; ++i) {
    axes.push_back(IntegerAt(header, static_cast<std::size_t>(i) + 2, "NAXIS" + std::to_string(i)));
  }
  return axes;
}

std::vector<Integer> TiledAxes(const Header& header) {
  const std::int64_t count = LastInteger(header, "ZNAXIS").value_or(0);
  std::vector<Integer> axes;
  for (std::int64_t i = 1; i <= count && i <= kMaximumTiledAxes; ++i) {
    axes.push_back(LastInteger(header, "ZNAXIS" + std::to_string(i)));
  }
  return axes;
}

bool IsSupportedShape(const std::vector<Integer>& axes) {
  return (axes.size() == 2 || axes.size() == 3) &&
         std::all_of(axes.begin(), axes.end(), [](Integer length) { return length >= 1; });
}

bool IsSupportedImage(const Header& header) {
  return IsTable(header) ? IsTiledImage(header) && IsSupportedShape(TiledAxes(header))
                         : IsSupportedShape(ArrayAxes(header));
}

// Bytes of the data unit (equations 1 and 2 of the standard); none beyond 63 bits.
Integer DataBytes(const Header& header) {
  const std::vector<Integer> axes = ArrayAxes(header);
  Integer pixels = axes.empty() ? 0 : 1;
  for (std::size_t i = 0; i < axes.size(); ++i) {
    const bool isGroupMark = i == 0 && axes[0] == 0 && HasTrue(header, "GROUPS");
    pixels = Multiply(pixels, isGroupMark ? Integer(1) : axes[i]);
  }
  const Integer elements = Add(pixels, LastInteger(header, "PCOUNT").value_or(0));
  const Integer bits = IntegerAt(header, 1, "BITPIX");
  return Multiply(Multiply(elements, bits ? Integer(std::abs(*bits) / 8) : std::nullopt),
                  LastInteger(header, "GCOUNT").value_or(1));
}

bool IsRiceCoded(const Header& header) {
  return std::any_of(header.cards.begin(), header.cards.end(), [](const Card& card) {
    return card.name == "ZCMPTYPE" && card.Text().starts_with("RICE");
  });
}

// Whether a keyword that says how tiles lie and are coded stands there twice. CFITSIO searches from
// where it read last, so which of the two it takes depends on what was asked before: a check and
// the reading that follows would see different tiles.
bool HasRepeatedTiling(const Header& header) {
  constexpr std::array<std::string_view, 8> kStems{"ZIMAGE", "ZCMPTYPE", "ZQUANTIZ", "ZBITPIX",
                                                   "ZNAXIS", "ZTILE",    "ZNAME",    "ZVAL"};
  std::set<std::string_view> seen;
  return std::any_of(header.cards.begin(), header.cards.end(), [&](const Card& card) {
    const bool isTiling = std::any_of(kStems.begin(), kStems.end(), [&](std::string_view stem) {
      return card.name.starts_with(stem);
    });
    return isTiling && !seen.insert(card.name).second;
  });
}

// Whether a card that CFITSIO reads as an integer of the tiling can do no harm: a value that is
// none goes into a message whose buffer takes this much of it (ffc2j).
bool FitsItsMessage(const Card& card) {
  constexpr std::size_t kRoom = 28;
  constexpr std::array<std::string_view, 6> kIntegers{"ZBITPIX", "ZDITHER0", "ZVAL1",
                                                      "ZVAL2",   "ZBLANK",   "BLANK"};
  return std::find(kIntegers.begin(), kIntegers.end(), card.name) == kIntegers.end() ||
         card.value.size() <= kRoom || ParseInteger(card.value);
}

bool IsTilingSane(const Header& header) {
  constexpr std::int64_t kMaximum = INT64_MAX;
  bool isSane = !HasRepeatedTiling(header) &&
                std::all_of(header.cards.begin(), header.cards.end(), FitsItsMessage) &&
                AllInside(header, "ZNAXIS", 1, kMaximumTiledAxes);
  if (IsRiceCoded(header)) {
    isSane = isSane && AllInside(header, "ZVAL1", 1, kMaximumRiceSetting) &&
             AllInside(header, "ZVAL2", 1, kMaximumRiceSetting);
  }
  Integer imageBytes = sizeof(double);
  Integer tilePixels = 1;
  for (std::int64_t i = 1; i <= kMaximumTiledAxes; ++i) {
    const std::string axis = "ZNAXIS" + std::to_string(i);
    const std::string tile = "ZTILE" + std::to_string(i);
    isSane = isSane && AllInside(header, axis, 1, kMaximum) &&
             AllInside(header, tile, 1, kMaximumTilePixels);
    const Integer length = LastInteger(header, axis).value_or(1);
    imageBytes = Multiply(imageBytes, length);
    const Integer tileLength = LastInteger(header, tile);
    tilePixels = Multiply(tilePixels, tileLength ? tileLength : (i == 1 ? length : Integer(1)));
  }
  return isSane && imageBytes && tilePixels && *tilePixels <= kMaximumTilePixels;
}

// Whether a table begins with its mandatory keywords (section 7.3.1); CFITSIO goes on with chance
// values where one cannot be read. It takes no fractions here.
int TableStatus(const Header& header) {
  struct Requirement {
    const char* name;
    std::int64_t minimum;
    std::int64_t maximum;
    int status;
  };
  constexpr std::array<Requirement, 7> kRequirements{{{"BITPIX", 8, 8, BAD_BITPIX},
                                                      {"NAXIS", 2, 2, BAD_NAXIS},
                                                      {"NAXIS1", 0, INT64_MAX, BAD_NAXES},
                                                      {"NAXIS2", 0, INT64_MAX, BAD_NAXES},
                                                      {"PCOUNT", 0, INT64_MAX, BAD_PCOUNT},
                                                      {"GCOUNT", 1, 1, BAD_GCOUNT},
                                                      {"TFIELDS", 0, kMaximumFields, BAD_TFIELDS}}};
  for (std::size_t i = 0; i < kRequirements.size() && i + 1 < header.cards.size(); ++i) {
    const Requirement& required = kRequirements[i];
    const Card& card = header.cards[i + 1];
    if (card.name != required.name ||
        !IsInside(ParseWholeNumber(card.value), required.minimum, required.maximum)) {
      return required.status;
    }
  }
  return 0;
}

// CFITSIO copies the name of a column into 70 bytes. One that is no string, without quotes, can be
// longer.
bool HasOverlongColumnName(const Header& header) {
  constexpr std::size_t kLongestName = 69;
  return std::any_of(header.cards.begin(), header.cards.end(), [](const Card& card) {
    return card.name.starts_with("TTYPE") && !card.value.starts_with('\'') &&
           card.value.size() > kLongestName;
  });
}

// CFITSIO status for a header that must stay unread; 0 when it is safe.
int RefusalStatus(const Header& header) {
  const Integer axisCount = IntegerAt(header, 2, "NAXIS");
  if (axisCount && !IsInside(axisCount, 0, kMaximumAxes)) {
    return BAD_NAXIS;
  }
  for (std::size_t i = 3;
       i < header.cards.size() && axisCount && i < 3 + static_cast<std::size_t>(*axisCount); ++i) {
    if (!IsInside(ParseInteger(header.cards[i].value), 0, INT64_MAX)) {
      return BAD_NAXES;
    }
  }
  if (!AllInside(header, "PCOUNT", 0, INT64_MAX)) {
    return BAD_PCOUNT;
  }
  if (!AllInside(header, "GCOUNT", 0, INT64_MAX)) {
    return BAD_GCOUNT;
  }
  const int tableStatus = IsTable(header) ? TableStatus(header) : 0;
  if (tableStatus != 0) {
    return tableStatus;
  }
  if (HasOverlongColumnName(header)) {
    return NO_QUOTE;
  }
  return IsTiledImage(header) && !IsTilingSane(header) ? DATA_DECOMPRESSION_ERR : 0;
}

bool IsOfInterest(const Header& header, const Card& card) {
  constexpr std::size_t kLeadingCards = 3 + static_cast<std::size_t>(kMaximumAxes);
  return header.cards.size() < kLeadingCards || card.name == "PCOUNT" || card.name == "GCOUNT" ||
         card.name == "GROUPS" || card.name == "TFIELDS" || card.name == "BLANK" ||
         card.name.starts_with("TTYPE") || card.name.starts_with('Z');
}

// Reads header blocks up to the one with END; of a long header only the cards that matter stay.
// None where no header begins.
std::optional<Header> ReadHeader(SequentialBytes& bytes) {
  Header header;
  std::array<char, kBlockBytes> block{};
  for (std::size_t size = 0; !header.isComplete && size < kMaximumHeaderBytes;
       size += kBlockBytes) {
    const std::size_t count = bytes.Read(block.data(), kBlockBytes);
    for (std::size_t i = 0; i + kCardBytes <= count && !header.isComplete; i += kCardBytes) {
      Card card = ParseCard(block.data() + i);
      if (header.cards.empty() && card.name != "SIMPLE" && card.name != "XTENSION") {
        return std::nullopt;
      }
      header.isComplete = card.name == "END";
      if (IsOfInterest(header, card)) {
        header.cards.push_back(std::move(card));
      }
    }
    if (count < kBlockBytes) {
      break;
    }
  }
  return header;
}

std::uint64_t PaddedToBlocks(std::uint64_t size) {
  return size + (kBlockBytes - size % kBlockBytes) % kBlockBytes;
}

}  // namespace

FitsStructure InspectFitsStructure(SequentialBytes& bytes) {
  FitsStructure structure;
  for (bool isFollowed = true; isFollowed;) {
    const std::optional<Header> header = ReadHeader(bytes);
    const int refusal = header ? RefusalStatus(*header) : 0;
    if (refusal != 0) {
      structure.refusalStatus = refusal;
      break;
    }
    ++structure.hduCount;
    const Integer size = header && header->isComplete ? DataBytes(*header) : std::nullopt;
    if (!size) {
      break;
    }
    const auto dataBytes = static_cast<std::uint64_t>(*size);
    const std::uint64_t blockBytes = PaddedToBlocks(dataBytes);
    const std::uint64_t skipped = bytes.Skip(blockBytes);
    structure.lacksPadding = skipped >= dataBytes && skipped < blockBytes;
    isFollowed = skipped == blockBytes && !IsSupportedImage(*header);
  }
  return structure;
}

}  // namespace project_lumen::io
