// What the program asks of the operating system beyond the standard library: one header, one source
// a platform. All texts are UTF-8.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace project_lumen {

// The arguments of the program, its name first, from those of main. The texts stay.
std::vector<const char*> ProgramArguments(int argc, const char* const argv[]);

// From here on standard output and standard error carry bytes as they are, and a console shows them
// as UTF-8 until the process ends.
void PrepareStandardStreams();

// Full path of the running executable; none when the system does not tell.
std::optional<std::string> ExecutablePath();

// The current directory; none when the system does not tell (it was removed, for example).
std::optional<std::string> CurrentDirectory();

// File name of the CUDA provider library of ONNX Runtime on this platform.
const char* CudaProviderLibraryName();

// Whether the CUDA provider library lies beside the executable. Nothing is loaded.
bool IsCudaProviderLibraryPresent();

// Whether it lies in a folder.
bool IsCudaProviderLibraryIn(const std::string& folder);

// How many processors the process may use, where that is fewer than the machine has (its affinity
// mask, which taskset and batch systems set); 0 where it may use all of them or the system does not
// tell.
int RestrictedProcessorCount();

// A loaded module (shared library), found by an address inside it; its reference count is
// unchanged.
class LoadedModule {
 public:
  // None when no loaded module holds the address.
  static std::optional<LoadedModule> FromAddress(const void* address);

  // The folder that it was loaded from, as a full path; none when the system does not tell.
  [[nodiscard]] std::optional<std::string> Folder() const;

  // The address of an exported function, or null.
  [[nodiscard]] void* FindExport(const char* name) const;

 private:
  explicit LoadedModule(void* handle) : handle_(handle) {}
  void* handle_;
};

}  // namespace project_lumen
