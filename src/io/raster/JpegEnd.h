// Whether a JPEG file is there to its end.
#pragma once

#include <iosfwd>

namespace project_lumen::io {

// Walks the segments and scans of a JPEG stream (ITU-T T.81, annex B) from its start and says
// whether they lead to the EOI marker. libjpeg decodes a file that breaks off as if the rest were
// grey, with no more than a message on standard error.
//
// Also false for more than 64 scans: each goes over the whole image, however few bytes it has, so
// that a small file could keep the decoder busy for hours. Encoders use about ten.
bool ReachesJpegEnd(std::istream& file);

}  // namespace project_lumen::io
