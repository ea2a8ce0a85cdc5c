#include "io/tiff/TiffLayout.h"

#include <algorithm>
#include <istream>
#include <set>

namespace project_lumen::io {
namespace {

constexpr std::size_t kSmallestHeader = 8;
constexpr std::uint64_t kClassicVersion = 42;
constexpr std::uint64_t kBigTiffVersion = 43;
constexpr std::uint64_t kBigTiffOffsetSize = 8;

// Reads from a stream whose size is known, so that no offset or length is believed.
class TiffBytes {
 public:
  TiffBytes(std::istream& file, const std::string& name) : file_(file), name_(name) {
    file_.clear();
    file_.seekg(0, std::ios::end);
    const std::streamoff size = file_.tellg();
    if (!file_ || size < 0) {
      FailTruncated();
    }
    size_ = static_cast<std::uint64_t>(size);
  }

  [[nodiscard]] std::uint64_t Size() const { return size_; }
  [[nodiscard]] bool Holds(std::uint64_t offset, std::uint64_t length) const {
    return offset <= size_ && length <= size_ - offset;
  }

  void Read(std::uint64_t offset, void* into, std::size_t length) {
    if (!Holds(offset, length)) {
      FailTruncated();
    }
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(offset));
    file_.read(static_cast<char*>(into), static_cast<std::streamsize>(length));
    if (!file_) {
      FailTruncated();
    }
  }

  [[noreturn]] void Fail(const char* problem) const {
    throw std::invalid_argument(std::string(problem) + " in " + name_);
  }
  [[noreturn]] void FailTruncated() const { Fail("Invalid or truncated TIFF metadata"); }

 private:
  std::istream& file_;
  const std::string& name_;
  std::uint64_t size_ = 0;
};

std::uint64_t ReadUnsigned(TiffBytes& file, const TiffVariant& variant, std::uint64_t offset,
                           std::size_t size) {
  std::array<std::uint8_t, 8> bytes{};
  file.Read(offset, bytes.data(), size);
  return variant.Decode(std::span(bytes).first(size));
}

TiffVariant ReadVariant(TiffBytes& file) {
  if (file.Size() < kSmallestHeader) {
    file.Fail("Invalid TIFF header");
  }
  std::array<char, 2> order{};
  file.Read(0, order.data(), order.size());
  const bool isBigEndian = order[0] == 'M' && order[1] == 'M';
  if (!isBigEndian && !(order[0] == 'I' && order[1] == 'I')) {
    file.Fail("Invalid TIFF byte order");
  }
  TiffVariant variant{isBigEndian, false};
  const std::uint64_t version = ReadUnsigned(file, variant, 2, 2);
  if (version != kClassicVersion && version != kBigTiffVersion) {
    file.Fail("Unsupported TIFF version");
  }
  variant.isBigTiff = version == kBigTiffVersion;
  if (!file.Holds(0, variant.HeaderSize())) {
    file.FailTruncated();
  }
  if (variant.isBigTiff && (ReadUnsigned(file, variant, 4, 2) != kBigTiffOffsetSize ||
                            ReadUnsigned(file, variant, 6, 2) != 0)) {
    file.Fail("Unsupported BigTIFF offset layout");
  }
  return variant;
}

TiffEntry DecodeEntry(const TiffVariant& variant, std::span<const std::uint8_t> bytes) {
  const std::size_t offsetSize = variant.OffsetSize();
  TiffEntry entry;
  entry.tag = static_cast<std::uint16_t>(variant.Decode(bytes.subspan(0, 2)));
  entry.type = static_cast<std::uint16_t>(variant.Decode(bytes.subspan(2, 2)));
  entry.count = variant.Decode(bytes.subspan(4, offsetSize));
  std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(4 + offsetSize), offsetSize,
              entry.value.begin());
  return entry;
}

TiffDirectory ReadDirectoryAt(TiffBytes& file, const TiffVariant& variant, std::uint64_t offset) {
  TiffDirectory directory;
  directory.variant = variant;
  directory.fileSize = file.Size();
  directory.offset = offset;
  const std::uint64_t count = ReadUnsigned(file, variant, offset, variant.EntryCountSize());
  if (count > kLargestTiffDirectory) {
    file.Fail("Unreasonably large TIFF directory");
  }
  const std::uint64_t start = offset + variant.EntryCountSize();
  const std::size_t entrySize = variant.EntrySize();
  if (!file.Holds(start, count * entrySize)) {
    file.FailTruncated();
  }
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count) * entrySize);
  file.Read(start, bytes.data(), bytes.size());
  directory.entries.reserve(static_cast<std::size_t>(count));
  for (std::size_t position = 0; position < bytes.size(); position += entrySize) {
    directory.entries.push_back(
        DecodeEntry(variant, std::span(bytes).subspan(position, entrySize)));
  }
  return directory;
}

TiffDirectory ReadFirstDirectory(TiffBytes& file) {
  const TiffVariant variant = ReadVariant(file);
  return ReadDirectoryAt(
      file, variant,
      ReadUnsigned(file, variant, variant.FirstDirectoryField(), variant.OffsetSize()));
}

std::uint64_t ReadNextDirectoryOffset(TiffBytes& file, const TiffDirectory& directory) {
  const TiffVariant& variant = directory.variant;
  const std::uint64_t end =
      directory.offset + variant.EntryCountSize() + directory.entries.size() * variant.EntrySize();
  return ReadUnsigned(file, variant, end, variant.OffsetSize());
}

std::span<const std::uint8_t> ValueField(const TiffVariant& variant, const TiffEntry& entry) {
  return std::span(entry.value).first(variant.OffsetSize());
}

bool IsUsableDescription(const TiffEntry& entry) {
  return entry.tag == kTiffImageDescriptionTag && entry.type == kTiffAsciiType &&
         entry.count != 0 && entry.count <= kLargestTiffDescription;
}

std::string ReadText(TiffBytes& file, const TiffVariant& variant, const TiffEntry& entry) {
  const std::span<const std::uint8_t> field = ValueField(variant, entry);
  if (entry.count <= field.size()) {
    return {field.begin(), field.begin() + static_cast<std::ptrdiff_t>(entry.count)};
  }
  const std::uint64_t offset = variant.Decode(field);
  if (!file.Holds(offset, entry.count)) {
    file.Fail("Invalid TIFF ImageDescription offset");
  }
  std::string text(static_cast<std::size_t>(entry.count), '\0');
  file.Read(offset, text.data(), text.size());
  return text;
}

std::optional<std::string> ReadDescription(TiffBytes& file, const TiffDirectory& directory) {
  const auto entry =
      std::find_if(directory.entries.begin(), directory.entries.end(), IsUsableDescription);
  if (entry == directory.entries.end()) {
    return std::nullopt;
  }
  std::string text = ReadText(file, directory.variant, *entry);
  text.erase(text.find_last_not_of('\0') + 1);
  return text;
}

// TIFF 6.0, section 8, "NewSubfileType": the flags of a smaller version of another image and of a
// transparency mask for one.
bool IsPage(const TiffDirectory& directory) {
  constexpr std::uint16_t kNewSubfileTypeTag = 254;
  constexpr std::uint16_t kLongType = 4;
  constexpr std::uint64_t kReducedOrMask = 1U | 4U;
  const auto entry = std::find_if(
      directory.entries.begin(), directory.entries.end(), [](const TiffEntry& candidate) {
        return candidate.tag == kNewSubfileTypeTag && candidate.type == kLongType;
      });
  return entry == directory.entries.end() ||
         (directory.variant.Decode(std::span(entry->value).first(4)) & kReducedOrMask) == 0;
}

}  // namespace

std::uint64_t TiffVariant::Decode(std::span<const std::uint8_t> bytes) const {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    value = value << 8U | bytes[isBigEndian ? i : bytes.size() - 1 - i];
  }
  return value;
}

void TiffVariant::Encode(std::uint64_t value, std::span<std::uint8_t> bytes) const {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[isBigEndian ? bytes.size() - 1 - i : i] = static_cast<std::uint8_t>(value);
    value >>= 8U;
  }
}

TiffLayout ReadTiffLayout(std::istream& file, const std::string& name) {
  TiffBytes bytes(file, name);
  TiffLayout layout;
  layout.directory = ReadFirstDirectory(bytes);
  layout.nextDirectoryOffset = ReadNextDirectoryOffset(bytes, layout.directory);
  layout.description = ReadDescription(bytes, layout.directory);
  return layout;
}

std::uint64_t CountTiffPages(std::istream& file) {
  const std::string noName;
  std::uint64_t pages = 1;
  try {
    TiffBytes bytes(file, noName);
    TiffDirectory directory = ReadFirstDirectory(bytes);
    std::set<std::uint64_t> seen;
    while (seen.insert(directory.offset).second && seen.size() <= kMostTiffPages) {
      const std::uint64_t next = ReadNextDirectoryOffset(bytes, directory);
      if (next == 0 || seen.contains(next)) {
        break;
      }
      directory = ReadDirectoryAt(bytes, directory.variant, next);
      pages += IsPage(directory) ? 1 : 0;
    }
  } catch (const std::invalid_argument&) {
    // What cannot be reached is no page.
  }
  return pages;
}

}  // namespace project_lumen::io
