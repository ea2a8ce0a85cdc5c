#include <windows.h>

#include <bit>
#include <string_view>
#include <vector>

#include "common/Platform.h"

namespace project_lumen {
namespace {

std::optional<std::string> ToUtf8(std::wstring_view text) {
  if (text.empty()) {
    return std::string();
  }
  const auto length = static_cast<int>(text.size());
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  if (bytes <= 0) {
    return std::nullopt;
  }
  std::string result(static_cast<std::size_t>(bytes), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), bytes, nullptr, nullptr);
  return result;
}

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

}  // namespace

std::optional<std::string> ExecutablePath() {
  const std::optional<std::wstring> path = WideModulePath(nullptr);
  return path ? ToUtf8(*path) : std::nullopt;
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
  return ToUtf8(std::wstring_view(buffer).substr(0, length));
}

const char* CudaProviderLibraryName() {
  return "onnxruntime_providers_cuda.dll";
}

bool IsCudaProviderLibraryPresent() {
  const std::optional<std::wstring> folder = WideModuleFolder(nullptr);
  return folder && HoldsCudaProviderLibrary(*folder);
}

bool IsCudaProviderLibraryIn(const std::string& folder) {
  const int length =
      MultiByteToWideChar(CP_UTF8, 0, folder.data(), static_cast<int>(folder.size()), nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, folder.data(), static_cast<int>(folder.size()), wide.data(),
                      length);
  return HoldsCudaProviderLibrary(wide + L"\\");
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
  return folder ? ToUtf8(std::wstring_view(*folder).substr(0, folder->size() - 1)) : std::nullopt;
}

void* LoadedModule::FindExport(const char* name) const {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

}  // namespace project_lumen
