// The one way a result reaches the disk: written beside its target, flushed, and renamed over it.
#pragma once

#include <stdexcept>
#include <string>

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

// A file under construction. It is created empty in the target's folder, under a hidden name of its
// own that ends like the target's ("….tif", "….fits.gz"), so the rename stays on one file system.
// Until Commit the target is untouched; without Commit the destructor removes the new file, and so
// does a signal that ends the process (io/UnfinishedFiles.h).
//
// A target that exists must be a regular file or a link to one, which is then replaced at the place
// the link points to. The new file takes over the permissions of the file it replaces.
class ReplacedFile {
 public:
  // Throws ReplacementError.
  explicit ReplacedFile(const std::string& target);
  ~ReplacedFile();
  ReplacedFile(const ReplacedFile&) = delete;
  ReplacedFile& operator=(const ReplacedFile&) = delete;

  // Where to write. The file may be overwritten, truncated or replaced by name until Commit.
  [[nodiscard]] const std::string& TemporaryPath() const { return temporaryPath_; }

  // Flushes the new file to the disk and renames it over the target. Throws ReplacementError.
  void Commit();

 private:
  std::string target_;
  std::string temporaryPath_;
  unsigned permissions_;
  bool pending_ = false;
};

}  // namespace project_lumen::io
