#include "io/TiffLayout.h"

#include <algorithm>
#include <istream>
#include <limits>

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

TiffDirectory ReadFirstDirectory(TiffBytes& file) {
  TiffDirectory directory;
  const TiffVariant variant = ReadVariant(file);
  directory.variant = variant;
  directory.fileSize = file.Size();
  directory.offset =
      ReadUnsigned(file, variant, variant.FirstDirectoryField(), variant.OffsetSize());
  const std::uint64_t count =
      ReadUnsigned(file, variant, directory.offset, variant.EntryCountSize());
  if (count > kLargestTiffDirectory) {
    file.Fail("Unreasonably large TIFF directory");
  }
  const std::uint64_t start = directory.offset + variant.EntryCountSize();
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

// TIFF 6.0, section 2, "Types"; LONG8 is BigTIFF's. Zero for everything but unsigned integers.
std::size_t UnsignedTypeSize(std::uint16_t type) {
  switch (type) {
    case 1:  // BYTE
      return 1;
    case 3:  // SHORT
      return 2;
    case 4:  // LONG
      return 4;
    case 16:  // LONG8
      return 8;
    default:
      return 0;
  }
}

bool FitsValueField(const TiffVariant& variant, std::uint64_t count, std::size_t size) {
  return count <= variant.OffsetSize() / size;
}

// The first values of an entry, `wanted` at most, where they are unsigned integers inside the file.
std::vector<std::uint64_t> ReadValues(std::istream& file, const TiffDirectory& directory,
                                      std::uint16_t tag, std::uint64_t wanted) {
  const auto entry = std::find_if(directory.entries.begin(), directory.entries.end(),
                                  [tag](const TiffEntry& e) { return e.tag == tag; });
  const std::size_t size = entry == directory.entries.end() ? 0 : UnsignedTypeSize(entry->type);
  if (size == 0) {
    return {};
  }
  const TiffVariant& variant = directory.variant;
  const std::span<const std::uint8_t> field = ValueField(variant, *entry);
  const std::uint64_t count = std::min(entry->count, wanted);
  std::vector<std::uint8_t> encoded(field.begin(), field.end());
  if (!FitsValueField(variant, entry->count, size)) {
    const std::string noName;
    TiffBytes bytes(file, noName);
    const std::uint64_t offset = variant.Decode(field);
    if (count > directory.fileSize / size || !bytes.Holds(offset, count * size)) {
      return {};
    }
    encoded.resize(static_cast<std::size_t>(count) * size);
    bytes.Read(offset, encoded.data(), encoded.size());
  }
  std::vector<std::uint64_t> values(static_cast<std::size_t>(count));
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = variant.Decode(std::span(encoded).subspan(i * size, size));
  }
  return values;
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

TiffDirectory ReadTiffDirectory(std::istream& file, const std::string& name) {
  TiffBytes bytes(file, name);
  return ReadFirstDirectory(bytes);
}

TiffLayout ReadTiffLayout(std::istream& file, const std::string& name) {
  TiffBytes bytes(file, name);
  TiffLayout layout;
  layout.directory = ReadFirstDirectory(bytes);
  const TiffVariant& variant = layout.directory.variant;
  const std::uint64_t end = layout.directory.offset + variant.EntryCountSize() +
                            layout.directory.entries.size() * variant.EntrySize();
  layout.nextDirectoryOffset = ReadUnsigned(bytes, variant, end, variant.OffsetSize());
  layout.description = ReadDescription(bytes, layout.directory);
  return layout;
}

std::optional<std::uint64_t> FirstTiffValue(std::istream& file, const TiffDirectory& directory,
                                            std::uint16_t tag) {
  const std::vector<std::uint64_t> values = ReadValues(file, directory, tag, 1);
  return values.empty() ? std::nullopt : std::optional(values.front());
}

std::vector<std::uint64_t> TiffValues(std::istream& file, const TiffDirectory& directory,
                                      std::uint16_t tag) {
  return ReadValues(file, directory, tag, std::numeric_limits<std::uint64_t>::max());
}

}  // namespace project_lumen::io
