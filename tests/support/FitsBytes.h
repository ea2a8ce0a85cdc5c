// FITS files made and taken apart byte by byte, without any FITS library (FITS standard 4.0,
// chapters 3 and 4).
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"

namespace project_lumen::test {

constexpr std::size_t kFitsBlock = 2880;
constexpr std::size_t kFitsCard = 80;

inline std::string PadTo(std::string text, std::size_t multiple, char fill) {
  text.resize((text.size() + multiple - 1) / multiple * multiple, fill);
  return text;
}

// "KEYWORD =                value", 80 characters; a string value brings its quotes along.
inline std::string FitsCard(const std::string& keyword, const std::string& value) {
  std::string card = keyword;
  card.resize(8, ' ');
  card += "= ";
  if (!value.starts_with('\'') && value.size() < 20) {
    card.append(20 - value.size(), ' ');
  }
  return PadTo(card + value, kFitsCard, ' ');
}

inline std::string FitsCard(const std::string& keyword, std::int64_t value) {
  return FitsCard(keyword, std::to_string(value));
}

// A whole card as it is, padded to 80 characters.
inline std::string RawCard(std::string text) {
  text.resize(kFitsCard, ' ');
  return text;
}

// The numbers in FITS byte order.
template <typename T>
std::string BigEndian(const std::vector<T>& values) {
  std::string bytes;
  bytes.reserve(values.size() * sizeof(T));
  for (const T value : values) {
    std::array<char, sizeof(T)> raw{};
    std::memcpy(raw.data(), &value, sizeof(T));
    bytes.append(raw.rbegin(), raw.rend());
  }
  return bytes;
}

template <typename T>
std::vector<T> FromBigEndian(const std::string& bytes) {
  std::vector<T> values(bytes.size() / sizeof(T));
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::array<char, sizeof(T)> raw{};
    for (std::size_t k = 0; k < sizeof(T); ++k) {
      raw[sizeof(T) - 1 - k] = bytes[i * sizeof(T) + k];
    }
    std::memcpy(&values[i], raw.data(), sizeof(T));
  }
  return values;
}

// One header with END, and its data, both padded to blocks.
inline std::string FitsHdu(const std::vector<std::string>& cards, const std::string& data) {
  std::string header;
  for (const std::string& card : cards) {
    header += card;
  }
  return PadTo(header + RawCard("END"), kFitsBlock, ' ') + PadTo(data, kFitsBlock, '\0');
}

// The mandatory cards of an array, then the extra ones.
inline std::vector<std::string> ArrayCards(int bitpix, const std::vector<std::int64_t>& axes,
                                           const std::vector<std::string>& extra,
                                           bool isExtension = false) {
  std::vector<std::string> cards{
      isExtension ? FitsCard("XTENSION", "'IMAGE   '") : FitsCard("SIMPLE", "T"),
      FitsCard("BITPIX", bitpix), FitsCard("NAXIS", static_cast<std::int64_t>(axes.size()))};
  for (std::size_t i = 0; i < axes.size(); ++i) {
    cards.push_back(FitsCard("NAXIS" + std::to_string(i + 1), axes[i]));
  }
  if (isExtension) {
    cards.push_back(FitsCard("PCOUNT", 0));
    cards.push_back(FitsCard("GCOUNT", 1));
  }
  cards.insert(cards.end(), extra.begin(), extra.end());
  return cards;
}

template <typename T>
std::string FitsImageHdu(int bitpix, const std::vector<std::int64_t>& axes,
                         const std::vector<T>& values, const std::vector<std::string>& extra = {},
                         bool isExtension = false) {
  return FitsHdu(ArrayCards(bitpix, axes, extra, isExtension), BigEndian(values));
}

// A binary table with one column of four 16-bit numbers a row, and two rows.
inline std::string FitsTableHdu() {
  return FitsHdu(
      {FitsCard("XTENSION", "'BINTABLE'"), FitsCard("BITPIX", 8), FitsCard("NAXIS", 2),
       FitsCard("NAXIS1", 8), FitsCard("NAXIS2", 2), FitsCard("PCOUNT", 0), FitsCard("GCOUNT", 1),
       FitsCard("TFIELDS", 1), FitsCard("TFORM1", "'4I      '"), FitsCard("TTYPE1", "'NUMBERS '")},
      BigEndian(std::vector<std::int16_t>{1, 2, 3, 4, 5, 6, 7, 8}));
}

// The first HDU of a file, taken apart.
struct ParsedFits {
  std::vector<std::string> cards;  // all but END
  std::string data;                // without the padding that its dimensions do not ask for
  std::size_t fileSize = 0;

  // The card with the keyword; throws when there is not exactly one.
  [[nodiscard]] std::string Card(const std::string& keyword) const {
    std::string padded = keyword;
    padded.resize(8, ' ');
    const std::string* found = nullptr;
    for (const std::string& card : cards) {
      if (card.starts_with(padded)) {
        if (found != nullptr) {
          throw std::runtime_error(keyword + " is there twice");
        }
        found = &card;
      }
    }
    if (found == nullptr) {
      throw std::runtime_error(keyword + " is missing");
    }
    return *found;
  }
  [[nodiscard]] bool Has(const std::string& keyword) const {
    std::string padded = keyword;
    padded.resize(8, ' ');
    for (const std::string& card : cards) {
      if (card.starts_with(padded)) {
        return true;
      }
    }
    return false;
  }
  // The value field without blanks around it and without a comment.
  [[nodiscard]] std::string Value(const std::string& keyword) const {
    std::string text = Card(keyword).substr(10);
    const std::size_t end =
        text[0] == '\'' ? text.find('\'', 1) + 1 : std::min(text.find('/'), text.size());
    text.resize(end);
    const std::size_t first = text.find_first_not_of(' ');
    return text.substr(first, text.find_last_not_of(' ') + 1 - first);
  }
  [[nodiscard]] double Number(const std::string& keyword) const {
    return std::strtod(Value(keyword).c_str(), nullptr);
  }
  [[nodiscard]] std::vector<std::int64_t> Axes() const {
    std::vector<std::int64_t> axes;
    for (std::int64_t i = 1; i <= static_cast<std::int64_t>(Number("NAXIS")); ++i) {
      axes.push_back(static_cast<std::int64_t>(Number("NAXIS" + std::to_string(i))));
    }
    return axes;
  }
  // The texts of the HISTORY cards.
  [[nodiscard]] std::vector<std::string> History() const {
    std::vector<std::string> lines;
    for (const std::string& card : cards) {
      if (card.starts_with("HISTORY ")) {
        lines.push_back(card.substr(8, card.find_last_not_of(' ') + 1 - 8));
      }
    }
    return lines;
  }
};

inline ParsedFits ParseFits(const std::string& bytes) {
  ParsedFits parsed;
  parsed.fileSize = bytes.size();
  std::size_t position = 0;
  for (;; position += kFitsCard) {
    if (position + kFitsCard > bytes.size()) {
      throw std::runtime_error("no END card");
    }
    const std::string card = bytes.substr(position, kFitsCard);
    if (card == RawCard("END")) {
      break;
    }
    parsed.cards.push_back(card);
  }
  const std::size_t start = (position / kFitsBlock + 1) * kFitsBlock;
  auto size = static_cast<std::size_t>(std::abs(parsed.Number("BITPIX"))) / 8;
  for (const std::int64_t length : parsed.Axes()) {
    size *= static_cast<std::size_t>(length);
  }
  parsed.data = bytes.substr(start, size);
  return parsed;
}

inline ParsedFits ParseFitsFile(const std::string& path) {
  return ParseFits(ReadFileBytes(path));
}

}  // namespace project_lumen::test
