#include "io/files/WholeFile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <string>

namespace project_lumen::io {
namespace {

std::optional<WholeFile> Read(const std::string& bytes, std::size_t largest) {
  std::istringstream file(bytes);
  return ReadWholeFile(file, largest);
}

TEST(ReadWholeFile, HoldsEveryByte) {
  const std::string bytes = std::string(100000, 'x') + std::string("\0\xFF\n", 3);
  const std::optional<WholeFile> file = Read(bytes, bytes.size());
  ASSERT_TRUE(file);
  EXPECT_EQ(std::string(file->Bytes().begin(), file->Bytes().end()), bytes);
}

TEST(ReadWholeFile, BeginsAtTheBeginningWhereverTheStreamIs) {
  std::istringstream file("12345");
  file.seekg(3);
  EXPECT_EQ(ReadWholeFile(file, 5)->size, 5U);
}

TEST(ReadWholeFile, HasAnUpperLimit) {
  EXPECT_TRUE(Read("12345", 5));
  EXPECT_FALSE(Read("12345", 4));
}

TEST(ReadWholeFile, NoneOfWhatCannotBeRead) {
  EXPECT_FALSE(Read("", 100));
  std::ifstream missing("missing/file", std::ios::binary);
  EXPECT_FALSE(ReadWholeFile(missing, 100));
}

}  // namespace
}  // namespace project_lumen::io
