#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>

#include "common/UnfinishedFiles.h"
#include "common/WindowsConsole.h"
#include "common/WindowsError.h"
#include "common/WindowsText.h"

namespace project_lumen {
namespace {

constexpr std::size_t kMostFiles = 8;

std::mutex guard;
std::array<std::wstring, kMostFiles> entries;

// Libraries keep files open in a way that lets nobody remove them. Closed below the C library,
// which may be at work in another thread, and standard output and error with them: nothing is to be
// said about writes that fail now.
void CloseEveryFile() {
  constexpr int kMostDescriptors = 512;
  for (int descriptor = 0; descriptor < kMostDescriptors; ++descriptor) {
    const intptr_t handle = _get_osfhandle(descriptor);
    if (handle != -1 && handle != -2) {  // without a handle, and closed
      CloseHandle(reinterpret_cast<HANDLE>(handle));
    }
  }
}

// Runs on a thread of its own.
BOOL WINAPI EndByConsole(DWORD /*event*/) {
  constexpr UINT kEndedByConsole = 0xC000013A;  // STATUS_CONTROL_C_EXIT
  guard.lock();                                 // for good: nothing may be created any more
  RestoreConsole();
  CloseEveryFile();
  for (const std::wstring& entry : entries) {
    if (!entry.empty()) {
      DeleteFileW(entry.c_str());
    }
  }
  TerminateProcess(GetCurrentProcess(), kEndedByConsole);
  return TRUE;
}

}  // namespace

void RemoveUnfinishedFilesOnSignals() {
  SetConsoleCtrlHandler(EndByConsole, TRUE);
}

int CreateUnfinishedFile(const std::string& path, unsigned /*permissions*/) {
  const std::lock_guard lock(guard);
  const std::wstring name = WideFromUtf8(path);
  // Shared, for libraries open the file by its name and it may lose that name meanwhile.
  HANDLE file = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    const std::error_code error = LastWindowsError();
    return error.category() == std::generic_category() ? -error.value() : -EIO;
  }
  const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(file), _O_RDWR | _O_BINARY);
  if (descriptor < 0) {
    CloseHandle(file);
    DeleteFileW(name.c_str());
    return -EMFILE;
  }
  const auto entry = std::find(entries.begin(), entries.end(), std::wstring());
  if (entry != entries.end()) {
    *entry = name;
  }
  return descriptor;
}

void ForgetUnfinishedFile(const std::string& path) {
  const std::lock_guard lock(guard);
  std::replace(entries.begin(), entries.end(), WideFromUtf8(path), std::wstring());
}

}  // namespace project_lumen
