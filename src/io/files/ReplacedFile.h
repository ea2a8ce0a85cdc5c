// The one way a result reaches the disk: written beside its target, flushed, and renamed over it.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "io/files/FileDescriptor.h"

namespace project_lumen::io {

// Why a result could not take its place. what() is the reason alone ("Permission denied", "not a
// regular file"); the writer that knows what it was writing builds the user's message around it.
class ReplacementError : public std::runtime_error {
 public:
  enum class Step {
    kInspect,  // the target's status could not be read
    kReplace,  // the target may not be replaced, or renaming over it failed
    kWrite,    // the temporary file could not be created or flushed
  };

  ReplacementError(Step step, const std::string& reason)
      : std::runtime_error(reason), step_(step) {}
  [[nodiscard]] Step FailedStep() const { return step_; }

 private:
  Step step_;
};

// What gives way to a new file.
enum class Replacing {
  kName,     // the name: whoever may create and remove files in the folder may do it
  kContent,  // the content: only where the file itself may be written
};

// A file under construction. It is created empty in the target's folder, under a hidden name of its
// own that ends like the target's ("….tif", "….fits.gz"), so the rename stays on one file system.
// Until Commit nobody but its owner can open it.
// Until Commit the target is untouched; without Commit the destructor removes the new file, and so
// does a signal that ends the process (common/UnfinishedFiles.h).
//
// A target that exists must be a regular file or a link to one, which is then replaced at the place
// the link points to. The new file takes over the permissions of the file it replaces.
//
// Where content is replaced and nothing can be created in the folder of a file that exists, the new
// file is made in memory, and Commit writes it over the old one: the one case in which a failure
// during Commit can leave a file that is neither. Room on the disk is made before.
class ReplacedFile {
 public:
  // Throws ReplacementError.
  explicit ReplacedFile(const std::string& target, Replacing replacing = Replacing::kName);
  ~ReplacedFile();
  ReplacedFile(const ReplacedFile&) = delete;
  ReplacedFile& operator=(const ReplacedFile&) = delete;

  // Where to write. The file may be overwritten, truncated or replaced by name until Commit. Empty
  // for a file in memory.
  [[nodiscard]] const std::string& TemporaryPath() const { return temporaryPath_; }

  // The same file as a descriptor for reading and writing, open since the file was created.
  [[nodiscard]] int Descriptor() const { return file_.Get(); }

  // A name that leads to the file behind Descriptor, whatever lies at TemporaryPath by then;
  // TemporaryPath where the system has no such names.
  [[nodiscard]] std::string SafePath() const;

  // Begins again with an empty file. What was written so far has lost its name and is read from the
  // descriptor that is returned. Throws ReplacementError.
  FileDescriptor StartAgain();

  // Flushes the new file to the disk and renames it over the target. Throws ReplacementError.
  void Commit();

 private:
  std::error_code TryToCreateTemporaryFile();
  void CreateTemporaryFile();
  void CreateFileInMemory(const std::error_code& reason);
  void CommitByName();
  void CommitInPlace();
  void RemoveTemporaryFile();

  std::string target_;
  std::string temporaryPath_;            // empty where there is none
  std::optional<unsigned> permissions_;  // none before a file was created where none was
  bool isInMemory_ = false;
  FileDescriptor file_;
};

}  // namespace project_lumen::io
