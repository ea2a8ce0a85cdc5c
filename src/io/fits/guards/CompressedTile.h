// Checks compressed tiles before CFITSIO expands them. Each check follows the decoder bit by bit,
// without producing pixels.
//
// What the decoders of CFITSIO 4.2.0 do with damage, seen in its source. Whether a later version
// has mended any of these is not known.
//   truncated gzip tile         "needs more room" and "needs more input" are one status of zlib: it
//                               grows its buffer for ever (uncompress2mem_from_mem)
//   Rice tile that ends early   reads on while it looks for the end of a code; the check comes
//   after
//                               the block (fits_rdecomp and its siblings)
//   PLIO list longer than its   reads as many words as the list claims, from where it claims to
//   begin words                       (pl_l2pi) H-compressed tile of other  writes as many pixels
//   as the stream claims, and takes its bytes from dimensions, or truncated    wherever it has come
//   to (fits_hdecompress)
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace project_lumen::io {

using TileBytes = std::span<const unsigned char>;

// The bytes that a gzip stream (RFC 1952) holds once inflated; none for a broken one, or for more
// bytes than `most`.
std::optional<std::uint64_t> GzipTileSize(TileBytes bytes, std::uint64_t most);

// A Rice-coded tile of integers (FITS standard 4.0, section 10.4.1): `pixelBytes` is 1, 2 or 4, a
// block holds `blockPixels` pixels that share a code length.
bool IsRiceTile(TileBytes bytes, std::uint64_t pixels, int pixelBytes, int blockPixels);

// A PLIO line list (section 10.4.3), in the machine's byte order, that lies within its words.
bool IsPlioTile(std::span<const std::int16_t> words);

// An H-compressed tile (section 10.4.4; quadtree coding of bit planes after White, Postman and
// Lattanzi 1992) of that many pixels. `maximumBits` is the width of the decoder's integers.
bool IsHcompressTile(TileBytes bytes, std::uint64_t pixels, int maximumBits);

}  // namespace project_lumen::io
