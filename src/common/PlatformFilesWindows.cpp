#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "common/PlatformFiles.h"
#include "common/WindowsError.h"
#include "common/WindowsText.h"

namespace project_lumen {
namespace {

namespace fs = std::filesystem;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::wstring_view kLongMark = L"\\\\?\\";
constexpr std::wstring_view kLongNetworkMark = L"\\\\?\\UNC\\";
constexpr std::wstring_view kNetworkMark = L"\\\\";
constexpr std::wstring_view kDeviceMark = L"\\\\.\\";

struct CloseFile {
  using pointer = HANDLE;
  void operator()(HANDLE file) const { CloseHandle(file); }
};
using FileHandle = std::unique_ptr<HANDLE, CloseFile>;

// Empty, with the thread's last error, for a file that cannot be opened.
FileHandle Open(const std::wstring& path, DWORD access, DWORD share) {
  HANDLE file = CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING,
                            FILE_FLAG_BACKUP_SEMANTICS, nullptr);  // folders too
  return FileHandle(file == INVALID_HANDLE_VALUE ? nullptr : file);
}

HANDLE HandleOf(int descriptor) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
}

// An answer whose length is known only when it was asked for: `ask` gets a buffer and its size, and
// returns the length, or the size that it needs, or 0 for a failure.
template <class Ask>
std::wstring TextOf(Ask ask) {
  std::wstring text(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = ask(text.data(), static_cast<DWORD>(text.size()));
    if (length < text.size()) {
      text.resize(length);
      return text;
    }
    text.resize(length + std::size_t{1});
  }
}

// Names of devices ("NUL", "COM1") become paths of devices here.
std::wstring FullPath(const std::wstring& path) {
  return TextOf([&](wchar_t* buffer, DWORD size) {
    return GetFullPathNameW(path.c_str(), size, buffer, nullptr);
  });
}

// A full path as functions of the system take it whatever its length.
std::wstring Marked(const std::wstring& full) {
  constexpr std::size_t kShort = MAX_PATH - 12;  // folders have to leave room for a short name
  if (full.size() < kShort || full.starts_with(kLongMark) || full.starts_with(kDeviceMark)) {
    return full;
  }
  return full.starts_with(kNetworkMark)
             ? std::wstring(kLongNetworkMark) + full.substr(kNetworkMark.size())
             : std::wstring(kLongMark) + full;
}

// The same path without the mark of long ones, where it means the same.
std::wstring Unmarked(const std::wstring& path) {
  std::wstring plain = path;
  if (path.starts_with(kLongNetworkMark)) {
    plain = std::wstring(kNetworkMark) + path.substr(kLongNetworkMark.size());
  } else if (path.starts_with(kLongMark)) {
    plain = path.substr(kLongMark.size());
  }
  return FullPath(plain) == plain ? plain : path;
}

std::wstring Openable(const std::string& path) {
  const std::wstring wide = WideFromUtf8(path);
  const std::wstring full = FullPath(wide);
  return full.empty() ? wide : Marked(full);
}

// Where an open file really lies; empty when the system does not tell.
std::wstring RealPath(HANDLE file) {
  const std::wstring path = TextOf([file](wchar_t* buffer, DWORD size) {
    return GetFinalPathNameByHandleW(file, buffer, size, FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
  });
  return path.empty() ? path : Marked(Unmarked(path));
}

std::pair<std::wstring, std::wstring> FolderAndName(const std::wstring& path) {
  const std::size_t separator = path.find_last_of(L"\\/");
  if (separator == std::wstring::npos) {
    return {L"", path};
  }
  return {path.substr(0, separator + 1), path.substr(separator + 1)};
}

// Where a file lies or would lie once it was created.
std::wstring PlaceOf(const std::string& path) {
  const std::wstring name = Openable(path);
  if (const FileHandle file = Open(name, FILE_READ_ATTRIBUTES, kShareAll)) {
    const std::wstring real = RealPath(file.get());
    return real.empty() ? name : real;
  }
  const auto [folder, last] = FolderAndName(name);
  const FileHandle opened = Open(folder, FILE_READ_ATTRIBUTES, kShareAll);
  const std::wstring real = opened ? RealPath(opened.get()) : std::wstring();
  if (real.empty()) {
    return name;
  }
  return real.ends_with(L'\\') ? real + last : real + L'\\' + last;
}

// A colon would name a stream inside another file.
bool IsName(const std::wstring& name) {
  return name.find_first_of(L":*?\"<>|") == std::wstring::npos;
}

fs::file_type TypeOf(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION info{};
  if (GetFileType(file) != FILE_TYPE_DISK || GetFileInformationByHandle(file, &info) == 0) {
    return fs::file_type::character;
  }
  const bool isFolder = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return isFolder ? fs::file_type::directory : fs::file_type::regular;
}

// Whether a regular file may be renamed over, as far as that can be told before.
std::error_code FindObstacle(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    return WindowsError(ERROR_ACCESS_DENIED);
  }
  // Others who have the file open allow that it is removed, or they do not.
  return Open(path, DELETE, kShareAll) ? std::error_code() : LastWindowsError();
}

// Gives a file who may do what with another. Best effort: not every file system knows of that.
void CopyAccess(const std::wstring& from, const std::wstring& to) {
  DWORD size = 0;
  GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
  std::vector<unsigned char> access(size);
  if (size != 0 &&
      GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, access.data(), size, &size) != 0) {
    SetFileSecurityW(to.c_str(), DACL_SECURITY_INFORMATION, access.data());
  }
}

// Reads or writes at a place of a file. The error's number, 0 for none.
template <class Transfer>
DWORD TransferAt(int descriptor, std::uint64_t offset, Transfer transfer) {
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>(offset);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32U);
  return transfer(HandleOf(descriptor), &place) != 0 ? 0 : GetLastError();
}

constexpr std::size_t kLargestTransfer = std::size_t{1} << 26U;

bool SetLength(HANDLE file, std::uint64_t size) {
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
  return SetFileInformationByHandle(file, FileEndOfFileInfo, &end, sizeof(end)) != 0;
}

}  // namespace

std::string OpenablePath(const std::string& path) {
  return Utf8FromWide(Openable(path));
}

fs::file_status FileStatus(const std::string& path, std::error_code& error) {
  error.clear();
  const FileHandle file = Open(Openable(path), FILE_READ_ATTRIBUTES, kShareAll);
  if (file) {
    return fs::file_status(TypeOf(file.get()));
  }
  error = LastWindowsError();
  const bool isMissing = error == std::errc::no_such_file_or_directory;
  return fs::file_status(isMissing ? fs::file_type::not_found : fs::file_type::none);
}

std::uint64_t FileSize(const std::string& path, std::error_code& error) {
  const FileHandle file = Open(Openable(path), FILE_READ_ATTRIBUTES, kShareAll);
  LARGE_INTEGER size{};
  const bool isKnown = file && GetFileSizeEx(file.get(), &size) != 0;
  error = isKnown ? std::error_code() : LastWindowsError();
  return isKnown ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

void ResizeFile(const std::string& path, std::uint64_t size, std::error_code& error) {
  const FileHandle file = Open(Openable(path), GENERIC_WRITE, kShareAll);
  error = file && SetLength(file.get(), size) ? std::error_code() : LastWindowsError();
}

bool LeadToSameFile(const std::string& first, const std::string& second) {
  const std::wstring one = PlaceOf(first);
  const std::wstring other = PlaceOf(second);
  return CompareStringOrdinal(one.c_str(), static_cast<int>(one.size()), other.c_str(),
                              static_cast<int>(other.size()), TRUE) == CSTR_EQUAL;
}

FileTarget InspectTarget(const std::string& path, std::error_code& error) {
  error.clear();
  const std::wstring name = Openable(path);
  if (name.starts_with(kDeviceMark)) {
    return {TargetKind::kOther, path};
  }
  if (!IsName(FolderAndName(name).second)) {
    error = WindowsError(ERROR_INVALID_NAME);
    return {};
  }
  const FileHandle file = Open(name, FILE_READ_ATTRIBUTES, kShareAll);
  if (!file) {
    error = LastWindowsError();
    if (error != std::errc::no_such_file_or_directory) {
      return {};
    }
    error.clear();
    const bool isLink = GetFileAttributesW(name.c_str()) != INVALID_FILE_ATTRIBUTES;
    return {isLink ? TargetKind::kBrokenLink : TargetKind::kNone, Utf8FromWide(name)};
  }
  if (TypeOf(file.get()) != fs::file_type::regular) {
    return {TargetKind::kOther, path};
  }
  const std::wstring real = RealPath(file.get());
  const std::wstring& found = real.empty() ? name : real;
  error = FindObstacle(found);
  return {TargetKind::kRegularFile, Utf8FromWide(found)};
}

int OpenToOverwrite(const std::string& path, std::error_code& error) {
  FileHandle file = Open(Openable(path), GENERIC_WRITE, kShareAll);
  error = file ? std::error_code() : LastWindowsError();
  return file ? _open_osfhandle(reinterpret_cast<intptr_t>(file.release()), _O_WRONLY | _O_BINARY)
              : -1;
}

int CreateFileInMemory(std::error_code& error) {
  error = std::make_error_code(std::errc::function_not_supported);
  return -1;
}

unsigned KeepForOwner(int /*descriptor*/, std::error_code& error) {
  error.clear();
  return 0;
}

std::error_code SetPermissions(int /*descriptor*/, unsigned /*permissions*/) {
  return {};
}

std::error_code FlushToDisk(int descriptor) {
  return FlushFileBuffers(HandleOf(descriptor)) != 0 ? std::error_code() : LastWindowsError();
}

std::error_code RenameOver(const std::string& path, const std::string& target) {
  const std::wstring from = Openable(path);
  const std::wstring to = Openable(target);
  CopyAccess(to, from);
  const bool isRenamed = MoveFileExW(from.c_str(), to.c_str(),
                                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
  return isRenamed ? std::error_code() : LastWindowsError();
}

void RemoveName(const std::string& path) {
  DeleteFileW(Openable(path).c_str());
}

std::optional<std::string> NameOfDescriptor(int /*descriptor*/) {
  return std::nullopt;
}

std::size_t ReadAt(int descriptor, std::uint64_t offset, std::span<char> bytes,
                   std::error_code& error) {
  error.clear();
  std::size_t done = 0;
  while (done < bytes.size()) {
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min(bytes.size() - done, kLargestTransfer));
    const DWORD number = TransferAt(descriptor, offset + done, [&](HANDLE file, OVERLAPPED* at) {
      return ReadFile(file, bytes.data() + done, wanted, &count, at);
    });
    if (number != 0 || count == 0) {
      error = number == 0 || number == ERROR_HANDLE_EOF ? std::error_code() : WindowsError(number);
      break;
    }
    done += count;
  }
  return done;
}

std::error_code WriteAt(int descriptor, std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min(bytes.size(), kLargestTransfer));
    const DWORD number = TransferAt(descriptor, offset, [&](HANDLE file, OVERLAPPED* at) {
      return WriteFile(file, bytes.data(), wanted, &count, at);
    });
    if (number != 0 || count == 0) {
      return WindowsError(number != 0 ? number : ERROR_DISK_FULL);
    }
    bytes = bytes.subspan(count);
    offset += count;
  }
  return {};
}

std::error_code CopyContent(int /*source*/, int /*target*/) {
  // Only files in memory are copied, and there are none.
  return std::make_error_code(std::errc::function_not_supported);
}

}  // namespace project_lumen
