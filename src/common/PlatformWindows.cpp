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

std::optional<std::wstring> WideExecutablePath() {
  std::vector<wchar_t> buffer(260);
  for (;;) {
    const DWORD length =
        GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
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

}  // namespace

std::optional<std::string> ExecutablePath() {
  const std::optional<std::wstring> path = WideExecutablePath();
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
  const std::optional<std::wstring> executable = WideExecutablePath();
  if (!executable) {
    return false;
  }
  const std::size_t separator = executable->find_last_of(L"\\/");
  if (separator == std::wstring::npos) {
    return false;
  }
  const std::string_view name = CudaProviderLibraryName();
  const std::wstring library =
      executable->substr(0, separator + 1) + std::wstring(name.begin(), name.end());
  return GetFileAttributesW(library.c_str()) != INVALID_FILE_ATTRIBUTES;
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

void* LoadedModule::FindExport(const char* name) const {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

}  // namespace project_lumen
