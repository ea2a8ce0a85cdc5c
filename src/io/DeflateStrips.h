// Whether the compressed data of a TIFF file is what was written.
#pragma once

#include <string>

namespace project_lumen::io {

// Whether no strip or tile of the file's first image contradicts itself as a zlib stream (RFC
// 1950): codes that do not exist, or a checksum that is not that of the content. libtiff is content
// with whatever gives enough bytes. Only for files with Deflate compression; what lies outside of
// the file, lacks its end or shares its bytes with others is left to the decoder.
bool AreSoundDeflateStrips(const std::string& path);

}  // namespace project_lumen::io
