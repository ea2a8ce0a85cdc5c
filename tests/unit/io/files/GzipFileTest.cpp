#include "io/files/GzipFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

#include "io/files/FileDescriptor.h"
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
  EXPECT_EQ(content.Skip(2000000), 2000000U);
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
  EXPECT_EQ(content.Skip(1), 0U);
  EXPECT_TRUE(content.IsIntact());
}

TEST(GzipContent, PassesOverWhatThereIs) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a"), "abcdef");
  Gzip(folder.Path("a"));
  GzipContent content(folder.Path("a.gz"));
  EXPECT_EQ(content.Skip(4), 4U);
  EXPECT_EQ(content.Skip(4), 2U);
  EXPECT_EQ(content.Take().size(), 6U);
}

TEST(GzipContent, InflatesNothingForAClaimThatTheFileCannotHold) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a"), std::string(100000, '\0'));
  Gzip(folder.Path("a"));
  GzipContent content(folder.Path("a.gz"));
  EXPECT_EQ(content.Skip(std::uint64_t{1} << 40U), 0U);
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

FileDescriptor Open(const std::string& path, int flags = O_RDONLY) {
  return FileDescriptor(open(path.c_str(), flags | O_CLOEXEC, 0600));
}

TEST(CompressFile, TheGzipProgramGetsTheBytesBack) {
  const TemporaryFolder folder;
  for (const std::string& text : {Text(2500000), std::string(), std::string(1048576, 'x')}) {
    WriteFileBytes(folder.Path("plain"), text);
    const FileDescriptor source = Open(folder.Path("plain"));
    const FileDescriptor target = Open(folder.Path("a.gz"), O_RDWR | O_CREAT | O_TRUNC);
    CompressFile(source.Get(), target.Get());
    EXPECT_TRUE(IsGzipFile(folder.Path("a.gz")));
    ASSERT_EQ(std::system(("gzip -dkf '" + folder.Path("a.gz") + "'").c_str()), 0);
    EXPECT_EQ(ReadFileBytes(folder.Path("a")), text);
    EXPECT_EQ(fcntl(target.Get(), F_GETFD), FD_CLOEXEC);
  }
}

TEST(CompressFile, BeginsAtTheStartOfBothFiles) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("plain"), "abc");
  const FileDescriptor source = Open(folder.Path("plain"));
  const FileDescriptor target = Open(folder.Path("a.gz"), O_RDWR | O_CREAT);
  ASSERT_EQ(lseek(source.Get(), 0, SEEK_END), 3);
  ASSERT_EQ(lseek(target.Get(), 100, SEEK_SET), 100);
  CompressFile(source.Get(), target.Get());
  ASSERT_EQ(std::system(("gzip -d '" + folder.Path("a.gz") + "'").c_str()), 0);
  EXPECT_EQ(ReadFileBytes(folder.Path("a")), "abc");
}

TEST(CompressFile, WhatCannotBeReadOrWrittenIsAnError) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a"), "abc");
  const FileDescriptor file = Open(folder.Path("a"));
  EXPECT_THROW(CompressFile(-1, file.Get()), std::system_error);
  EXPECT_THROW(CompressFile(file.Get(), -1), std::system_error);
  EXPECT_THROW(CompressFile(file.Get(), file.Get()), std::system_error);
}

TEST(CompressFile, AFullDiskIsAnError) {
  const TemporaryFolder folder;
  std::string noise;
  unsigned state = 1;
  for (int i = 0; i < 400000; ++i) {
    state = state * 1664525U + 1013904223U;
    noise += static_cast<char>(state >> 24U);
  }
  WriteFileBytes(folder.Path("a"), noise);
  const FileDescriptor source = Open(folder.Path("a"));
  const FileDescriptor target = Open(folder.Path("a.gz"), O_RDWR | O_CREAT);
  const test::FileSizeLimit limit(100000);
  try {
    CompressFile(source.Get(), target.Get());
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().message(), "File too large");
  }
}

}  // namespace
}  // namespace project_lumen::io
