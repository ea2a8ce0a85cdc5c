// Header bytes that CFITSIO does not write.
//
// It puts a blank in the place of every byte of a card that is no printable ASCII (4.2 and 4.5 do),
// so "µJy" or an observer's name would lose letters. FITS forbids such bytes (standard 4.0, section
// 3.3), but files have them, and a header comes out as it went in.
#pragma once

#include <string>
#include <vector>

namespace project_lumen::io {

// Whether CFITSIO would change the card.
bool HasUnprintableBytes(const std::string& card);

// Gives the cards of the file's primary header their bytes back. `cards` are those that
// HasUnprintableBytes, each as it was handed to CFITSIO, in their order; the file is closed, and a
// CHECKSUM card of its header is made to fit again (standard 4.0, appendix J). Throws
// std::system_error where the file cannot be read or written.
void RestoreHeaderBytes(const std::string& path, const std::vector<std::string>& cards);

}  // namespace project_lumen::io
