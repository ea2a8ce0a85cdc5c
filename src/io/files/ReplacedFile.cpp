#include "io/files/ReplacedFile.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>

#include "common/PlatformFiles.h"
#include "common/UnfinishedFiles.h"
#include "common/Utf8Path.h"

namespace project_lumen::io {
namespace {

using Step = ReplacementError::Step;

[[noreturn]] void Fail(Step step, const std::error_code& error) {
  throw ReplacementError(step, error.message());
}

void Check(Step step, const std::error_code& error) {
  if (error) {
    Fail(step, error);
  }
}

// The file that really is replaced; none yet, or a regular one.
FileTarget FindTarget(const std::string& path) {
  std::error_code error;
  FileTarget target = InspectTarget(path, error);
  Check(Step::kInspect, error);
  if (target.kind == TargetKind::kBrokenLink) {
    throw ReplacementError(Step::kReplace, "the link points to no file");
  }
  if (target.kind == TargetKind::kOther) {
    throw ReplacementError(Step::kReplace, "not a regular file");
  }
  return target;
}

// Opening changes nothing, and finds out whatever keeps the file from being written.
FileDescriptor OpenTarget(const std::string& path) {
  std::error_code error;
  FileDescriptor file(OpenToOverwrite(path, error));
  Check(Step::kReplace, error);
  return file;
}

// The name's last extension, or its last two for compressed files ("x.fits.gz" gives ".fits.gz").
std::string ExtensionOf(const std::string& path) {
  const std::filesystem::path name = FromUtf8(path).filename();
  const std::string last = ToUtf8(name.extension());
  return last == ".gz" || last == ".GZ" ? ToUtf8(name.stem().extension()) + last : last;
}

// A file of this name in the folder of another.
std::string Beside(const std::string& path, const std::string& name) {
  const std::filesystem::path folder = FromUtf8(path).parent_path();
  return ToUtf8((folder.empty() ? "." : folder) / FromUtf8(name));
}

// Whether the system will not have a new file in a folder, rather than being out of something.
bool IsRefusal(const std::error_code& error) {
  return error == std::errc::permission_denied || error == std::errc::operation_not_permitted ||
         error == std::errc::read_only_file_system;
}

void FlushAndClose(FileDescriptor& file) {
  Check(Step::kWrite, FlushToDisk(file.Get()));
  if (file.Close() != 0) {
    Fail(Step::kWrite, {errno, std::generic_category()});
  }
}

}  // namespace

ReplacedFile::ReplacedFile(const std::string& target, Replacing replacing) {
  FileTarget found = FindTarget(target);
  target_ = std::move(found.path);
  const bool exists = found.kind == TargetKind::kRegularFile;
  if (exists) {
    permissions_ = found.permissions;
  }
  const bool hasContent = replacing == Replacing::kContent && exists;
  if (hasContent) {
    OpenTarget(target_);
  }
  const std::error_code error = TryToCreateTemporaryFile();
  if (hasContent && IsRefusal(error)) {
    CreateFileInMemory(error);
  } else {
    Check(Step::kWrite, error);
  }
}

ReplacedFile::~ReplacedFile() {
  RemoveTemporaryFile();
}

std::error_code ReplacedFile::TryToCreateTemporaryFile() {
  static std::atomic<unsigned> counter = 0;
  constexpr unsigned kForItsOwner = 0600;
  constexpr unsigned kAsTheUmaskSays = 0666;
  const std::string prefix = ".nebulex2-" + std::to_string(getpid()) + "-";
  const std::string extension = ExtensionOf(target_);
  for (;;) {
    std::string name = prefix;
    name.append(std::to_string(counter++)).append(extension);
    std::string path = OpenablePath(Beside(target_, name));
    const int descriptor =
        CreateUnfinishedFile(path, permissions_ ? kForItsOwner : kAsTheUmaskSays);
    if (descriptor >= 0) {
      file_ = FileDescriptor(descriptor);
      temporaryPath_ = std::move(path);
      break;
    }
    if (descriptor != -EEXIST) {
      return {-descriptor, std::generic_category()};
    }
  }
  std::error_code error;
  if (!permissions_) {
    permissions_ = KeepForOwner(Descriptor(), error);
  }
  return error;
}

void ReplacedFile::CreateTemporaryFile() {
  Check(Step::kWrite, TryToCreateTemporaryFile());
}

void ReplacedFile::CreateFileInMemory(const std::error_code& reason) {
  std::error_code error;
  file_ = FileDescriptor(project_lumen::CreateFileInMemory(error));
  isInMemory_ = true;
  Check(Step::kWrite, error == std::errc::function_not_supported ? reason : error);
}

void ReplacedFile::RemoveTemporaryFile() {
  if (!temporaryPath_.empty()) {
    RemoveName(temporaryPath_);
    ForgetUnfinishedFile(temporaryPath_);
    temporaryPath_.clear();
  }
}

std::string ReplacedFile::SafePath() const {
  return NameOfDescriptor(Descriptor()).value_or(temporaryPath_);
}

FileDescriptor ReplacedFile::StartAgain() {
  FileDescriptor before = std::move(file_);
  RemoveTemporaryFile();
  CreateTemporaryFile();
  return before;
}

void ReplacedFile::Commit() {
  if (isInMemory_) {
    CommitInPlace();
  } else {
    CommitByName();
  }
}

void ReplacedFile::CommitByName() {
  Check(Step::kWrite, SetPermissions(Descriptor(), *permissions_));
  FlushAndClose(file_);
  Check(Step::kReplace, RenameOver(temporaryPath_, target_));
  ForgetUnfinishedFile(temporaryPath_);
  temporaryPath_.clear();
}

void ReplacedFile::CommitInPlace() {
  FileDescriptor target = OpenTarget(target_);
  Check(Step::kWrite, CopyContent(Descriptor(), target.Get()));
  FlushAndClose(target);
  file_.Close();
}

}  // namespace project_lumen::io
