#include "studio/files/Workspace.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <stdexcept>

#include "studio/http/ApiError.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::studio {
namespace {

namespace fs = std::filesystem;

class Workspaces : public testing::Test {
 protected:
  Workspaces() {
    fs::create_directories(folder_.Path("in/sub"));
    fs::create_directories(folder_.Path("inner"));
    test::WriteFileBytes(folder_.Path("in/a.tif"), "a");
    test::WriteFileBytes(folder_.Path("inner/b.tif"), "b");
    root_ = workspace_.AddRoot(folder_.Path("in"));
  }

  static int StatusOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const ApiError& error) {
      return error.Status();
    }
    return 200;
  }
  int StatusOfFile(const std::string& path) {
    return StatusOf([&] { static_cast<void>(workspace_.OpenFile(workspace_.FileId(path))); });
  }

  test::TemporaryFolder folder_;
  Workspace workspace_;
  std::string root_;
};

TEST_F(Workspaces, OpenWhatLiesInTheRoot) {
  EXPECT_EQ(StatusOfFile(folder_.Path("in/a.tif")), 200);
  EXPECT_EQ(StatusOfFile(folder_.Path("in/sub/../a.tif")), 200);
  EXPECT_EQ(StatusOfFile(folder_.Path("in/missing.tif")), 404);
  EXPECT_EQ(StatusOfFile(folder_.Path("in/sub")), 400);
}

TEST_F(Workspaces, RefuseWhatLiesOutside) {
  EXPECT_EQ(StatusOfFile(folder_.Path("inner/b.tif")), 403);
  EXPECT_EQ(StatusOfFile(folder_.Path("in/../inner/b.tif")), 403);
  EXPECT_EQ(StatusOfFile("/etc/passwd"), 403);
  fs::create_symlink(folder_.Path("inner/b.tif"), folder_.Path("in/link.tif"));
  EXPECT_EQ(StatusOfFile(folder_.Path("in/link.tif")), 403);
  fs::create_symlink("../inner", folder_.Path("in/linked"));
  EXPECT_EQ(StatusOfFile(folder_.Path("in/linked/b.tif")), 403);
}

TEST_F(Workspaces, UnknownIdsAreNothing) {
  for (const char* id : {"", "f", "f0", "d1", "x1", "f999", "/etc/passwd"}) {
    EXPECT_EQ(StatusOf([&] { static_cast<void>(workspace_.OpenFile(id)); }), 404) << id;
  }
}

TEST_F(Workspaces, AnOpenedFileIsTheSameWhateverItsNameLeadsToLater) {
  const OpenedFile file = workspace_.OpenFile(workspace_.FileId(folder_.Path("in/a.tif")));
  fs::rename(folder_.Path("inner/b.tif"), folder_.Path("in/a.tif"));
  const NameOfOpenedFile name(folder_.Path("in"), file);
  EXPECT_TRUE(name.Path().ends_with("/a.tif"));
  EXPECT_EQ(test::ReadFileBytes(name.Path()), "a");
}

TEST_F(Workspaces, ListFoldersFirst) {
  fs::create_symlink(folder_.Path("inner/b.tif"), folder_.Path("in/link.tif"));
  test::WriteFileBytes(folder_.Path("in/.hidden.tif"), "");
  test::WriteFileBytes(folder_.Path("in/notes.txt"), "");
  const FolderListing listing = workspace_.List(root_, 100);
  ASSERT_EQ(listing.entries.size(), 3U);
  EXPECT_EQ(listing.entries[0].name, "sub");
  EXPECT_EQ(listing.entries[1].name, "a.tif");
  EXPECT_EQ(listing.entries[1].kind, FolderEntry::Kind::kImage);
  EXPECT_EQ(listing.entries[2].kind, FolderEntry::Kind::kFile);
  EXPECT_FALSE(listing.parent);
  EXPECT_FALSE(listing.isTruncated);
  EXPECT_TRUE(workspace_.List(root_, 2).isTruncated);
}

TEST_F(Workspaces, RootsAreFolders) {
  EXPECT_THROW(workspace_.AddRoot(folder_.Path("in/a.tif")), std::invalid_argument);
  EXPECT_THROW(workspace_.AddRoot(folder_.Path("nowhere")), std::invalid_argument);
  EXPECT_EQ(workspace_.AddRoot(folder_.Path("in/")), root_);
  EXPECT_EQ(workspace_.Roots(), std::vector<std::string>{root_});
}

}  // namespace
}  // namespace project_lumen::studio
