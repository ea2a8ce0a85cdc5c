#include "io/raster/JpegEnd.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace project_lumen::io {
namespace {

using namespace std::string_literals;

constexpr const char* kPrefix = "\xFF";

const std::string kStart = "\xFF\xD8";
const std::string kEnd = "\xFF\xD9";
const std::string kScanHeader = "\xFF\xDA\x00\x04zz"s;

bool Reaches(const std::string& bytes) {
  std::istringstream file(bytes);
  return ReachesJpegEnd(file);
}

TEST(ReachesJpegEnd, AStreamWithItsEndIsWhole) {
  EXPECT_TRUE(Reaches(kStart + kScanHeader + "scan data" + kEnd));
}

TEST(ReachesJpegEnd, AStreamCutAnywhereIsNot) {
  const std::string whole = kStart + "\xFF\xE0\x00\x06JFIF"s + kScanHeader + "scan data" + kEnd;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(Reaches(whole.substr(0, length))) << length;
  }
}

TEST(ReachesJpegEnd, AnEndInsideASegmentIsNotTheEnd) {
  // The end of a thumbnail in an APP1 segment.
  const std::string segment = "\xFF\xE1\x00\x06\xFF\xD8\xFF\xD9"s;
  EXPECT_FALSE(Reaches(kStart + segment + kScanHeader + "scan"));
  EXPECT_TRUE(Reaches(kStart + segment + kScanHeader + "scan" + kEnd));
}

TEST(ReachesJpegEnd, StuffedBytesAndRestartMarkersBelongToTheScan) {
  const std::string scan = "a\xFF\x00\xD9"s + "b\xFF\xD0" + "c\xFF\xD7" + "d";
  EXPECT_FALSE(Reaches(kStart + kScanHeader + scan));
  EXPECT_TRUE(Reaches(kStart + kScanHeader + scan + kEnd));
}

TEST(ReachesJpegEnd, SeveralScansAndFillBytesArePassed) {
  EXPECT_TRUE(
      Reaches(kStart + kScanHeader + "first" + kScanHeader + "second" + kPrefix + kPrefix + kEnd));
}

TEST(ReachesJpegEnd, MoreScansThanAnyEncoderWritesAreNotFollowed) {
  std::string scans;
  for (int i = 0; i < 64; ++i) {
    scans += kScanHeader + "scan";
  }
  EXPECT_TRUE(Reaches(kStart + scans + kEnd));
  EXPECT_FALSE(Reaches(kStart + scans + kScanHeader + "scan" + kEnd));
}

TEST(ReachesJpegEnd, WhatFollowsTheEndDoesNotMatter) {
  EXPECT_TRUE(Reaches(kStart + kScanHeader + "scan" + kEnd + "trailing bytes"));
}

}  // namespace
}  // namespace project_lumen::io
