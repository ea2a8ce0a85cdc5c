#include "io/fits/HeaderBytes.h"

#include <fitsio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string_view>
#include <system_error>

#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"

namespace project_lumen::io {
namespace {

constexpr std::size_t kCardLength = 80;
constexpr std::size_t kBlockLength = 2880;
constexpr std::size_t kChecksumValue = 11;  // behind the keyword, "= " and the quote
constexpr std::size_t kChecksumLength = 16;

bool IsPrintable(char byte) {
  return byte >= ' ' && byte <= '~';
}

// The card as CFITSIO wrote it.
std::string Blanked(std::string card) {
  std::replace_if(
      card.begin(), card.end(), [](char byte) { return !IsPrintable(byte); }, ' ');
  card.resize(kCardLength, ' ');
  return card;
}

void Check(const std::fstream& file) {
  if (!file) {
    throw std::system_error(errno != 0 ? errno : EIO, std::generic_category());
  }
}

// The blocks of the primary header.
std::string ReadHeader(std::fstream& file) {
  std::string header;
  std::array<char, kBlockLength> block{};
  bool ended = false;
  while (!ended) {
    file.read(block.data(), block.size());
    Check(file);
    for (std::size_t i = 0; i < block.size() && !ended; i += kCardLength) {
      ended = std::string_view(block.data() + i, kCardLength) == "END" + std::string(77, ' ');
    }
    header.append(block.data(), block.size());
  }
  return header;
}

void PutCardsBack(std::string& header, const std::vector<std::string>& cards) {
  auto card = cards.begin();
  for (std::size_t i = 0; i < header.size() && card != cards.end(); i += kCardLength) {
    if (header.compare(i, kCardLength, Blanked(*card)) == 0) {
      std::string bytes = *card;
      bytes.resize(kCardLength, ' ');
      header.replace(i, kCardLength, bytes);
      ++card;
    }
  }
}

std::size_t FindCardInHeader(const std::string& header, std::string_view keyword) {
  for (std::size_t i = 0; i < header.size(); i += kCardLength) {
    if (header.compare(i, keyword.size(), keyword) == 0) {
      return i;
    }
  }
  return std::string::npos;
}

// The sum of big-endian 32-bit words in ones' complement.
std::uint32_t OnesComplementSum(const std::string& bytes, std::uint64_t sum) {
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    std::uint32_t word = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      word = word << 8U | static_cast<unsigned char>(bytes[i + k]);
    }
    sum += word;
  }
  while (sum >> 32U != 0) {
    sum = (sum & 0xFFFFFFFFU) + (sum >> 32U);
  }
  return static_cast<std::uint32_t>(sum);
}

void MendChecksum(std::string& header) {
  const std::size_t checksum = FindCardInHeader(header, "CHECKSUM=");
  const std::size_t dataSum = FindCardInHeader(header, "DATASUM =");
  if (checksum == std::string::npos || dataSum == std::string::npos) {
    return;
  }
  header.replace(checksum + kChecksumValue, kChecksumLength, kChecksumLength, '0');
  // A number in quotes.
  std::uint64_t data = 0;
  std::from_chars(header.data() + dataSum + kChecksumValue, header.data() + dataSum + kCardLength,
                  data);
  const std::uint32_t sum = OnesComplementSum(header, data);
  constexpr int kComplement = 1;
  std::array<char, kChecksumLength + 1> text{};
  fits_encode_chksum(sum, kComplement, text.data());
  header.replace(checksum + kChecksumValue, kChecksumLength, text.data(), kChecksumLength);
}

}  // namespace

bool HasUnprintableBytes(const std::string& card) {
  return !std::all_of(card.begin(), card.end(), IsPrintable);
}

void RestoreHeaderBytes(const std::string& path, const std::vector<std::string>& cards) {
  if (cards.empty()) {
    return;
  }
  errno = 0;
  std::fstream file(FromUtf8(OpenablePath(path)), std::ios::binary | std::ios::in | std::ios::out);
  Check(file);
  std::string header = ReadHeader(file);
  PutCardsBack(header, cards);
  MendChecksum(header);
  file.seekp(0);
  file.write(header.data(), static_cast<std::streamsize>(header.size()));
  file.close();
  Check(file);
}

}  // namespace project_lumen::io
