// Appending an AstroTIFF header to any file: it is refused and stays as it was, or gets the header
// and keeps everything else. An input is the header's length (two bytes, little endian), the
// header, and the file.
#include <algorithm>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "FuzzTarget.h"
#include "io/tiff/AstroTiff.h"
#include "io/tiff/TiffLayout.h"

namespace project_lumen::fuzz {
namespace {

using io::TiffEntry;
using io::TiffLayout;

constexpr const char* kName = "NAME";

struct Case {
  std::string header;
  std::string file;
};

std::optional<Case> ParseCase(Input input) {
  if (input.size() < 2) {
    return std::nullopt;
  }
  const Input rest = input.subspan(2);
  const std::size_t length = std::min<std::size_t>(input[0] + 256U * input[1], rest.size());
  return Case{TextOf(rest.first(length)), TextOf(rest.subspan(length))};
}

TiffLayout LayoutOf(const std::string& file) {
  std::istringstream stream(file);
  return io::ReadTiffLayout(stream, kName);
}

// The file with the header, or none where that is refused.
std::optional<std::string> Append(const std::string& file, const std::string& header) {
  std::stringstream stream(file);
  try {
    io::AppendAstroTiffMetadata(stream, header, kName);
  } catch (const std::invalid_argument& error) {
    const std::string message = error.what();
    Require(message.starts_with("AstroTIFF metadata ") || message.ends_with(kName));
    Require(stream.str() == file);
    return std::nullopt;
  }
  return stream.str();
}

std::vector<TiffEntry> EntriesWithoutDescription(const TiffLayout& layout) {
  std::vector<TiffEntry> entries = layout.directory.entries;
  std::erase_if(entries,
                [](const TiffEntry& entry) { return entry.tag == io::kTiffImageDescriptionTag; });
  return entries;
}

bool IsSame(const TiffEntry& a, const TiffEntry& b) {
  return a.tag == b.tag && a.type == b.type && a.count == b.count && a.value == b.value;
}

bool IsBefore(const TiffEntry& a, const TiffEntry& b) {
  return a.tag < b.tag;
}

void RequireSameEntries(const TiffLayout& before, const TiffLayout& after) {
  std::vector<TiffEntry> expected = EntriesWithoutDescription(before);
  std::stable_sort(expected.begin(), expected.end(), IsBefore);
  const std::vector<TiffEntry> kept = EntriesWithoutDescription(after);
  Require(std::equal(expected.begin(), expected.end(), kept.begin(), kept.end(), IsSame));
}

void RequireOneDescription(const TiffLayout& layout, const std::string& header) {
  const std::vector<TiffEntry>& entries = layout.directory.entries;
  Require(std::is_sorted(entries.begin(), entries.end(), IsBefore));
  Require(entries.size() == EntriesWithoutDescription(layout).size() + 1);
  Require(layout.description == header.substr(0, header.find_last_not_of('\0') + 1));
}

// Only the offset of the first directory may have changed.
void RequireOldBytes(const std::string& before, const std::string& after,
                     const io::TiffVariant& variant) {
  std::string expected = before;
  const std::size_t field = variant.FirstDirectoryField();
  expected.replace(field, variant.OffsetSize(), after, field, variant.OffsetSize());
  Require(after.starts_with(expected));
}

void RequireBoundedGrowth(const Case& made, const std::string& after, const TiffLayout& layout) {
  constexpr std::size_t kGapsAndFraming = 32;
  const std::size_t directory =
      layout.directory.entries.size() * layout.directory.variant.EntrySize();
  Require(after.size() <= made.file.size() + made.header.size() + directory + kGapsAndFraming);
}

void AppendToAnything(Input input) {
  const std::optional<Case> made = ParseCase(input);
  if (!made) {
    return;
  }
  const std::optional<std::string> appended = Append(made->file, made->header);
  if (!appended) {
    return;
  }
  const TiffLayout before = LayoutOf(made->file);
  const TiffLayout after = LayoutOf(*appended);
  Require(after.nextDirectoryOffset == before.nextDirectoryOffset);
  RequireSameEntries(before, after);
  RequireOneDescription(after, made->header);
  RequireOldBytes(made->file, *appended, after.directory.variant);
  RequireBoundedGrowth(*made, *appended, after);

  const std::optional<std::string> twice = Append(*appended, made->header);
  Require(twice.has_value());
  RequireOneDescription(LayoutOf(*twice), made->header);
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  project_lumen::fuzz::AppendToAnything({data, size});
  return 0;
}
