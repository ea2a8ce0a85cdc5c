// The folder on disk that one run of the studio has for itself.
#pragma once

#include <cstdint>
#include <string>

#include "io/files/FileDescriptor.h"

namespace project_lumen::studio {

// A new folder in $XDG_CACHE_HOME/nebulex2-studio (~/.cache/nebulex2-studio), readable by its owner
// only, which is removed with everything in it in the end. Folders that earlier runs could not
// remove any more go when the next one starts; a lock tells them from those in use.
class SessionFolder {
 public:
  // Throws std::runtime_error with the message for the user.
  SessionFolder();
  ~SessionFolder();
  SessionFolder(const SessionFolder&) = delete;
  SessionFolder& operator=(const SessionFolder&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }

  // A new folder in it, by a name of its own that begins with `what`.
  [[nodiscard]] std::string MakeFolder(const std::string& what) const;

  // A new file without a name, for reading and writing, `bytes` long, with its room on the disk.
  // Throws ApiError 507 where there is none.
  [[nodiscard]] io::FileDescriptor MakeUnnamedFile(std::int64_t bytes) const;

 private:
  std::string path_;
  io::FileDescriptor lock_;
};

// $XDG_CONFIG_HOME/nebulex2-studio or ~/.config/nebulex2-studio; may not exist yet.
std::string SettingsFolder();

// The user's home folder; empty when the system does not tell.
std::string HomeFolder();

}  // namespace project_lumen::studio
