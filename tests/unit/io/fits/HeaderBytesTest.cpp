#include "io/fits/HeaderBytes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <opencv2/core.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "io/fits/FitsWriter.h"
#include "support/FitsBytes.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

using test::RawCard;

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// An HDU with a valid CHECKSUM has a sum of all ones (FITS standard 4.0, section 4.4.2.7).
bool HasValidChecksum(const std::string& bytes) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    std::uint64_t word = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      word = word * 256 + static_cast<unsigned char>(bytes[i + k]);
    }
    sum += word;
  }
  while (sum >= 0x100000000) {
    sum = sum % 0x100000000 + sum / 0x100000000;
  }
  return sum == 0xFFFFFFFF;
}

class HeaderBytesTest : public testing::Test {
 protected:
  // A result of a source with these cards.
  std::string Write(const std::vector<std::string>& cards) {
    SourceImageInfo source;
    source.isFits = true;
    source.isGrayscale = true;
    source.fits.naxis = 2;
    source.fits.headerCards = cards;
    const cv::Mat image(40, 50, CV_64FC1, cv::Scalar(0.25));
    WriteFitsOutput(folder_.Path("a.fits"), image, true, &source, OutputRole::kMain, nullptr);
    return ReadFile(folder_.Path("a.fits"));
  }
  test::TemporaryFolder folder_;
};

TEST(HasUnprintableBytes, FindsWhatIsNoPrintableAscii) {
  EXPECT_FALSE(HasUnprintableBytes("BUNIT   = 'Jy      ' ~"));
  EXPECT_TRUE(HasUnprintableBytes("BUNIT   = '\xb5Jy     '"));
  EXPECT_TRUE(HasUnprintableBytes("COMMENT a\tb"));
  EXPECT_TRUE(HasUnprintableBytes("COMMENT \x7f"));
}

TEST_F(HeaderBytesTest, CardsComeOutAsTheyWentIn) {
  const std::vector<std::string> cards = {
      RawCard("BUNIT   = '\xb5Jy     '           / flux"), RawCard("COMMENT plain"),
      RawCard("COMMENT M\xc3\xbcller"), RawCard("COMMENT M\xc3\xb6ller"),
      RawCard("HISTORY tab\there")};
  const std::string bytes = Write(cards);
  std::size_t last = 0;
  for (const std::string& card : cards) {
    const std::size_t found = bytes.find(card);
    ASSERT_NE(found, std::string::npos) << card;
    EXPECT_GT(found, last);
    last = found;
  }
  EXPECT_TRUE(HasValidChecksum(bytes));
}

TEST_F(HeaderBytesTest, AHeaderOfPrintableCharactersIsLeftAlone) {
  const std::string bytes = Write({RawCard("COMMENT plain")});
  RestoreHeaderBytes(folder_.Path("a.fits"), {});
  EXPECT_EQ(ReadFile(folder_.Path("a.fits")), bytes);
  EXPECT_TRUE(HasValidChecksum(bytes));
}

TEST_F(HeaderBytesTest, AFileThatIsNotThereIsAnError) {
  EXPECT_THROW(RestoreHeaderBytes(folder_.Path("missing.fits"), {RawCard("COMMENT \xff")}),
               std::system_error);
}

}  // namespace
}  // namespace project_lumen::io
