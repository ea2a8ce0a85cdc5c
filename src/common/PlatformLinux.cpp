#include <dlfcn.h>

#include <filesystem>
#include <system_error>

#include "common/Platform.h"

namespace project_lumen {

namespace fs = std::filesystem;

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
  std::error_code error;
  return fs::exists(fs::path(*executable).parent_path() / CudaProviderLibraryName(), error);
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

void* LoadedModule::FindExport(const char* name) const {
  return dlsym(handle_, name);
}

}  // namespace project_lumen
