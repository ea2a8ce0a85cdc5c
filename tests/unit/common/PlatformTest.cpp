#include "common/Platform.h"

#include <gtest/gtest.h>

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

TEST(LoadedModule, FindsAnExportOfTheModuleThatHoldsAnAddress) {
  const auto module = LoadedModule::FromAddress(reinterpret_cast<const void*>(&std::strlen));
  ASSERT_TRUE(module);
  EXPECT_NE(module->FindExport("getpid"), nullptr);
  EXPECT_EQ(module->FindExport("no_such_export_of_the_c_library"), nullptr);
}

TEST(LoadedModule, NoModuleHoldsAStackAddress) {
  const int local = 0;
  EXPECT_FALSE(LoadedModule::FromAddress(&local));
}

}  // namespace
}  // namespace project_lumen
