// Uses the services of the platform, so that compiling and linking it with their Windows sources
// shows that these offer them all. It reports what it sees when run on Windows.
#include <cstdio>

#include "common/Platform.h"
#include "common/PlatformFiles.h"
#include "common/StandardErrorDiversion.h"
#include "common/UnfinishedFiles.h"

namespace {

using namespace project_lumen;

void PrintProcess() {
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
}

void ReplaceFile(const std::string& path) {
  std::error_code error;
  const FileTarget target = InspectTarget(path, error);
  std::printf("%s: %s, %s\n", path.c_str(), target.path.c_str(), error.message().c_str());
  const std::string name = OpenablePath(path + ".new");
  const int file = CreateUnfinishedFile(name);
  SetPermissions(file, KeepForOwner(file, error));
  WriteAt(file, 0, {});
  FlushToDisk(file);
  std::printf("%s\n", RenameOver(name, path).message().c_str());
  RemoveName(name);
  ForgetUnfinishedFile(name);
}

}  // namespace

int main(int argc, char* argv[]) {
  PrepareStandardStreams();
  RemoveUnfinishedFilesOnSignals();
  PrintProcess();
  for (const char* argument : ProgramArguments(argc, argv)) {
    const StandardErrorDiversion diversion;
    ReplaceFile(argument);
  }
  return 0;
}
