#include <dlfcn.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <system_error>
#include <vector>

#include "common/Platform.h"

namespace project_lumen {

namespace fs = std::filesystem;

namespace {

// Number of processors in the affinity mask of the calling thread; 0 when the system does not tell.
int AllowedProcessorCount() {
  // The kernel refuses a mask that is smaller than its own, whose size it does not tell.
  constexpr std::size_t kMostSets = 1024;
  for (std::size_t count = 1; count <= kMostSets; count *= 2) {
    std::vector<cpu_set_t> sets(count);
    const std::size_t bytes = count * sizeof(cpu_set_t);
    if (sched_getaffinity(0, bytes, sets.data()) == 0) {
      return CPU_COUNT_S(bytes, sets.data());
    }
    if (errno != EINVAL) {
      break;
    }
  }
  return 0;
}

}  // namespace

std::vector<const char*> ProgramArguments(int argc, const char* const argv[]) {
  return {argv, argv + argc};
}

void PrepareStandardStreams() {}

std::optional<std::string> ExecutablePath() {
  std::error_code error;
  const fs::path path = fs::read_symlink("/proc/self/exe", error);
  if (error) {
    return std::nullopt;
  }
  return path.string();
}

std::optional<std::string> CurrentDirectory() {
  std::error_code error;
  const fs::path path = fs::current_path(error);
  if (error) {
    return std::nullopt;
  }
  return path.string();
}

const char* CudaProviderLibraryName() {
  return "libonnxruntime_providers_cuda.so";
}

bool IsCudaProviderLibraryPresent() {
  const std::optional<std::string> executable = ExecutablePath();
  if (!executable) {
    return false;
  }
  return IsCudaProviderLibraryIn(fs::path(*executable).parent_path().string());
}

bool IsCudaProviderLibraryIn(const std::string& folder) {
  std::error_code error;
  return fs::exists(fs::path(folder) / CudaProviderLibraryName(), error);
}

int RestrictedProcessorCount() {
  const int allowed = AllowedProcessorCount();
  return allowed < sysconf(_SC_NPROCESSORS_ONLN) ? allowed : 0;
}

std::optional<LoadedModule> LoadedModule::FromAddress(const void* address) {
  Dl_info info{};
  if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
    return std::nullopt;
  }
  void* handle = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
  if (handle == nullptr) {
    return std::nullopt;
  }
  // The module stays loaded by its first owner; only the count that dlopen added goes back.
  dlclose(handle);
  return LoadedModule(handle);
}

std::optional<std::string> LoadedModule::Folder() const {
  // The place the loader writes to has to hold the longest path that there is.
  std::array<char, PATH_MAX> folder{};
  if (dlinfo(handle_, RTLD_DI_ORIGIN, folder.data()) != 0) {
    return std::nullopt;
  }
  return std::string(folder.data());
}

void* LoadedModule::FindExport(const char* name) const {
  return dlsym(handle_, name);
}

}  // namespace project_lumen
