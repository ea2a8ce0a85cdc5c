#include "io/raster/JpegEnd.h"

#include <istream>
#include <limits>

namespace project_lumen::io {
namespace {

constexpr int kMarkerPrefix = 0xFF;
constexpr int kStuffedByte = 0x00;
constexpr int kTemporaryMarker = 0x01;
constexpr int kFirstRestartMarker = 0xD0;
constexpr int kStartOfImage = 0xD8;
constexpr int kEndOfImage = 0xD9;
constexpr int kStartOfScan = 0xDA;
constexpr int kMostScans = 64;
constexpr int kEndOfFile = std::istream::traits_type::eof();

// RSTn and SOI follow each other in code; TEM stands apart. None has a segment.
bool StandsAlone(int marker) {
  return marker == kTemporaryMarker || (marker >= kFirstRestartMarker && marker <= kStartOfImage);
}

// The code of the next marker, kEndOfFile when there is none. Scan data is passed over on the way:
// in it the prefix is always followed by a stuffed zero or a restart marker.
int NextMarker(std::istream& file) {
  for (;;) {
    file.ignore(std::numeric_limits<std::streamsize>::max(), kMarkerPrefix);
    int code = kMarkerPrefix;
    while (code == kMarkerPrefix) {
      code = file.get();
    }
    if (code != kStuffedByte) {
      return code;
    }
  }
}

void SkipSegment(std::istream& file) {
  constexpr int kLengthBytes = 2;
  const int high = file.get();
  const int low = file.get();
  if (file) {
    file.ignore(high * 256 + low - kLengthBytes);
  }
}

}  // namespace

bool ReachesJpegEnd(std::istream& file) {
  int scans = 0;
  for (int marker = NextMarker(file); marker != kEndOfFile && scans <= kMostScans;
       marker = NextMarker(file)) {
    if (marker == kEndOfImage) {
      return true;
    }
    scans += marker == kStartOfScan ? 1 : 0;
    if (!StandsAlone(marker)) {
      SkipSegment(file);
    }
  }
  return false;
}

}  // namespace project_lumen::io
