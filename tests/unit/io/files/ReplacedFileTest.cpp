#include "io/files/ReplacedFile.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "support/FileSizeLimit.h"

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

// --- Others in the folder ---

unsigned ModeOf(const std::string& path) {
  return static_cast<unsigned>(fs::status(path).permissions());
}

TEST_F(ReplacedFileTest, IsForItsOwnerAloneUntilCommit) {
  Write(Path("a.tif"), "old");
  fs::permissions(Path("a.tif"), fs::perms(0644));
  ReplacedFile file(Path("a.tif"));
  EXPECT_EQ(ModeOf(file.TemporaryPath()), 0600U);
  const FileDescriptor before = file.StartAgain();
  EXPECT_EQ(ModeOf(file.TemporaryPath()), 0600U);
  file.Commit();
  EXPECT_EQ(ModeOf(Path("a.tif")), 0644U);
}

TEST_F(ReplacedFileTest, TheSafePathLeadsToTheFileThatWasCreated) {
  Write(Path("victim"), "precious");
  fs::permissions(Path("victim"), fs::perms(0600));
  ReplacedFile file(Path("a.tif"));
  const std::string safePath = file.SafePath();
  fs::remove(file.TemporaryPath());
  fs::create_symlink(Path("victim"), file.TemporaryPath());
  Write(safePath, "new");
  std::string text(3, ' ');
  EXPECT_EQ(pread(file.Descriptor(), text.data(), text.size(), 0), 3);
  EXPECT_EQ(text, "new");
  file.Commit();
  EXPECT_EQ(Read(Path("victim")), "precious");
  EXPECT_EQ(ModeOf(Path("victim")), 0600U);
}

TEST_F(ReplacedFileTest, StartsAgainWithAnEmptyFileOfItsOwn) {
  ReplacedFile file(Path("a.tif"));
  Write(file.SafePath(), "first");
  const std::string name = file.TemporaryPath();
  {
    const FileDescriptor before = file.StartAgain();
    EXPECT_FALSE(fs::exists(name));
    std::string text(5, ' ');
    EXPECT_EQ(pread(before.Get(), text.data(), text.size(), 0), 5);
    EXPECT_EQ(text, "first");
  }
  EXPECT_EQ(Read(file.TemporaryPath()), "");
  Write(file.SafePath(), "second");
  file.Commit();
  EXPECT_EQ(Read(Path("a.tif")), "second");
  EXPECT_EQ(FileCount(), 1);
}

TEST_F(ReplacedFileTest, NothingIsLeftWhenItCannotStartAgain) {
  fs::create_directory(Path("gone"));
  {
    ReplacedFile file(Path("gone/a.tif"));
    fs::remove_all(Path("gone"));
    EXPECT_THROW(static_cast<void>(file.StartAgain()), ReplacementError);
    fs::create_directory(Path("gone"));
  }
  EXPECT_TRUE(fs::is_empty(Path("gone")));
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

// What a user without rights of its own sees; the tests may run as root, whom modes do not stop.
class ProtectedTargetTest : public ReplacedFileTest {
 protected:
  void SetUp() override {
    ReplacedFileTest::SetUp();
    Write(Path("a.tif"), "old content");
    if (geteuid() == 0) {
      ASSERT_EQ(chown(folder_.c_str(), kNobody, kNobody), 0);
      ASSERT_EQ(chown(Path("a.tif").c_str(), kNobody, kNobody), 0);
      fs::permissions(testing::TempDir(), fs::perms::others_exec, fs::perm_options::add);
    }
  }
  void TearDown() override {
    fs::permissions(folder_, fs::perms::owner_all);
    ReplacedFileTest::TearDown();
  }

  // Runs `action` in a process of that user and gives what it returns.
  static std::string AsNobody(const std::function<std::string()>& action) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
      const bool isNobody = geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 &&
                                               setuid(kNobody) == 0);
      const std::string answer = isNobody ? action() : "still root";
      _exit(write(ends[1], answer.data(), answer.size()) < 0 ? 1 : 0);
    }
    close(ends[1]);
    std::string answer(200, '\0');
    answer.resize(static_cast<std::size_t>(
        std::max<ssize_t>(0, read(ends[0], answer.data(), answer.size()))));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return answer;
  }

  static std::string Replace(const std::string& target, Replacing replacing,
                             const std::string& content) {
    try {
      ReplacedFile file(target, replacing);
      Write(file.SafePath(), content);
      file.Commit();
      return "replaced";
    } catch (const ReplacementError& error) {
      return error.what();
    }
  }

  static constexpr unsigned kNobody = 65534;
};

TEST_F(ProtectedTargetTest, AFileThatMayNotBeWrittenKeepsItsContent) {
  fs::permissions(Path("a.tif"), fs::perms(0444));
  EXPECT_EQ(AsNobody([&] { return Replace(Path("a.tif"), Replacing::kContent, "new"); }),
            "Permission denied");
  EXPECT_EQ(Read(Path("a.tif")), "old content");
  EXPECT_EQ(FileCount(), 1);
}

TEST_F(ProtectedTargetTest, AFileOfAnotherOwnerKeepsItsContent) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "Only root can give files away.";
  }
  ASSERT_EQ(chown(Path("a.tif").c_str(), 0, 0), 0);
  EXPECT_EQ(AsNobody([&] { return Replace(Path("a.tif"), Replacing::kContent, "new"); }),
            "Permission denied");
  EXPECT_EQ(Read(Path("a.tif")), "old content");
}

TEST_F(ProtectedTargetTest, ItsNameMayBeGivenToAnother) {
  fs::permissions(Path("a.tif"), fs::perms(0444));
  EXPECT_EQ(AsNobody([&] { return Replace(Path("a.tif"), Replacing::kName, "new"); }), "replaced");
  EXPECT_EQ(Read(Path("a.tif")), "new");
}

TEST_F(ProtectedTargetTest, AFileInAFolderThatTakesNoOtherIsWrittenInPlace) {
  fs::create_hard_link(Path("a.tif"), Path("b.tif"));
  fs::permissions(folder_, fs::perms(0555));
  for (const std::string& content :
       {std::string("new"), std::string(3'000'000, 'x'), std::string()}) {
    EXPECT_EQ(AsNobody([&] { return Replace(Path("a.tif"), Replacing::kContent, content); }),
              "replaced");
    EXPECT_TRUE(Read(Path("a.tif")) == content);
    EXPECT_TRUE(Read(Path("b.tif")) == content);
  }
}

TEST_F(ProtectedTargetTest, UntilCommitAFileThatIsWrittenInPlaceStays) {
  fs::permissions(folder_, fs::perms(0555));
  EXPECT_EQ(AsNobody([&] {
              ReplacedFile file(Path("a.tif"), Replacing::kContent);
              Write(file.SafePath(), "half");
              return file.TemporaryPath();
            }),
            "");
  EXPECT_EQ(Read(Path("a.tif")), "old content");
}

TEST_F(ProtectedTargetTest, AFileWrittenInPlaceStaysWhereThereIsNoRoom) {
  fs::permissions(folder_, fs::perms(0555));
  EXPECT_EQ(AsNobody([&] {
              ReplacedFile file(Path("a.tif"), Replacing::kContent);
              Write(file.SafePath(), std::string(3'000'000, 'x'));
              const test::FileSizeLimit limit(1'000'000);
              try {
                file.Commit();
                return std::string("replaced");
              } catch (const ReplacementError& error) {
                return std::string(error.what());
              }
            }),
            "File too large");
  EXPECT_EQ(Read(Path("a.tif")), "old content");
}

TEST_F(ProtectedTargetTest, ANewFileNeedsAFolderThatTakesIt) {
  fs::permissions(folder_, fs::perms(0555));
  for (const Replacing replacing : {Replacing::kContent, Replacing::kName}) {
    EXPECT_EQ(AsNobody([&] { return Replace(Path("new.tif"), replacing, "new"); }),
              "Permission denied");
  }
  EXPECT_EQ(AsNobody([&] { return Replace(Path("a.tif"), Replacing::kName, "new"); }),
            "Permission denied");
}

}  // namespace
}  // namespace project_lumen::io
