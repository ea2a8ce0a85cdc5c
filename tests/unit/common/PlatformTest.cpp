#include "common/Platform.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

namespace project_lumen {
namespace {

namespace fs = std::filesystem;

TEST(Platform, ExecutablePathIsThisTestProgram) {
  const auto path = ExecutablePath();
  ASSERT_TRUE(path);
  EXPECT_TRUE(fs::path(*path).is_absolute());
  EXPECT_EQ(fs::path(*path).stem(), "common_tests");
}

TEST(Platform, CurrentDirectoryFollowsTheProcess) {
  const fs::path before = fs::current_path();
  const fs::path folder = fs::path(testing::TempDir()) / "nebulex current \xC3\xA9";
  fs::create_directories(folder);
  fs::current_path(folder);
  const auto reported = CurrentDirectory();
  fs::current_path(before);
  ASSERT_TRUE(reported);
  EXPECT_TRUE(fs::equivalent(*reported, folder));
  fs::remove(folder);
}

TEST(Platform, CurrentDirectoryIsNoneOnceTheFolderIsGone) {
  const fs::path before = fs::current_path();
  const fs::path folder = fs::path(testing::TempDir()) / "nebulex removed";
  fs::create_directories(folder);
  fs::current_path(folder);
  fs::remove(folder);
  const auto reported = CurrentDirectory();
  fs::current_path(before);
  EXPECT_FALSE(reported);
}

TEST(Platform, CudaProviderLibraryIsLookedForBesideTheExecutable) {
  const fs::path library = fs::path(*ExecutablePath()).parent_path() / CudaProviderLibraryName();
  ASSERT_FALSE(fs::exists(library));
  EXPECT_FALSE(IsCudaProviderLibraryPresent());
  std::ofstream(library).put('x');
  EXPECT_TRUE(IsCudaProviderLibraryPresent());
  fs::remove(library);
}

// Restricts the calling thread to the first processors of its affinity mask while it lives.
class Affinity {
 public:
  explicit Affinity(int processors) {
    CPU_ZERO(&before_);
    sched_getaffinity(0, sizeof(before_), &before_);
    cpu_set_t fewer;
    CPU_ZERO(&fewer);
    for (std::size_t processor = 0; CPU_COUNT(&fewer) < processors && processor < CPU_SETSIZE;
         ++processor) {
      if (CPU_ISSET(processor, &before_)) {
        CPU_SET(processor, &fewer);
      }
    }
    sched_setaffinity(0, sizeof(fewer), &fewer);
  }
  ~Affinity() { sched_setaffinity(0, sizeof(before_), &before_); }
  Affinity(const Affinity&) = delete;
  Affinity& operator=(const Affinity&) = delete;

  [[nodiscard]] int Before() const { return CPU_COUNT(&before_); }

 private:
  cpu_set_t before_{};
};

TEST(Platform, AProcessThatMayUseOneProcessorOfSeveralIsRestrictedToOne) {
  const Affinity affinity(1);
  if (affinity.Before() < 2) {
    GTEST_SKIP() << "this test may use one processor only";
  }
  EXPECT_EQ(RestrictedProcessorCount(), 1);
}

TEST(Platform, AProcessThatMayUseEveryProcessorIsNotRestricted) {
  const Affinity affinity(CPU_SETSIZE);
  if (affinity.Before() < sysconf(_SC_NPROCESSORS_ONLN)) {
    GTEST_SKIP() << "this test may not use every processor";
  }
  EXPECT_EQ(RestrictedProcessorCount(), 0);
}

TEST(LoadedModule, FindsAnExportOfTheModuleThatHoldsAnAddress) {
  const auto module = LoadedModule::FromAddress(reinterpret_cast<const void*>(&std::strlen));
  ASSERT_TRUE(module);
  EXPECT_NE(module->FindExport("getpid"), nullptr);
  EXPECT_EQ(module->FindExport("no_such_export_of_the_c_library"), nullptr);
}

TEST(LoadedModule, LiesInTheFolderOfItsLibrary) {
  const auto module = LoadedModule::FromAddress(reinterpret_cast<const void*>(&std::strlen));
  ASSERT_TRUE(module);
  ASSERT_TRUE(module->Folder());
  EXPECT_TRUE(fs::exists(fs::path(*module->Folder()) / "libc.so.6")) << *module->Folder();
}

TEST(Platform, CudaProviderLibraryIsFoundInAFolder) {
  const fs::path folder = fs::path(testing::TempDir()) / "nebulex provider \xC3\xA9";
  fs::create_directories(folder);
  EXPECT_FALSE(IsCudaProviderLibraryIn(folder.string()));
  std::ofstream(folder / CudaProviderLibraryName()).put('x');
  EXPECT_TRUE(IsCudaProviderLibraryIn(folder.string()));
  fs::remove_all(folder);
}

TEST(LoadedModule, NoModuleHoldsAStackAddress) {
  const int local = 0;
  EXPECT_FALSE(LoadedModule::FromAddress(&local));
}

}  // namespace
}  // namespace project_lumen
