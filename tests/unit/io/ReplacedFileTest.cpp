#include "io/ReplacedFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace project_lumen::io {
namespace {

namespace fs = std::filesystem;

class ReplacedFileTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "/replacedXXXXXX";
    folder_ = mkdtemp(pattern.data());
  }
  void TearDown() override { fs::remove_all(folder_); }

  [[nodiscard]] std::string Path(const std::string& name) const { return folder_ / name; }
  [[nodiscard]] long FileCount() const {
    return std::distance(fs::directory_iterator(folder_), fs::directory_iterator());
  }
  static void Write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static void ExpectFailure(const std::string& target, ReplacementError::Step step,
                            const std::string& reason) {
    try {
      const ReplacedFile file(target);
      FAIL() << "no exception";
    } catch (const ReplacementError& error) {
      EXPECT_EQ(error.FailedStep(), step);
      EXPECT_EQ(std::string(error.what()), reason);
    }
  }

  fs::path folder_;
};

TEST_F(ReplacedFileTest, CommitPutsTheNewFileInPlace) {
  ReplacedFile file(Path("a.tif"));
  Write(file.TemporaryPath(), "new");
  EXPECT_FALSE(fs::exists(Path("a.tif")));
  file.Commit();
  EXPECT_EQ(Read(Path("a.tif")), "new");
  EXPECT_EQ(FileCount(), 1);
}

TEST_F(ReplacedFileTest, TheOldFileSurvivesUntilCommit) {
  Write(Path("a.tif"), "old");
  ReplacedFile file(Path("a.tif"));
  Write(file.TemporaryPath(), "new");
  EXPECT_EQ(Read(Path("a.tif")), "old");
  file.Commit();
  EXPECT_EQ(Read(Path("a.tif")), "new");
}

TEST_F(ReplacedFileTest, WithoutCommitNothingIsLeft) {
  Write(Path("a.tif"), "old");
  {
    const ReplacedFile file(Path("a.tif"));
    Write(file.TemporaryPath(), "half");
  }
  EXPECT_EQ(Read(Path("a.tif")), "old");
  EXPECT_EQ(FileCount(), 1);
}

TEST_F(ReplacedFileTest, TemporaryNameKeepsTheExtensionAndTheFolder) {
  for (const auto& [name, extension] : {std::pair("a.TIFF", ".TIFF"),
                                        {"m 31[1].fits", ".fits"},
                                        {"a.fits.gz", ".fits.gz"},
                                        {"plain", ""}}) {
    const ReplacedFile file(Path(name));
    const fs::path temporary = file.TemporaryPath();
    EXPECT_EQ(temporary.parent_path(), folder_);
    EXPECT_TRUE(temporary.filename().string().ends_with(extension));
    EXPECT_TRUE(temporary.filename().string().starts_with(".nebulex2-"));
  }
}

TEST_F(ReplacedFileTest, TwoFilesUnderConstructionDoNotMeet) {
  const ReplacedFile first(Path("a.tif"));
  const ReplacedFile second(Path("b.tif"));
  EXPECT_NE(first.TemporaryPath(), second.TemporaryPath());
}

TEST_F(ReplacedFileTest, LeftoversOfAnEarlierProcessWithTheSameNumberStay) {
  std::string leftover = ReplacedFile(Path("a.tif")).TemporaryPath();
  const std::string end = ".tif";
  const std::size_t digits = leftover.rfind('-') + 1;
  const int number = std::stoi(leftover.substr(digits)) + 1;
  leftover.replace(digits, std::string::npos, std::to_string(number) + end);
  Write(leftover, "left");
  ReplacedFile file(Path("a.tif"));
  EXPECT_NE(file.TemporaryPath(), leftover);
  Write(file.TemporaryPath(), "new");
  file.Commit();
  EXPECT_EQ(Read(Path("a.tif")), "new");
  EXPECT_EQ(Read(leftover), "left");
}

TEST_F(ReplacedFileTest, PermissionsOfTheReplacedFileStay) {
  Write(Path("a.tif"), "old");
  fs::permissions(Path("a.tif"), fs::perms(0640));
  ReplacedFile file(Path("a.tif"));
  file.Commit();
  EXPECT_EQ(fs::status(Path("a.tif")).permissions(), fs::perms(0640));
}

TEST_F(ReplacedFileTest, ANewFileFollowsTheUmask) {
  const mode_t previous = umask(027);
  ReplacedFile file(Path("a.tif"));
  file.Commit();
  umask(previous);
  EXPECT_EQ(fs::status(Path("a.tif")).permissions(), fs::perms(0640));
}

TEST_F(ReplacedFileTest, ALinkStaysALinkAndItsFileIsReplaced) {
  fs::create_directory(Path("store"));
  Write(Path("store/real.tif"), "old");
  fs::create_symlink("store/real.tif", Path("link.tif"));
  ReplacedFile file(Path("link.tif"));
  Write(file.TemporaryPath(), "new");
  file.Commit();
  EXPECT_TRUE(fs::is_symlink(Path("link.tif")));
  EXPECT_EQ(Read(Path("store/real.tif")), "new");
}

TEST_F(ReplacedFileTest, OnlyARegularFileIsReplaced) {
  fs::create_directory(Path("folder.tif"));
  ASSERT_EQ(mkfifo(Path("pipe.tif").c_str(), 0600), 0);
  fs::create_symlink("nowhere", Path("dangling.tif"));
  using Step = ReplacementError::Step;
  ExpectFailure(Path("folder.tif"), Step::kReplace, "not a regular file");
  ExpectFailure(Path("pipe.tif"), Step::kReplace, "not a regular file");
  ExpectFailure("/dev/null", Step::kReplace, "not a regular file");
  ExpectFailure(Path("dangling.tif"), Step::kReplace, "the link points to no file");
  EXPECT_EQ(FileCount(), 3);
}

TEST_F(ReplacedFileTest, AMissingFolderCannotBeWrittenTo) {
  ExpectFailure(Path("missing/a.tif"), ReplacementError::Step::kWrite, "No such file or directory");
}

TEST_F(ReplacedFileTest, AFileUsedAsAFolderFailsTheInspection) {
  Write(Path("file"), "x");
  ExpectFailure(Path("file/a.tif"), ReplacementError::Step::kInspect, "Not a directory");
}

TEST_F(ReplacedFileTest, ARemovedFolderFailsTheCommit) {
  fs::create_directory(Path("gone"));
  ReplacedFile file(Path("gone/a.tif"));
  fs::remove_all(Path("gone"));
  EXPECT_THROW(file.Commit(), ReplacementError);
}

}  // namespace
}  // namespace project_lumen::io
