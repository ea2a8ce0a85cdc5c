#include "common/UnfinishedFiles.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>

#include "support/TemporaryFolder.h"

namespace project_lumen {
namespace {

using test::TemporaryFolder;
using testing::ExitedWithCode;
using testing::KilledBySignal;

TEST(UnfinishedFiles, AreCreatedEmptyAndForTheirOwnerAlone) {
  const TemporaryFolder folder;
  const int file = CreateUnfinishedFile(folder.Path("a"));
  ASSERT_GE(file, 0);
  struct stat status {};
  ASSERT_EQ(stat(folder.Path("a").c_str(), &status), 0);
  EXPECT_EQ(status.st_size, 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  ForgetUnfinishedFile(folder.Path("a"));
  close(file);
}

TEST(UnfinishedFiles, AreNotCreatedWhereAFileIs) {
  const TemporaryFolder folder;
  test::WriteFileBytes(folder.Path("a"), "old");
  std::filesystem::create_symlink("nowhere", folder.Path("link"));
  EXPECT_EQ(CreateUnfinishedFile(folder.Path("a")), -EEXIST);
  EXPECT_EQ(CreateUnfinishedFile(folder.Path("link")), -EEXIST);
  EXPECT_EQ(CreateUnfinishedFile(folder.Path("no/a")), -ENOENT);
  EXPECT_EQ(test::ReadFileBytes(folder.Path("a")), "old");
}

// What follows is done in a process of its own, which ends by it.
class UnfinishedFilesDeathTest : public testing::TestWithParam<int> {
 protected:
  [[nodiscard]] std::string Path(const std::string& name) const { return folder_.Path(name); }

 private:
  TemporaryFolder folder_;
};

TEST_P(UnfinishedFilesDeathTest, GoWithTheProcess) {
  EXPECT_EXIT(
      {
        RemoveUnfinishedFilesOnSignals();
        CreateUnfinishedFile(Path("a"));
        CreateUnfinishedFile(Path("b"));
        raise(GetParam());
      },
      KilledBySignal(GetParam()), "");
  EXPECT_FALSE(std::filesystem::exists(Path("a")));
  EXPECT_FALSE(std::filesystem::exists(Path("b")));
}

TEST_P(UnfinishedFilesDeathTest, StayWhenTheyAreFinished) {
  EXPECT_EXIT(
      {
        RemoveUnfinishedFilesOnSignals();
        CreateUnfinishedFile(Path("finished"));
        ForgetUnfinishedFile(Path("finished"));
        raise(GetParam());
      },
      KilledBySignal(GetParam()), "");
  EXPECT_TRUE(std::filesystem::exists(Path("finished")));
}

TEST_P(UnfinishedFilesDeathTest, StayWithAProcessThatIgnoresTheSignal) {
  EXPECT_EXIT(
      {
        std::signal(GetParam(), SIG_IGN);
        RemoveUnfinishedFilesOnSignals();
        CreateUnfinishedFile(Path("a"));
        raise(GetParam());
        _exit(7);
      },
      ExitedWithCode(7), "");
  EXPECT_TRUE(std::filesystem::exists(Path("a")));
}

TEST_P(UnfinishedFilesDeathTest, TakeThePlacesOfThoseThatWereFinished) {
  EXPECT_EXIT(
      {
        RemoveUnfinishedFilesOnSignals();
        for (int i = 0; i < 100; ++i) {
          CreateUnfinishedFile(Path(std::to_string(i)));
          ForgetUnfinishedFile(Path(std::to_string(i)));
        }
        CreateUnfinishedFile(Path("last"));
        raise(GetParam());
      },
      KilledBySignal(GetParam()), "");
  EXPECT_TRUE(std::filesystem::exists(Path("99")));
  EXPECT_FALSE(std::filesystem::exists(Path("last")));
}

INSTANTIATE_TEST_SUITE_P(Signals, UnfinishedFilesDeathTest,
                         testing::Values(SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU));

TEST(FileSizeSignalDeathTest, IsIgnored) {
  EXPECT_EXIT(
      {
        RemoveUnfinishedFilesOnSignals();
        raise(SIGXFSZ);
        _exit(7);
      },
      ExitedWithCode(7), "");
}

}  // namespace
}  // namespace project_lumen
