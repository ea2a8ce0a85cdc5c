// Checks compressed tiles before CFITSIO expands them. CFITSIO 4.2 expects its own output: a
// truncated gzip tile makes it allocate for ever, a damaged tile of another kind makes it read or
// write beyond its buffers. Each check follows the decoder bit by bit, without producing pixels.
#pragma once

#include <cstdint>
#include <span>

namespace project_lumen::io {

using TileBytes = std::span<const unsigned char>;

// A gzip stream (RFC 1952) of exactly `size` bytes once inflated.
bool IsGzipTile(TileBytes bytes, std::uint64_t size);

// A Rice-coded tile of integers (FITS standard 4.0, section 10.4.1): `pixelBytes` is 1, 2 or 4, a
// block holds `blockPixels` pixels that share a code length.
bool IsRiceTile(TileBytes bytes, std::uint64_t pixels, int pixelBytes, int blockPixels);

// A PLIO line list (section 10.4.3), in the machine's byte order, that lies within its words.
bool IsPlioTile(std::span<const std::int16_t> words);

// An H-compressed tile (section 10.4.4; quadtree coding of bit planes after White, Postman and
// Lattanzi 1992) of that many pixels. `maximumBits` is the width of the decoder's integers.
bool IsHcompressTile(TileBytes bytes, std::uint64_t pixels, int maximumBits);

}  // namespace project_lumen::io
