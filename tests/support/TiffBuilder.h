// Builds TIFF files byte by byte, right ones and wrong ones, in both byte orders, classic and
// BigTIFF. Independent of the program's own TIFF code on purpose.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace project_lumen::test {

struct TiffForm {
  bool isBigEndian;
  bool isBigTiff;
};

inline constexpr TiffForm kTiffForms[] = {
    {false, false}, {true, false}, {false, true}, {true, true}};

inline std::string NameOf(const TiffForm& form) {
  return std::string(form.isBigEndian ? "BigEndian" : "LittleEndian") +
         (form.isBigTiff ? "BigTiff" : "Classic");
}

class TiffBuilder {
 public:
  // Types of TIFF 6.0, section 2, and LONG8 of BigTIFF.
  enum Type { kAscii = 2, kShort = 3, kLong = 4, kLong8 = 16 };

  explicit TiffBuilder(TiffForm form = {false, false}) : form_(form) {}

  // An entry with these values, in the field or behind the directory as TIFF wants it.
  TiffBuilder& Add(int tag, Type type, const std::vector<std::uint64_t>& values) {
    const std::size_t size = type == kShort ? 2 : type == kLong ? 4 : 8;
    std::string bytes;
    for (const std::uint64_t value : values) {
      bytes += Number(value, size);
    }
    entries_.push_back({tag, type, values.size(), std::move(bytes)});
    return *this;
  }

  // A text with its terminating NUL.
  TiffBuilder& AddText(int tag, const std::string& text) {
    entries_.push_back({tag, kAscii, text.size() + 1, text + '\0'});
    return *this;
  }

  // An entry whose value field holds exactly this number, whatever it means.
  TiffBuilder& AddField(int tag, int type, std::uint64_t count, std::uint64_t field) {
    entries_.push_back({tag, type, count, Number(field, OffsetSize())});
    return *this;
  }

  // An entry of any type whose values are these bytes, put where its tag belongs.
  TiffBuilder& Insert(int tag, int type, std::uint64_t count, const std::string& bytes) {
    const auto place = std::find_if(entries_.begin(), entries_.end(),
                                    [tag](const Entry& entry) { return entry.tag > tag; });
    if (place <= entries_.begin() + static_cast<std::ptrdiff_t>(stripEntry_)) {
      ++stripEntry_;
    }
    entries_.insert(place, {tag, type, count, bytes});
    return *this;
  }

  // The image data, with its StripOffsets and StripByteCounts entries. Tags must ascend: call it
  // after the tags below 273 and before those above it. `between` are the entries of 274 to 278.
  TiffBuilder& AddStrips(const std::vector<std::string>& strips, int offsetsTag = 273,
                         int countsTag = 279,
                         const std::vector<std::pair<int, int>>& between = {}) {
    strips_ = strips;
    std::vector<std::uint64_t> counts;
    counts.reserve(strips.size());
    for (const std::string& strip : strips) {
      counts.push_back(strip.size());
    }
    stripEntry_ = entries_.size();
    Add(offsetsTag, OffsetType(), std::vector<std::uint64_t>(strips.size(), 0));
    for (const auto& [tag, value] : between) {
      Add(tag, kShort, {static_cast<std::uint64_t>(value)});
    }
    return Add(countsTag, OffsetType(), counts);
  }

  TiffBuilder& SetNextDirectory(std::uint64_t offset) {
    nextDirectory_ = offset;
    return *this;
  }

  // Claims this many entries, whatever the directory really holds.
  TiffBuilder& ClaimEntries(std::uint64_t count) {
    claimedEntries_ = count;
    return *this;
  }

  // Header, directory, values behind it, image data.
  [[nodiscard]] std::string Build() {
    std::uint64_t position = HeaderSize() + DirectorySize();
    for (const Entry& entry : entries_) {
      position += entry.bytes.size() > OffsetSize() ? Even(entry.bytes.size()) : 0;
    }
    PlaceStrips(position);

    std::string directory = Number(ClaimedCount(), CountSize());
    std::string behind;
    for (const Entry& entry : entries_) {
      directory += Number(static_cast<std::uint64_t>(entry.tag), 2) +
                   Number(static_cast<std::uint64_t>(entry.type), 2) +
                   Number(entry.count, OffsetSize());
      if (entry.bytes.size() <= OffsetSize()) {
        directory += Padded(entry.bytes, OffsetSize());
      } else {
        directory += Number(HeaderSize() + DirectorySize() + behind.size(), OffsetSize());
        behind += Padded(entry.bytes, Even(entry.bytes.size()));
      }
    }
    directory += Number(nextDirectory_, OffsetSize());

    std::string file = Header() + directory + behind;
    for (const std::string& strip : strips_) {
      file += strip;
    }
    return file;
  }

  // `size` bytes of a number in the file's byte order.
  [[nodiscard]] std::string Number(std::uint64_t value, std::size_t size) const {
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i) {
      const std::size_t shift = 8 * (form_.isBigEndian ? size - 1 - i : i);
      bytes += static_cast<char>(value >> shift & 0xFFU);
    }
    return bytes;
  }

  [[nodiscard]] std::size_t HeaderSize() const { return form_.isBigTiff ? 16 : 8; }
  [[nodiscard]] std::size_t CountSize() const { return form_.isBigTiff ? 8 : 2; }
  [[nodiscard]] std::size_t EntrySize() const { return form_.isBigTiff ? 20 : 12; }
  [[nodiscard]] std::size_t OffsetSize() const { return form_.isBigTiff ? 8 : 4; }

 private:
  struct Entry {
    int tag;
    int type;
    std::uint64_t count;
    std::string bytes;
  };

  static std::size_t Even(std::size_t size) { return size + size % 2; }
  static std::string Padded(std::string bytes, std::size_t size) {
    bytes.resize(size, '\0');
    return bytes;
  }
  [[nodiscard]] Type OffsetType() const { return form_.isBigTiff ? kLong8 : kLong; }
  [[nodiscard]] std::size_t DirectorySize() const {
    return CountSize() + entries_.size() * EntrySize() + OffsetSize();
  }
  [[nodiscard]] std::uint64_t ClaimedCount() const {
    return claimedEntries_ != 0 ? claimedEntries_ : entries_.size();
  }
  [[nodiscard]] std::string Header() const {
    const std::string order = form_.isBigEndian ? "MM" : "II";
    return form_.isBigTiff ? order + Number(43, 2) + Number(8, 2) + Number(0, 2) + Number(16, 8)
                           : order + Number(42, 2) + Number(8, 4);
  }
  void PlaceStrips(std::uint64_t position) {
    if (strips_.empty()) {
      return;
    }
    std::string offsets;
    for (const std::string& strip : strips_) {
      offsets += Number(position, OffsetSize());
      position += strip.size();
    }
    entries_[stripEntry_].bytes = offsets;
  }

  TiffForm form_;
  std::vector<Entry> entries_;
  std::vector<std::string> strips_;
  std::size_t stripEntry_ = 0;
  std::uint64_t nextDirectory_ = 0;
  std::uint64_t claimedEntries_ = 0;
};

// What an image in one or more strips says of itself (tags of TIFF 6.0, sections 3 to 6).
struct TiffImage {
  int width = 0;
  int height = 0;
  int bitsPerSample = 8;
  int compression = 1;  // none
  int photometric = 1;  // BlackIsZero
  int orientation = 1;
  int samplesPerPixel = 1;
  int rowsPerStrip = 0;  // 0: all rows
  int planarConfiguration = 1;
  int sampleFormat = 1;  // unsigned integer
  int predictor = 0;     // 0: no such entry
};

inline TiffBuilder BuildTiffImage(const TiffImage& image, const std::vector<std::string>& strips,
                                  TiffForm form = {false, false},
                                  const std::string& description = "") {
  const auto number = [](int value) { return static_cast<std::uint64_t>(value); };
  TiffBuilder builder(form);
  builder.Add(256, TiffBuilder::kLong, {number(image.width)})
      .Add(257, TiffBuilder::kLong, {number(image.height)})
      .Add(258, TiffBuilder::kShort,
           std::vector<std::uint64_t>(number(image.samplesPerPixel), number(image.bitsPerSample)))
      .Add(259, TiffBuilder::kShort, {number(image.compression)})
      .Add(262, TiffBuilder::kShort, {number(image.photometric)});
  if (!description.empty()) {
    builder.AddText(270, description);
  }
  const int rows = image.rowsPerStrip != 0 ? image.rowsPerStrip : image.height;
  builder.AddStrips(strips, 273, 279,
                    {{274, image.orientation}, {277, image.samplesPerPixel}, {278, rows}});
  builder.Add(284, TiffBuilder::kShort, {number(image.planarConfiguration)})
      .Add(339, TiffBuilder::kShort,
           std::vector<std::uint64_t>(number(image.samplesPerPixel), number(image.sampleFormat)));
  if (image.predictor != 0) {
    builder.Insert(317, TiffBuilder::kShort, 1, builder.Number(number(image.predictor), 2));
  }
  return builder;
}

}  // namespace project_lumen::test
