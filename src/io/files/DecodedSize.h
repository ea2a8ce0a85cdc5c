// How much a file may claim to hold.
#pragma once

#include <cstdint>

namespace project_lumen::io {

// The largest image, in bytes, that is expected in a file of this size: 4096 times as much, the
// most that LZW can pack, and 64 MiB in any case.
std::uint64_t LargestDecodedSize(std::uint64_t fileSize);

// Whether an image of these sides is one that is read at all: at least one pixel, at most 2^20
// pixels a side and 2^30 in all.
bool IsReadableSize(std::uint64_t width, std::uint64_t height);

}  // namespace project_lumen::io
