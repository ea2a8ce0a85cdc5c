// AstroTIFF: a FITS header kept as text in a TIFF file's ImageDescription (tag 270), one card a
// line, from the SIMPLE card to the END card.
#pragma once

#include <iosfwd>
#include <string>

namespace project_lumen::io {

// Whether the text begins with "SIMPLE" and its last line, trailing NULs, carriage returns and line
// feeds aside, begins with "END".
bool IsAstroTiffHeader(const std::string& text);

// The AstroTIFF header of a TIFF file, empty when it has none. Throws std::invalid_argument:
// "Unable to open TIFF metadata: PATH" and what ReadTiffLayout throws.
std::string ReadAstroTiffHeader(const std::string& path);

// The same from a seekable binary stream that is open already; `path` is for messages.
std::string ReadAstroTiffHeader(std::istream& file, const std::string& path);

// The header to store with an output of 8 or 16 bits a sample: every line that begins with
// "BITPIX  " becomes "BITPIX  =", 19 blanks and the number, a header without one gets it as its
// second line, and lines end in single line feeds, the last in none. Throws std::invalid_argument:
//   "AstroTIFF metadata must start with SIMPLE and end with END."
//   "AstroTIFF output BITPIX must be 8 or 16."
std::string BuildAstroTiffOutputHeader(const std::string& headerText, int bitpix);

// Makes the header the file's ImageDescription. The text and a new first directory are appended,
// then the file header is pointed at them: image data is neither moved nor rewritten, the rest of
// the directory chain stays linked, and until the last step the file reads as before. The old
// directory and description stay in the file, unreferenced. Throws std::invalid_argument:
//   "AstroTIFF metadata must start with SIMPLE and end with END."
//   "AstroTIFF metadata exceeds the supported 16 MiB limit."
//   "Unable to open TIFF output metadata: PATH"
//   what ReadTiffLayout throws
//   "Classic TIFF output is too large to append AstroTIFF metadata: PATH"
//   "Classic TIFF directory has no room for AstroTIFF metadata: PATH"
//   "Classic TIFF output is too large to append an AstroTIFF directory: PATH"
//   "Unable to append AstroTIFF metadata to PATH"
//   "Unable to activate AstroTIFF metadata in PATH"
// `shownPath` is the path in messages, where that is not the path of the file under construction.
void AppendAstroTiffMetadata(const std::string& path, const std::string& headerText);
void AppendAstroTiffMetadata(const std::string& path, const std::string& headerText,
                             const std::string& shownPath);

// The same in a stream that is open for binary reading and writing.
void AppendAstroTiffMetadata(std::iostream& file, const std::string& headerText,
                             const std::string& shownPath);

}  // namespace project_lumen::io
