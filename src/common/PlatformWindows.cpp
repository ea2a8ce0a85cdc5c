#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "common/Platform.h"
#include "common/WindowsConsole.h"
#include "common/WindowsText.h"

namespace project_lumen {
namespace {

// The file of a module, of the executable for null.
std::optional<std::wstring> WideModulePath(HMODULE module) {
  std::vector<wchar_t> buffer(260);
  for (;;) {
    const DWORD length =
        GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) {
      return std::nullopt;
    }
    if (length < buffer.size()) {
      return std::wstring(buffer.data(), length);
    }
    // A length equal to the buffer's size means that the path was cut.
    buffer.resize(buffer.size() * 2);
  }
}

// The folder of a module, with the separator at its end.
std::optional<std::wstring> WideModuleFolder(HMODULE module) {
  const std::optional<std::wstring> path = WideModulePath(module);
  const std::size_t separator = path ? path->find_last_of(L"\\/") : std::wstring::npos;
  if (separator == std::wstring::npos) {
    return std::nullopt;
  }
  return path->substr(0, separator + 1);
}

bool HoldsCudaProviderLibrary(const std::wstring& folder) {
  const std::string_view name = CudaProviderLibraryName();
  const std::wstring library = folder + std::wstring(name.begin(), name.end());
  return GetFileAttributesW(library.c_str()) != INVALID_FILE_ATTRIBUTES;
}

struct FreeLocal {
  void operator()(LPWSTR* memory) const { LocalFree(memory); }
};

// The code page that the console had before; 0 where there is none or it is as it was.
UINT originalCodePage = 0;

}  // namespace

std::vector<const char*> ProgramArguments(int /*argc*/, const char* const /*argv*/[]) {
  // Those of main went through a code page, and wildcards in them may have been expanded.
  static const std::vector<std::string> texts = [] {
    int count = 0;
    const std::unique_ptr<LPWSTR, FreeLocal> wide(CommandLineToArgvW(GetCommandLineW(), &count));
    std::vector<std::string> result;
    for (int i = 0; i < count; ++i) {
      result.push_back(Utf8FromWide(wide.get()[i]));
    }
    return result;
  }();
  std::vector<const char*> pointers;
  for (const std::string& text : texts) {
    pointers.push_back(text.c_str());
  }
  return pointers;
}

void PrepareStandardStreams() {
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
  const UINT before = GetConsoleOutputCP();
  if (before != 0 && before != CP_UTF8 && SetConsoleOutputCP(CP_UTF8) != 0) {
    originalCodePage = before;
    std::atexit(RestoreConsole);
  }
}

void RestoreConsole() {
  if (originalCodePage != 0) {
    SetConsoleOutputCP(originalCodePage);
  }
}

std::optional<std::string> ExecutablePath() {
  const std::optional<std::wstring> path = WideModulePath(nullptr);
  return path ? std::optional(Utf8FromWide(*path)) : std::nullopt;
}

std::optional<std::string> CurrentDirectory() {
  const DWORD size = GetCurrentDirectoryW(0, nullptr);
  if (size == 0) {
    return std::nullopt;
  }
  std::wstring buffer(size, L'\0');
  const DWORD length = GetCurrentDirectoryW(size, buffer.data());
  if (length == 0 || length >= size) {
    return std::nullopt;
  }
  return Utf8FromWide(std::wstring_view(buffer).substr(0, length));
}

const char* CudaProviderLibraryName() {
  return "onnxruntime_providers_cuda.dll";
}

bool IsCudaProviderLibraryPresent() {
  const std::optional<std::wstring> folder = WideModuleFolder(nullptr);
  return folder && HoldsCudaProviderLibrary(*folder);
}

bool IsCudaProviderLibraryIn(const std::string& folder) {
  return HoldsCudaProviderLibrary(WideFromUtf8(folder) + L"\\");
}

int RestrictedProcessorCount() {
  DWORD_PTR allowed = 0;
  DWORD_PTR present = 0;
  if (GetProcessAffinityMask(GetCurrentProcess(), &allowed, &present) == 0) {
    return 0;
  }
  // A process in several processor groups has two empty masks.
  return allowed != present ? std::popcount(allowed) : 0;
}

std::optional<LoadedModule> LoadedModule::FromAddress(const void* address) {
  HMODULE module = nullptr;
  constexpr DWORD kFlags =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (GetModuleHandleExW(kFlags, static_cast<LPCWSTR>(address), &module) == 0) {
    return std::nullopt;
  }
  return LoadedModule(module);
}

std::optional<std::string> LoadedModule::Folder() const {
  const std::optional<std::wstring> folder = WideModuleFolder(static_cast<HMODULE>(handle_));
  return folder ? std::optional(Utf8FromWide(folder->substr(0, folder->size() - 1))) : std::nullopt;
}

void* LoadedModule::FindExport(const char* name) const {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

}  // namespace project_lumen
