#include "io/GzipFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

#include "support/FileSizeLimit.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

using test::ReadFileBytes;
using test::TemporaryFolder;
using test::WriteFileBytes;

// The gzip program, not the code under test, makes and takes apart.
void Gzip(const std::string& path) {
  ASSERT_EQ(std::system(("gzip -f '" + path + "'").c_str()), 0);
}

std::string Text(std::size_t size) {
  std::string text;
  for (std::size_t i = 0; text.size() < size; ++i) {
    text += std::to_string(i * 7919 % 1000) + ' ';
  }
  text.resize(size);
  return text;
}

TEST(GzipFile, IsKnownByItsFirstTwoBytes) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a"), "\x1F\x8B...");
  WriteFileBytes(folder.Path("b"), "SIMPLE");
  WriteFileBytes(folder.Path("c"), "\x1F");
  EXPECT_TRUE(IsGzipFile(folder.Path("a")));
  EXPECT_FALSE(IsGzipFile(folder.Path("b")));
  EXPECT_FALSE(IsGzipFile(folder.Path("c")));
  EXPECT_FALSE(IsGzipFile(folder.Path("missing")));
}

TEST(GzipContent, KeepsWhatIsReadAndSkipped) {
  const TemporaryFolder folder;
  const std::string text = Text(3000000);
  WriteFileBytes(folder.Path("a"), text);
  Gzip(folder.Path("a"));
  GzipContent content(folder.Path("a.gz"));
  std::string start(10, ' ');
  EXPECT_EQ(content.Read(start.data(), 10), 10U);
  EXPECT_EQ(start, text.substr(0, 10));
  EXPECT_TRUE(content.Skip(2000000));
  EXPECT_TRUE(content.IsIntact());
  const std::vector<char> kept = content.Take();
  EXPECT_EQ(std::string(kept.begin(), kept.end()), text.substr(0, 2000010));
}

TEST(GzipContent, TheEndIsShort) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a"), "abc");
  Gzip(folder.Path("a"));
  GzipContent content(folder.Path("a.gz"));
  std::string text(10, ' ');
  EXPECT_EQ(content.Read(text.data(), 10), 3U);
  EXPECT_FALSE(content.Skip(1));
  EXPECT_TRUE(content.IsIntact());
}

TEST(GzipContent, InflatesNothingForAClaimThatTheFileCannotHold) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a"), std::string(100000, '\0'));
  Gzip(folder.Path("a"));
  GzipContent content(folder.Path("a.gz"));
  EXPECT_FALSE(content.Skip(std::uint64_t{1} << 40U));
  EXPECT_TRUE(content.Take().empty());
}

TEST(GzipContent, TruncationAndDamageAreSeen) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a"), Text(50000));
  Gzip(folder.Path("a"));
  const std::string whole = ReadFileBytes(folder.Path("a.gz"));
  std::string damaged = whole;
  damaged[whole.size() - 6] ^= 0x10;  // within the CRC
  for (const std::string& bytes :
       {whole.substr(0, whole.size() - 1), whole.substr(0, 500), whole.substr(0, 2), damaged}) {
    WriteFileBytes(folder.Path("b.gz"), bytes);
    EXPECT_FALSE(GzipContent(folder.Path("b.gz")).IsIntact()) << bytes.size();
  }
  WriteFileBytes(folder.Path("b.gz"), whole);
  EXPECT_TRUE(GzipContent(folder.Path("b.gz")).IsIntact());
  EXPECT_FALSE(GzipContent(folder.Path("missing.gz")).IsIntact());
}

TEST(CompressFileInPlace, TheGzipProgramGetsTheBytesBack) {
  const TemporaryFolder folder;
  for (const std::string& text : {Text(2500000), std::string(), std::string(1048576, 'x')}) {
    WriteFileBytes(folder.Path("a.gz"), text);
    CompressFileInPlace(folder.Path("a.gz"));
    EXPECT_TRUE(IsGzipFile(folder.Path("a.gz")));
    ASSERT_EQ(std::system(("gzip -dk '" + folder.Path("a.gz") + "'").c_str()), 0);
    EXPECT_EQ(ReadFileBytes(folder.Path("a")), text);
    EXPECT_EQ(folder.FileCount(), 2);
    std::filesystem::remove(folder.Path("a"));
  }
}

TEST(CompressFileInPlace, AMissingFileIsAnError) {
  const TemporaryFolder folder;
  EXPECT_THROW(CompressFileInPlace(folder.Path("missing.gz")), std::system_error);
}

TEST(CompressFileInPlace, AFullDiskIsAnError) {
  const TemporaryFolder folder;
  std::string noise;
  unsigned state = 1;
  for (int i = 0; i < 400000; ++i) {
    state = state * 1664525U + 1013904223U;
    noise += static_cast<char>(state >> 24U);
  }
  WriteFileBytes(folder.Path("a.gz"), noise);
  const test::FileSizeLimit limit(100000);
  try {
    CompressFileInPlace(folder.Path("a.gz"));
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().message(), "File too large");
  }
}

}  // namespace
}  // namespace project_lumen::io
