#include <windows.h>

#include <array>
#include <stdexcept>
#include <string>

#include "backend/OrtLibrary.h"
#include "common/Platform.h"
#include "common/WindowsError.h"
#include "common/WindowsText.h"

namespace project_lumen::backend {
namespace {

constexpr const wchar_t* kLibrary = L"onnxruntime.dll";
// What it needs beyond the system and what lies beside it.
constexpr std::array kVisualCppRuntime = {L"vcruntime140.dll", L"vcruntime140_1.dll",
                                          L"msvcp140.dll", L"msvcp140_1.dll"};

// Keeps the system from showing a dialogue when a library is missing.
class NoDialogues {
 public:
  NoDialogues() { SetThreadErrorMode(SEM_FAILCRITICALERRORS, &before_); }
  ~NoDialogues() { SetThreadErrorMode(before_, nullptr); }
  NoDialogues(const NoDialogues&) = delete;
  NoDialogues& operator=(const NoDialogues&) = delete;

 private:
  DWORD before_ = 0;
};

std::wstring BesideProgram(const wchar_t* name) {
  const std::wstring program = WideFromUtf8(ExecutablePath().value_or(std::string()));
  return program.substr(0, program.find_last_of(L"\\/") + 1) + name;
}

[[noreturn]] void FailToLoad(const std::error_code& reason) {
  for (const wchar_t* name : kVisualCppRuntime) {
    if (LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32) == nullptr) {
      throw std::runtime_error(
          "ONNX Runtime cannot be loaded, because Microsoft's Visual C++ runtime is not installed "
          "(" +
          Utf8FromWide(name) +
          " is missing). Install it from https://aka.ms/vs/17/release/vc_redist.x64.exe and try "
          "again.");
    }
  }
  throw std::runtime_error("ONNX Runtime cannot be loaded from " +
                           Utf8FromWide(BesideProgram(kLibrary)) + " (" + reason.message() + ").");
}

using GetApiBase = const OrtApiBase*(ORT_API_CALL*)();

const OrtApiBase& Load() {
  const NoDialogues noDialogues;
  // By its full path: Windows has a library of this name and another version of its own.
  HMODULE library = LoadLibraryExW(BesideProgram(kLibrary).c_str(), nullptr,
                                   LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (library == nullptr) {
    FailToLoad(LastWindowsError());
  }
  const auto entry = reinterpret_cast<GetApiBase>(
      reinterpret_cast<void*>(GetProcAddress(library, "OrtGetApiBase")));
  if (entry == nullptr) {
    FailToLoad(LastWindowsError());
  }
  return *entry();
}

}  // namespace

const OrtApiBase& OrtLibraryBase() {
  static const OrtApiBase& base = Load();
  return base;
}

}  // namespace project_lumen::backend
