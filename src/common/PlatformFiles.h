// What systems do differently with files. Paths are UTF-8. Descriptors are those of the C library
// and stay the caller's; they are for bytes, never for text. Failures come as codes whose messages
// are the reasons to show.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <system_error>

namespace project_lumen {

// The path by which the C library, streams and image libraries open the file. On Linux the path
// itself; on Windows it is absolute, and marked as a long one where it is.
std::string OpenablePath(const std::string& path);

// As std::filesystem's functions of these names (links are followed), for paths of any length.
std::filesystem::file_status FileStatus(const std::string& path, std::error_code& error);
std::uint64_t FileSize(const std::string& path, std::error_code& error);
void ResizeFile(const std::string& path, std::uint64_t size, std::error_code& error);

// Whether two paths lead to one file, or would once it was created: by links, by other ways to its
// folder and, on Windows, in capitals and small letters.
bool LeadToSameFile(const std::string& first, const std::string& second);

// --- Files that give way to new ones ---

enum class TargetKind { kNone, kRegularFile, kBrokenLink, kOther };

struct FileTarget {
  TargetKind kind = TargetKind::kNone;
  std::string path;          // of the file that links lead to; as OpenablePath gives it
  unsigned permissions = 0;  // of a regular file, for SetPermissions
};

// What a path leads to. An error also for names that no file can have, and on Windows for a regular
// file that may not give way: it is read-only, or open in another program.
FileTarget InspectTarget(const std::string& path, std::error_code& error);

// Opens a file to write over its content, which stays for the time being. -1 for none.
int OpenToOverwrite(const std::string& path, std::error_code& error);

// A new file without a name, which goes with its descriptor. -1 for none, also where the system has
// no such files.
int CreateFileInMemory(std::error_code& error);

// Lets nobody but its owner open a new file, and returns the permissions it had. On Windows a file
// has those of its folder, and keeps them.
unsigned KeepForOwner(int descriptor, std::error_code& error);
std::error_code SetPermissions(int descriptor, unsigned permissions);

// Returns when the content is on the disk.
std::error_code FlushToDisk(int descriptor);

// Renames a closed file over another in the same folder, for good. On Windows the new file takes
// over who may do what with the old one.
std::error_code RenameOver(const std::string& path, const std::string& target);

// Takes the name away. The file itself lives on in descriptors that CreateUnfinishedFile gave.
void RemoveName(const std::string& path);

// A name that leads to the file behind a descriptor, whatever its own name leads to by now; none
// where the system has no such names.
std::optional<std::string> NameOfDescriptor(int descriptor);

// --- Content ---

// Fewer bytes than asked for at the end of the file, or with an error. On Windows moves the
// descriptor's position.
std::size_t ReadAt(int descriptor, std::uint64_t offset, std::span<char> bytes,
                   std::error_code& error);
std::error_code WriteAt(int descriptor, std::uint64_t offset, std::span<const std::uint8_t> bytes);

// Makes the content of `target` that of `source`. Room on the disk is made before; where there is
// none, the content stays.
std::error_code CopyContent(int source, int target);

}  // namespace project_lumen
