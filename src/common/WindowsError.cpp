#include "common/WindowsError.h"

#include <windows.h>

namespace project_lumen {
namespace {

class InUse : public std::error_category {
 public:
  [[nodiscard]] const char* name() const noexcept override { return "in use"; }
  [[nodiscard]] std::string message(int /*value*/) const override {
    return "the file is open in another program";
  }
};

std::error_code CodeOf(std::errc condition) {
  return std::make_error_code(condition);
}

}  // namespace

std::error_code WindowsError(unsigned long number) {
  static const InUse kInUse;
  switch (number) {
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
      return {static_cast<int>(number), kInUse};
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
      return CodeOf(std::errc::no_such_file_or_directory);
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return CodeOf(std::errc::file_exists);
    case ERROR_ACCESS_DENIED:
      return CodeOf(std::errc::permission_denied);
    case ERROR_WRITE_PROTECT:
      return CodeOf(std::errc::read_only_file_system);
    case ERROR_DIRECTORY:
      return CodeOf(std::errc::not_a_directory);
    case ERROR_FILENAME_EXCED_RANGE:
      return CodeOf(std::errc::filename_too_long);
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return CodeOf(std::errc::no_space_on_device);
    case ERROR_FILE_TOO_LARGE:
      return CodeOf(std::errc::file_too_large);
    default:
      return {static_cast<int>(number), std::system_category()};
  }
}

std::error_code LastWindowsError() {
  return WindowsError(GetLastError());
}

}  // namespace project_lumen
