#include "io/MemoryFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace project_lumen::io {
namespace {

TEST(MemoryFile, HoldsTheBytesWhileItLives) {
  const std::string bytes("II*\0 and more", 13);
  WholeFile whole{std::make_unique<unsigned char[]>(bytes.size()), bytes.size()};
  std::copy(bytes.begin(), bytes.end(), whole.bytes.get());

  auto file = std::make_unique<MemoryFile>(whole);
  const std::string path = file->Path();
  ASSERT_FALSE(path.empty());
  std::ifstream stream(path, std::ios::binary);
  const std::string seen{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_EQ(seen, bytes);
  stream.close();

  file.reset();
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace project_lumen::io
