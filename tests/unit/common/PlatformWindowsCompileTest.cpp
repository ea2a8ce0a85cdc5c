// Uses every service of Platform.h, so that compiling and linking it with PlatformWindows.cpp shows
// that the Windows source offers them all. It reports what it sees when run on Windows.
#include <cstdio>

#include "common/Platform.h"

int main() {
  using namespace project_lumen;
  std::printf("executable: %s\n", ExecutablePath().value_or("unavailable").c_str());
  std::printf("current directory: %s\n", CurrentDirectory().value_or("unavailable").c_str());
  std::printf("%s: %s\n", CudaProviderLibraryName(),
              IsCudaProviderLibraryPresent() ? "present" : "absent");
  std::printf("restricted to processors: %d\n", RestrictedProcessorCount());

  const auto module = LoadedModule::FromAddress(reinterpret_cast<const void*>(&std::printf));
  const bool found = module && module->FindExport("printf") != nullptr;
  const std::string folder = module ? module->Folder().value_or("unavailable") : "unavailable";
  std::printf("that module lies in %s, %s\n", folder.c_str(),
              IsCudaProviderLibraryIn(folder) ? "beside the provider" : "alone");
  std::printf("printf among the exports of its module: %s\n", found ? "yes" : "no");
  return 0;
}
