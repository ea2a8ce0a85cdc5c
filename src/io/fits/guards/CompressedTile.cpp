#include "io/fits/guards/CompressedTile.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <limits>
#include <vector>

namespace project_lumen::io {
namespace {

// Bits from the most significant down; beyond the end it gives zeros and remembers.
class BitReader {
 public:
  explicit BitReader(TileBytes bytes) : bytes_(bytes) {}

  unsigned Read(unsigned count) {
    unsigned value = 0;
    for (unsigned i = 0; i < count; ++i) {
      value = (value << 1U) | ReadBit();
    }
    return value;
  }

  unsigned ReadBit() {
    const std::uint64_t byte = position_ / 8;
    if (byte >= bytes_.size()) {
      isBeyondEnd_ = true;
      return 0;
    }
    const unsigned bit = (static_cast<unsigned>(bytes_[byte]) >> (7U - position_ % 8U)) & 1U;
    ++position_;
    return bit;
  }

  void Skip(std::uint64_t count) {
    const std::uint64_t left = bytes_.size() * 8U - position_;
    isBeyondEnd_ = isBeyondEnd_ || count > left;
    position_ += std::min(count, left);
  }

  void AlignToByte() { position_ = (position_ + 7U) / 8U * 8U; }
  [[nodiscard]] bool IsBeyondEnd() const { return isBeyondEnd_; }

 private:
  TileBytes bytes_;
  std::uint64_t position_ = 0;
  bool isBeyondEnd_ = false;
};

// --- Rice ---

struct RiceCode {
  unsigned lengthBits;  // of the code length in front of each block
  unsigned directCode;  // the code length that announces plain differences
};

RiceCode RiceCodeFor(int pixelBytes) {
  switch (pixelBytes) {
    case 1:
      return {3, 6};
    case 2:
      return {4, 14};
    default:
      return {5, 25};
  }
}

// One block: its code length less one (-1 for "no differences"), then one code a pixel.
void SkipRiceBlock(BitReader& bits, std::uint64_t pixels, const RiceCode& code) {
  const unsigned length = bits.Read(code.lengthBits);
  if (length == 0) {
    return;
  }
  if (length - 1 == code.directCode) {
    bits.Skip(pixels << code.lengthBits);
    return;
  }
  for (std::uint64_t i = 0; i < pixels && !bits.IsBeyondEnd(); ++i) {
    while (bits.ReadBit() == 0 && !bits.IsBeyondEnd()) {
    }
    bits.Skip(length - 1);
  }
}

// --- H-compress ---

// The code of the quadtree's nybbles: three to six bits.
unsigned ReadQuadtreeCode(BitReader& bits) {
  unsigned code = bits.Read(3);
  if (code < 4) {
    return 1U << code;
  }
  constexpr std::array<unsigned, 5> kFourBits{3, 5, 10, 12, 15};
  code = (code << 1U) | bits.ReadBit();
  if (code < 13) {
    return kFourBits[code - 8];
  }
  constexpr std::array<unsigned, 5> kFiveBits{6, 7, 9, 11, 13};
  code = (code << 1U) | bits.ReadBit();
  if (code < 31) {
    return kFiveBits[code - 26];
  }
  return bits.ReadBit() == 0 ? 0 : 14;
}

struct Extent {
  std::size_t rows;
  std::size_t columns;

  [[nodiscard]] Extent Halved() const { return {(rows + 1) / 2, (columns + 1) / 2}; }
  [[nodiscard]] std::size_t Count() const { return rows * columns; }
};

using Nybbles = std::vector<unsigned char>;

// Calls `set(row, column)` for each bit that is set in the nybbles of 2 x 2 blocks.
template <typename Set>
void ForEachSetBit(const Nybbles& nybbles, const Extent& target, const Set& set) {
  const std::size_t blockColumns = target.Halved().columns;
  for (std::size_t r = 0; r < target.rows; ++r) {
    for (std::size_t c = 0; c < target.columns; ++c) {
      const unsigned shift = (r % 2 == 0 ? 2U : 0U) + (c % 2 == 0 ? 1U : 0U);
      if (((nybbles[r / 2 * blockColumns + c / 2] >> shift) & 1U) != 0) {
        set(r, c);
      }
    }
  }
}

// One step down the tree: each set bit is followed by a nybble of its own, from the last backwards.
Nybbles ExpandQuadtree(BitReader& bits, const Nybbles& parents, const Extent& target) {
  Nybbles children(target.Count());
  ForEachSetBit(parents, target,
                [&](std::size_t r, std::size_t c) { children[r * target.columns + c] = 1; });
  for (auto child = children.rbegin(); child != children.rend() && !bits.IsBeyondEnd(); ++child) {
    if (*child != 0) {
      *child = static_cast<unsigned char>(ReadQuadtreeCode(bits));
    }
  }
  return children;
}

// The nybbles of one bit plane of a quadrant; empty when the plane has no known form.
Nybbles ReadBitPlane(BitReader& bits, const Extent& quadrant) {
  constexpr unsigned kDirect = 0;
  constexpr unsigned kQuadtree = 15;
  const Extent blocks = quadrant.Halved();
  const unsigned form = bits.Read(4);
  if (form == kDirect) {
    Nybbles nybbles(blocks.Count());
    for (auto nybble = nybbles.begin(); nybble != nybbles.end() && !bits.IsBeyondEnd(); ++nybble) {
      *nybble = static_cast<unsigned char>(bits.Read(4));
    }
    return nybbles;
  }
  if (form != kQuadtree) {
    return {};
  }
  std::vector<Extent> levels{blocks};
  while (levels.back().Count() > 1) {
    levels.push_back(levels.back().Halved());
  }
  Nybbles nybbles{static_cast<unsigned char>(ReadQuadtreeCode(bits))};
  for (auto level = levels.rbegin() + 1; level != levels.rend() && !bits.IsBeyondEnd(); ++level) {
    nybbles = ExpandQuadtree(bits, nybbles, *level);
  }
  return nybbles;
}

// Follows a quadrant's bit planes and counts its coefficients that are not zero, whose signs come
// later. False for planes that cannot be read.
bool FollowQuadrant(BitReader& bits, const Extent& quadrant, int planes, std::uint64_t& nonzero) {
  if (quadrant.Count() == 0) {
    return planes == 0;
  }
  std::vector<bool> isNonzero(planes == 0 ? 0 : quadrant.Count());
  for (int plane = 0; plane < planes; ++plane) {
    const Nybbles nybbles = ReadBitPlane(bits, quadrant);
    if (nybbles.empty() || bits.IsBeyondEnd()) {
      return false;
    }
    ForEachSetBit(nybbles, quadrant, [&](std::size_t r, std::size_t c) {
      isNonzero[r * quadrant.columns + c] = true;
    });
  }
  nonzero += static_cast<std::uint64_t>(std::count(isNonzero.begin(), isNonzero.end(), true));
  return true;
}

}  // namespace

std::optional<std::uint64_t> GzipTileSize(TileBytes bytes, std::uint64_t most) {
  constexpr int kGzipWindow = 15 + 16;
  z_stream stream{};
  if (bytes.size() > std::numeric_limits<uInt>::max() ||
      inflateInit2(&stream, kGzipWindow) != Z_OK) {
    return std::nullopt;
  }
  std::vector<unsigned char> scratch(std::size_t{1} << 16U);
  // zlib's input pointer is not const in older versions; it only reads.
  stream.next_in = const_cast<unsigned char*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  int result = Z_OK;
  while (result == Z_OK && stream.total_out <= most) {
    stream.next_out = scratch.data();
    stream.avail_out = static_cast<uInt>(scratch.size());
    result = inflate(&stream, Z_NO_FLUSH);
  }
  const std::uint64_t size = stream.total_out;
  inflateEnd(&stream);
  return result == Z_STREAM_END && size <= most ? std::optional(size) : std::nullopt;
}

bool IsRiceTile(TileBytes bytes, std::uint64_t pixels, int pixelBytes, int blockPixels) {
  const RiceCode code = RiceCodeFor(pixelBytes);
  const auto block = static_cast<std::uint64_t>(blockPixels);
  BitReader bits(bytes);
  bits.Skip(8U * (std::uint64_t{1} << (code.lengthBits - 3U)));  // the first pixel as it is
  for (std::uint64_t i = 0; i < pixels && !bits.IsBeyondEnd(); i += block) {
    SkipRiceBlock(bits, std::min(block, pixels - i), code);
  }
  return !bits.IsBeyondEnd();
}

bool IsPlioTile(std::span<const std::int16_t> words) {
  constexpr int kSetHighOpcode = 1;  // takes a second word
  if (words.size() < 3) {
    return false;
  }
  const bool isOldForm = words[2] > 0;
  if (!isOldForm && words.size() < 5) {
    return false;
  }
  const std::int64_t length =
      isOldForm ? words[2] : (static_cast<std::int64_t>(words[4]) << 15U) + words[3];
  const std::int64_t first = isOldForm ? 4 : static_cast<std::int64_t>(words[1]) + 1;
  const auto count = static_cast<std::int64_t>(words.size());
  if (length <= 0) {
    return true;
  }
  if (first < 1 || length > count) {
    return false;
  }
  const bool endsInsideCode =
      length == count && words[static_cast<std::size_t>(length) - 1] / 4096 == kSetHighOpcode;
  return !endsInsideCode;
}

bool IsHcompressTile(TileBytes bytes, std::uint64_t pixels, int maximumBits) {
  // Magic code, rows, columns, scale, sum of all pixels, bit planes of three kinds of quadrants
  constexpr std::size_t kHeaderBytes = 2 + 4 + 4 + 4 + 8 + 3;
  if (bytes.size() < kHeaderBytes || bytes[0] != 0xDD || bytes[1] != 0x99) {
    return false;
  }
  BitReader header(bytes.subspan(2));
  const std::uint64_t rows = header.Read(32);
  const std::uint64_t columns = header.Read(32);
  if (rows == 0 || columns == 0 || rows > pixels || columns > pixels || rows * columns != pixels) {
    return false;
  }
  const TileBytes planes = bytes.subspan(kHeaderBytes - 3, 3);
  if (std::any_of(planes.begin(), planes.end(), [&](unsigned char n) { return n > maximumBits; })) {
    return false;
  }
  BitReader bits(bytes.subspan(kHeaderBytes));
  const Extent whole{static_cast<std::size_t>(rows), static_cast<std::size_t>(columns)};
  const Extent half = whole.Halved();
  std::uint64_t nonzero = 0;
  const bool isReadable =
      FollowQuadrant(bits, half, planes[0], nonzero) &&
      FollowQuadrant(bits, {half.rows, whole.columns / 2}, planes[1], nonzero) &&
      FollowQuadrant(bits, {whole.rows / 2, half.columns}, planes[1], nonzero) &&
      FollowQuadrant(bits, {whole.rows / 2, whole.columns / 2}, planes[2], nonzero);
  if (!isReadable || bits.Read(4) != 0) {
    return false;
  }
  bits.AlignToByte();
  bits.Skip(nonzero);
  return !bits.IsBeyondEnd();
}

}  // namespace project_lumen::io
