#include "studio/files/PathText.h"

#include <gtest/gtest.h>

namespace project_lumen::studio {
namespace {

TEST(PathText, AFolderWhoseNameBeginsAlikeIsAnother) {
  EXPECT_TRUE(IsWithin("/home/ada/astro/m31.tif", "/home/ada/astro"));
  EXPECT_TRUE(IsWithin("/home/ada/astro", "/home/ada/astro"));
  EXPECT_FALSE(IsWithin("/home/ada/astro2/m31.tif", "/home/ada/astro"));
  EXPECT_FALSE(IsWithin("/home/ada", "/home/ada/astro"));
  EXPECT_TRUE(IsWithin("/etc", "/"));
}

TEST(PathText, SuffixesAreThoseOfImages) {
  EXPECT_EQ(ImageSuffix("m31.FITS.gz"), ".FITS.gz");
  EXPECT_EQ(ImageSuffix("m31.tiff"), ".tiff");
  EXPECT_EQ(ImageSuffix("m31.jpg"), "");
  EXPECT_EQ(ImageSuffix(".tif"), "");
  EXPECT_EQ(NameWithoutSuffix("m31.stack.fits.gz"), "m31.stack");
  EXPECT_EQ(NameWithoutSuffix("m31.jpg"), "m31");
  EXPECT_EQ(NameWithoutSuffix("m31"), "m31");
}

TEST(PathText, FoldersOfPaths) {
  EXPECT_EQ(FolderOf("/a/b"), "/a");
  EXPECT_EQ(FolderOf("/a"), "/");
  EXPECT_EQ(NameIn("/a/b.tif"), "b.tif");
}

TEST(PathText, PlainNames) {
  for (const char* name : {"m31", "m 31_é", "a..b", "-x", "m31[1]"}) {
    EXPECT_TRUE(IsPlainName(name)) << name;
  }
  for (const char* name :
       {"", ".", "..", ".x", "a/b", "a\\b", " a", "a ", "a\n", "\x7f", "a\xff"}) {
    EXPECT_FALSE(IsPlainName(name)) << name;
  }
  EXPECT_TRUE(IsPlainName(std::string(200, 'x')));
  EXPECT_FALSE(IsPlainName(std::string(201, 'x')));
}

}  // namespace
}  // namespace project_lumen::studio
