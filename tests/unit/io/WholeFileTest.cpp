#include "io/WholeFile.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

using test::TemporaryFolder;

TEST(ReadWholeFile, HoldsEveryByte) {
  const TemporaryFolder folder;
  const std::string bytes = std::string(100000, 'x') + std::string("\0\xFF\n", 3);
  test::WriteFileBytes(folder.Path("a"), bytes);
  const std::optional<WholeFile> file = ReadWholeFile(folder.Path("a"), bytes.size());
  ASSERT_TRUE(file);
  EXPECT_EQ(std::string(file->bytes.get(), file->bytes.get() + file->size), bytes);
}

TEST(ReadWholeFile, HasAnUpperLimit) {
  const TemporaryFolder folder;
  test::WriteFileBytes(folder.Path("a"), "12345");
  EXPECT_TRUE(ReadWholeFile(folder.Path("a"), 5));
  EXPECT_FALSE(ReadWholeFile(folder.Path("a"), 4));
}

TEST(ReadWholeFile, NoneOfWhatCannotBeRead) {
  const TemporaryFolder folder;
  test::WriteFileBytes(folder.Path("empty"), "");
  EXPECT_FALSE(ReadWholeFile(folder.Path("empty"), 100));
  EXPECT_FALSE(ReadWholeFile(folder.Path("missing"), 100));
  EXPECT_FALSE(ReadWholeFile(folder.Path(""), 100));
}

}  // namespace
}  // namespace project_lumen::io
