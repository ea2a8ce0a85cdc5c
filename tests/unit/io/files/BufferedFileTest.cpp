#include "io/files/BufferedFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>
#include <system_error>

#include "io/files/FileDescriptor.h"
#include "support/FileSizeLimit.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

class BufferedFileTest : public testing::Test {
 protected:
  static bool Write(BufferedFile& file, std::uint64_t offset, const std::string& bytes) {
    return file.Write(offset, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  }
  [[nodiscard]] std::string Content() const { return test::ReadFileBytes(folder_.Path("a")); }

  test::TemporaryFolder folder_;
  FileDescriptor descriptor_{open(folder_.Path("a").c_str(), O_RDWR | O_CREAT, 0600)};
};

TEST_F(BufferedFileTest, BytesComeWhereTheyBelong) {
  BufferedFile file(descriptor_.Get());
  EXPECT_TRUE(Write(file, 0, "head"));
  EXPECT_TRUE(Write(file, 4, "body"));
  EXPECT_TRUE(Write(file, 1, "EA"));
  EXPECT_TRUE(Write(file, 10, "tail"));
  EXPECT_EQ(file.Size(), 14U);
  EXPECT_TRUE(file.Flush());
  EXPECT_EQ(Content(), std::string("hEAdbody\0\0tail", 14));
}

TEST_F(BufferedFileTest, PiecesOfAnySizeFollowEachOther) {
  BufferedFile file(descriptor_.Get());
  std::string expected;
  for (const std::size_t size : {10U, 1'048'576U, 1'048'577U, 5U, 3'000'000U, 700'000U, 700'000U}) {
    const std::string bytes(size, static_cast<char>('a' + size % 26));
    EXPECT_TRUE(Write(file, expected.size(), bytes));
    expected += bytes;
  }
  EXPECT_TRUE(file.Flush());
  EXPECT_TRUE(Content() == expected);
}

TEST_F(BufferedFileTest, AnErrorIsKept) {
  const test::FileSizeLimit limit(1000);
  BufferedFile file(descriptor_.Get());
  EXPECT_TRUE(Write(file, 0, std::string(2000, 'x')));
  EXPECT_FALSE(file.Flush());
  EXPECT_EQ(file.Error(), std::errc::file_too_large);
  EXPECT_FALSE(Write(file, 0, "x"));
  EXPECT_FALSE(file.Flush());
}

}  // namespace
}  // namespace project_lumen::io
