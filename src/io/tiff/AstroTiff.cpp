#include "io/tiff/AstroTiff.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <limits>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"
#include "io/tiff/TiffLayout.h"

namespace project_lumen::io {
namespace {

constexpr std::string_view kFirstCard = "SIMPLE";
constexpr std::string_view kLastCard = "END";
constexpr std::string_view kBitpixKeyword = "BITPIX  ";
constexpr std::uint64_t kLargestClassicOffset = std::numeric_limits<std::uint32_t>::max();

void RequireAstroTiffHeader(const std::string& text) {
  if (!IsAstroTiffHeader(text)) {
    throw std::invalid_argument("AstroTIFF metadata must start with SIMPLE and end with END.");
  }
}

void RequireAppendableHeader(const std::string& text) {
  RequireAstroTiffHeader(text);
  if (text.size() + 1 > kLargestTiffDescription) {
    throw std::invalid_argument("AstroTIFF metadata exceeds the supported 16 MiB limit.");
  }
}

// Line feeds separate lines; a carriage return before one belongs to it. A last line that is empty
// is none.
std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text + '\n');
  for (std::string line; std::getline(stream, line);) {
    if (line.ends_with('\r')) {
      line.pop_back();
    }
    lines.push_back(line);
  }
  if (lines.back().empty()) {
    lines.pop_back();
  }
  return lines;
}

std::string JoinLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line + '\n';
  }
  text.pop_back();
  return text;
}

// The digit of 8 stands in column 29, not right-aligned to column 30: readers of these files expect
// the card as it always was.
std::string BitpixCard(int bitpix) {
  constexpr std::size_t kBlanks = 19;
  return "BITPIX  =" + std::string(kBlanks, ' ') + std::to_string(bitpix);
}

std::uint64_t RoundUp(std::uint64_t value, std::uint64_t multiple) {
  return (value + multiple - 1) / multiple * multiple;
}

[[noreturn]] void Fail(const char* problem, const std::string& path) {
  throw std::invalid_argument(std::string(problem) + path);
}

// Where the appended parts lie and what the new directory holds.
struct Appendix {
  std::uint64_t textOffset;
  std::uint64_t directoryOffset;
  std::vector<TiffEntry> entries;
};

TiffEntry DescriptionEntry(const TiffVariant& variant, std::uint64_t textBytes,
                           std::uint64_t textOffset) {
  TiffEntry entry{kTiffImageDescriptionTag, kTiffAsciiType, textBytes, {}};
  variant.Encode(textOffset, std::span(entry.value).first(variant.OffsetSize()));
  return entry;
}

std::vector<TiffEntry> ReplaceDescription(std::vector<TiffEntry> entries,
                                          const TiffEntry& description) {
  std::erase_if(entries,
                [](const TiffEntry& entry) { return entry.tag == kTiffImageDescriptionTag; });
  entries.push_back(description);
  std::stable_sort(entries.begin(), entries.end(),
                   [](const TiffEntry& a, const TiffEntry& b) { return a.tag < b.tag; });
  return entries;
}

void RequireRoomForText(const Appendix& appendix, const std::string& path) {
  if (std::max(appendix.textOffset, appendix.directoryOffset) > kLargestClassicOffset) {
    Fail("Classic TIFF output is too large to append AstroTIFF metadata: ", path);
  }
}

void RequireRoomForDirectory(const Appendix& appendix, const TiffVariant& variant,
                             const std::string& path) {
  const std::uint64_t count = appendix.entries.size();
  if (count > kLargestTiffDirectory) {
    Fail("Classic TIFF directory has no room for AstroTIFF metadata: ", path);
  }
  const std::uint64_t end = appendix.directoryOffset + variant.EntryCountSize() +
                            count * variant.EntrySize() + variant.OffsetSize();
  if (end > kLargestClassicOffset) {
    Fail("Classic TIFF output is too large to append an AstroTIFF directory: ", path);
  }
}

Appendix PlanAppendix(const TiffLayout& layout, std::uint64_t textBytes, const std::string& path) {
  const TiffVariant& variant = layout.directory.variant;
  Appendix appendix;
  appendix.textOffset = RoundUp(layout.directory.fileSize, variant.Alignment());
  appendix.directoryOffset = RoundUp(appendix.textOffset + textBytes, variant.Alignment());
  if (!variant.isBigTiff) {
    RequireRoomForText(appendix, path);
  }
  appendix.entries = ReplaceDescription(layout.directory.entries,
                                        DescriptionEntry(variant, textBytes, appendix.textOffset));
  if (!variant.isBigTiff) {
    RequireRoomForDirectory(appendix, variant, path);
  }
  return appendix;
}

void PutUnsigned(std::string& bytes, const TiffVariant& variant, std::uint64_t value,
                 std::size_t size) {
  std::array<std::uint8_t, 8> encoded{};
  variant.Encode(value, std::span(encoded).first(size));
  bytes.append(encoded.begin(), encoded.begin() + static_cast<std::ptrdiff_t>(size));
}

std::string EncodeDirectory(const TiffVariant& variant, const std::vector<TiffEntry>& entries,
                            std::uint64_t nextDirectoryOffset) {
  std::string bytes;
  PutUnsigned(bytes, variant, entries.size(), variant.EntryCountSize());
  for (const TiffEntry& entry : entries) {
    PutUnsigned(bytes, variant, entry.tag, 2);
    PutUnsigned(bytes, variant, entry.type, 2);
    PutUnsigned(bytes, variant, entry.count, variant.OffsetSize());
    bytes.append(entry.value.begin(),
                 entry.value.begin() + static_cast<std::ptrdiff_t>(variant.OffsetSize()));
  }
  PutUnsigned(bytes, variant, nextDirectoryOffset, variant.OffsetSize());
  return bytes;
}

// Text and directory with the gaps before them, from the old end of the file on.
std::string EncodeAppendix(const TiffLayout& layout, const Appendix& appendix,
                           const std::string& headerText) {
  const std::uint64_t start = layout.directory.fileSize;
  std::string bytes(static_cast<std::size_t>(appendix.textOffset - start), '\0');
  bytes += headerText;
  bytes.resize(static_cast<std::size_t>(appendix.directoryOffset - start), '\0');
  return bytes +
         EncodeDirectory(layout.directory.variant, appendix.entries, layout.nextDirectoryOffset);
}

bool WriteAt(std::iostream& file, std::uint64_t offset, const std::string& bytes) {
  file.clear();
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.flush();
  return file.good();
}

}  // namespace

bool IsAstroTiffHeader(const std::string& text) {
  if (!text.starts_with(kFirstCard)) {
    return false;
  }
  const std::size_t last = text.find_last_not_of(std::string_view("\0\r\n", 3));
  const std::string_view used = std::string_view(text).substr(0, last + 1);
  const std::size_t lastLineFeed = used.find_last_of('\n');
  return used.substr(lastLineFeed == std::string_view::npos ? 0 : lastLineFeed + 1)
      .starts_with(kLastCard);
}

std::string ReadAstroTiffHeader(const std::string& path) {
  std::ifstream file(FromUtf8(OpenablePath(path)), std::ios::binary);
  if (!file) {
    Fail("Unable to open TIFF metadata: ", path);
  }
  return ReadAstroTiffHeader(file, path);
}

std::string ReadAstroTiffHeader(std::istream& file, const std::string& path) {
  const std::string text = ReadTiffLayout(file, path).description.value_or("");
  return IsAstroTiffHeader(text) ? text : "";
}

std::string BuildAstroTiffOutputHeader(const std::string& headerText, int bitpix) {
  RequireAstroTiffHeader(headerText);
  if (bitpix != 8 && bitpix != 16) {
    throw std::invalid_argument("AstroTIFF output BITPIX must be 8 or 16.");
  }
  std::vector<std::string> lines = SplitLines(headerText);
  const std::string card = BitpixCard(bitpix);
  bool isReplaced = false;
  for (std::string& line : lines) {
    if (line.starts_with(kBitpixKeyword)) {
      line = card;
      isReplaced = true;
    }
  }
  if (!isReplaced) {
    lines.insert(lines.begin() + 1, card);
  }
  return JoinLines(lines);
}

void AppendAstroTiffMetadata(const std::string& path, const std::string& headerText) {
  AppendAstroTiffMetadata(path, headerText, path);
}

void AppendAstroTiffMetadata(const std::string& path, const std::string& headerText,
                             const std::string& shownPath) {
  RequireAppendableHeader(headerText);
  std::fstream file(FromUtf8(OpenablePath(path)), std::ios::binary | std::ios::in | std::ios::out);
  if (!file) {
    Fail("Unable to open TIFF output metadata: ", shownPath);
  }
  AppendAstroTiffMetadata(file, headerText, shownPath);
  file.close();
  if (!file) {
    Fail("Unable to activate AstroTIFF metadata in ", shownPath);
  }
}

void AppendAstroTiffMetadata(std::iostream& file, const std::string& headerText,
                             const std::string& shownPath) {
  RequireAppendableHeader(headerText);
  const TiffLayout layout = ReadTiffLayout(file, shownPath);
  const TiffVariant& variant = layout.directory.variant;
  const Appendix appendix = PlanAppendix(layout, headerText.size() + 1, shownPath);
  if (!WriteAt(file, layout.directory.fileSize, EncodeAppendix(layout, appendix, headerText))) {
    Fail("Unable to append AstroTIFF metadata to ", shownPath);
  }
  std::string offset;
  PutUnsigned(offset, variant, appendix.directoryOffset, variant.OffsetSize());
  if (!WriteAt(file, variant.FirstDirectoryField(), offset)) {
    Fail("Unable to activate AstroTIFF metadata in ", shownPath);
  }
}

}  // namespace project_lumen::io
