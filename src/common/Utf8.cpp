#include "common/Utf8.h"

#include <cstddef>

namespace project_lumen {
namespace {

// What may follow a first byte: how many bytes, and the range of the first of them. The others lie
// between 80 and BF. From The Unicode Standard, table 3-7.
struct Sequence {
  std::size_t following;
  unsigned char low;
  unsigned char high;
};

constexpr Sequence kNone{0, 0, 0};

Sequence SequenceAfter(unsigned char first) {
  if (first >= 0xC2 && first <= 0xDF) {
    return {1, 0x80, 0xBF};
  }
  switch (first) {
    case 0xE0:
      return {2, 0xA0, 0xBF};
    case 0xED:
      return {2, 0x80, 0x9F};
    case 0xF0:
      return {3, 0x90, 0xBF};
    case 0xF4:
      return {3, 0x80, 0x8F};
    default:
      break;
  }
  if (first >= 0xE1 && first <= 0xEF) {
    return {2, 0x80, 0xBF};
  }
  return first >= 0xF1 && first <= 0xF3 ? Sequence{3, 0x80, 0xBF} : kNone;
}

// How many bytes at the start of the text belong together, and whether they are a character.
struct Part {
  std::size_t size;
  bool isCharacter;
};

Part FirstPart(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) {
    return {1, true};
  }
  Sequence expected = SequenceAfter(byte(0));
  const std::size_t whole = 1 + expected.following;
  std::size_t size = 1;
  while (size < whole && size < text.size() && byte(size) >= expected.low &&
         byte(size) <= expected.high) {
    expected.low = 0x80;
    expected.high = 0xBF;
    ++size;
  }
  return {size, expected.following != 0 && size == whole};
}

}  // namespace

std::string ReplaceInvalidUtf8(std::string_view text) {
  constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Part part = FirstPart(text);
    result += part.isCharacter ? text.substr(0, part.size) : kReplacement;
    text.remove_prefix(part.size);
  }
  return result;
}

}  // namespace project_lumen
